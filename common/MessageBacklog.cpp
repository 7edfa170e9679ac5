// SPDX-License-Identifier: Apache-2.0
#include "common/MessageBacklog.h"

#include <algorithm>
#include <iterator>
#include <utility>

using android::Looper;
using android::Message;
using android::MessageHandler;
using android::Mutex;
using android::sp;

namespace {

/** The code of the one message that the looper gets; it has no meaning. */
constexpr int kFirstWaits = 0;

}  // namespace

void MessageBacklog::post(const sp<Looper>& looper, const sp<MessageHandler>& handler,
                          const Message& message) {
    Mutex::Autolock lock(mLock);
    mWaiting.push_back({handler, message, systemTime(SYSTEM_TIME_MONOTONIC)});
    if (mWaiting.size() == 1) {
        announceFirstLocked(looper);
    }
}

void MessageBacklog::remove(const sp<Looper>& looper, const sp<MessageHandler>& handler, int what) {
    std::deque<Waiting> removed;
    Mutex::Autolock lock(mLock);
    const auto stays = [&handler, what](const Waiting& waiting) {
        return waiting.handler != handler || waiting.message.what != what;
    };
    const auto firstRemoved = std::stable_partition(mWaiting.begin(), mWaiting.end(), stays);
    removed.assign(std::make_move_iterator(firstRemoved), std::make_move_iterator(mWaiting.end()));
    if (removed.empty()) {
        return;
    }
    mWaiting.erase(firstRemoved, mWaiting.end());
    announceFirstLocked(looper);
}

void MessageBacklog::handleMessage(const Message&) {
    Waiting first;
    {
        Mutex::Autolock lock(mLock);
        // Removed while the looper was about to call.
        if (mWaiting.empty()) {
            return;
        }
        first = std::move(mWaiting.front());
        mWaiting.pop_front();
        announceFirstLocked(Looper::getForThread());
    }
    first.handler->handleMessage(first.message);
}

void MessageBacklog::announceFirstLocked(const sp<Looper>& looper) {
    // One that was removed may be announced, under an earlier time.
    looper->removeMessages(this, kFirstWaits);
    if (!mWaiting.empty()) {
        looper->sendMessageAtTime(mWaiting.front().postedAt, this, Message(kFirstWaits));
    }
}
