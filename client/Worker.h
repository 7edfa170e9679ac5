// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Thread.h>

#include "client/Session.h"

namespace client {

/** The thread "DeviceClient" of a session; it keeps the session until it ends. */
class Worker : public android::Thread {
  public:
    explicit Worker(const android::sp<Session>& session) : Thread(false), mSession(session) {}

  private:
    android::status_t readyToRun() override;
    bool threadLoop() override;

    const android::sp<Session> mSession;
};

}  // namespace client
