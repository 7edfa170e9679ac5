// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "tools/devicectl/ExitCode.h"

namespace devicectl {

/**
 * Makes sure that the descriptors 0, 1 and 2 are open, so that no other file becomes one of them. A standard
 * output that was closed takes nothing: writing to it fails as before.
 */
void reserveStandardStreams();

/** Writes all of @p text to @p fd, waiting as long as it takes. @return 0 or the error's number. Any thread.
 */
int writeAll(int fd, std::string_view text);

/**
 * Writes @p text to standard output. A failure is reported on standard error, unless the reader just went.
 * @return kOk or kFailed
 */
ExitCode print(std::string_view text);

/** Writes "devicectl: ", @p text made safe for a terminal, and a newline to standard error. */
void reportError(std::string_view text);

/** Reports that standard output failed with @p error; says nothing of a reader that went (EPIPE). */
void reportOutputError(int error);

}  // namespace devicectl
