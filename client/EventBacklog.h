// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <deque>

#include "client/Event.h"

namespace client {

/**
 * Events that the application has not heard yet, oldest first; bounded whatever the application does.
 *
 * Under its owner's lock.
 */
class EventBacklog {
  public:
    /** From this many on, what cancels out is left out. */
    static constexpr size_t kLimit = 256;

    /** Adds @p event. One that undoes another that is still here takes that one away instead. */
    void push(const Event& event);

    /**
     * @p service was lost: its picture is not complete any more. A connection that was not told yet and that
     * nothing of the service follows is undone; else the loss is to be told, after all that waits.
     */
    void pushLoss(Service service);

    bool isEmpty() const { return mEvents.empty(); }
    size_t size() const { return mEvents.size(); }

    /** Takes the oldest event; there must be one. */
    Event pop();

    void clear() { mEvents.clear(); }

    /** Numbered events that were left out so far. */
    size_t lostCount() const { return mLost; }

  private:
    bool undo(const Event& event);
    void dropOldestNumbered();

    std::deque<Event> mEvents;
    size_t mLost = 0;
};

}  // namespace client
