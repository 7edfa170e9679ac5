// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace devicectl {

/** What the user wants of colors. */
enum class ColorMode { kAuto, kAlways, kNever };

/**
 * Whether to use colors. With kAuto on a terminal only, unless the environment asks for none.
 *
 * @param isTerminal whether the output is one
 * @param noColor    value of NO_COLOR, null if unset; any text but the empty one asks for no colors
 * @param terminal   value of TERM, null if unset; "dumb" has none
 */
bool usesColor(ColorMode mode, bool isTerminal, const char* noColor, const char* terminal);

}  // namespace devicectl
