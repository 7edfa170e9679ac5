// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The parts of the certification mode that need neither devices nor a unit.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/unit/common/ThreadProbe.h"
#include "usb/AttributeFile.h"
#include "usb/CertificationMode.h"
#include "usb/PowerTable.h"
#include "usb/UsbTestDetectorHandler.h"
#include "usb/UsbTestImpl.h"
#include "usb/UsbTestTidNotifier.h"
#include "usb/UsbTestWait.h"

using android::sp;
using usb::AttributeFile;
using usb::PowerTable;
using usb::UsbTestDetectorHandler;
using usb::UsbTestImpl;
using usb::UsbTestTidNotifier;
using usb::UsbTestWait;

namespace {

namespace fs = std::filesystem;

constexpr nsecs_t kMillisecond = 1000000;
constexpr nsecs_t kHour = INT64_C(3600) * 1000 * kMillisecond;

PowerTable::Place place(int number) {
    return {1, static_cast<uint8_t>(number)};
}

class AttributeFileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string folder = fs::temp_directory_path() / "attribute-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder.data()));
        mFolder = folder;
        mPath = mFolder + "/value";
    }

    void TearDown() override { fs::remove_all(mFolder); }

    void lay(const std::string& content) const { std::ofstream(mPath) << content; }

    std::string content() const {
        std::ostringstream text;
        text << std::ifstream(mPath).rdbuf();
        return text.str();
    }

    /** The first word of the attribute. */
    std::string word() const {
        std::string read = "left over";
        EXPECT_TRUE(AttributeFile::readWord(mPath.c_str(), &read));
        return read;
    }

    std::string mFolder;
    std::string mPath;
};

}  // namespace

TEST(CertificationModeTest, KnowsItsLettersInBothCases) {
    for (int letter = 0; letter < 256; ++letter) {
        const char c = static_cast<char>(letter);
        const int expected = c == 'M' || c == 'm' ? 77 : c == 'T' || c == 't' ? 84 : 79;
        EXPECT_EQ(expected, usb::certificationModeOf(c)) << letter;
    }
}

TEST(PowerTableTest, HoldsADeviceOnce) {
    PowerTable table;
    EXPECT_TRUE(table.add(place(1)));
    EXPECT_FALSE(table.add(place(1)));
    EXPECT_TRUE(table.add({2, 1}));
    EXPECT_EQ(2U, table.size());
    table.remove(place(1));
    table.remove(place(9));
    EXPECT_EQ(1U, table.size());
    EXPECT_TRUE(table.add(place(1)));
    EXPECT_FALSE(table.add({2, 1}));
    table.clear();
    EXPECT_EQ(0U, table.size());
    EXPECT_TRUE(table.add({2, 1}));
}

TEST(PowerTableTest, TheOldestGivesWay) {
    PowerTable table;
    for (int number = 1; number <= 5; ++number) {
        EXPECT_TRUE(table.add(place(number)));
    }
    EXPECT_TRUE(table.add(place(6)));
    EXPECT_EQ(PowerTable::kSize, table.size());
    for (int number = 2; number <= 6; ++number) {
        EXPECT_FALSE(table.add(place(number))) << number;
    }
    EXPECT_TRUE(table.add(place(1)));
    EXPECT_TRUE(table.add(place(2)));
    EXPECT_FALSE(table.add(place(4)));
}

TEST(PowerTableTest, ALookDropsWhatHasGone) {
    PowerTable table;
    for (int number = 1; number <= 5; ++number) {
        table.add(place(number));
    }
    table.beginLook();
    for (const int number : {5, 2, 7}) {
        table.keep(place(number));
    }
    table.endLook();
    EXPECT_EQ(2U, table.size());
    EXPECT_FALSE(table.add(place(2)));
    EXPECT_FALSE(table.add(place(5)));
    EXPECT_TRUE(table.add(place(1)));
    table.beginLook();
    table.endLook();
    EXPECT_EQ(0U, table.size());
}

TEST_F(AttributeFileTest, WritesWholeValues) {
    lay("longer than what comes");
    AttributeFile file;
    ASSERT_TRUE(file.open(mPath.c_str()));
    EXPECT_EQ("", content());
    EXPECT_TRUE(file.write("6666"));
    EXPECT_TRUE(file.write("0"));
    file.close();
    file.close();
    EXPECT_EQ("0666", content());
    EXPECT_TRUE(AttributeFile::put(mPath.c_str(), "i"));
    EXPECT_EQ("i", content());
    EXPECT_FALSE(file.write("closed"));
}

TEST_F(AttributeFileTest, CreatesNothing) {
    AttributeFile file;
    EXPECT_FALSE(file.open(mPath.c_str()));
    EXPECT_FALSE(AttributeFile::put(mPath.c_str(), "1"));
    std::string read = "left over";
    EXPECT_FALSE(AttributeFile::readWord(mPath.c_str(), &read));
    EXPECT_EQ("", read);
    EXPECT_FALSE(fs::exists(mPath));
}

TEST_F(AttributeFileTest, TellsOfAValueThatIsNotTaken) {
    AttributeFile full;
    ASSERT_TRUE(full.open("/dev/full"));
    EXPECT_FALSE(full.write("1"));
    EXPECT_FALSE(AttributeFile::put("/dev/full", "1"));
}

TEST_F(AttributeFileTest, ReadsTheFirstWord) {
    const std::pair<std::string, std::string> cases[] = {
        {"1\n", "1"}, {"  12\t3", "12"}, {"", ""},
        {" \n ", ""}, {"x", "x"},        {std::string(500, 'y'), std::string(64, 'y')}};
    for (const auto& [text, expected] : cases) {
        lay(text);
        EXPECT_EQ(expected, word());
    }
}

TEST_F(AttributeFileTest, AFolderIsReadAsNothing) {
    std::string read = "left over";
    EXPECT_TRUE(AttributeFile::readWord(mFolder.c_str(), &read));
    EXPECT_EQ("", read);
}

TEST(UsbTestWaitTest, TakesItsTime) {
    const sp<UsbTestWait> wait = new UsbTestWait();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(wait->wait(wait->span(), 20 * kMillisecond));
    wait->pause(30 * kMillisecond);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST(UsbTestWaitTest, SpansWhileStartedAreOverBeforeTheStart) {
    const sp<UsbTestWait> wait = new UsbTestWait();
    EXPECT_FALSE(wait->wait(wait->spanWhileStarted(), kHour));
    wait->start();
    const UsbTestWait::Span span = wait->spanWhileStarted();
    EXPECT_TRUE(wait->wait(span, 0));
    wait->stop();
    EXPECT_TRUE(wait->isOver(span));
    EXPECT_FALSE(wait->wait(span, kHour));
    EXPECT_FALSE(wait->wait(wait->spanWhileStarted(), kHour));
    wait->start();
    EXPECT_TRUE(wait->isOver(span));
    EXPECT_FALSE(wait->isOver(wait->spanWhileStarted()));
}

TEST(UsbTestWaitTest, OtherSpansLastUntilTheNextStop) {
    const sp<UsbTestWait> wait = new UsbTestWait();
    const UsbTestWait::Span first = wait->span();
    EXPECT_FALSE(wait->isOver(first));
    wait->stop();
    const UsbTestWait::Span second = wait->span();
    EXPECT_TRUE(wait->isOver(first));
    EXPECT_FALSE(wait->isOver(second));
    wait->start();
    EXPECT_FALSE(wait->isOver(second));
}

TEST(UsbTestWaitTest, AStopEndsAllWaitsInProgress) {
    const sp<UsbTestWait> wait = new UsbTestWait();
    wait->start();
    const UsbTestWait::Span spans[] = {wait->span(), wait->spanWhileStarted()};
    std::atomic<int> waiting{0};
    std::vector<std::thread> threads;
    threads.reserve(std::size(spans));
    for (const UsbTestWait::Span& span : spans) {
        threads.emplace_back([&wait, &waiting, span] {
            ++waiting;
            EXPECT_FALSE(wait->wait(span, kHour));
        });
    }
    EXPECT_TRUE(eventually([&waiting] { return waiting == 2; }));
    wait->stop();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(CertificationDeathTest, TheCompanionsNeedTheImplementation) {
    EXPECT_DEATH(sp<UsbTestDetectorHandler>(new UsbTestDetectorHandler(nullptr)),
                 "assertion \"mTest\" failed: file \"UsbTest\", line 67, function "
                 "\"usb::UsbTestDetectorHandler::UsbTestDetectorHandler\\(const "
                 "android::sp<usb::UsbTestImpl>&\\)\"");
    EXPECT_DEATH(sp<UsbTestTidNotifier>(new UsbTestTidNotifier(nullptr)),
                 "assertion \"mTest\" failed: file \"UsbTest\"");
}

TEST(CertificationDeathTest, TheHandlerNeedsContextAndDevice) {
    const sp<UsbTestDetectorHandler> handler =
        new UsbTestDetectorHandler(new UsbTestImpl(nullptr, new UsbTestWait()));
    int something = 0;
    EXPECT_DEATH(handler->onAttach(nullptr, &something),
                 "assertion \"ctx\" failed: file \"UsbTest\", line 76, function \"virtual int "
                 "usb::UsbTestDetectorHandler::onAttach\\(void\\*, void\\*\\)\"");
    EXPECT_DEATH(handler->onAttach(&something, nullptr),
                 "assertion \"dev\" failed: file \"UsbTest\", line 77");
    EXPECT_DEATH(handler->onDetach(nullptr, &something),
                 "assertion \"ctx\" failed: file \"UsbTest\", line 88, function \"virtual int "
                 "usb::UsbTestDetectorHandler::onDetach\\(void\\*, void\\*\\)\"");
    EXPECT_DEATH(handler->onDetach(&something, nullptr),
                 "assertion \"dev\" failed: file \"UsbTest\", line 89");
}

TEST(CertificationHandlerTest, WithoutACheckerNothingHappens) {
    const sp<UsbTestDetectorHandler> handler =
        new UsbTestDetectorHandler(new UsbTestImpl(nullptr, new UsbTestWait()));
    int something = 0;
    EXPECT_EQ(0, handler->onAttach(&something, &something));
    EXPECT_EQ(0, handler->onDetach(&something, &something));
}
