// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace devicectl {

/** How a word of a shell's command line is quoted. */
enum class Quoting {
    kBare,    ///< with backslashes
    kSingle,  ///< in single quotes that are still open
    kDouble,  ///< in double quotes that are still open
    kMixed,   ///< anything else
};

/** A command line up to the cursor, its words without their quotes. Nothing is expanded. A value. */
struct ShellLine {
    std::vector<std::string> words;    ///< complete ones
    std::string current;               ///< the word at the cursor; may be empty
    Quoting quoting = Quoting::kBare;  ///< of current
    size_t broken = 0;                 ///< bytes of current up to its last unquoted break character, included
};

/** Splits @p line as a shell would. @param breaks characters at which readline breaks a bare word. Pure. */
ShellLine splitShellLine(std::string_view line, std::string_view breaks);

/**
 * @p text as it stands on a shell's command line, so that the shell reads exactly these bytes.
 * @param quoting kSingle and kDouble: the opening quote is on the line already, and the closing one is not
 * added; kMixed gives nothing
 */
std::optional<std::string> shellQuoted(std::string_view text, Quoting quoting);

}  // namespace devicectl
