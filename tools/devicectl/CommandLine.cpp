// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

#include "device/DeviceManagerItf.h"
#include "tools/devicectl/Managers.h"
#include "tools/devicectl/Text.h"
#include "tools/devicectl/UsbCommandLine.h"

namespace devicectl {

namespace {

constexpr unsigned kMaxAnswerSeconds = 86400;
constexpr double kMaxMonitorSeconds = 1e9;

constexpr const char* kExitCodes =
    "Exit status:\n"
    "  0  done\n"
    "  1  the answer is no (no such device, the phone does not support it), or another failure\n"
    "  2  wrong command line; nothing was done\n"
    "  3  the service is not registered, or there is no service manager\n"
    "  4  the daemon is dead or died during the call\n"
    "  5  no usable binder driver\n"
    "\n"
    "Options of the program may stand before or after the command. What follows -- is never an option.\n"
    "The driver's node is /dev/binder, or what the environment variable BINDER_DEVICE names.";

constexpr const char* kCommonOptions =
    "The options --json and --timeout and the exit statuses are in devicectl --help.";

/** A command's help: one line for lists, and what else its own help says. */
struct Help {
    const char* summary;
    const char* details;
};

constexpr Help kStartHelp{
    "Start managers: the daemon begins to follow the kernel's events",
    "From then on the daemon lists the devices that come and reports to its clients, beginning with what "
    "the\n"
    "kernel kept of the events since the daemon came up or was stopped (64 KiB, about 150 events). Devices "
    "that\n"
    "were there before the daemon stay unlisted. A manager that runs already is left as it is."};
constexpr Help kStopHelp{
    "Stop managers: the daemon no longer follows events",
    "The daemon lives on and keeps its clients and its list, but no client hears of anything before the "
    "next\n"
    "start, and what is more than the kernel keeps until then (64 KiB, about 150 events) is lost to all. A\n"
    "manager that is stopped already is left as it is."};
constexpr Help kGetHelp{
    "Show a device with all its properties",
    "Exit status 1 if there is none. Changes nothing.\n"
    "Ask only for subsystems whose devices all have a node, such as block: in a subsystem where a device "
    "has\n"
    "none (usb, mmc), the question ends the daemon, and with it the service for every client."};
constexpr Help kAncestorsHelp{
    "List the devices above a path: those whose paths begin it",
    "In the order in which they came; an empty list is an answer (exit status 0). Changes nothing."};
constexpr Help kControllerHelp{"Show the path of a controller of the unit",
                               "Exit status 1 if it is not known; the daemon then logs an error. Changes "
                               "nothing else."};
constexpr Help kVolumesHelp{
    "List the volumes: partitions and disks that the daemon found, and where they are mounted",
    "In ascending order of the device names; an empty list is an answer (exit status 0). A volume that "
    "could\n"
    "not be read, or is not mounted, shows - where nothing is known. Changes nothing."};
constexpr Help kMonitorHelp{
    "Show devices, USB devices and volumes as they come and go, until SIGINT or SIGTERM",
    "Registers one client with each service of the daemon and removes it at the end. When the daemon "
    "dies, says so, waits for\n"
    "its return and registers again.\n"
    "Events are taken at once, whatever becomes of the output: a reader that stands "
    "still costs memory of this\n"
    "program (about 1 KiB an event) and never holds up the daemon. A reader that "
    "goes away ends the monitor."};
constexpr Help kDumpHelp{
    "Show what a service tells of its state",
    "The device service tells its devices without arguments, its registered clients with the argument "
    "notifier.\n"
    "The service writes into memory, never into the output of this program. Changes nothing."};
constexpr Help kServicesHelp{
    "List the services and whether they live",
    "alive, dead, or silent (no answer within two seconds). Asks every service once; changes nothing."};

/** Decimal only: leading zeros make no octal number here. */
template <typename Number>
std::optional<Number> number(const std::string& text) {
    Number value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

std::optional<int> controllerType(const std::string& text) {
    if (text == "usb") {
        return device::kControllerUsbHost;
    }
    if (text == "card") {
        return device::kControllerCard;
    }
    return number<int>(text);
}

std::string mustBeManager(const std::string& name) {
    return findManager(name) != nullptr ? "" : "no manager " + name + "; there are: " + managerNames();
}

std::string mustBeControllerType(const std::string& text) {
    return controllerType(text) ? "" : "must be usb, card or a number";
}

std::string mustBeNumber(const std::string& text) {
    return number<int>(text) ? "" : "must be a number";
}

/** The services' texts are UTF-16: other bytes have no counterpart there. */
std::string mustBeUtf8(const std::string& text) {
    return isUtf8(text) ? "" : "is not UTF-8";
}

std::string mustBeSeconds(const std::string& text) {
    double value = 0;
    const bool fine = CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value >= 0 &&
                      value <= kMaxMonitorSeconds;
    return fine ? "" : "must be a number of seconds from 0 to 1000000000";
}

std::string mustBeTimeout(const std::string& text) {
    const std::optional<unsigned> seconds = number<unsigned>(text);
    return seconds && *seconds <= kMaxAnswerSeconds ? "" : "must be a number of seconds from 0 to 86400";
}

std::string mustBeCount(const std::string& text) {
    return number<uint64_t>(text).value_or(0) > 0 ? "" : "must be a positive number";
}

/** The definition of the command line around the options that it fills. */
class Definition {
  public:
    Definition() {
        mApp.set_help_flag("-h,--help", "Show help and exit");
        mApp.set_version_flag("--version", std::string("devicectl ") + DEVICE_SERVICE_VERSION,
                              "Show the version and exit");
        mApp.add_flag("--json", mJson,
                      "Print JSON: one object on one line; a monitor prints one for each event");
        mApp.add_option_function<std::string>(
                "--timeout",
                [this](const std::string& text) {
                    mOptions.answerSeconds = number<unsigned>(text).value_or(0);
                },
                "Seconds that one answer of a service may take (default: 30; 0: no limit)")
            ->type_name("SECONDS")
            ->check(mustBeTimeout);
        mApp.require_subcommand(1);
        mApp.footer(kExitCodes);
        addManagerCommands();
        addDeviceCommands();
        add(mApp, "volumes", kVolumesHelp, Options::Command::kVolumes);
        addUsbCommands(mApp, kCommonOptions, [this](const UsbRequest& request) {
            mOptions.command = Options::Command::kUsb;
            mOptions.usb = request;
        });
        addMonitor();
        addServiceCommands();
    }

    CLI::App& app() { return mApp; }

    Options options() const {
        Options options = mOptions;
        options.format = mJson ? Format::kJson : Format::kHuman;
        return options;
    }

  private:
    CLI::App* add(CLI::App& parent, const char* name, const Help& help, Options::Command command) {
        CLI::App* const added = parent.add_subcommand(name, help.summary);
        added->fallthrough();
        added->footer(std::string(help.details) + "\n\n" + kCommonOptions);
        added->callback([this, command] { mOptions.command = command; });
        return added;
    }

    void addManagerCommands() {
        const std::string which = "One of: " + managerNames() + " (default: all)";
        for (CLI::App* const command : {add(mApp, "start", kStartHelp, Options::Command::kStart),
                                        add(mApp, "stop", kStopHelp, Options::Command::kStop)}) {
            command->add_option("MANAGER", mOptions.manager, which)->type_name("")->check(mustBeManager);
        }
    }

    void addDeviceCommands() {
        CLI::App& device = *mApp.add_subcommand("device", "Ask the device manager");
        device.fallthrough();
        device.footer(kCommonOptions);
        device.require_subcommand(1);

        CLI::App& get = *add(device, "get", kGetHelp, Options::Command::kDeviceGet);
        addText(get, "SUBSYSTEM", mOptions.subsystem, "The kernel's subsystem, such as block");
        addText(get, "NAME", mOptions.name, "The device's DEVNAME, such as sda");

        CLI::App& ancestors = *add(device, "ancestors", kAncestorsHelp, Options::Command::kDeviceAncestors);
        addText(ancestors, "PATH", mOptions.path, "A path below the sysfs root, such as /devices/...");

        CLI::App& controller =
            *add(device, "controller", kControllerHelp, Options::Command::kDeviceController);
        controller
            .add_option_function<std::string>(
                "TYPE",
                [this](const std::string& text) {
                    mOptions.controllerType = controllerType(text).value_or(0);
                },
                "usb, card or the type's number")
            ->type_name("")
            ->required()
            ->check(mustBeControllerType);
        controller
            .add_option_function<std::string>(
                "ID",
                [this](const std::string& text) { mOptions.controllerId = number<int>(text).value_or(0); },
                "Number of the controller, from 0")
            ->type_name("")
            ->required()
            ->check(mustBeNumber);
    }

    void addMonitor() {
        CLI::App& monitor = *add(mApp, "monitor", kMonitorHelp, Options::Command::kMonitor);
        monitor.add_option("--for", mOptions.forSeconds, "End by itself after this time")
            ->type_name("SECONDS")
            ->check(mustBeSeconds);
        monitor
            .add_option_function<std::string>(
                "--count", [this](const std::string& text) { mOptions.count = number<uint64_t>(text); },
                "End by itself after so many events; exit status 1 if --for ends it before")
            ->type_name("N")
            ->check(mustBeCount);
        monitor.add_flag("--properties", mOptions.properties, "Show the properties of what arrives, too");
    }

    void addServiceCommands() {
        CLI::App& dump = *add(mApp, "dump", kDumpHelp, Options::Command::kDump);
        addText(dump, "SERVICE", mOptions.service, "Name of a service, such as DeviceManager")
            ->check(mustBeUtf8);
        dump.add_option("ARG", mOptions.arguments, "Arguments, handed to the service")
            ->type_name("")
            ->check(mustBeUtf8);

        add(mApp, "services", kServicesHelp, Options::Command::kServices);
    }

    static CLI::Option* addText(CLI::App& command, const char* name, std::string& target, const char* help) {
        return command.add_option(name, target, help)->type_name("")->required();
    }

    CLI::App mApp{"Command-line client of the device service.", "devicectl"};
    Options mOptions;
    bool mJson = false;
};

std::string oneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && (text.back() == ' ' || text.back() == '.')) {
        text.pop_back();
    }
    return text;
}

/** What is wrong, in one line. */
std::string explain(const CLI::Error& error, const CLI::App& app) {
    const std::vector<std::string> unexpected = app.remaining(true);
    // A word that is no command is told as a missing command otherwise.
    const bool strayWord =
        error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) && !unexpected.empty();
    return strayWord ? "not a command or option: " + unexpected.front() : oneLine(error.what());
}

}  // namespace

ParsedLine parseCommandLine(const std::vector<std::string>& arguments) {
    Definition definition;
    ParsedLine line;
    // The parser reports through exceptions; none leaves this function.
    try {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        definition.app().parse(std::move(reversed));
        line.options = definition.options();
    } catch (const CLI::CallForHelp&) {
        line.output = definition.app().help();
    } catch (const CLI::CallForVersion& version) {
        line.output = std::string(version.what()) + "\n";
    } catch (const CLI::Error& error) {
        line.exitCode = kUsage;
        line.error = explain(error, definition.app()) + " (devicectl --help explains)";
    }
    return line;
}

}  // namespace devicectl
