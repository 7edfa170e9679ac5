// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "tools/devicectl/Event.h"

namespace devicectl {

/**
 * Carries events from the binder threads, which must return to the daemon at once, to the thread that prints
 * and may be held up by whoever reads.
 *
 * Without a limit on purpose: nothing is dropped and the daemon never waits. A reader that stands still costs
 * this process about 1 KiB of memory for each event, nobody else anything.
 *
 * All operations: any thread.
 */
class EventQueue : public virtual android::RefBase {
  public:
    /** Adds @p event at the end; after close() it is dropped. Never blocks on a reader. */
    void push(Event event);

    /**
     * Adds that the daemon told of @p record just now, as an event of @p kind.
     * @param member where the event keeps it
     * @return 0, for the daemon
     */
    template <typename Record>
    int32_t pushRecord(Event::Kind kind, android::sp<Record> Event::*member,
                       const android::sp<Record>& record) {
        Event event = Event::now(kind);
        event.*member = record;
        push(std::move(event));
        return 0;
    }

    /** Adds that the daemon told of the event @p code just now, as an event of @p kind. @return 0, for the
     * daemon */
    int32_t pushCode(Event::Kind kind, int32_t code, int32_t value);

    /** Waits for the next event and takes it; empty once the queue is closed and everything is taken. */
    std::optional<Event> pop();

    /** Lets no more events in. What is queued can still be taken. */
    void close();

  protected:
    ~EventQueue() override = default;

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    /** Guarded by mLock. */
    std::deque<Event> mEvents;
    /** Guarded by mLock. */
    bool mClosed = false;
};

}  // namespace devicectl
