// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/LibraryLog.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace devicectl {

namespace {

/** What a library says, in a process whose libraries were told to be quiet. */
[[noreturn]] void sayAndExit(const char* filter) {
    unsetenv("ANDROID_LOG_TAGS");
    if (filter != nullptr) {
        setenv("ANDROID_LOG_TAGS", filter, 1);
    }
    quietLibraries();
    __android_log_print(ANDROID_LOG_ERROR, "Library", "something %s", "happened");
    __android_log_write(ANDROID_LOG_INFO, "Library", "something else happened");
    _exit(0);
}

TEST(LibraryLogDeathTest, IsQuiet) {
    EXPECT_EXIT(sayAndExit(nullptr), testing::ExitedWithCode(0), testing::Eq(""));
}

TEST(LibraryLogDeathTest, IsHeardOnRequest) {
    EXPECT_EXIT(sayAndExit("*:v"), testing::ExitedWithCode(0), testing::HasSubstr("something happened"));
}

}  // namespace

}  // namespace devicectl
