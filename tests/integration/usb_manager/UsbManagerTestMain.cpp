// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <utils/String8.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/PrivateNamespaces.h"

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

constexpr const char* kFolderVariable = "USB_MANAGER_TEST_FOLDER";

/** Nothing runs outside namespaces and folders of the test's own; making them needs root. */
class UnitEnvironment : public ::testing::Environment {
  public:
    void SetUp() override {
        ASSERT_EQ("", enterPrivateNamespaces()) << "(root is needed)";
        if (getenv(kFolderVariable) != nullptr) {
            // The process of a death test, which never comes to its TearDown(): the folder is its parent's.
            return;
        }
        std::string folder = std::filesystem::temp_directory_path() / "usb-manager-test-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder.data()));
        mFolder = folder;
        ASSERT_EQ(0, setenv(kFolderVariable, mFolder.c_str(), 1));
        ASSERT_EQ(0, setenv("VELTA_PPS_DIR", (mFolder + "/store").c_str(), 1));
        ASSERT_EQ(0, setenv("VX_VENDOR_DATA_DIR", (mFolder + "/vendor").c_str(), 1));
    }
    void TearDown() override {
        if (!mFolder.empty()) {
            std::filesystem::remove_all(mFolder);
        }
    }

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
    ::testing::AddGlobalTestEnvironment(new UnitEnvironment());
    return RUN_ALL_TESTS();
}
