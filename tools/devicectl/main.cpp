// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/devicectl/CommandLine.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/LibraryLog.h"
#include "tools/devicectl/Monitor.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/Wait.h"

namespace devicectl {

namespace {

/** Options whose format is what the terminal and the environment make of it. */
Options withFormat(Options options) {
    // No other thread is there yet.
    const char* const noColor = getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe)
    const char* const terminal = getenv("TERM");     // NOLINT(concurrency-mt-unsafe)
    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    if (options.format == Format::kHuman && usesColor(options.color, isTerminal, noColor, terminal)) {
        options.format = Format::kColor;
    }
    return options;
}

ExitCode runCommand(const Options& options) {
    // These two are patient with a service manager that is not there yet.
    if (options.command == Options::Command::kWait) {
        return Wait(options).run();
    }
    if (options.command == Options::Command::kWatch) {
        return runWatch(options);
    }
    const ServiceAccess access(options.answerSeconds);
    const ExitCode environment = access.checkEnvironment();
    if (environment != kOk) {
        return environment;
    }
    switch (options.command) {
        case Options::Command::kStart:
        case Options::Command::kStop:
            return runManagerCommand(options, access);
        case Options::Command::kVolumes:
            return runVolumes(options, access);
        case Options::Command::kUsb:
            return runUsbCommand(options, access);
        case Options::Command::kMonitor:
            return Monitor(options, access).run();
        case Options::Command::kDump:
            return runDump(options, access);
        case Options::Command::kServices:
            return runServices(options);
        case Options::Command::kStatus:
            return runStatus(options);
        default:
            return runDeviceCommand(options, access);
    }
}

ExitCode runLine(const std::vector<std::string>& arguments) {
    // For the scripts of completion alone, which hand over what may look like options.
    if (!arguments.empty() && arguments[0] == "complete") {
        return runComplete({arguments.begin() + 1, arguments.end()});
    }
    const ParsedLine line = parseCommandLine(arguments);
    if (line.options) {
        return runCommand(withFormat(*line.options));
    }
    if (line.exitCode != kOk) {
        reportError(line.error);
        return line.exitCode;
    }
    return print(line.output);
}

}  // namespace

}  // namespace devicectl

int main(int argc, char** argv) {
    devicectl::reserveStandardStreams();
    devicectl::quietLibraries();
    std::signal(SIGPIPE, SIG_IGN);
    const int code = devicectl::runLine(std::vector<std::string>(argv + std::min(argc, 1), argv + argc));
    // Binder threads may run on, and one may be held up for good: nothing is torn down under them.
    _exit(code);
}
