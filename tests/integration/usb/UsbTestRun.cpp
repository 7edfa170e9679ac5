// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/usb/UsbTestRun.h"

#include <utils/String8.h>

/**
 * libusb frees a transfer's lock while the thread that handled the transfer's events may still be on its way
 * out of it. The bed's libraries are not instrumented: what orders their threads is not seen.
 */
extern "C" const char* __tsan_default_suppressions() {
    return "mutex:libusb_free_transfer\n"
           "race:libusb_free_transfer\n"
           "race:libglib-2.0.so\n"
           "race:libgobject-2.0.so\n"
           "race:libgio-2.0.so\n"
           "race:libumockdev.so\n";
}

int runUsbTests(int argc, char** argv, ::testing::Environment* environment) {
    ::testing::InitGoogleTest(&argc, argv);
    // A death test starts the program anew instead of forking one that has threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // libutils makes its shared empty string with the first one: before there are threads.
    const android::String8 first;
    ::testing::AddGlobalTestEnvironment(environment);
    return RUN_ALL_TESTS();
}
