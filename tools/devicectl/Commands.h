// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tools/devicectl/CommandLine.h"
#include "tools/devicectl/ExitCode.h"
#include "tools/devicectl/ServiceAccess.h"

namespace devicectl {

/*
 * The commands that ask, print and end. Each reports its failures on standard error and returns the exit
 * status. Main thread.
 */

/** start and stop. Ends at the first manager that cannot be reached. */
ExitCode runManagerCommand(const Options& options, const ServiceAccess& access);

/** device get, device ancestors and device controller. */
ExitCode runDeviceCommand(const Options& options, const ServiceAccess& access);

/** volumes */
ExitCode runVolumes(const Options& options, const ServiceAccess& access);

/** usb. Asks, or changes what the operation says. */
ExitCode runUsbCommand(const Options& options, const ServiceAccess& access);

/** dump */
ExitCode runDump(const Options& options, const ServiceAccess& access);

/** services */
ExitCode runServices(const Options& options);

/** status */
ExitCode runStatus(const Options& options);

/** watch */
ExitCode runWatch(const Options& options);

/**
 * What a shell's completion asks: "bash LINE WORDBREAKS" or "words WORD...". Prints the candidates, one on a
 * line; says nothing of failures, which would stand in the middle of somebody's command line.
 */
ExitCode runComplete(const std::vector<std::string>& arguments);

}  // namespace devicectl
