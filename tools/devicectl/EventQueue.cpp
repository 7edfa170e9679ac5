// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/EventQueue.h"

#include <utility>

namespace devicectl {

void EventQueue::push(Event event) {
    const std::lock_guard<std::mutex> lock(mLock);
    if (mClosed) {
        return;
    }
    mEvents.push_back(std::move(event));
    mChanged.notify_one();
}

int32_t EventQueue::pushCode(Event::Kind kind, int32_t code, int32_t value) {
    Event event = Event::now(kind);
    event.code = code;
    event.value = value;
    push(std::move(event));
    return 0;
}

std::optional<Event> EventQueue::pop() {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [this] { return mClosed || !mEvents.empty(); });
    if (mEvents.empty()) {
        return std::nullopt;
    }
    Event event = std::move(mEvents.front());
    mEvents.pop_front();
    return event;
}

void EventQueue::close() {
    const std::lock_guard<std::mutex> lock(mLock);
    mClosed = true;
    mChanged.notify_all();
}

}  // namespace devicectl
