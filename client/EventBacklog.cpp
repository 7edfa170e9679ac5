// SPDX-License-Identifier: Apache-2.0
#include "client/EventBacklog.h"

#include <algorithm>
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
    bool wasTold = true;
    const auto isOfConnection = [service, &wasTold](const Event& event) {
        const bool connected = event.kind == Event::Kind::kConnected;
        if (event.service != service || !(connected || event.kind == Event::Kind::kPictureComplete)) {
            return false;
        }
        wasTold = wasTold && !connected;
        return true;
    };
    mEvents.erase(std::remove_if(mEvents.begin(), mEvents.end(), isOfConnection), mEvents.end());
    if (wasTold) {
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
