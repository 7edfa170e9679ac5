// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/integration/usb/UsbTestRun.h"
#include "tests/support/PrivateNamespaces.h"

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
    return runUsbTests(argc, argv, new UnitEnvironment());
}
