// SPDX-License-Identifier: Apache-2.0
#include "tests/system/binder/DriverFixture.h"

#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <bindercheck/BinderCheck.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/system/binder/EchoService.h"

using android::defaultServiceManager;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::status_t;
using android::String16;
using android::wp;
using namespace std::chrono_literals;

namespace {

constexpr auto kLimit = 30s;

}  // namespace

bool waitUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

Process::Process(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/proc/self/exe");
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    EXPECT_EQ(0, posix_spawn(&mPid, argv[0], nullptr, nullptr, argv.data(), environ));
}

Process::~Process() {
    end(SIGKILL);
}

void Process::end(int signal) {
    if (mPid > 0) {
        kill(mPid, signal);
        wait();
    }
}

void Process::wait() {
    waitpid(mPid, nullptr, 0);
    mPid = -1;
}

void Obituary::binderDied(const wp<IBinder>& who) {
    mWho = who.unsafe_get();
    ++mCount;
}

DriverCounts countsOf(pid_t pid) {
    std::ifstream file("/sys/kernel/debug/binder/proc/" + std::to_string(pid));
    EXPECT_TRUE(file.good()) << "debugfs is not mounted";
    DriverCounts counts;
    for (std::string line; std::getline(file, line);) {
        counts.references += line.rfind("  ref ", 0) == 0 ? 1 : 0;
        counts.nodes += line.rfind("  node ", 0) == 0 ? 1 : 0;
        counts.buffers += line.rfind("  buffer ", 0) == 0 ? 1 : 0;
        counts.threads += line.rfind("  thread ", 0) == 0 ? 1 : 0;
    }
    return counts;
}

size_t descriptorsOf(pid_t pid) {
    const std::filesystem::directory_iterator folder("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<size_t>(std::distance(begin(folder), end(folder)));
}

void DriverTest::SetUp() {
    ASSERT_EQ("", std::string(bindercheck::serviceManagerProblem().string()));
    start();
}

void DriverTest::start() {
    mServer = std::make_unique<Process>(std::vector<std::string>{"--serve"});
    ASSERT_TRUE(waitUntil([&] {
        mEcho = defaultServiceManager()->checkService(String16(EchoService::kName));
        return mEcho != nullptr && callerPid() == getpid();
    }));
}

int32_t DriverTest::callerPid() {
    Parcel request;
    Parcel reply;
    return mEcho->transact(EchoService::kCallerPid, request, &reply) == OK ? reply.readInt32() : -1;
}

status_t DriverTest::echo(int32_t value, int32_t* back) {
    Parcel request;
    Parcel reply;
    request.writeInt32(value);
    const status_t status = mEcho->transact(EchoService::kEcho, request, &reply);
    *back = reply.readInt32();
    return status;
}

void DriverTest::expectEcho() {
    int32_t back = 0;
    EXPECT_EQ(OK, echo(4711, &back));
    EXPECT_EQ(4711, back);
}

int32_t DriverTest::ask(uint32_t code) {
    Parcel request;
    Parcel reply;
    EXPECT_EQ(OK, mEcho->transact(code, request, &reply));
    return reply.readInt32();
}
