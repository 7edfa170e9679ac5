// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/integration/usb/UsbTestRun.h"
#include "tests/support/TemporaryRoot.h"

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
    ::testing::AddGlobalTestEnvironment(new TemporaryRoot());
    return runUsbTests(argc, argv, new StoreEnvironment());
}
