// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/devicectl/Choices.h"

namespace devicectl {

/*
 * Completion of command lines. What the candidates are called comes from media and devices and ends up on a
 * shell's command line: everything that a shell would act upon is quoted, and what no line can hold is left
 * out.
 */

/** Asks the daemon for the words of a kind, for a moment at most; bytes as they are. */
using AskLive = std::function<std::vector<std::string>(LiveKind kind)>;

/** The candidates that begin with @p current, each once, in the order in which they are known. Any thread. */
std::vector<std::string> candidatesFor(const std::vector<std::string>& words, const std::string& current,
                                       const AskLive& ask);

/**
 * The replies to bash for the end of @p line, the command line up to the cursor with the program's name.
 *
 * Each is quoted in the manner in which the user began the word, and begins where readline's word does:
 * behind the last of @p wordBreaks (bash's COMP_WORDBREAKS) in it. Any thread.
 */
std::vector<std::string> bashReplies(std::string_view line, std::string_view wordBreaks, const AskLive& ask);

}  // namespace devicectl
