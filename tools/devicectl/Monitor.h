// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <chrono>
#include <deque>
#include <optional>

#include "tools/devicectl/CommandLine.h"
#include "tools/devicectl/EventQueue.h"
#include "tools/devicectl/Printer.h"
#include "tools/devicectl/Registration.h"
#include "tools/devicectl/ServiceAccess.h"
#include "tools/devicectl/StopSignals.h"
#include "tools/devicectl/WakeUp.h"

namespace devicectl {

/**
 * The command monitor: a registered client that shows what it hears until it is told to end.
 *
 * Three kinds of threads: the binder threads fill the queue, the printer empties it, and the main thread, on
 * which all operations of this class run, waits for what ends the monitor and for the death of the daemon.
 */
class Monitor {
  public:
    /** Blocks SIGINT and SIGTERM: create it before any thread. */
    Monitor(const Options& options, const ServiceAccess& access);

    /** Runs to its end. @return the exit status; the caller ends the process without unwinding threads */
    ExitCode run();

  private:
    using Clock = std::chrono::steady_clock;

    ExitCode begin();
    void loop();
    void waitForSomething();
    bool isOver();
    void followDaemon();
    bool isRegistered() const;
    void tellService(Event::Kind kind, const char* service);
    void drain();
    ExitCode end();

    const Options& mOptions;
    const ServiceAccess& mAccess;
    StopSignals mSignals;
    const android::sp<WakeUp> mWakeUp;
    const android::sp<EventQueue> mQueue;
    const android::sp<Printer> mPrinter;
    /** In the order in which they are made; the device manager's comes last, and goes first. */
    std::deque<Registration> mRegistrations;
    std::optional<Clock::time_point> mDeadline;
    bool mStopped = false;     ///< by a signal
    bool mReaderGone = false;  ///< nobody reads standard output any more
};

}  // namespace devicectl
