// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace devicectl {

/**
 * Ends the program, with a line on standard error and kFailed, if it lives for too long: around calls of
 * other processes, which take as long as those like when they hang or are stopped.
 *
 * One at a time in the process; uses SIGALRM.
 */
class CallLimit {
  public:
    /**
     * @param seconds 0 sets no limit
     * @param who     who is asked, for the line
     */
    CallLimit(unsigned seconds, std::string_view who);
    ~CallLimit();

    CallLimit(const CallLimit&) = delete;
    CallLimit& operator=(const CallLimit&) = delete;
};

}  // namespace devicectl
