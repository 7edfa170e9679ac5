// SPDX-License-Identifier: Apache-2.0
#include "common/Uevent.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/unit/support/LogCapture.h"

using android::sp;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

using Tokens = std::vector<std::string>;

std::string datagramOf(const Tokens& tokens) {
    std::string datagram;
    for (const std::string& token : tokens) {
        datagram += token;
        datagram += '\0';
    }
    return datagram;
}

/** A heap block of exactly the datagram's size, so that the sanitizer sees the first byte read past it. */
struct Datagram {
    explicit Datagram(const std::string& content) : bytes(new char[content.size()]), size(content.size()) {
        content.copy(bytes.get(), content.size());
    }
    explicit Datagram(const Tokens& tokens) : Datagram(datagramOf(tokens)) {}

    std::unique_ptr<char[]> bytes;
    size_t size;
};

/** Decodes and then destroys the datagram: the record must not need it. Null when decoding fails. */
sp<Uevent> decoded(const std::string& content) {
    sp<Uevent> event = new Uevent();
    Datagram datagram(content);
    const bool success = event->decode(datagram.bytes.get(), datagram.size);
    std::fill_n(datagram.bytes.get(), datagram.size, '#');
    return success ? event : nullptr;
}

sp<Uevent> decoded(const Tokens& tokens) {
    return decoded(datagramOf(tokens));
}

Tokens paramsOf(const sp<Uevent>& event) {
    Tokens params;
    for (int i = 0; i < event->getParamSize(); ++i) {
        params.push_back(std::string(event->paramName(i)) + "=" + event->paramValue(i));
    }
    return params;
}

LogLine errorLine(const std::string& text) {
    return {ANDROID_LOG_ERROR, "Uevent", text};
}
LogLine infoLine(const std::string& text) {
    return {ANDROID_LOG_INFO, "Uevent", text};
}

const Tokens kUsbDevice = {"add@/devices/x", "ACTION=add",  "DEVPATH=/devices/x",
                           "SUBSYSTEM=usb",  "SEQNUM=1234", "DEVTYPE=usb_device"};

TEST(UeventTest, NewRecordIsEmpty) {
    const sp<Uevent> event = new Uevent();
    EXPECT_EQ(0, event->getSeqnum());
    EXPECT_EQ(nullptr, event->getPath());
    EXPECT_EQ(0, event->getAction());
    EXPECT_EQ(nullptr, event->getSubsystem());
    EXPECT_EQ(0, event->getParamSize());
}

TEST(UeventTest, DecodesAUsbDevice) {
    const sp<Uevent> event = decoded(kUsbDevice);
    ASSERT_NE(nullptr, event);
    EXPECT_EQ(1, event->getAction());
    EXPECT_EQ(1234, event->getSeqnum());
    EXPECT_STREQ("/devices/x", event->getPath());
    EXPECT_STREQ("usb", event->getSubsystem());
    ASSERT_EQ(2, event->getParamSize());
    EXPECT_STREQ("DEVPATH", event->paramName(0));
    EXPECT_STREQ("/devices/x", event->paramValue(0));
    EXPECT_STREQ("DEVTYPE", event->paramName(1));
    EXPECT_STREQ("usb_device", event->paramValue(1));
}

TEST(UeventTest, KnowsTheActionWords) {
    const std::vector<std::pair<std::string, int>> words = {
        {"add", 1},    {"remove", 2}, {"change", 3}, {"move", 4}, {"online", 5}, {"offline", 6}, {"bind", 0},
        {"unbind", 0}, {"ADD", 0},    {"adds", 0},   {"ad", 0},   {"", 0},       {" add", 0},    {"on", 0},
    };
    for (const auto& [word, code] : words) {
        const sp<Uevent> event = decoded(Tokens{"x@/p", "ACTION=" + word});
        ASSERT_NE(nullptr, event) << word;
        EXPECT_EQ(code, event->getAction()) << word;
        EXPECT_EQ(0, event->getParamSize()) << word;
    }
}

TEST(UeventTest, TakesTheActionFromThePropertyAlone) {
    EXPECT_EQ(0, decoded(Tokens{"add@/p", "DEVPATH=/p"})->getAction());
    EXPECT_EQ(2, decoded(Tokens{"add@/p", "ACTION=remove"})->getAction());
}

TEST(UeventTest, UnknownActionLeavesAnEarlierOne) {
    EXPECT_EQ(3, decoded(Tokens{"x@/p", "ACTION=change", "ACTION=bind"})->getAction());
    EXPECT_EQ(2, decoded(Tokens{"x@/p", "ACTION=change", "ACTION=remove"})->getAction());
}

TEST(UeventTest, PathIsTheHeaderAfterTheFirstAt) {
    EXPECT_STREQ("/a@b@c", decoded(Tokens{"add@/a@b@c"})->getPath());
    EXPECT_STREQ("", decoded(Tokens{"add@"})->getPath());
    EXPECT_STREQ("/p", decoded(Tokens{"@/p"})->getPath());
}

TEST(UeventTest, RefusesWhatHasNoHeader) {
    EXPECT_EQ(nullptr, decoded(std::string()));
    EXPECT_EQ(nullptr, decoded(std::string("\0", 1)));
    EXPECT_EQ(nullptr, decoded(std::string("a")));
    // Its last byte, the only "@", becomes the NUL.
    EXPECT_EQ(nullptr, decoded(std::string("@")));
    EXPECT_EQ(nullptr, decoded(Tokens{"libudev", "ACTION=add", "x@/p"}));
    EXPECT_EQ(nullptr, decoded(Tokens{"", "add@/p"}));
    EXPECT_EQ(nullptr, decoded(std::string(65536, 'x')));
}

TEST(UeventTest, LengthZeroTouchesNothing) {
    const sp<Uevent> event = new Uevent();
    EXPECT_FALSE(event->decode(nullptr, 0));
}

TEST(UeventTest, LosesTheLastByteOfATokenWithoutNul) {
    const std::string content = datagramOf({"add@/p", "DEVNAME=sda1"});
    const sp<Uevent> event = decoded(content.substr(0, content.size() - 1));
    ASSERT_NE(nullptr, event);
    EXPECT_THAT(paramsOf(event), ElementsAre("DEVNAME=sda"));
    EXPECT_STREQ("/", decoded(std::string("add@/p"))->getPath());
}

TEST(UeventTest, WritesNulsIntoTheBuffer) {
    Datagram datagram(std::string("add@/p\0DEVNAME=sdaX", 19));
    const sp<Uevent> event = new Uevent();
    ASSERT_TRUE(event->decode(datagram.bytes.get(), datagram.size));
    EXPECT_EQ(std::string("add@/p\0DEVNAME\0sda\0", 19), std::string(datagram.bytes.get(), datagram.size));
}

TEST(UeventTest, ReadsTheSequenceNumberAsAtoiDoes) {
    EXPECT_EQ(0, decoded(Tokens{"x@/p"})->getSeqnum());
    EXPECT_EQ(INT_MAX, decoded(Tokens{"x@/p", "SEQNUM=2147483647"})->getSeqnum());
    EXPECT_EQ(-5, decoded(Tokens{"x@/p", "SEQNUM=-5"})->getSeqnum());
    EXPECT_EQ(12, decoded(Tokens{"x@/p", "SEQNUM=12ab"})->getSeqnum());
    EXPECT_EQ(0, decoded(Tokens{"x@/p", "SEQNUM=ab"})->getSeqnum());
    EXPECT_EQ(0, decoded(Tokens{"x@/p", "SEQNUM="})->getSeqnum());
}

TEST(UeventTest, SpecialPropertiesAreNoParameters) {
    const sp<Uevent> event = decoded(
        Tokens{"x@/p", "SEQNUM=1", "SUBSYSTEM=a", "ACTION=add", "SUBSYSTEM=b", "SUBSYSTEMS=c", "ACTIO=d"});
    ASSERT_NE(nullptr, event);
    EXPECT_STREQ("b", event->getSubsystem());
    EXPECT_THAT(paramsOf(event), ElementsAre("SUBSYSTEMS=c", "ACTIO=d"));
}

TEST(UeventTest, KeepsEmptyKeysAndValues) {
    const sp<Uevent> event = decoded(Tokens{"x@/p", "A=", "=b", "=", "C=d=e"});
    EXPECT_THAT(paramsOf(event), ElementsAre("A=", "=b", "=", "C=d=e"));
}

TEST(UeventTest, DistinguishesAnEmptySubsystemFromNone) {
    EXPECT_EQ(nullptr, decoded(Tokens{"x@/p"})->getSubsystem());
    EXPECT_STREQ("", decoded(Tokens{"x@/p", "SUBSYSTEM="})->getSubsystem());
}

TEST(UeventTest, PropertyWithoutEqualsRunsOnToTheNextOne) {
    const sp<Uevent> event = decoded(Tokens{"x@/p", "LONE", "ACTION=add", "B=2"});
    ASSERT_NE(nullptr, event);
    EXPECT_EQ(0, event->getAction());
    EXPECT_THAT(paramsOf(event), ElementsAre("LONE=add", "B=2"));
    EXPECT_THAT(paramsOf(decoded(Tokens{"x@/p", "", "B=2"})), ElementsAre("=2"));
}

TEST(UeventTest, DropsATailWithoutEquals) {
    EXPECT_THAT(paramsOf(decoded(Tokens{"x@/p", "A=1", "LONE"})), ElementsAre("A=1"));
    EXPECT_THAT(paramsOf(decoded(Tokens{"x@/p", "A=1", "LONE", "LONELY", ""})), ElementsAre("A=1"));
    // The "=" is the last byte, and so lost.
    EXPECT_THAT(paramsOf(decoded(std::string("x@/p\0A=1\0B=", 11))), ElementsAre("A=1"));
}

TEST(UeventTest, KeepsTheFirst32Parameters) {
    Tokens tokens = {"x@/p", "ACTION=add"};
    Tokens expected;
    for (int i = 0; i < 40; ++i) {
        tokens.push_back("KEY" + std::to_string(i) + "=" + std::to_string(i));
        if (i < 32) {
            expected.push_back(tokens.back());
        }
    }
    tokens.push_back("SUBSYSTEM=block");
    tokens.push_back("SEQNUM=7");
    LogCapture log;
    const sp<Uevent> event = decoded(tokens);
    ASSERT_NE(nullptr, event);
    EXPECT_EQ(32, event->getParamSize());
    EXPECT_EQ(expected, paramsOf(event));
    EXPECT_STREQ("block", event->getSubsystem());
    EXPECT_EQ(7, event->getSeqnum());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(UeventTest, DecodesADatagramOf64KiB) {
    std::string content = datagramOf({"add@/p", "ACTION=add"}) + "BIG=";
    content.resize(65536, 'x');
    const sp<Uevent> event = decoded(content);
    ASSERT_NE(nullptr, event);
    ASSERT_EQ(1, event->getParamSize());
    EXPECT_EQ(65536 - 18 - 4 - 1, static_cast<int>(strlen(event->paramValue(0))));
}

TEST(UeventTest, DecodesAgainFromScratch) {
    const sp<Uevent> event = new Uevent();
    Datagram first(kUsbDevice);
    ASSERT_TRUE(event->decode(first.bytes.get(), first.size));
    Datagram second(Tokens{"remove@/q", "A=1"});
    ASSERT_TRUE(event->decode(second.bytes.get(), second.size));
    EXPECT_EQ(0, event->getSeqnum());
    EXPECT_EQ(0, event->getAction());
    EXPECT_STREQ("/q", event->getPath());
    EXPECT_EQ(nullptr, event->getSubsystem());
    EXPECT_THAT(paramsOf(event), ElementsAre("A=1"));

    Datagram third(Tokens{"no header"});
    EXPECT_FALSE(event->decode(third.bytes.get(), third.size));
    EXPECT_EQ(nullptr, event->getPath());
    EXPECT_EQ(0, event->getParamSize());
}

TEST(UeventTest, ConstructorDecodes) {
    LogCapture log;
    Datagram datagram(kUsbDevice);
    const sp<Uevent> event = new Uevent(datagram.bytes.get(), datagram.size);
    EXPECT_STREQ("usb", event->getSubsystem());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(UeventTest, ConstructorLogsWhatItCannotDecode) {
    LogCapture log;
    Datagram datagram(Tokens{"no header", "ACTION=add"});
    const sp<Uevent> event = new Uevent(datagram.bytes.get(), datagram.size);
    EXPECT_THAT(log.take(), ElementsAre(errorLine("uevent decode fail")));
    EXPECT_EQ(nullptr, event->getPath());
    EXPECT_EQ(0, event->getAction());
}

TEST(UeventTest, FindParamMatchesTheBeginningOfNames) {
    LogCapture log;
    const sp<Uevent> event = decoded(kUsbDevice);
    EXPECT_STREQ("/devices/x", event->FindParam("DEV"));
    EXPECT_STREQ("/devices/x", event->FindParam("DEVPATH"));
    EXPECT_STREQ("usb_device", event->FindParam("DEVT"));
    EXPECT_STREQ("/devices/x", event->FindParam(""));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(UeventTest, FindParamLogsWhatItDoesNotFind) {
    LogCapture log;
    const sp<Uevent> event = decoded(kUsbDevice);
    EXPECT_EQ(nullptr, event->FindParam("DEVPATHS"));
    EXPECT_EQ(nullptr, event->FindParam("SUBSYSTEM"));
    EXPECT_THAT(log.take(), ElementsAre(errorLine("FindParam(): Parameter 'DEVPATHS' not found"),
                                        errorLine("FindParam(): Parameter 'SUBSYSTEM' not found")));
    EXPECT_EQ(nullptr, sp<Uevent>(new Uevent())->FindParam(""));
}

TEST(UeventTest, DumpsAllFieldsInOrder) {
    const sp<Uevent> event = decoded(kUsbDevice);
    LogCapture log;
    event->dump();
    EXPECT_THAT(
        log.take(),
        ElementsAre(infoLine("[ SUBSYSTEM] [       usb]\n"), infoLine("[    ACTION] [         1]\n"),
                    infoLine("[    SEQNUM] [      1234]\n"), infoLine("[   DEVPATH] [/devices/x]\n"),
                    infoLine("[   DEVPATH] [/devices/x]\n"), infoLine("[   DEVTYPE] [usb_device]\n")));
}

TEST(UeventTest, DumpsARecordWithoutText) {
    LogCapture log;
    sp<Uevent>(new Uevent())->dump();
    EXPECT_THAT(
        log.take(),
        ElementsAre(infoLine("[ SUBSYSTEM] [    (null)]\n"), infoLine("[    ACTION] [         0]\n"),
                    infoLine("[    SEQNUM] [         0]\n"), infoLine("[   DEVPATH] [    (null)]\n")));
}

TEST(UeventTest, SurvivesRandomAndTruncatedDatagrams) {
    std::mt19937 random(20240611);
    const std::string sample = datagramOf(kUsbDevice);
    for (size_t size = 0; size <= sample.size(); ++size) {
        const sp<Uevent> event = decoded(sample.substr(0, size));
        EXPECT_EQ(size > 4, event != nullptr) << size;
    }
    const std::string alphabet("@=\0\0AaSE\xff", 9);
    for (int round = 0; round < 20000; ++round) {
        std::string content(random() % 64, '\0');
        for (char& byte : content) {
            byte = alphabet[random() % alphabet.size()];
        }
        const sp<Uevent> event = decoded(content);
        if (event == nullptr) {
            continue;
        }
        EXPECT_LE(strlen(event->getPath()), content.size());
        for (int i = 0; i < event->getParamSize(); ++i) {
            EXPECT_EQ(nullptr, strchr(event->paramName(i), '='));
            EXPECT_LT(strlen(event->paramName(i)) + strlen(event->paramValue(i)), content.size());
        }
    }
}

using UeventDeathTest = ::testing::Test;

TEST(UeventDeathTest, ParamNameRefusesAnIndexOutOfRange) {
    const sp<Uevent> event = decoded(kUsbDevice);
    const auto assertion =
        AllOf(HasSubstr("Uevent F "),
              HasSubstr("assertion \"index < mParamSize\" failed: file \"Uevent\", line 59, "
                        "function \"const char* Uevent::paramName(int)\""));
    EXPECT_DEATH(event->paramName(2), assertion);
    EXPECT_DEATH(event->paramName(32), assertion);
    EXPECT_DEATH(event->paramName(-1), assertion);
    EXPECT_DEATH(sp<Uevent>(new Uevent())->paramName(0), assertion);
}

TEST(UeventDeathTest, ParamValueRefusesAnIndexOutOfRange) {
    const sp<Uevent> event = decoded(kUsbDevice);
    const auto assertion =
        AllOf(HasSubstr("Uevent F "),
              HasSubstr("assertion \"index < mParamSize\" failed: file \"Uevent\", line 63, "
                        "function \"const char* Uevent::paramValue(int)\""));
    EXPECT_DEATH(event->paramValue(2), assertion);
    EXPECT_DEATH(event->paramValue(INT_MAX), assertion);
    EXPECT_DEATH(event->paramValue(-1), assertion);
}

}  // namespace
