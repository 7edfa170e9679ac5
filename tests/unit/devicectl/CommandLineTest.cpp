// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace devicectl {

using testing::ElementsAre;
using testing::HasSubstr;
using Command = Options::Command;
using Line = std::vector<std::string>;

namespace {

Options parsed(const Line& line) {
    const ParsedLine result = parseCommandLine(line);
    EXPECT_TRUE(result.options.has_value()) << result.error;
    EXPECT_EQ(result.exitCode, kOk);
    EXPECT_EQ(result.output + result.error, "");
    return result.options.value_or(Options());
}

std::string usageError(const Line& line) {
    const ParsedLine result = parseCommandLine(line);
    EXPECT_FALSE(result.options.has_value());
    EXPECT_EQ(result.exitCode, kUsage);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error.find('\n'), std::string::npos) << result.error;
    return result.error;
}

TEST(CommandLine, ManagerCommands) {
    EXPECT_EQ(parsed({"start"}).command, Command::kStart);
    EXPECT_EQ(parsed({"start"}).manager, "");
    EXPECT_EQ(parsed({"stop"}).command, Command::kStop);
    EXPECT_EQ(parsed({"stop", "device"}).manager, "device");
    EXPECT_EQ(parsed({"start", "device"}).command, Command::kStart);
    EXPECT_THAT(usageError({"start", "engine"}),
                HasSubstr("no manager engine; there are: volume, usb, device"));
    usageError({"start", "device", "device"});
}

TEST(CommandLine, Volumes) {
    EXPECT_EQ(parsed({"volumes"}).command, Command::kVolumes);
    EXPECT_EQ(parsed({"volumes", "--json"}).format, Format::kJson);
    EXPECT_EQ(parsed({"start", "volume"}).manager, "volume");
    EXPECT_EQ(parsed({"stop", "volume"}).manager, "volume");
    usageError({"volumes", "sda1"});
}

TEST(CommandLine, StatusAndWatch) {
    EXPECT_EQ(parsed({"status"}).command, Command::kStatus);
    EXPECT_EQ(parsed({"status", "--json"}).format, Format::kJson);
    EXPECT_EQ(parsed({"watch"}).command, Command::kWatch);
    EXPECT_THAT(usageError({"watch", "--json"}), HasSubstr("no JSON"));
    usageError({"status", "all"});
}

TEST(CommandLine, Color) {
    EXPECT_EQ(parsed({"volumes"}).color, ColorMode::kAuto);
    EXPECT_EQ(parsed({"--color", "always", "volumes"}).color, ColorMode::kAlways);
    EXPECT_EQ(parsed({"volumes", "--color=never"}).color, ColorMode::kNever);
    EXPECT_EQ(parsed({"volumes", "--color", "auto"}).color, ColorMode::kAuto);
    EXPECT_THAT(usageError({"volumes", "--color", "red"}), HasSubstr("must be auto, always or never"));
}

TEST(CommandLine, DeviceGet) {
    const Options options = parsed({"device", "get", "block", "sda"});
    EXPECT_EQ(options.command, Command::kDeviceGet);
    EXPECT_EQ(options.subsystem, "block");
    EXPECT_EQ(options.name, "sda");
    EXPECT_EQ(parsed({"device", "get", "\xff", ""}).subsystem, "\xff");
    EXPECT_THAT(usageError({"device", "get", "block"}), HasSubstr("NAME"));
    EXPECT_THAT(usageError({"device", "get"}), HasSubstr("SUBSYSTEM"));
    usageError({"device", "get", "a", "b", "c"});
    usageError({"device"});
    EXPECT_THAT(usageError({"device", "find"}), HasSubstr("not a command or option: find"));
}

TEST(CommandLine, AnErrorNamesTheHelpOfItsCommand) {
    const auto pointsTo = [](const Line& line) {
        const std::string error = usageError(line);
        const size_t begin = error.rfind(" (");
        return begin == std::string::npos ? "" : error.substr(begin);
    };
    EXPECT_EQ(pointsTo({}), " (devicectl --help explains)");
    EXPECT_EQ(pointsTo({"device", "get"}), " (devicectl device get --help explains)");
    EXPECT_EQ(pointsTo({"--json", "start", "engine"}), " (devicectl start --help explains)");
    EXPECT_EQ(pointsTo({"usb", "config"}), " (devicectl usb config --help explains)");
    EXPECT_EQ(pointsTo({"usb", "config", "scheme", "x"}), " (devicectl usb config scheme --help explains)");
    EXPECT_EQ(pointsTo({"watch", "--json"}), " (devicectl watch --help explains)");
    EXPECT_EQ(pointsTo({"engine"}), " (devicectl --help explains)");
    // That help exists.
    EXPECT_THAT(parseCommandLine({"usb", "config", "scheme", "--help"}).output, HasSubstr("SCHEME"));
}

TEST(CommandLine, DeviceAncestors) {
    const Options options = parsed({"device", "ancestors", "/devices/x"});
    EXPECT_EQ(options.command, Command::kDeviceAncestors);
    EXPECT_EQ(options.path, "/devices/x");
    usageError({"device", "ancestors"});
}

TEST(CommandLine, DeviceController) {
    const auto typeOf = [](const char* text) {
        return parsed({"device", "controller", text, "1"}).controllerType;
    };
    EXPECT_EQ(typeOf("usb"), 1);
    EXPECT_EQ(typeOf("card"), 2);
    EXPECT_EQ(typeOf("1"), 1);
    EXPECT_EQ(typeOf("017"), 17);
    EXPECT_EQ(typeOf("-3"), -3);
    EXPECT_EQ(typeOf("2147483647"), 2147483647);
    for (const char* const wrong : {"USB", "", "1x", "x1", "2147483648", "0x1", "1.0", " 1", "+1", "-"}) {
        EXPECT_THAT(usageError({"device", "controller", "--", wrong, "0"}),
                    HasSubstr("usb, card or a number"))
            << wrong;
    }
    const auto idOf = [](const char* text) {
        return parsed({"device", "controller", "usb", text}).controllerId;
    };
    EXPECT_EQ(idOf("0"), 0);
    EXPECT_EQ(idOf("08"), 8);
    EXPECT_EQ(idOf("-1"), -1);
    usageError({"device", "controller", "usb"});
    usageError({"device", "controller", "usb", "one"});
    usageError({"device", "controller", "usb", "9999999999"});
}

TEST(CommandLine, Monitor) {
    const Options plain = parsed({"monitor"});
    EXPECT_EQ(plain.command, Command::kMonitor);
    EXPECT_FALSE(plain.forSeconds.has_value());
    EXPECT_FALSE(plain.count.has_value());
    EXPECT_FALSE(plain.properties);
    const Options all = parsed({"monitor", "--for", "2.5", "--count", "10", "--properties"});
    EXPECT_DOUBLE_EQ(all.forSeconds.value_or(-1), 2.5);
    EXPECT_EQ(all.count.value_or(0), 10U);
    EXPECT_TRUE(all.properties);
    EXPECT_DOUBLE_EQ(parsed({"monitor", "--for", "0"}).forSeconds.value_or(-1), 0);
    EXPECT_EQ(parsed({"monitor", "--count=08"}).count.value_or(0), 8U);
    for (const char* const wrong : {"-1", "x", "nan", "inf", "1e10", ""}) {
        EXPECT_THAT(usageError({"monitor", "--for", wrong}), HasSubstr("--for")) << wrong;
    }
    for (const char* const wrong : {"0", "-1", "1.5", "x", "99999999999999999999", ""}) {
        EXPECT_THAT(usageError({"monitor", "--count", wrong}), HasSubstr("--count")) << wrong;
    }
    usageError({"monitor", "--for"});
    usageError({"monitor", "extra"});
}

TEST(CommandLine, Dump) {
    EXPECT_EQ(parsed({"dump", "DeviceManager"}).command, Command::kDump);
    EXPECT_TRUE(parsed({"dump", "DeviceManager"}).arguments.empty());
    const Options options = parsed({"dump", "DeviceManager", "notifier", "two words"});
    EXPECT_EQ(options.service, "DeviceManager");
    EXPECT_THAT(options.arguments, ElementsAre("notifier", "two words"));
    // Names of commands and options are arguments like others.
    EXPECT_THAT(parsed({"dump", "start", "monitor", "stop"}).arguments, ElementsAre("monitor", "stop"));
    EXPECT_THAT(parsed({"dump", "X", "--", "--json", "-a"}).arguments, ElementsAre("--json", "-a"));
    EXPECT_EQ(parsed({"dump", "X", "--", "--json"}).format, Format::kHuman);
    usageError({"dump"});
    EXPECT_THAT(usageError({"dump", "\xff"}), HasSubstr("not UTF-8"));
    EXPECT_THAT(usageError({"dump", "X", "\xc3("}), HasSubstr("not UTF-8"));
}

TEST(CommandLine, Services) {
    EXPECT_EQ(parsed({"services"}).command, Command::kServices);
    usageError({"services", "all"});
}

TEST(CommandLine, OptionsOfTheProgramStandAnywhere) {
    for (const Line& line : std::vector<Line>{{"services"},
                                              {"start"},
                                              {"stop", "device"},
                                              {"device", "get", "block", "sda"},
                                              {"device", "ancestors", "/x"},
                                              {"device", "controller", "usb", "1"},
                                              {"monitor", "--for", "1"},
                                              {"dump", "X", "y"}}) {
        EXPECT_EQ(parsed(line).format, Format::kHuman);
        EXPECT_EQ(parsed(line).answerSeconds, 30U);
        for (size_t place = 0; place <= line.size(); ++place) {
            if (place > 0 && line[place - 1] == "--for") {
                continue;
            }
            Line with = line;
            with.insert(with.begin() + static_cast<ptrdiff_t>(place), {"--json", "--timeout", "7"});
            const Options options = parsed(with);
            EXPECT_EQ(options.format, Format::kJson) << line[0] << place;
            EXPECT_EQ(options.answerSeconds, 7U) << line[0] << place;
            EXPECT_EQ(options.command, parsed(line).command);
            EXPECT_EQ(options.arguments, parsed(line).arguments);
        }
    }
}

TEST(CommandLine, Timeout) {
    EXPECT_EQ(parsed({"--timeout", "0", "services"}).answerSeconds, 0U);
    EXPECT_EQ(parsed({"--timeout=86400", "services"}).answerSeconds, 86400U);
    for (const char* const wrong : {"86401", "-1", "x", "1.5", ""}) {
        EXPECT_THAT(usageError({"--timeout", wrong, "services"}), HasSubstr("--timeout")) << wrong;
    }
}

TEST(CommandLine, NothingOrNonsense) {
    usageError({});
    usageError({"--json"});
    EXPECT_THAT(usageError({"restart"}), HasSubstr("restart"));
    EXPECT_THAT(usageError({"services", "--frob"}), HasSubstr("--frob"));
    usageError({"services", "start"});
}

TEST(CommandLine, HelpForEverything) {
    for (const Line& line : std::vector<Line>{{},
                                              {"start"},
                                              {"stop"},
                                              {"device"},
                                              {"device", "get"},
                                              {"device", "ancestors"},
                                              {"device", "controller"},
                                              {"monitor"},
                                              {"dump"},
                                              {"services"}}) {
        std::string words = "devicectl";
        for (const std::string& word : line) {
            words += " " + word;
        }
        for (const char* const flag : {"-h", "--help"}) {
            Line asked = line;
            asked.emplace_back(flag);
            const ParsedLine result = parseCommandLine(asked);
            EXPECT_FALSE(result.options.has_value());
            EXPECT_EQ(result.exitCode, kOk);
            EXPECT_THAT(result.output, HasSubstr("Usage: " + words + " ")) << words;
            EXPECT_EQ(result.error, "");
        }
    }
}

TEST(CommandLine, HelpListsTheExitStatuses) {
    const std::string help = parseCommandLine({"--help"}).output;
    for (const int code : {kOk, kFailed, kUsage, kNoService, kDaemonDied, kNoDriver}) {
        EXPECT_THAT(help, HasSubstr("\n  " + std::to_string(code) + "  "));
    }
    EXPECT_THAT(parseCommandLine({"device", "get", "--help"}).output, HasSubstr("ends the daemon"));
}

TEST(CommandLine, Version) {
    const ParsedLine result = parseCommandLine({"--version"});
    EXPECT_EQ(result.exitCode, kOk);
    EXPECT_THAT(result.output, testing::MatchesRegex("devicectl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace

}  // namespace devicectl
