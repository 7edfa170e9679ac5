// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <utils/String8.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/TemporaryRoot.h"

#if defined(__SANITIZE_THREAD__)
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
#endif

namespace {

/** Device records are published to a folder of the test's own. */
class StoreEnvironment : public ::testing::Environment {
  public:
    void SetUp() override {
        std::string folder = std::filesystem::temp_directory_path() / "usb-test-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder.data()));
        mFolder = folder;
        ASSERT_EQ(0, setenv("VELTA_PPS_DIR", mFolder.c_str(), 1));
    }
    void TearDown() override { std::filesystem::remove_all(mFolder); }

  private:
    std::string mFolder;
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // A death test starts the program anew instead of forking one that has threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // libutils makes its shared empty string with the first one: before there are threads.
    const android::String8 first;
    ::testing::AddGlobalTestEnvironment(new TemporaryRoot());
    ::testing::AddGlobalTestEnvironment(new StoreEnvironment());
    return RUN_ALL_TESTS();
}
