// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <cstdint>

namespace usb {

/**
 * The waits of the certification mode, some of which are minutes long, and their common end.
 *
 * A piece of work takes a Span at its beginning and hands it to every wait. stop() ends the spans at hand:
 * their waits return at once, those in progress and those to come. All operations: any thread.
 */
class UsbTestWait : public android::RefBase {
  public:
    /** From a piece of work's beginning to the next stop(). */
    class Span {
      private:
        friend class UsbTestWait;
        explicit Span(uint64_t stops) : mStops(stops) {}

        uint64_t mStops;  // the number of stops that it has outlived
    };

    UsbTestWait() = default;

    /** Lets the spans of spanWhileStarted() begin. */
    void start();

    /** Ends all spans; those of spanWhileStarted() are over from their beginning until the next start(). */
    void stop();

    /** For work that may also be done while nothing is started: lasts until the next stop(). */
    Span span() const;

    /** For work of a started manager: as span(), but over at once after stop() or before start(). */
    Span spanWhileStarted() const;

    /** Whether a stop() ended @p span. */
    bool isOver(const Span& span) const;

    /** Waits for @p duration nanoseconds. @return false, early, when @p span is or comes to its end */
    bool wait(const Span& span, nsecs_t duration);

    /** Waits for @p duration nanoseconds, whatever is stopped meanwhile; for the short ones. */
    void pause(nsecs_t duration);

  protected:
    ~UsbTestWait() override = default;

    /** How long a wait for @p duration takes; the seam by which tests shorten waits. Any thread. */
    virtual nsecs_t lengthOf(nsecs_t duration) { return duration; }

  private:
    bool isOverLocked(const Span& span) const REQUIRES(mLock);

    // No span has this number: what begins with it is over.
    static constexpr uint64_t kNever = 0;

    // Guards mStops and mStarted. Nothing is called with it held.
    mutable android::Mutex mLock;
    android::Condition mStopped;
    uint64_t mStops GUARDED_BY(mLock) = 1;
    bool mStarted GUARDED_BY(mLock) = false;
};

}  // namespace usb
