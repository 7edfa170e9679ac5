// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/devicectl/Choices.h"
#include "tools/devicectl/ColorChoice.h"
#include "tools/devicectl/ExitCode.h"
#include "tools/devicectl/Render.h"
#include "tools/devicectl/UsbRequest.h"
#include "tools/devicectl/WaitRequest.h"

namespace devicectl {

/** What the user asked for. */
struct Options {
    enum class Command {
        kStart,
        kStop,
        kDeviceGet,
        kDeviceAncestors,
        kDeviceController,
        kVolumes,
        kUsb,
        kMonitor,
        kDump,
        kServices,
        kStatus,
        kWait,
        kWatch,
    };

    Command command = Command::kServices;
    Format format = Format::kHuman;
    ColorMode color = ColorMode::kAuto;
    /** How long one answer may take, of wait the whole of it; 0 waits for ever. */
    unsigned answerSeconds = 30;

    std::string manager;                 ///< start, stop: one manager's name; empty for all
    std::string subsystem;               ///< device get
    std::string name;                    ///< device get
    std::string path;                    ///< device ancestors
    int controllerType = 0;              ///< device controller
    int controllerId = 0;                ///< device controller
    std::string service;                 ///< dump; UTF-8
    std::vector<std::string> arguments;  ///< dump; each UTF-8
    std::optional<double> forSeconds;    ///< monitor; not negative
    std::optional<uint64_t> count;       ///< monitor; positive
    bool properties = false;             ///< monitor
    UsbRequest usb;                      ///< usb
    WaitRequest wait;                    ///< wait
};

/** Either options, or what to print and the exit status. */
struct ParsedLine {
    std::optional<Options> options;
    ExitCode exitCode = kOk;
    std::string output;  ///< for standard output: help or version
    std::string error;   ///< one line without its end, for standard error
};

/** Parses the arguments without the program's name. Has no effect on anything. Any thread. */
ParsedLine parseCommandLine(const std::vector<std::string>& arguments);

/**
 * What may stand at the end of a command line, for a shell's completion.
 *
 * @param words   the words before, without the program's name
 * @param current as far as it is written; may be empty
 */
Choices choicesAfter(const std::vector<std::string>& words, const std::string& current);

}  // namespace devicectl
