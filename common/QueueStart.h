// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "common/MessageQueue.h"

/**
 * Starts @p queue for an owner whose producers start next: each attempt of MessageQueue::start() waits about
 * 100 ms, and on a loaded unit the thread may still be on its way when the first one, having logged so, gives
 * up. Any thread; hold no lock that a message handler takes.
 *
 * @return whether messages can be posted
 */
inline bool startQueue(const android::sp<MessageQueue>& queue) {
    constexpr int kAttempts = 50;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (queue->start()) {
            return true;
        }
    }
    return false;
}
