// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include <cstdint>

/**
 * What the wrappers of registered clients have in common: each is a local notifier that forwards every
 * notification to its client's binder.
 *
 * A service derives its wrapper from NotifierWapper<its notifier interface, the clients' binder interface>,
 * asserts the binder, and forwards each operation beside onEvent() to mNotifier. Any thread.
 *
 * The spelling of the name is part of the interface.
 */
template <typename NotifierItf, typename Interface>
class NotifierWapper : public NotifierItf {
  public:
    int32_t onEvent(int32_t event, int32_t value) override { return mNotifier->onEvent(event, value); }

  protected:
    /** @param notifier the client's binder; null is left to the derived class to assert */
    explicit NotifierWapper(const android::sp<android::IBinder>& notifier)
        : mNotifier(android::interface_cast<Interface>(notifier)) {}
    ~NotifierWapper() override = default;

    const android::sp<Interface> mNotifier;
};
