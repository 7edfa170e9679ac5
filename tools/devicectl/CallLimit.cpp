// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/CallLimit.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

#include "tools/devicectl/Text.h"

namespace devicectl {

namespace {

/** The line that the handler writes, and the exit status; set while no alarm is. */
std::array<char, 512> sLine;
size_t sLength = 0;
ExitCode sCode = kFailed;

void endProgram(int /*signal*/) {
    if (write(STDERR_FILENO, sLine.data(), sLength) < 0) {
        // There is nobody left to tell.
    }
    _exit(sCode);
}

std::string noAnswer(unsigned seconds, std::string_view who) {
    return "no answer from " + std::string(who.substr(0, 100)) + " within " + std::to_string(seconds) +
           " s: its process hangs or is stopped";
}

}  // namespace

CallLimit::CallLimit(unsigned seconds, std::string_view who)
    : CallLimit(seconds, kFailed, noAnswer(seconds, who)) {}

CallLimit::CallLimit(unsigned seconds, ExitCode code, std::string_view text) : mIsArmed(seconds > 0) {
    if (!mIsArmed) {
        return;
    }
    const std::string line = text.empty() ? "" : "devicectl: " + escapeLine(text) + "\n";
    sLength = std::min(line.size(), sLine.size());
    std::copy_n(line.begin(), sLength, sLine.begin());
    if (sLength > 0) {
        sLine[sLength - 1] = '\n';
    }
    sCode = code;

    struct sigaction action = {};
    action.sa_handler = endProgram;
    sigaction(SIGALRM, &action, nullptr);
    // The mask is the parent's, which may have blocked it.
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
    alarm(seconds);
}

CallLimit::~CallLimit() {
    if (mIsArmed) {
        alarm(0);
    }
}

}  // namespace devicectl
