// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>

#include <map>
#include <string>
#include <vector>

#include "tools/devicectl/Choices.h"

namespace devicectl {

/** What the values of an option may be; one that is not listed may be anything. */
using ChoiceTable = std::map<const CLI::Option*, Choices>;

/**
 * What may stand after @p words: commands, options once @p current begins with a dash, or the values of the
 * argument that comes next. Any thread.
 */
Choices findChoices(const CLI::App& app, const ChoiceTable& table, const std::vector<std::string>& words,
                    const std::string& current);

}  // namespace devicectl
