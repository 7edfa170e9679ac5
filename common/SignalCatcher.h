// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The end of the process.
 */

/**
 * Catches crashes and requests to end alike: writes the stacks of all threads to standard error and exits
 * with status 0, whatever the signal. Supervisors restart the daemon always, not upon failure.
 *
 * The catcher allocates, prints and runs the exit handlers in signal context, where a lock that the
 * interrupted thread holds would hang it. So a time limit is set first, and a second signal during the catch
 * ends the process at once, both with status 0.
 *
 * A stack overflow is not caught: the handlers run on the stack of the thread at fault.
 */
class SignalCatcher {
  public:
    /** Seconds that a catch may take. */
    static constexpr unsigned kLimitSeconds = 10;

    /**
     * Installs the catcher. Once, by the main thread before it starts others.
     *
     * The first five signals are a condition: when one cannot be caught, a line on standard error names it
     * and the rest keep their defaults. Of the others, each that cannot be caught gets such a line: always
     * SIGKILL and SIGSTOP, which the kernel refuses.
     *
     * @return 0 always
     */
    static int install();

    /** As install(), with another limit: for tests. */
    static int installWithLimit(unsigned limitSeconds);
};
