// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A process that is there before its driver. The driver is this program's own: it takes what a thread tells
 * it, and refuses what would need a kernel.
 */
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utils/String16.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/TestFolder.h"

using android::ProcessState;
using android::String16;

namespace {

constexpr std::chrono::seconds kLimit(40);

/** Whether a thread told the driver that it serves requests from now on. */
std::atomic<bool> sEntered{false};

int refuse() {
    errno = EBADF;
    return -1;
}

int talk(const binder_write_read& exchange) {
    uint32_t command = 0;
    if (exchange.write_size >= sizeof(command)) {
        memcpy(&command, reinterpret_cast<const void*>(static_cast<uintptr_t>(exchange.write_buffer)),
               sizeof(command));
    }
    if (command == BC_ENTER_LOOPER) {
        sEntered = true;
    }
    return refuse();
}

bool comesToHold(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

int threadsOfThePool() {
    int count = 0;
    DIR* const folder = opendir("/proc/self/task");
    while (const dirent* const entry = folder != nullptr ? readdir(folder) : nullptr) {
        std::string name;
        std::ifstream(std::string("/proc/self/task/") + entry->d_name + "/comm") >> name;
        count += name.compare(0, 7, "Binder:") == 0 ? 1 : 0;
    }
    if (folder != nullptr) {
        closedir(folder);
    }
    return count;
}

}  // namespace

/** In the place of the C library's, for libbinder, too. */
extern "C" int ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    switch (request) {
        case BINDER_VERSION:
            static_cast<binder_version*>(argument)->protocol_version = BINDER_CURRENT_PROTOCOL_VERSION;
            return 0;
        case BINDER_SET_MAX_THREADS:
            return 0;
        case BINDER_WRITE_READ:
            return talk(*static_cast<const binder_write_read*>(argument));
        default:
            return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    }
}

/**
 * Once the first thread left such a pool for good: the process then registered with services, and each of
 * their notifications waited for it without end.
 */
TEST(LateDriverTest, ThePoolServesOnceTheDriverIsThere) {
    const TestFolder folder;
    const std::string node = folder.path("binder");
    ASSERT_EQ(0, setenv("BINDER_DEVICE", node.c_str(), 1));

    ProcessState::self()->startThreadPool();
    EXPECT_EQ(nullptr, android::defaultServiceManager()->checkService(String16("any")));
    ASSERT_TRUE(comesToHold([] { return threadsOfThePool() == 1; })) << "the pool has no thread";
    EXPECT_FALSE(sEntered);

    writeFile(node, "");
    EXPECT_EQ(nullptr, android::defaultServiceManager()->checkService(String16("any")));
    EXPECT_TRUE(comesToHold([] { return sEntered.load(); })) << "nobody serves requests";
}
