// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>

#include "client/Session.h"

namespace client {

/**
 * A notifier that tells a session of one of its connections what it hears; a derived class names the record's
 * operations. Binder threads.
 *
 * @tparam Access what the session knows the manager by
 * @tparam NotifierItf the manager's notifier interface
 */
template <typename Access, typename NotifierItf>
class SessionNotifier : public NotifierItf {
  public:
    /** @param numbered the kind of the events that it hears by their numbers */
    SessionNotifier(const android::wp<Session>& session, uint64_t connection,
                    Event::Kind numbered = Event::Kind::kNumbered)
        : mSession(session), mConnection(connection), mNumbered(numbered) {}

    int32_t onEvent(int32_t event, int32_t value) override {
        return Session::hearNumber<Access>(mSession, mConnection, mNumbered, event, value);
    }

  protected:
    ~SessionNotifier() override = default;

    /** @p record came or went. @return 0, for the daemon */
    int32_t hear(bool added, const android::sp<typename Access::Record>& record) {
        return Session::hear<Access>(mSession, mConnection, added, record);
    }

  private:
    const android::wp<Session> mSession;
    const uint64_t mConnection;
    const Event::Kind mNumbered;
};

}  // namespace client
