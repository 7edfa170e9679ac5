// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "LogCaptureTest"

#include "tests/unit/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <utils/Printer.h>

#include <string>
#include <thread>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr std::chrono::seconds kLimit(10);

TEST(LogCaptureTest, RecordsPriorityTagAndTextInOrder) {
    LogCapture log;
    ALOGE("first %d\n", 1);
    ALOGW("second");
    ALOGI("third %s", "line");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{ANDROID_LOG_ERROR, "LogCaptureTest", "first 1\n"},
                                        LogLine{ANDROID_LOG_WARN, "LogCaptureTest", "second"},
                                        LogLine{ANDROID_LOG_INFO, "LogCaptureTest", "third line"}));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(LogCaptureTest, RecordsEveryLogFunctionOnce) {
    LogCapture log;
    __android_log_write(ANDROID_LOG_WARN, "W", "write");
    __android_log_buf_write(LOG_ID_MAIN, ANDROID_LOG_WARN, "B", "buffer write");
    __android_log_buf_print(LOG_ID_MAIN, ANDROID_LOG_WARN, "P", "buffer %s", "print");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{ANDROID_LOG_WARN, "W", "write"},
                                        LogLine{ANDROID_LOG_WARN, "B", "buffer write"},
                                        LogLine{ANDROID_LOG_WARN, "P", "buffer print"}));
}

TEST(LogCaptureTest, RecordsLinesOfSharedLibraries) {
    LogCapture log;
    android::LogPrinter("InLibutils", ANDROID_LOG_WARN).printLine("from a shared library");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{ANDROID_LOG_WARN, "InLibutils", "from a shared library"}));
}

TEST(LogCaptureTest, TakesOneTag) {
    LogCapture log;
    __android_log_write(ANDROID_LOG_WARN, "A", "1");
    __android_log_write(ANDROID_LOG_WARN, "B", "2");
    EXPECT_THAT(log.take("B"), ElementsAre(LogLine{ANDROID_LOG_WARN, "B", "2"}));
}

TEST(LogCaptureTest, CutsLongLinesAsTheLogDoes) {
    LogCapture log;
    ALOGW("%s", std::string(5000, 'x').c_str());
    const auto lines = log.take();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(std::string(1023, 'x'), lines[0].text);
}

TEST(LogCaptureTest, EachOfSeveralGetsEveryLine) {
    LogCapture outer;
    {
        LogCapture inner;
        ALOGW("both");
        EXPECT_THAT(inner.take(), SizeIs(1));
    }
    ALOGW("outer");
    EXPECT_THAT(outer.take(), SizeIs(2));
}

TEST(LogCaptureTest, WaitsForALineOfAnotherThread) {
    LogCapture log;
    std::thread writer([] { ALOGW("late"); });
    EXPECT_TRUE(log.waitFor(LogLine{ANDROID_LOG_WARN, "LogCaptureTest", "late"}, kLimit));
    writer.join();
    EXPECT_EQ(1U, log.count([](const LogLine& line) { return line.text == "late"; }));
    EXPECT_FALSE(
        log.waitFor([](const LogLine& line) { return line.text == "never"; }, std::chrono::milliseconds(1)));
}

TEST(LogCaptureTest, LosesNothingUnderSeveralWriters) {
    LogCapture log;
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    std::vector<std::thread> writers;
    writers.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([] {
            for (int i = 0; i < kLines; ++i) {
                ALOGW("line %d", i);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_THAT(log.take(), SizeIs(kThreads * kLines));
}

}  // namespace
