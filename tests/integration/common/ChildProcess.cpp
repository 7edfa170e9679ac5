// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/common/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& added) {
    std::vector<std::string> result = added;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string own = *entry;
        const std::string name = own.substr(0, own.find('=') + 1);
        if (std::none_of(added.begin(), added.end(), [&name](const std::string& text) {
                return text.compare(0, name.size(), name) == 0;
            })) {
            result.push_back(own);
        }
    }
    return result;
}

/** Returns false at the end of the stream. */
bool readInto(int* fd, std::string* text) {
    char buffer[4096];
    const ssize_t size = TEMP_FAILURE_RETRY(read(*fd, buffer, sizeof(buffer)));
    if (size <= 0) {
        close(*fd);
        *fd = -1;
        return false;
    }
    text->append(buffer, static_cast<size_t>(size));
    return true;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::vector<std::string>& environment) {
    int output[2];
    int error[2];
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(error, O_CLOEXEC) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, error[1], STDERR_FILENO);
    const std::vector<std::string> variables = environmentWith(environment);
    const int result = posix_spawn(&mPid, arguments[0].c_str(), &actions, nullptr,
                                   pointersTo(arguments).data(), pointersTo(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    close(output[1]);
    close(error[1]);
    mOutputFd = output[0];
    mErrorFd = error[0];
    if (result != 0) {
        mPid = -1;
        mError = strerror(result);
    }
}

ChildProcess::~ChildProcess() {
    if (mPid > 0) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    for (const int fd : {mOutputFd, mErrorFd}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

void ChildProcess::signal(int number) const {
    if (mPid > 0) {
        kill(mPid, number);
    }
}

bool ChildProcess::readSome(Clock::time_point deadline) {
    pollfd polls[] = {{mOutputFd, POLLIN, 0}, {mErrorFd, POLLIN, 0}};
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
    if (left.count() <= 0 || poll(polls, 2, static_cast<int>(left.count())) <= 0) {
        return false;
    }
    if (polls[0].revents != 0) {
        readInto(&mOutputFd, &mOutput);
    }
    if (polls[1].revents != 0) {
        readInto(&mErrorFd, &mError);
    }
    return true;
}

bool ChildProcess::waitForOutput(const std::string& text, milliseconds limit) {
    const Clock::time_point deadline = Clock::now() + limit;
    while (mOutput.find(text) == std::string::npos) {
        if (mOutputFd < 0 || !readSome(deadline)) {
            return false;
        }
    }
    return true;
}

bool ChildProcess::waitForEnd(milliseconds limit) {
    if (mPid <= 0) {
        return false;
    }
    const Clock::time_point deadline = Clock::now() + limit;
    while ((mOutputFd >= 0 || mErrorFd >= 0) && readSome(deadline)) {
    }
    while (waitpid(mPid, &mStatus, WNOHANG) != mPid) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    mPid = -1;
    return true;
}
