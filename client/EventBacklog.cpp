// SPDX-License-Identifier: Apache-2.0
#include "client/EventBacklog.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace client {

void EventBacklog::push(const Event& event) {
    if (mEvents.size() >= kLimit) {
        if (event.kind == Event::Kind::kRemoved && undo(event)) {
            return;
        }
        if (event.isNumbered()) {
            dropOldestNumbered();
        }
    }
    mEvents.push_back(event);
}

void EventBacklog::pushLoss(Service service) {
    const auto isOfPicture = [service](const Event& event) {
        return event.service == service && event.kind == Event::Kind::kPictureComplete;
    };
    mEvents.erase(std::remove_if(mEvents.begin(), mEvents.end(), isOfPicture), mEvents.end());
    // What was heard of a connection stays between its beginning and its end.
    const auto last = std::find_if(mEvents.rbegin(), mEvents.rend(),
                                   [service](const Event& event) { return event.service == service; });
    if (last != mEvents.rend() && last->kind == Event::Kind::kConnected) {
        mEvents.erase(std::prev(last.base()));
    } else {
        mEvents.push_back(Event::of(Event::Kind::kDisconnected, service));
    }
}

Event EventBacklog::pop() {
    Event event = std::move(mEvents.front());
    mEvents.pop_front();
    return event;
}

/** Takes away the arrival of what @p event says is gone. @return whether it was here */
bool EventBacklog::undo(const Event& event) {
    const auto arrival = std::find_if(mEvents.begin(), mEvents.end(), [&event](const Event& other) {
        return other.kind == Event::Kind::kAdded && other.isAboutTheSame(event);
    });
    if (arrival == mEvents.end()) {
        return false;
    }
    mEvents.erase(arrival);
    return true;
}

/** Makes room for a new numbered event, if that is possible at all. */
void EventBacklog::dropOldestNumbered() {
    const auto oldest =
        std::find_if(mEvents.begin(), mEvents.end(), [](const Event& event) { return event.isNumbered(); });
    if (oldest != mEvents.end()) {
        mEvents.erase(oldest);
        ++mLost;
    }
}

}  // namespace client
