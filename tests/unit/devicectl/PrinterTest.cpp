// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Printer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string>

namespace devicectl {

using android::sp;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr milliseconds kLong = seconds(20);
constexpr milliseconds kMoment{50};

Event numbered(int32_t code) {
    Event event;
    event.code = code;
    return event;
}

Event ofService(Event::Kind kind) {
    Event event;
    event.kind = kind;
    event.service = "DeviceManager";
    return event;
}

class PrinterTest : public testing::Test {
  protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(pipe2(mPipe.data(), O_CLOEXEC), 0);
    }

    void TearDown() override {
        mQueue->close();
        closeReader();
        if (mPrinter != nullptr) {
            EXPECT_TRUE(mPrinter->waitEnd(kLong));
        }
        close(mPipe[1]);
    }

    void start(const std::optional<uint64_t>& count = std::nullopt) {
        mPrinter = new Printer(mQueue, mPipe[1], {Format::kJson, false, count}, mEnd);
        mPrinter->start();
    }

    void closeReader() {
        if (mPipe[0] >= 0) {
            close(mPipe[0]);
            mPipe[0] = -1;
        }
    }

    /** What can be read now, and more until there are @p lines lines. */
    std::string readLines(int lines) {
        std::string text;
        while (std::count(text.begin(), text.end(), '\n') < lines) {
            std::array<char, 4096> block{};
            const ssize_t count = read(mPipe[0], block.data(), block.size());
            if (count <= 0) {
                ADD_FAILURE() << "the pipe ended";
                break;
            }
            text.append(block.data(), static_cast<size_t>(count));
        }
        return text;
    }

    bool ended() {
        pollfd end{mEnd->fd(), POLLIN, 0};
        return poll(&end, 1, static_cast<int>(kLong.count())) == 1;
    }

    std::array<int, 2> mPipe{-1, -1};
    const sp<EventQueue> mQueue = new EventQueue();
    const sp<WakeUp> mEnd = new WakeUp();
    sp<Printer> mPrinter;
};

TEST_F(PrinterTest, WritesEachEventAtOnceAndEndsWithTheQueue) {
    start();
    mQueue->push(numbered(1));
    EXPECT_NE(readLines(1).find("\"code\":1,"), std::string::npos);
    mQueue->push(numbered(2));
    EXPECT_NE(readLines(1).find("\"code\":2,"), std::string::npos);
    EXPECT_FALSE(mPrinter->isOver());

    mQueue->push(numbered(3));
    mQueue->close();
    EXPECT_NE(readLines(1).find("\"code\":3,"), std::string::npos);
    EXPECT_TRUE(ended());
    EXPECT_TRUE(mPrinter->waitEnd(kLong));
    EXPECT_TRUE(mPrinter->isOver());
    EXPECT_EQ(mPrinter->error(), 0);
    EXPECT_EQ(mPrinter->printed(), 3U);
}

TEST_F(PrinterTest, CountsTheDaemonsEventsOnly) {
    start(2);
    mQueue->push(ofService(Event::Kind::kServiceUp));
    mQueue->push(numbered(1));
    mQueue->push(ofService(Event::Kind::kServiceDown));
    mQueue->push(ofService(Event::Kind::kServiceUp));
    mQueue->push(numbered(2));
    mQueue->push(numbered(3));
    EXPECT_TRUE(ended());
    EXPECT_TRUE(mPrinter->isOver());
    EXPECT_EQ(mPrinter->printed(), 2U);
    const std::string text = readLines(5);
    EXPECT_NE(text.find("\"code\":2,"), std::string::npos);
    EXPECT_EQ(text.find("\"code\":3,"), std::string::npos);
}

TEST_F(PrinterTest, EndsQuicklyWhenTheReaderGoes) {
    start();
    closeReader();
    mQueue->push(numbered(1));
    EXPECT_TRUE(ended());
    EXPECT_TRUE(mPrinter->isOver());
    EXPECT_EQ(mPrinter->error(), EPIPE);
    EXPECT_EQ(mPrinter->printed(), 0U);
}

TEST_F(PrinterTest, AReaderThatStandsStillHoldsUpNobody) {
    start();
    // More than a pipe holds.
    constexpr int32_t kEvents = 5000;
    for (int32_t i = 0; i < kEvents; ++i) {
        mQueue->push(numbered(i));
    }
    mQueue->close();
    EXPECT_FALSE(mPrinter->waitEnd(kMoment));
    const std::string text = readLines(kEvents);
    EXPECT_TRUE(mPrinter->waitEnd(kLong));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), kEvents);
    EXPECT_EQ(mPrinter->printed(), static_cast<uint64_t>(kEvents));
}

TEST_F(PrinterTest, WritesAllToANonBlockingDescriptor) {
    ASSERT_EQ(fcntl(mPipe[1], F_SETFL, O_NONBLOCK), 0);
    start();
    constexpr int32_t kEvents = 5000;
    for (int32_t i = 0; i < kEvents; ++i) {
        mQueue->push(numbered(i));
    }
    mQueue->close();
    EXPECT_FALSE(mPrinter->waitEnd(kMoment));
    const std::string text = readLines(kEvents);
    EXPECT_TRUE(mPrinter->waitEnd(kLong));
    EXPECT_EQ(mPrinter->error(), 0);
}

TEST_F(PrinterTest, TellsAFullDisk) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    mPrinter = new Printer(mQueue, full, {Format::kHuman, false, std::nullopt}, mEnd);
    mPrinter->start();
    mQueue->push(numbered(1));
    EXPECT_TRUE(ended());
    EXPECT_EQ(mPrinter->error(), ENOSPC);
    close(full);
}

}  // namespace

}  // namespace devicectl
