// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/UsbCommandLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>

namespace devicectl {

namespace {

using Parse = std::optional<int> (*)(std::string_view text);

/** A word and the number that it stands for. */
struct Word {
    std::string_view text;
    int value;
};

/** Decimal, or hexadecimal after 0x. */
std::optional<int> number(std::string_view text) {
    int base = 10;
    if (text.substr(0, 2) == "0x") {
        text.remove_prefix(2);
        base = 16;
    }
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, base);
    const bool negativeHex = base == 16 && !text.empty() && text.front() == '-';
    return error == std::errc() && rest == end && !negativeHex ? std::optional(value) : std::nullopt;
}

template <int kFirst, int kLast>
std::optional<int> numberWithin(std::string_view text) {
    const std::optional<int> value = number(text);
    return value && *value >= kFirst && *value <= kLast ? value : std::nullopt;
}

template <size_t kCount>
std::optional<int> valueOf(const std::array<Word, kCount>& words, std::string_view text) {
    const auto found =
        std::find_if(words.begin(), words.end(), [text](const Word& word) { return word.text == text; });
    return found != words.end() ? std::optional(found->value) : std::nullopt;
}

std::optional<int> onOff(std::string_view text) {
    return valueOf(std::array<Word, 2>{{{"on", 1}, {"off", 0}}}, text);
}

std::optional<int> scheme(std::string_view text) {
    return valueOf(std::array<Word, 2>{{{"old-first", 1}, {"both", 0}}}, text);
}

std::optional<int> timeoutAction(std::string_view text) {
    return valueOf(std::array<Word, 2>{{{"reset", 1}, {"keep", 0}}}, text);
}

std::optional<int> appleFunction(std::string_view text) {
    return valueOf(std::array<Word, 4>{{{"network", 0}, {"accessory", 1}, {"host-on", 2}, {"host-off", 3}}},
                   text);
}

std::optional<int> chargingMode(std::string_view text) {
    return valueOf(std::array<Word, 3>{{{"c", 0}, {"d", 1}, {"s", 2}}}, text);
}

std::optional<int> certificationMode(std::string_view text) {
    return valueOf(std::array<Word, 3>{{{"normal", 'O'}, {"logo", 'M'}, {"devices", 'T'}}}, text);
}

/** One mode, or several with commas between them. */
std::optional<int> defaultModes(std::string_view text) {
    constexpr std::array<Word, 3> kModes{{{"apple", 1}, {"android", 2}, {"android-check", 4}}};
    int mask = 0;
    for (;;) {
        const size_t comma = text.find(',');
        const std::optional<int> mode = valueOf(kModes, text.substr(0, comma));
        if (!mode) {
            return std::nullopt;
        }
        mask |= *mode;
        if (comma == std::string_view::npos) {
            return mask;
        }
        text.remove_prefix(comma + 1);
    }
}

/** What a number on the command line may be. */
struct Number {
    const char* name;
    const char* help;
    const char* mustBe;  ///< of what is wrong with any other
    Parse parse;
    const char* choices = "";  ///< words that are often meant, with blanks between them
    LiveKind live = LiveKind::kNone;
};

constexpr Number kPort{"PORT", "Number of the port, 0 to 2", "must be a port from 0 to 2", numberWithin<0, 2>,
                       "0 1 2"};
constexpr Number kRolePort{"PORT", "Number of the port, 0 or 1; port 2 is a host's only",
                           "must be port 0 or 1", numberWithin<0, 1>, "0 1"};
constexpr Number kOnOff{"STATE", "on or off", "must be on or off", onOff, "on off"};
constexpr Number kId{"ID",
                     "Number of the device as the list shows it",
                     "must be a positive number",
                     numberWithin<1, INT32_MAX>,
                     "",
                     LiveKind::kUsbIds};
constexpr Number kFunction{"FUNCTION", "network, accessory, host-on or host-off",
                           "must be network, accessory, host-on or host-off", appleFunction,
                           "network accessory host-on host-off"};
constexpr Number kScheme{"SCHEME", "old-first or both", "must be old-first or both", scheme,
                         "old-first both"};
constexpr Number kModes{"MODES", "apple, android, android-check, or several with commas between them",
                        "must be apple, android, android-check, or several with commas between them",
                        defaultModes, "apple android android-check"};
constexpr Number kTimeoutAction{"ACTION", "reset or keep", "must be reset or keep", timeoutAction,
                                "reset keep"};
constexpr Number kMessage{"CODE", "Number of the message", "must be a number from 0",
                          numberWithin<0, INT32_MAX>};
constexpr Number kChargingMode{"MODE", "c, d or s", "must be c, d or s", chargingMode, "c d s"};
constexpr Number kTier{"TIER", "How many hubs may stand above a hub, 0 to 7", "must be a number from 0 to 7",
                       numberWithin<0, 7>, "0 1 2 3 4 5 6 7"};
constexpr Number kClass{"CLASS", "An interface's class, 0 to 255 or 0x00 to 0xff",
                        "must be a number from 0 to 255", numberWithin<0, 255>};
constexpr Number kCertificationMode{"MODE", "normal, logo or devices", "must be normal, logo or devices",
                                    certificationMode, "normal logo devices"};

/** Where a number goes. */
enum class Target { kNumber, kSecond, kOn };

struct NumberArgument {
    const Number* kind;
    Target target;
};

struct TextArgument {
    const char* name;
    const char* help;
    bool isPath;  ///< the daemon opens it: its working folder is not ours
};

constexpr const char* kNoGroup = nullptr;
constexpr NumberArgument kNone{nullptr, Target::kNumber};
constexpr TextArgument kNoText{nullptr, nullptr, false};
constexpr const char* kShellText =
    "\nThe text reaches a shell of the daemon as it stands, unquoted: what a shell would act upon, it acts "
    "upon.";

/** One operation. */
struct Row {
    const char* group;  ///< the command between usb and the operation
    const char* name;
    UsbOperation operation;
    NumberArgument first;
    NumberArgument second;
    TextArgument text;
    const char* summary;
    const char* details;
};

constexpr std::array kRows{
    Row{kNoGroup, "list", UsbOperation::kList, kNone, kNone, kNoText, "List the attached devices",
        "In the order in which they came, hubs included; an empty list is an answer (exit status 0).\n"
        "Vendors, products and classes have their names where the file usb.ids is there. Changes nothing."},
    Row{kNoGroup,
        "power",
        UsbOperation::kPower,
        {&kPort, Target::kNumber},
        {&kOnOff, Target::kOn},
        kNoText,
        "Turn the power of a port on or off",
        "Everything on a port without power is gone, as if it were unplugged; it comes back with the power.\n"
        "Volumes of disks on it are not unmounted before."},
    Row{kNoGroup,
        "reset",
        UsbOperation::kReset,
        {&kPort, Target::kNumber},
        kNone,
        kNoText,
        "Take the power of a port away for a second",
        "Everything on the port is gone and comes back as if it were plugged anew. Waits for that second."},
    Row{kNoGroup,
        "role",
        UsbOperation::kRole,
        {&kRolePort, Target::kNumber},
        kNone,
        kNoText,
        "Show whether a port is in the role of a host",
        "yes, or no with exit status 1, also when the unit does not tell. Changes nothing."},
    Row{kNoGroup,
        "switch",
        UsbOperation::kSwitch,
        {&kFunction, Target::kNumber},
        kNone,
        kNoText,
        "Set up what the unit is toward an Apple device",
        "network makes it a network adapter for CarPlay, accessory an accessory; both take the gadget down\n"
        "meanwhile. host-on and host-off turn the Apple function of the host's side on and off, and the "
        "Apple\n"
        "default mode off. While an Apple device is connected and the manager is started, nothing happens "
        "until\n"
        "that device is gone."},
    Row{kNoGroup,
        "role-switch",
        UsbOperation::kRoleSwitch,
        {&kId, Target::kNumber},
        kNone,
        kNoText,
        "Make an Apple phone the host and the unit its device",
        "The phone is asked as the function that was set up last wants it (see switch), with network only\n"
        "after it said that it supports CarPlay. It leaves the list of devices then. Exit status 1 if it "
        "did\n"
        "not take the request. Waits for the phone, two seconds at most."},
    Row{kNoGroup,
        "carplay",
        UsbOperation::kCarplay,
        {&kId, Target::kNumber},
        kNone,
        kNoText,
        "Ask an Apple phone whether it supports CarPlay",
        "yes, or no with exit status 1, also when the device does not answer within a second or is not "
        "there.\n"
        "Sends the device one request; changes nothing else."},
    Row{kNoGroup,
        "aoa",
        UsbOperation::kAoa,
        {&kId, Target::kNumber},
        kNone,
        kNoText,
        "Ask an Android phone whether it has accessory mode",
        "yes, or no with exit status 1, also when the device does not answer within 100 ms or is not "
        "there.\n"
        "Sends the device one request; changes nothing else."},

    Row{"config",
        "scheme",
        UsbOperation::kScheme,
        {&kScheme, Target::kOn},
        kNone,
        kNoText,
        "Set how the kernel enumerates new devices",
        "old-first: by the old scheme alone; both: by the new one, and the old one when that fails. Devices "
        "that\n"
        "are there keep what they have."},
    Row{"config",
        "default-mode",
        UsbOperation::kDefaultMode,
        {&kModes, Target::kNumber},
        {&kOnOff, Target::kOn},
        kNoText,
        "Turn default modes of the kernel's host stack on or off",
        "The Android mode is written again at every plug while it is on. Does nothing while the unit runs "
        "for\n"
        "certification. Stopping the manager turns apple and android off."},
    Row{"config",
        "aoa-description",
        UsbOperation::kAoaDescription,
        kNone,
        kNone,
        {"FILE", "Absolute path of a property file", true},
        "Set what the unit tells Android phones of itself",
        "The daemon reads the keys AoaFeature.* of the file and sets those that it finds; a phone that is "
        "in\n"
        "accessory mode hears nothing of it. Exit status 1 when the file cannot be read.\n"
        "The values reach a shell of the daemon as they stand, unquoted."},
    Row{"config",
        "aoa-exclude",
        UsbOperation::kAoaExclude,
        kNone,
        kNone,
        {"SERIAL", "Serial number of the phone", false},
        "Leave one Android phone out of accessory mode",
        "By its serial number; the one set before is in again."},
    Row{"config",
        "aoa-timeout",
        UsbOperation::kAoaTimeout,
        {&kTimeoutAction, Target::kOn},
        kNone,
        kNoText,
        "Set what becomes of an accessory that takes no data",
        "reset: a write that times out resets the device; keep: it does not."},
    Row{"config",
        "iap-name",
        UsbOperation::kIapName,
        kNone,
        kNone,
        {"NAME", "The name", false},
        "Name the gadget's node of the Apple accessory protocol",
        "The node is called mfi_iap_NAME from its next "
        "set-up on."},
    Row{"config",
        "ean-name",
        UsbOperation::kEanName,
        kNone,
        kNone,
        {"NAME", "The name", false},
        "Name the gadget's node of external accessories",
        "The node is called mfi_ean_NAME from its next set-up on."},
    Row{"config",
        "ean-string",
        UsbOperation::kEanString,
        kNone,
        kNone,
        {"NAME", "The name", false},
        "Name the protocol of external accessories",
        "The phone sees it from the gadget's next set-up on."},
    Row{"config",
        "auto-role",
        UsbOperation::kAutoRole,
        {&kOnOff, Target::kOn},
        kNone,
        kNoText,
        "Let the kernel switch the roles of phones by itself, or not",
        "Of phones that come from then on."},

    Row{"test",
        "post",
        UsbOperation::kTestPost,
        {&kMessage, Target::kNumber},
        kNone,
        kNoText,
        "Put the ports into a test mode of the certification",
        "See docs/certification.md for the codes. Refused (exit status 1) in normal operation; without "
        "effect\n"
        "while the manager is stopped."},
    Row{"test",
        "charging",
        UsbOperation::kTestGetCharging,
        {&kPort, Target::kNumber},
        {&kChargingMode, Target::kSecond},
        kNoText,
        "Show a port's charging mode, or switch to another",
        "Without MODE shows what is stored: c, d, s or unknown. With MODE stores it and takes the port's "
        "power\n"
        "away meanwhile; everything on it is gone and comes back. Waits for the charging driver as long as "
        "it\n"
        "takes, or --timeout. Works in normal operation too."},
    Row{"test",
        "hub-tier",
        UsbOperation::kTestHubTier,
        {&kTier, Target::kNumber},
        kNone,
        kNoText,
        "Set how deep hubs may nest before it is reported",
        "Refused (exit status 1) in normal operation. Lasts until the daemon ends."},
    Row{"test",
        "refuse-class",
        UsbOperation::kTestRefuseClass,
        {&kClass, Target::kNumber},
        kNone,
        kNoText,
        "Report interfaces of a class as unsupported",
        "Refused (exit status 1) in normal operation. Lasts until the daemon ends."},
    Row{"test",
        "accept-class",
        UsbOperation::kTestAcceptClass,
        {&kClass, Target::kNumber},
        kNone,
        kNoText,
        "Take refuse-class back",
        "Refused (exit status 1) in normal operation."},
    Row{"test",
        "mode",
        UsbOperation::kTestGetMode,
        {&kCertificationMode, Target::kNumber},
        kNone,
        kNoText,
        "Show the certification mode, or set that of the next start",
        "Without MODE shows the mode that the daemon runs in. With MODE stores it: the daemon takes it up "
        "when\n"
        "it is started the next time. In logo and devices mode it reports test events and switches roles "
        "when\n"
        "test devices come: not for a unit in use."},
};

/** With an argument that may be left out, the operation that is meant when it is there. */
std::optional<UsbOperation> operationWithArgument(UsbOperation operation) {
    switch (operation) {
        case UsbOperation::kTestGetCharging:
            return UsbOperation::kTestSetCharging;
        case UsbOperation::kTestGetMode:
            return UsbOperation::kTestSetMode;
        default:
            return std::nullopt;
    }
}

bool reachesShell(UsbOperation operation) {
    return operation == UsbOperation::kAoaExclude || operation == UsbOperation::kIapName ||
           operation == UsbOperation::kEanName || operation == UsbOperation::kEanString;
}

void setTarget(UsbRequest& request, Target target, int value) {
    switch (target) {
        case Target::kNumber:
            request.number = value;
            break;
        case Target::kSecond:
            request.second = value;
            break;
        case Target::kOn:
            request.on = value != 0;
            break;
    }
}

CLI::Option& addNumber(CLI::App& command, const std::shared_ptr<UsbRequest>& request,
                       const NumberArgument& argument) {
    const Number& kind = *argument.kind;
    return *command
                .add_option_function<std::string>(
                    kind.name,
                    [request, argument](const std::string& text) {
                        setTarget(*request, argument.target, argument.kind->parse(text).value_or(0));
                    },
                    kind.help)
                ->type_name("")
                ->required()
                ->check([&kind](const std::string& text) {
                    return std::string(kind.parse(text) ? "" : kind.mustBe);
                });
}

void addText(CLI::App& command, const std::shared_ptr<UsbRequest>& request, const TextArgument& argument) {
    command.add_option(argument.name, request->text, argument.help)
        ->type_name("")
        ->required()
        ->check([isPath = argument.isPath](const std::string& text) -> std::string {
            return !isPath || text.substr(0, 1) == "/" ? "" : "must be an absolute path: the daemon opens it";
        });
}

/** The words of a text with blanks between them. */
std::vector<std::string> wordsOf(const char* text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

void addRow(CLI::App& parent, const Row& row, const std::string& footer, ChoiceTable* choices,
            const std::function<void(const UsbRequest&)>& chosen) {
    CLI::App& command = *parent.add_subcommand(row.name, row.summary);
    command.fallthrough();
    command.footer(std::string(row.details) + (reachesShell(row.operation) ? kShellText : "") + "\n\n" +
                   footer);

    const auto request = std::make_shared<UsbRequest>();
    request->operation = row.operation;
    request->name = row.name;
    CLI::Option* last = nullptr;
    for (const NumberArgument& argument : {row.first, row.second}) {
        if (argument.kind != nullptr) {
            last = &addNumber(command, request, argument);
            (*choices)[last] = {wordsOf(argument.kind->choices), argument.kind->live};
        }
    }
    if (row.text.name != nullptr) {
        addText(command, request, row.text);
    }
    const std::optional<UsbOperation> withArgument = operationWithArgument(row.operation);
    if (withArgument) {
        last->required(false);
    }
    command.callback([request, chosen, withArgument, last] {
        if (withArgument && last->count() > 0) {
            request->operation = *withArgument;
        }
        chosen(*request);
    });
}

CLI::App& addGroup(CLI::App& parent, const char* name, const char* summary, const std::string& footer) {
    CLI::App& group = *parent.add_subcommand(name, summary);
    group.fallthrough();
    group.footer(footer);
    group.require_subcommand(1);
    return group;
}

}  // namespace

void addUsbCommands(CLI::App& app, const std::string& footer, ChoiceTable* choices,
                    const std::function<void(const UsbRequest&)>& chosen) {
    CLI::App& usb = addGroup(app, "usb", "Ask and configure the USB manager", footer);
    CLI::App& config = addGroup(usb, "config", "Set parameters of the kernel's USB drivers", footer);
    CLI::App& test = addGroup(usb, "test", "The certification test mode", footer);
    for (const Row& row : kRows) {
        const std::string_view group = row.group != nullptr ? row.group : "";
        CLI::App& parent = group == "config" ? config : group == "test" ? test : usb;
        addRow(parent, row, footer, choices, chosen);
    }
}

}  // namespace devicectl
