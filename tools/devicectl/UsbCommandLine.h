// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "tools/devicectl/CommandChoices.h"
#include "tools/devicectl/UsbRequest.h"

namespace devicectl {

/**
 * Adds the command usb with all its operations to @p app.
 *
 * @param footer  ends the help of each
 * @param choices is told what the arguments may be
 * @param chosen  called with the request when the line names an operation
 */
void addUsbCommands(CLI::App& app, const std::string& footer, ChoiceTable* choices,
                    const std::function<void(const UsbRequest&)>& chosen);

}  // namespace devicectl
