// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The order of the registrations. The kernel refuses only what nobody may catch, so the program is linked
 * with sigaction wrapped: it notes each registration and refuses what the test says. What happens upon a
 * signal is tested with real ones, in the integration tests.
 */

#include "common/SignalCatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

struct Registration {
    int number;
    const struct sigaction* action;
    int flags;
    bool emptyMask;
    bool wantsOld;
};

bool sNoting = false;
std::vector<int> sRefused;
std::vector<Registration> sRegistrations;

bool isEmpty(const sigset_t& mask) {
    for (int number = 1; number < NSIG; ++number) {
        if (sigismember(&mask, number) == 1) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int __real_sigaction(int number, const struct sigaction* action, struct sigaction* old);

extern "C" int __wrap_sigaction(int number, const struct sigaction* action, struct sigaction* old) {
    if (!sNoting) {
        return __real_sigaction(number, action, old);
    }
    sRegistrations.push_back({number, action, action->sa_flags, isEmpty(action->sa_mask), old != nullptr});
    if (std::find(sRefused.begin(), sRefused.end(), number) != sRefused.end()) {
        errno = EINVAL;
        return -1;
    }
    return 0;
}

namespace {

class SignalCatcherTest : public ::testing::Test {
  protected:
    /** Returns what went to standard error. */
    static std::string install(const std::vector<int>& refused) {
        sRefused = refused;
        sRegistrations.clear();
        ::testing::internal::CaptureStderr();
        sNoting = true;
        const int result = SignalCatcher::install();
        sNoting = false;
        EXPECT_EQ(0, result);
        return ::testing::internal::GetCapturedStderr();
    }

    static std::vector<int> numbers() {
        std::vector<int> list;
        list.reserve(sRegistrations.size());
        for (const Registration& registration : sRegistrations) {
            list.push_back(registration.number);
        }
        return list;
    }
};

// Fixed by their numbers, not by their names.
const std::vector<int> kAll = {11, 15, 2, 3, 6, 7, 4, 9, 8, 15, 19, 13};

TEST_F(SignalCatcherTest, RegistersAllInOrderAndNamesWhatTheKernelRefuses) {
    EXPECT_EQ("SIGKILL: Invalid argument\nSIGSTOP: Invalid argument\n", install({SIGKILL, SIGSTOP}));
    EXPECT_THAT(numbers(), ElementsAreArray(kAll));
}

TEST_F(SignalCatcherTest, EachIsRegisteredWithTheSameValue) {
    install({});
    ASSERT_EQ(kAll.size(), sRegistrations.size());
    for (const Registration& registration : sRegistrations) {
        EXPECT_EQ(sRegistrations[0].action, registration.action);
        EXPECT_EQ(4, registration.flags);
        EXPECT_TRUE(registration.emptyMask);
        EXPECT_FALSE(registration.wantsOld);
    }
}

TEST_F(SignalCatcherTest, StopsAtTheFirstOfFiveThatIsRefused) {
    EXPECT_EQ("SIGSEGV: Invalid argument\n", install({SIGSEGV}));
    EXPECT_THAT(numbers(), ElementsAre(11));
    EXPECT_EQ("SIGTERM: Invalid argument\n", install({SIGTERM}));
    EXPECT_THAT(numbers(), ElementsAre(11, 15));
    EXPECT_EQ("SIGINT: Invalid argument\n", install({SIGINT}));
    EXPECT_THAT(numbers(), ElementsAre(11, 15, 2));
    EXPECT_EQ("SIGQUIT: Invalid argument\n", install({SIGQUIT}));
    EXPECT_THAT(numbers(), ElementsAre(11, 15, 2, 3));
    EXPECT_EQ("SIGABRT: Invalid argument\n", install({SIGABRT}));
    EXPECT_THAT(numbers(), ElementsAre(11, 15, 2, 3, 6));
}

TEST_F(SignalCatcherTest, GoesOnAfterTheOthers) {
    EXPECT_EQ(
        "SIGBUS: Invalid argument\nSIGILL: Invalid argument\nSIGKILL: Invalid argument\n"
        "SIGFPE: Invalid argument\nSIGSTOP: Invalid argument\nSIGPIPE: Invalid argument\n",
        install({SIGBUS, SIGILL, SIGKILL, SIGFPE, SIGSTOP, SIGPIPE}));
    EXPECT_THAT(numbers(), ElementsAreArray(kAll));
}

TEST_F(SignalCatcherTest, TheLimitIsTenSeconds) {
    EXPECT_EQ(10U, SignalCatcher::kLimitSeconds);
}

}  // namespace
