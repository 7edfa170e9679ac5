// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A client on a unit whose libbinder ends a process without a driver, and waits without end for a service
 * manager. The driver and these two functions of libbinder are this program's own.
 */
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "client/Client.h"
#include "tests/support/TestFolder.h"

using android::BBinder;
using android::IBinder;
using android::IServiceManager;
using android::OK;
using android::ProcessState;
using android::sp;
using android::status_t;
using android::String16;
using android::Vector;

namespace {

constexpr std::chrono::seconds kLimit(40);

/** Whether somebody answers behind the driver's first handle. */
std::atomic<bool> sHasManager{false};
/** Pings of it that came before. */
std::atomic<int> sUnanswered{0};
/** How often libbinder was made to use the driver. */
std::atomic<int> sUses{0};
/** How often libbinder was asked for the service manager, and how often while there was none. */
std::atomic<int> sAsked{0};
std::atomic<int> sAskedTooEarly{0};
/** Names that were looked up. */
std::atomic<int> sLookUps{0};

/** The directory itself, in this process. */
class EmptyDirectory : public IServiceManager {
  public:
    sp<IBinder> getService(const String16& /*name*/) const override { return nullptr; }
    sp<IBinder> checkService(const String16& /*name*/) const override {
        ++sLookUps;
        return nullptr;
    }
    status_t addService(const String16& /*name*/, const sp<IBinder>& /*service*/,
                        bool /*allowIsolated*/) override {
        return android::INVALID_OPERATION;
    }
    Vector<String16> listServices() override { return {}; }

  protected:
    IBinder* onAsBinder() override { return mBinder.get(); }

  private:
    const sp<BBinder> mBinder = new BBinder();
};

int refuse() {
    errno = EBADF;
    return -1;
}

bool asksSomething(const binder_write_read& exchange) {
    const auto* const commands =
        reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(exchange.write_buffer));
    uint32_t command = 0;
    for (uint64_t at = 0; at + sizeof(command) <= exchange.write_size;
         at += sizeof(command) + _IOC_SIZE(command)) {
        memcpy(&command, commands + at, sizeof(command));
        if (command == BC_TRANSACTION) {
            return true;
        }
    }
    return false;
}

/** Answers a ping; there is nothing else to be had here, and no thread is served. */
int talk(binder_write_read* exchange) {
    if (!asksSomething(*exchange)) {
        return refuse();
    }
    constexpr uint32_t kComplete = BR_TRANSACTION_COMPLETE;
    constexpr uint32_t kReply = BR_REPLY;
    constexpr uint32_t kDead = BR_DEAD_REPLY;
    const binder_transaction_data empty = {};
    std::string answer(reinterpret_cast<const char*>(&kComplete), sizeof(kComplete));
    if (sHasManager) {
        answer.append(reinterpret_cast<const char*>(&kReply), sizeof(kReply));
        answer.append(reinterpret_cast<const char*>(&empty), sizeof(empty));
    } else {
        ++sUnanswered;
        answer.append(reinterpret_cast<const char*>(&kDead), sizeof(kDead));
    }
    if (answer.size() > exchange->read_size) {
        return refuse();
    }
    memcpy(reinterpret_cast<void*>(static_cast<uintptr_t>(exchange->read_buffer)), answer.data(),
           answer.size());
    exchange->read_consumed = answer.size();
    exchange->write_consumed = exchange->write_size;
    return 0;
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

client::Options quick() {
    client::Options options;
    options.retryInterval = std::chrono::milliseconds(5);
    return options;
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

namespace android {

/** In the place of libbinder's: a unit's would wait here while there is no service manager. */
sp<IServiceManager> defaultServiceManager() {
    ++sAsked;
    if (!sHasManager) {
        ++sAskedTooEarly;
    }
    static EmptyDirectory* const sDirectory = [] {
        auto* const directory = new EmptyDirectory();
        directory->incStrong(nullptr);
        return directory;
    }();
    return sDirectory;
}

/** In the place of libbinder's, which it goes on to: a unit's would end a process that has no driver. */
sp<ProcessState> ProcessState::self() {
    using Self = sp<ProcessState> (*)();
    static const auto sSelf = reinterpret_cast<Self>(dlsym(RTLD_NEXT, "_ZN7android12ProcessState4selfEv"));
    if (sSelf == nullptr) {
        fprintf(stderr, "no ProcessState::self() behind this program\n");
        abort();
    }
    ++sUses;
    return sSelf();
}

}  // namespace android

TEST(ClientEnvironmentTest, WithoutADriverLibbinderIsLeftAlone) {
    ASSERT_EQ(0, setenv("BINDER_DEVICE", "/nonexistent/binder", 1));
    {
        client::Client client;
        ASSERT_EQ(OK, client.start(client::Events(), quick()));
        EXPECT_FALSE(client.waitUntilConnected(std::chrono::milliseconds(200)));
    }
    EXPECT_EQ(0, sUses);
    EXPECT_EQ(0, sAsked);
}

TEST(ClientEnvironmentTest, EndsWithoutAServiceManager) {
    const TestFolder folder;
    const std::string node = folder.path("binder");
    writeFile(node, "");
    ASSERT_EQ(0, setenv("BINDER_DEVICE", node.c_str(), 1));
    {
        client::Client client;
        ASSERT_EQ(OK, client.start(client::Events(), quick()));
        EXPECT_TRUE(comesToHold([] { return sUnanswered >= 1; }));
    }
    EXPECT_EQ(0, sAsked);
}

TEST(ClientEnvironmentTest, WithoutAServiceManagerNothingWaitsForIt) {
    const TestFolder folder;
    const std::string node = folder.path("binder");
    ASSERT_EQ(0, setenv("BINDER_DEVICE", node.c_str(), 1));
    const int uses = sUses;
    client::Client client;
    ASSERT_EQ(OK, client.start(client::Events(), quick()));
    EXPECT_FALSE(client.waitUntilConnected(std::chrono::milliseconds(50)));
    EXPECT_EQ(uses, sUses);

    // The driver comes, and then the service manager.
    const int unanswered = sUnanswered;
    writeFile(node, "");
    EXPECT_TRUE(comesToHold([unanswered] { return sUnanswered >= unanswered + 3; }));
    EXPECT_FALSE(client.waitUntilConnected(std::chrono::milliseconds(0)));
    EXPECT_EQ(0, sAsked);
    sHasManager = true;
    EXPECT_TRUE(comesToHold([] { return sLookUps >= 6; })) << "it goes on looking for the services";
    EXPECT_EQ(0, sAskedTooEarly);
}
