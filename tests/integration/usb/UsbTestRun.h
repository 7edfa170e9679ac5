// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

/**
 * The whole of main() of a program that tests the USB side: it runs its tests in @p environment, which it
 * takes over. Such a program may have libusb's threads and those of the bed's libraries.
 */
int runUsbTests(int argc, char** argv, ::testing::Environment* environment);
