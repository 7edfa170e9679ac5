// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "tools/devicectl/ExitCode.h"

namespace devicectl {

/**
 * Ends the program, with a line on standard error and kFailed, if it lives for too long: around calls of
 * other processes, which take as long as those like when they hang or are stopped.
 *
 * One at a time in the process, but for those without a limit; uses SIGALRM.
 */
class CallLimit {
  public:
    /**
     * @param seconds 0 sets no limit
     * @param who     who is asked, for the line
     */
    CallLimit(unsigned seconds, std::string_view who);

    /** As above, ending with @p code and the line @p text, none if that is empty. */
    CallLimit(unsigned seconds, ExitCode code, std::string_view text);
    ~CallLimit();

    CallLimit(const CallLimit&) = delete;
    CallLimit& operator=(const CallLimit&) = delete;

  private:
    const bool mIsArmed;
};

}  // namespace devicectl
