// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A pool that grows in a system that is short of threads. Driver and thread creation are this program's own:
 * the driver asks for one thread more, the system refuses as many as the test says.
 */
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utils/AndroidThreads.h>
#include <utils/String16.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/TestFolder.h"

using android::ProcessState;
using android::String16;

namespace {

constexpr std::chrono::seconds kLimit(40);
constexpr std::chrono::milliseconds kPause(1);

/** How many threads the system refuses before it gives one. */
std::atomic<int> sToRefuse{0};
std::atomic<int> sRefused{0};

/** What threads told the driver, and how often it was asked for work. */
std::atomic<int> sEntered{0};
std::atomic<int> sRegistered{0};
std::atomic<int> sReads{0};
/** Whether the driver is to ask for a thread. */
std::atomic<bool> sAsks{false};

void noteCommand(const binder_write_read& exchange) {
    uint32_t command = 0;
    if (exchange.write_size >= sizeof(command)) {
        memcpy(&command, reinterpret_cast<const void*>(static_cast<uintptr_t>(exchange.write_buffer)),
               sizeof(command));
    }
    sEntered += command == BC_ENTER_LOOPER ? 1 : 0;
    sRegistered += command == BC_REGISTER_LOOPER ? 1 : 0;
}

/** A driver that has nothing for anybody but, once, the request for a thread; calls fail. */
int talk(binder_write_read* exchange) {
    noteCommand(*exchange);
    const bool isCall = exchange->write_size > sizeof(uint32_t);
    if (isCall) {
        errno = EBADF;
        return -1;
    }
    exchange->write_consumed = exchange->write_size;
    if (exchange->read_size == 0) {
        return 0;
    }
    std::this_thread::sleep_for(kPause);
    const uint32_t command = sAsks.exchange(false) ? BR_SPAWN_LOOPER : BR_NOOP;
    memcpy(reinterpret_cast<void*>(static_cast<uintptr_t>(exchange->read_buffer)), &command, sizeof(command));
    exchange->read_consumed = sizeof(command);
    ++sReads;
    return 0;
}

bool comesToHold(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
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
            return talk(static_cast<binder_write_read*>(argument));
        default:
            return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    }
}

/** In the place of libutils' own; 0 is its failure. */
extern "C" int androidCreateRawThreadEtc(android_thread_func_t entry, void* argument, const char* name,
                                         int32_t priority, size_t stackSize, android_thread_id_t* id) {
    if (sToRefuse > 0) {
        --sToRefuse;
        ++sRefused;
        return 0;
    }
    static const auto sCreate =
        reinterpret_cast<decltype(&androidCreateRawThreadEtc)>(dlsym(RTLD_NEXT, "androidCreateRawThreadEtc"));
    return sCreate(entry, argument, name, priority, stackSize, id);
}

/**
 * The driver asks for one thread at a time and waits for it. One that the system had refused, as it does at
 * its limit of tasks, was never started: the pool stayed as small as it was, and a few slow requests were all
 * that a service could serve.
 */
TEST(PoolGrowthTest, AThreadThatWasRefusedComesLater) {
    const TestFolder folder;
    const std::string node = folder.path("binder");
    writeFile(node, "");
    ASSERT_EQ(0, setenv("BINDER_DEVICE", node.c_str(), 1));

    sToRefuse = 1;
    ProcessState::self()->startThreadPool();
    EXPECT_EQ(1, sRefused);
    // Any call of the process starts it, even one that fails.
    EXPECT_EQ(nullptr, android::defaultServiceManager()->checkService(String16("any")));
    ASSERT_TRUE(comesToHold([] { return sEntered == 1; })) << "nobody serves requests";

    sToRefuse = 3;
    sAsks = true;
    ASSERT_TRUE(comesToHold([] { return sRegistered == 1; })) << "the pool does not grow";
    EXPECT_EQ(4, sRefused);

    // And no more than were asked for.
    const int reads = sReads;
    ASSERT_TRUE(comesToHold([reads] { return sReads > reads + 10; }));
    EXPECT_EQ(1, sEntered);
    EXPECT_EQ(1, sRegistered);
}
