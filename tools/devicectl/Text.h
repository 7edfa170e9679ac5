// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace devicectl {

/*
 * Text of devices is whatever bytes the hardware and the kernel gave: these functions make it fit to be
 * shown. Pure functions, any thread.
 */

/** True if @p text is well-formed UTF-8 (no overlong forms, no surrogates). */
bool isUtf8(std::string_view text);

/**
 * @p text as one line that no terminal takes for a command: control characters, line and direction controls
 * of Unicode and bytes that are not UTF-8 become \xNN, byte by byte, and a backslash is doubled.
 */
std::string escapeLine(std::string_view text);

/** As escapeLine(), for a text of several lines: newlines, tabs and backslashes stay as they are. */
std::string escapeText(std::string_view text);

}  // namespace devicectl
