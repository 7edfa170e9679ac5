// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "tools/devicectl/CommandLine.h"
#include "tools/devicectl/ShellWords.h"

namespace devicectl {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using Words = std::vector<std::string>;

namespace {

constexpr const char* kBreaks = " \t\n\"'><=;|&(:";

/** What a medium may be called to make a shell do something. */
const Words kHostile{
    "two words",
    "$(touch pwned)",
    "`touch pwned`",
    "it's \"quoted\"",
    "back\\slash\\",
    "; touch pwned #",
    "&& touch pwned",
    "| touch pwned",
    "> pwned",
    "< /etc/passwd",
    "$HOME ${PATH} $((1+1))",
    "*?[a-z]{b,c}",
    "~root",
    "#comment",
    "!history !! !$",
    "a:b=c",
    "=(x)",
    "--json",
    "-rf",
    " blanks ",
    "M\xc3\xbcsik",
    "%n%s",
    "^a^b",
};

AskLive telling(const Words& words) {
    return [words](LiveKind kind) { return kind == LiveKind::kVolumes ? words : Words(); };
}

Words noneAsked(LiveKind kind) {
    EXPECT_EQ(kind, LiveKind::kNone);
    return {};
}

Words after(const Words& words, const std::string& current = "") {
    return candidatesFor(words, current, noneAsked);
}

/** What a real shell reads the word as. */
std::string readByShell(const std::string& word) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    const std::string script = "printf %s " + word;
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        execl("/bin/bash", "bash", "--norc", "-c", script.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    std::string text;
    std::array<char, 256> block{};
    for (ssize_t count = 0; (count = read(ends[0], block.data(), block.size())) > 0;) {
        text.append(block.data(), static_cast<size_t>(count));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << word;
    return text;
}

TEST(Completion, CommandsAtEveryDepth) {
    EXPECT_THAT(after({}), Contains("start"));
    EXPECT_THAT(after({}), Not(Contains("complete")));
    EXPECT_THAT(after({}, "st"), UnorderedElementsAre("start", "stop", "status"));
    EXPECT_THAT(after({"wait"}), ElementsAre("service", "volume", "usb"));
    EXPECT_THAT(after({"--json", "wait"}), ElementsAre("service", "volume", "usb"));
    EXPECT_THAT(after({"usb", "config"}, "ean"), ElementsAre("ean-name", "ean-string"));
    EXPECT_THAT(after({"volumes"}), IsEmpty());
    EXPECT_THAT(after({"nothing"}, "x"), IsEmpty());
}

TEST(Completion, OptionsOfTheCommandAndOfTheProgram) {
    EXPECT_THAT(after({"monitor"}, "-"), UnorderedElementsAre("--help", "--for", "--count", "--properties",
                                                              "--version", "--json", "--color", "--timeout"));
    EXPECT_THAT(after({"volumes"}, "--c"), ElementsAre("--color"));
    EXPECT_THAT(after({"dump", "X", "--"}, "-"), IsEmpty()) << "what follows -- is never an option";
}

TEST(Completion, ValuesOfOptionsAndArguments) {
    EXPECT_THAT(after({"--color"}), ElementsAre("auto", "always", "never"));
    EXPECT_THAT(after({"monitor", "--for"}), IsEmpty());
    EXPECT_THAT(after({"monitor", "--for", "5"}, "--c"), ElementsAre("--count", "--color"));
    EXPECT_THAT(after({"start"}), ElementsAre("volume", "usb", "device"));
    EXPECT_THAT(after({"start", "usb"}), IsEmpty());
    EXPECT_THAT(after({"usb", "power"}), ElementsAre("0", "1", "2"));
    EXPECT_THAT(after({"usb", "power", "1"}, "o"), ElementsAre("on", "off"));
    EXPECT_THAT(after({"usb", "test", "charging", "1"}), ElementsAre("c", "d", "s"));
    EXPECT_THAT(after({"device", "controller"}), ElementsAre("usb", "card"));
    EXPECT_THAT(after({"device", "get"}), ElementsAre("block"));
    EXPECT_THAT(after({"dump", "DeviceManager"}), ElementsAre("notifier"));
}

TEST(Completion, EachLiveKindIsAskedWhereItBelongs) {
    const std::vector<std::pair<Words, LiveKind>> places{
        {{"wait", "service"}, LiveKind::kServices},
        {{"dump"}, LiveKind::kServices},
        {{"wait", "volume"}, LiveKind::kVolumes},
        {{"wait", "usb"}, LiveKind::kUsbNumbers},
        {{"usb", "carplay"}, LiveKind::kUsbIds},
        {{"usb", "aoa"}, LiveKind::kUsbIds},
        {{"usb", "role-switch"}, LiveKind::kUsbIds},
        {{"device", "get", "block"}, LiveKind::kNodes},
        {{"--json", "wait", "volume"}, LiveKind::kVolumes},
    };
    for (const auto& [words, expected] : places) {
        Words asked;
        const AskLive ask = [&asked, kind = expected](LiveKind told) {
            EXPECT_EQ(told, kind);
            asked.emplace_back("asked");
            return Words{"live"};
        };
        EXPECT_THAT(candidatesFor(words, "li", ask), ElementsAre("live")) << words.back();
        EXPECT_EQ(asked.size(), 1U);
    }
}

TEST(Completion, WhatIsOfferedTwiceIsOfferedOnce) {
    const AskLive ask = [](LiveKind /*kind*/) { return Words{"DeviceManager", "Other", "Other"}; };
    EXPECT_THAT(candidatesFor({"dump"}, "", ask),
                ElementsAre("DeviceManager", "VolumeManager", "UsbManager", "Other"));
}

TEST(Completion, WhatNoLineCanHoldIsLeftOut) {
    const AskLive ask =
        telling({"good", "", "new\nline", "tab\tbed", "\x1b[2J", "\xff\xfe", "\xe2\x80\xaeturned", "\x7f"});
    EXPECT_THAT(candidatesFor({"wait", "volume"}, "", ask), ElementsAre("good"));
    EXPECT_THAT(bashReplies("devicectl wait volume ", kBreaks, ask), ElementsAre("good"));
}

TEST(Completion, EveryLabelIsReadByTheShellAsItIs) {
    for (const std::string& label : kHostile) {
        const AskLive ask = telling({label});
        const Words bare = bashReplies("devicectl wait volume ", kBreaks, ask);
        ASSERT_EQ(bare.size(), 1U) << label;
        EXPECT_EQ(readByShell(bare[0]), label);
        const Words single = bashReplies("devicectl wait volume '", kBreaks, ask);
        ASSERT_EQ(single.size(), 1U) << label;
        EXPECT_EQ(readByShell("'" + single[0] + "'"), label);
        const Words twice = bashReplies("devicectl wait volume \"", kBreaks, ask);
        ASSERT_EQ(twice.size(), 1U) << label;
        EXPECT_EQ(readByShell("\"" + twice[0] + "\""), label);
    }
    EXPECT_NE(access("pwned", F_OK), 0);
}

TEST(Completion, NoLabelIsActedUponByAnInteractiveShellEither) {
    // History is no matter of printf: nothing that it acts upon may stand bare.
    for (const std::string& label : kHostile) {
        const std::string reply = bashReplies("devicectl wait volume ", kBreaks, telling({label}))[0];
        for (size_t i = 0; i < reply.size(); ++i) {
            EXPECT_TRUE(reply[i] != '!' || (i > 0 && reply[i - 1] == '\\')) << reply;
        }
    }
}

TEST(Completion, ABegunWordIsGoneOnWith) {
    const AskLive ask = telling({"My Music", "My $Films", "Other"});
    EXPECT_THAT(bashReplies("devicectl wait volume My\\ ", kBreaks, ask),
                ElementsAre("My\\ Music", "My\\ \\$Films"));
    EXPECT_THAT(bashReplies("devicectl wait volume 'My ", kBreaks, ask),
                ElementsAre("My Music", "My $Films"));
    EXPECT_THAT(bashReplies("devicectl wait volume \"My ", kBreaks, ask),
                ElementsAre("My Music", "My \\$Films"));
    EXPECT_THAT(bashReplies("devicectl wait volume My\\", kBreaks, ask),
                ElementsAre("My\\ Music", "My\\ \\$Films"));
    EXPECT_THAT(bashReplies("devicectl wait volume 'My' ", kBreaks, ask), IsEmpty())
        << "that word is complete";
    EXPECT_THAT(bashReplies("devicectl wait volume M'y ", kBreaks, ask), IsEmpty())
        << "quoted in two manners";
}

TEST(Completion, RepliesBeginBehindTheBreak) {
    const AskLive usb = [](LiveKind kind) {
        return kind == LiveKind::kUsbNumbers ? Words{"05ac:12a8", "46f4:0001"} : Words();
    };
    EXPECT_THAT(bashReplies("devicectl wait usb ", kBreaks, usb), ElementsAre("05ac:12a8", "46f4:0001"));
    EXPECT_THAT(bashReplies("devicectl wait usb 46f4:", kBreaks, usb), ElementsAre("0001"));
    EXPECT_THAT(bashReplies("devicectl wait usb 46f4:0", kBreaks, usb), ElementsAre("0001"));
    EXPECT_THAT(bashReplies("devicectl wait usb 46f4\\:0", kBreaks, usb), ElementsAre("46f4:0001"));
    EXPECT_THAT(bashReplies("devicectl wait usb '46f4:0", kBreaks, usb), ElementsAre("46f4:0001"));
    EXPECT_THAT(bashReplies("devicectl wait usb 46f4:0", " ", usb), ElementsAre("46f4:0001"));
    EXPECT_THAT(bashReplies("devicectl --color=a", kBreaks, noneAsked), ElementsAre("auto", "always"));
    EXPECT_THAT(bashReplies("devicectl --color=a", " ", noneAsked),
                ElementsAre("--color\\=auto", "--color\\=always"));
}

TEST(Completion, LinesThatAreNone) {
    EXPECT_THAT(bashReplies("", kBreaks, noneAsked), IsEmpty());
    EXPECT_THAT(bashReplies("device", kBreaks, noneAsked), IsEmpty());
    EXPECT_THAT(bashReplies("devicectl usb '", kBreaks, noneAsked), Contains("list"));
    EXPECT_THAT(bashReplies("devicectl 'usb' \"config\" scheme ", kBreaks, noneAsked),
                ElementsAre("old-first", "both"));
}

TEST(ShellWords, AreSplitAndNotExpanded) {
    const ShellLine line = splitShellLine("a  'b c' \"d\\\"e\\f$x\" g\\ h '' i'j'\"k\" *", "");
    EXPECT_THAT(line.words, ElementsAre("a", "b c", "d\"e\\f$x", "g h", "", "ijk"));
    EXPECT_EQ(line.current, "*");
    EXPECT_EQ(line.quoting, Quoting::kBare);
    EXPECT_EQ(splitShellLine("a 'b", "").quoting, Quoting::kSingle);
    EXPECT_EQ(splitShellLine("a \"b", "").quoting, Quoting::kDouble);
    EXPECT_EQ(splitShellLine("a \"b\"", "").quoting, Quoting::kMixed);
    EXPECT_EQ(splitShellLine("a b'c", "").quoting, Quoting::kMixed);
    EXPECT_EQ(splitShellLine("a '' ", "").quoting, Quoting::kBare);
    EXPECT_FALSE(shellQuoted("a", Quoting::kMixed).has_value());
}

}  // namespace

}  // namespace devicectl
