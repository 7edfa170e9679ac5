// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Watcher.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <string>

#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/WatchView.h"

namespace devicectl {

using android::sp;

namespace {

constexpr int kTickMs = 1000;
/** A model that is older is not shown as true; younger ones wait for the next look. */
constexpr std::chrono::seconds kFresh{3};
constexpr char kCtrlC = 3;
constexpr char kCtrlZ = 26;

std::string clockText() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
    return text.data();
}

}  // namespace

Watcher::Watcher(Format format, const sp<WakeUp>& news, int inputFd, int outputFd)
    : mFormat(format),
      mNews(news),
      mInput(inputFd),
      mSignals({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH}),
      mScreen(inputFd, outputFd) {}

ExitCode Watcher::run(const sp<WatchSource>& source) {
    int error = enter();
    while (error == 0 && !mIsOver) {
        error = draw(*source);
        if (error == 0) {
            await();
        }
    }
    mScreen.leave();
    if (error != 0) {
        reportOutputError(error);
        return kFailed;
    }
    return kOk;
}

int Watcher::draw(const WatchSource& source) {
    WatchSource::Clock::time_point when;
    const WatchModel model = source.model(&when);
    const Screen::Size size = mScreen.size();
    mLast = lastFirstLine(model, size.rows);
    mFirst = std::min(mFirst, mLast);
    const auto age = WatchSource::Clock::now() - when;
    const auto silent = age > kFresh ? std::chrono::duration_cast<std::chrono::seconds>(age).count() : 0;
    return mScreen.show(renderWatch(
        mFormat, model, {size.rows, size.columns, mFirst, static_cast<unsigned>(silent), clockText()}));
}

void Watcher::await() {
    std::array<pollfd, 3> sources{
        {{mInput, POLLIN, 0}, {mSignals.fd(), POLLIN, 0}, {mNews->fd(), POLLIN, 0}}};
    if (poll(sources.data(), sources.size(), kTickMs) <= 0) {
        return;
    }
    mNews->clear();
    bool areKeysStale = false;
    for (int signal = mSignals.takeNumber(); signal != 0; signal = mSignals.takeNumber()) {
        takeSignal(signal);
        areKeysStale = true;
    }
    // A pause throws keys away; the next poll() tells what is still there.
    if (sources[0].revents != 0 && !areKeysStale) {
        takeKeys();
    }
}

void Watcher::takeSignal(int signal) {
    if (signal == SIGTSTP) {
        pause();
    } else if (signal != SIGWINCH) {
        mIsOver = true;
    }
}

void Watcher::takeKeys() {
    std::array<char, 256> keys{};
    const ssize_t count = read(mInput, keys.data(), keys.size());
    if (count <= 0) {
        // The terminal went.
        mIsOver = true;
        return;
    }
    std::string_view rest(keys.data(), static_cast<size_t>(count));
    while (!rest.empty()) {
        const std::string_view key = rest.substr(0, rest.substr(0, 2) == "\x1b[" ? 3 : 1);
        takeKey(key);
        rest.remove_prefix(key.size());
    }
}

void Watcher::takeKey(std::string_view key) {
    if (key[0] == 'q' || key[0] == kCtrlC) {
        mIsOver = true;
    } else if (key[0] == kCtrlZ) {
        pause();
    } else if (key == "j" || key == "\x1b[B") {
        mFirst = std::min(mFirst + 1, mLast);
    } else if (key == "k" || key == "\x1b[A") {
        mFirst -= std::min<size_t>(mFirst, 1);
    }
}

int Watcher::enter() {
    return mScreen.enter();
}

/** Gives the terminal to the shell until that wakes this program. */
void Watcher::pause() {
    mScreen.leave();
    // As the terminal does it: the whole job, and not where nobody could wake it. The signal is blocked
    // in all threads and stays pending until this one lets it in.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    kill(0, SIGTSTP);
    pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    mIsOver = mIsOver || mScreen.enter() != 0;
}

}  // namespace devicectl
