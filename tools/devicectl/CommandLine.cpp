// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

#include "device/DeviceManagerItf.h"
#include "device/IDeviceManager.h"
#include "tools/devicectl/CommandChoices.h"
#include "tools/devicectl/Managers.h"
#include "tools/devicectl/Text.h"
#include "tools/devicectl/UsbCommandLine.h"
#include "usb/IUsbManager.h"
#include "volume/IVolumeManager.h"

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
    "  6  what was waited for was not there in time\n"
    "\n"
    "Options of the program may stand before or after the command. What follows -- is never an option.\n"
    "The driver's node is /dev/binder, or what the environment variable BINDER_DEVICE names.";

constexpr const char* kCommonOptions =
    "The options --json, --color and --timeout and the exit statuses are in devicectl --help.";

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

constexpr Help kStatusHelp{"Show services, their clients and what they hold at a glance",
                           "Exit status 0 if all three services answer; 3 if one is not registered, 4 if one "
                           "is dead, 1 if one gives "
                           "no\nanswer within two seconds. Changes nothing."};
constexpr Help kWaitServiceHelp{
    "Wait for a service, or for all three of the daemon, to answer",
    "Returns at once if it does already. Waits for the service manager too. Changes nothing."};
constexpr Help kWaitVolumeHelp{
    "Wait for a volume to be listed and mounted",
    "By its name, such as sda1, or its label. Returns when the volume is mounted, as this process sees it, "
    "and "
    "not\nbefore; at once if it is already. Waits for daemon and service manager too. A volume that cannot "
    "be "
    "mounted\nis waited for in vain. Registers one client with the volume manager meanwhile."};
constexpr Help kWaitUsbHelp{"Wait for a USB device to be listed by the USB manager",
                            "By vendor and product, up to four hexadecimal digits each. At once if it is "
                            "already. Waits for daemon and "
                            "service\nmanager too. Registers one client with the USB manager meanwhile."};
constexpr Help kWatchHelp{
    "Show services, controllers, USB devices and volumes with their usage, live, on the whole terminal",
    "Needs a terminal. q or Ctrl-C ends it, arrows, j and k scroll. Registers one client each with the "
    "volume "
    "and\nthe USB manager. Outlives the daemon."};
constexpr const char* kAllServices = "all";

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

/** Up to four hexadecimal digits. */
std::optional<uint32_t> usbNumber(const std::string& text) {
    uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, 16);
    const bool fine = error == std::errc() && rest == end && text.size() <= 4;
    return fine ? std::optional(value) : std::nullopt;
}

struct UsbPair {
    uint32_t vendor;
    uint32_t product;
};

std::optional<UsbPair> usbPair(const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const std::optional<uint32_t> vendor = usbNumber(text.substr(0, colon));
    const std::optional<uint32_t> product = usbNumber(text.substr(colon + 1));
    return vendor && product ? std::optional(UsbPair{*vendor, *product}) : std::nullopt;
}

std::string mustBeUsbPair(const std::string& text) {
    return usbPair(text) ? "" : "must be VENDOR:PRODUCT in hexadecimal, such as 05ac:12a8";
}

std::string mustNotBeEmpty(const std::string& text) {
    return text.empty() ? "must not be empty" : "";
}

std::optional<ColorMode> colorMode(const std::string& text) {
    return text == "auto"     ? std::optional(ColorMode::kAuto)
           : text == "always" ? std::optional(ColorMode::kAlways)
           : text == "never"  ? std::optional(ColorMode::kNever)
                              : std::nullopt;
}

std::string mustBeColorMode(const std::string& text) {
    return colorMode(text) ? "" : "must be auto, always or never";
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
        CLI::Option* const color =
            mApp.add_option_function<std::string>(
                    "--color",
                    [this](const std::string& text) {
                        mOptions.color = colorMode(text).value_or(ColorMode::kAuto);
                    },
                    "Colors: auto (default; on a terminal, unless NO_COLOR is set), always or never")
                ->type_name("WHEN")
                ->check(mustBeColorMode);
        mChoices[color] = {{"auto", "always", "never"}};
        mApp.add_option_function<std::string>(
                "--timeout",
                [this](const std::string& text) {
                    mOptions.answerSeconds = number<unsigned>(text).value_or(0);
                },
                "Seconds that one answer of a service may take, and wait in all (default: 30; 0: no limit)")
            ->type_name("SECONDS")
            ->check(mustBeTimeout);
        mApp.require_subcommand(1);
        mApp.footer(kExitCodes);
        addManagerCommands();
        addDeviceCommands();
        add(mApp, "volumes", kVolumesHelp, Options::Command::kVolumes);
        addUsbCommands(mApp, kCommonOptions, &mChoices, [this](const UsbRequest& request) {
            mOptions.command = Options::Command::kUsb;
            mOptions.usb = request;
        });
        addMonitor();
        addWatch();
        addWait();
        addServiceCommands();
    }

    CLI::App& app() { return mApp; }
    const ChoiceTable& choices() const { return mChoices; }

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
            CLI::Option* const manager =
                command->add_option("MANAGER", mOptions.manager, which)->type_name("")->check(mustBeManager);
            mChoices[manager] = {{"volume", "usb", "device"}};
        }
    }

    void addDeviceCommands() {
        CLI::App& device = *mApp.add_subcommand("device", "Ask the device manager");
        device.fallthrough();
        device.footer(kCommonOptions);
        device.require_subcommand(1);

        CLI::App& get = *add(device, "get", kGetHelp, Options::Command::kDeviceGet);
        // The one subsystem of which it is safe to ask.
        mChoices[addText(get, "SUBSYSTEM", mOptions.subsystem, "The kernel's subsystem, such as block")] = {
            {"block"}};
        mChoices[addText(get, "NAME", mOptions.name, "The device's DEVNAME, such as sda")] = {
            {}, LiveKind::kNodes};

        CLI::App& ancestors = *add(device, "ancestors", kAncestorsHelp, Options::Command::kDeviceAncestors);
        addText(ancestors, "PATH", mOptions.path, "A path below the sysfs root, such as /devices/...");

        CLI::App& controller =
            *add(device, "controller", kControllerHelp, Options::Command::kDeviceController);
        CLI::Option* const type = controller
                                      .add_option_function<std::string>(
                                          "TYPE",
                                          [this](const std::string& text) {
                                              mOptions.controllerType = controllerType(text).value_or(0);
                                          },
                                          "usb, card or the type's number")
                                      ->type_name("")
                                      ->required()
                                      ->check(mustBeControllerType);
        mChoices[type] = {{"usb", "card"}};
        CLI::Option* const id = controller
                                    .add_option_function<std::string>(
                                        "ID",
                                        [this](const std::string& text) {
                                            mOptions.controllerId = number<int>(text).value_or(0);
                                        },
                                        "Number of the controller, from 0")
                                    ->type_name("")
                                    ->required()
                                    ->check(mustBeNumber);
        mChoices[id] = {{"0", "1", "2"}};
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

    void addWatch() {
        CLI::App* const watch = mApp.add_subcommand("watch", kWatchHelp.summary);
        watch->fallthrough();
        watch->footer(std::string(kWatchHelp.details) + "\n\n" + kCommonOptions);
        watch->final_callback([this] {
            mOptions.command = Options::Command::kWatch;
            if (mJson) {
                throw CLI::ValidationError("watch",
                                           "shows a picture and no JSON; monitor --json is for programs");
            }
        });
    }

    void addWait() {
        CLI::App& wait = *mApp.add_subcommand(
            "wait", "Wait until a service, a volume or a USB device is there with all that belongs to it");
        wait.fallthrough();
        wait.footer(
            std::string(
                "Ends with status 0 once it is there and prints what it found, or with status 6 after "
                "--timeout seconds (30;\n0: never).\n\n") +
            kCommonOptions);
        wait.require_subcommand(1);

        CLI::Option* const service =
            addWaitFor(wait, "service", kWaitServiceHelp, WaitRequest::Kind::kService, "NAME",
                       "Name of the service, or all for the three of the daemon");
        service->check(mustBeUtf8);
        mChoices[service] = {{kAllServices, device::IDeviceManager::kServiceName,
                              volume::IVolumeManager::kServiceName, usb::IUsbManager::kServiceName},
                             LiveKind::kServices};
        mChoices[addWaitFor(wait, "volume", kWaitVolumeHelp, WaitRequest::Kind::kVolume, "VOLUME",
                            "Name or label of the volume")] = {{}, LiveKind::kVolumes};
        CLI::Option* const usb = addWaitFor(wait, "usb", kWaitUsbHelp, WaitRequest::Kind::kUsb,
                                            "VENDOR:PRODUCT", "The device's numbers, such as 05ac:12a8");
        usb->check(mustBeUsbPair);
        mChoices[usb] = {{}, LiveKind::kUsbNumbers};
    }

    CLI::Option* addWaitFor(CLI::App& wait, const char* name, const Help& help, WaitRequest::Kind kind,
                            const char* argument, const char* argumentHelp) {
        CLI::App* const added = wait.add_subcommand(name, help.summary);
        added->fallthrough();
        added->footer(std::string(help.details) + "\n\n" + kCommonOptions);
        added->callback([this, kind] {
            mOptions.command = Options::Command::kWait;
            mOptions.wait.kind = kind;
            const std::optional<UsbPair> pair =
                kind == WaitRequest::Kind::kUsb ? usbPair(mOptions.wait.text) : std::nullopt;
            if (pair) {
                mOptions.wait.vendor = pair->vendor;
                mOptions.wait.product = pair->product;
            }
        });
        return added->add_option(argument, mOptions.wait.text, argumentHelp)
            ->type_name("")
            ->required()
            ->check(mustNotBeEmpty);
    }

    void addServiceCommands() {
        CLI::App& dump = *add(mApp, "dump", kDumpHelp, Options::Command::kDump);
        CLI::Option* const service =
            addText(dump, "SERVICE", mOptions.service, "Name of a service, such as DeviceManager")
                ->check(mustBeUtf8);
        mChoices[service] = {{device::IDeviceManager::kServiceName, volume::IVolumeManager::kServiceName,
                              usb::IUsbManager::kServiceName},
                             LiveKind::kServices};
        CLI::Option* const argument =
            dump.add_option("ARG", mOptions.arguments, "Arguments, handed to the service")
                ->type_name("")
                ->check(mustBeUtf8);
        mChoices[argument] = {{"notifier"}};

        add(mApp, "services", kServicesHelp, Options::Command::kServices);
        add(mApp, "status", kStatusHelp, Options::Command::kStatus);
    }

    static CLI::Option* addText(CLI::App& command, const char* name, std::string& target, const char* help) {
        return command.add_option(name, target, help)->type_name("")->required();
    }

    CLI::App mApp{"Command-line client of the device service.", "devicectl"};
    Options mOptions;
    ChoiceTable mChoices;
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

/** The command whose help tells what would have been right: the last one that was understood. */
std::string helpFor(const CLI::App& app) {
    std::string command = app.get_name();
    for (std::vector<CLI::App*> below = app.get_subcommands(); !below.empty();
         below = below.back()->get_subcommands()) {
        command += " " + below.back()->get_name();
    }
    return command + " --help";
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
        line.error = explain(error, definition.app()) + " (" + helpFor(definition.app()) + " explains)";
    }
    return line;
}

Choices choicesAfter(const std::vector<std::string>& words, const std::string& current) {
    Definition definition;
    return findChoices(definition.app(), definition.choices(), words, current);
}

}  // namespace devicectl
