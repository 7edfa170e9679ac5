// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What every manager's core says of a start and a stop that have nothing to do.
 */

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/support/LogCapture.h"

/** Stops, starts, starts and stops @p manager, which is shut down; it has state(). */
template <typename Manager>
void expectRepeatedTransitionsLogged(Manager& manager, LogCapture& log, const char* tag) {
    EXPECT_EQ(0, manager.shutdown());
    EXPECT_EQ(0, manager.startup());
    EXPECT_EQ(1, manager.state());
    EXPECT_EQ(0, manager.startup());
    EXPECT_EQ(0, manager.shutdown());
    EXPECT_EQ(0, manager.state());
    EXPECT_THAT(log.take(tag), ::testing::ElementsAre(
                                   LogLine{ANDROID_LOG_WARN, tag, "already shutdown, no need re-shutdown"},
                                   LogLine{ANDROID_LOG_WARN, tag, "already startup, no need re-startup"}));
}

/** Starts and stops @p manager, which has state() and setState(), in a state that it does not know. */
template <typename Manager>
void expectImpossibleStateLogged(Manager& manager, LogCapture& log, const char* tag) {
    manager.setState(7);
    EXPECT_EQ(0, manager.startup());
    EXPECT_EQ(0, manager.shutdown());
    EXPECT_EQ(7, manager.state());
    EXPECT_THAT(log.take(tag),
                ::testing::ElementsAre(LogLine{ANDROID_LOG_ERROR, tag, "unknown state[7], why??"},
                                       LogLine{ANDROID_LOG_ERROR, tag, "unknown state[7], why??"}));
}
