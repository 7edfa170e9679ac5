// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

#include "tools/devicectl/EventQueue.h"
#include "tools/devicectl/Render.h"
#include "tools/devicectl/WakeUp.h"

namespace devicectl {

/**
 * Writes the events of a queue to a descriptor, on a thread of its own, which may be held up there for ever
 * without holding up anybody else. Each event is one write where the descriptor takes it.
 *
 * Ends when the queue is closed and empty, when it has written so many of the daemon's events as it was told
 * to, or when the descriptor fails; it closes the queue then.
 */
class Printer : public virtual android::RefBase {
  public:
    struct Style {
        Format format = Format::kHuman;
        bool properties = false;
        std::optional<uint64_t> count;  ///< events of the daemon to write; no limit if absent
    };

    /** @param end posted when the printer ends */
    Printer(const android::sp<EventQueue>& queue, int fd, const Style& style, const android::sp<WakeUp>& end)
        : mQueue(queue), mFd(fd), mStyle(style), mEnd(end) {}

    /** Starts the thread, which keeps this object for as long as it runs. Once. */
    void start();

    /** Waits for the end for @p limit at most. @return whether it came. Any thread. */
    bool waitEnd(std::chrono::milliseconds limit);

    /** Whether it ended, for whatever reason. Any thread. */
    bool isOver();

    /** Number of the descriptor's error; 0 for none. Any thread. */
    int error();

    /** The daemon's events written so far. Any thread. */
    uint64_t printed();

  protected:
    ~Printer() override = default;

  private:
    void run();
    /** @return whether there is more to write */
    bool write(const Event& event);

    const android::sp<EventQueue> mQueue;
    const int mFd;
    const Style mStyle;
    const android::sp<WakeUp> mEnd;

    /** Guards the members below. */
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mOver = false;
    int mError = 0;
    uint64_t mPrinted = 0;
};

}  // namespace devicectl
