// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace devicectl {

/**
 * Exit statuses of the program. Scripts depend on the values; --help, docs/devicectl.md and the manual page
 * list them.
 */
enum ExitCode : int {
    kOk = 0,
    kFailed = 1,      ///< the answer is "no" (no such device, no such controller), or another failure
    kUsage = 2,       ///< the command line is wrong; nothing was done
    kNoService = 3,   ///< the service is not registered, or there is no service manager
    kDaemonDied = 4,  ///< the service's process is dead or died during the call
    kNoDriver = 5,    ///< the binder driver is missing, unusable or not accessible
    kTimedOut = 6,    ///< what was waited for was not there in time
};

}  // namespace devicectl
