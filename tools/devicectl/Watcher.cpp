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

bool isEnd(int signal) {
    return signal != SIGTSTP && signal != SIGCONT && signal != SIGWINCH;
}

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
      mSignals({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH}),
      mScreen(inputFd, outputFd) {}

ExitCode Watcher::run(const sp<WatchSource>& source) {
    int error = enter();
    while (error == 0 && !mIsOver) {
        error = draw(*source);
        if (error == 0) {
            error = await();
        }
    }
    if (error == EIO && mIsEntered) {
        // The terminal went, and with it who would read of it.
        error = 0;
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
    // In the last column the erased rest of a full row would take its last character along.
    const size_t columns = std::max<size_t>(size.columns, 2) - 1;
    return mScreen.show(renderWatch(
        mFormat, model, {size.rows, columns, mFirst, static_cast<unsigned>(silent), clockText()}));
}

int Watcher::await() {
    std::array<pollfd, 3> sources{
        {{mInput, POLLIN, 0}, {mSignals.fd(), POLLIN, 0}, {mNews->fd(), POLLIN, 0}}};
    if (poll(sources.data(), sources.size(), kTickMs) <= 0) {
        return 0;
    }
    mNews->clear();
    int error = 0;
    bool areKeysStale = false;
    for (int signal = 0; error == 0 && !mIsOver && (signal = mSignals.takeNumber()) != 0;) {
        error = takeSignal(signal);
        areKeysStale = true;
    }
    // A pause throws keys away; the next poll() tells what is still there.
    return error == 0 && sources[0].revents != 0 && !areKeysStale ? takeKeys() : error;
}

int Watcher::takeSignal(int signal) {
    switch (signal) {
        case SIGTSTP:
            return pause();
        case SIGCONT:
            return enterAgain();
        case SIGWINCH:
            return 0;
        default:
            mIsOver = true;
            return 0;
    }
}

int Watcher::takeKeys() {
    std::array<char, 256> keys{};
    const ssize_t count = read(mInput, keys.data(), keys.size());
    if (count <= 0) {
        // The terminal went.
        mIsOver = true;
        return 0;
    }
    std::string_view rest(keys.data(), static_cast<size_t>(count));
    while (!rest.empty() && !mIsOver) {
        const std::string_view key = rest.substr(0, rest.substr(0, 2) == "\x1b[" ? 3 : 1);
        if (key[0] == kCtrlZ) {
            // What was typed behind it is for nobody, as where the terminal stops a job.
            return pause();
        }
        takeKey(key);
        rest.remove_prefix(key.size());
    }
    return 0;
}

void Watcher::takeKey(std::string_view key) {
    if (key[0] == 'q' || key[0] == kCtrlC) {
        mIsOver = true;
    } else if (key == "j" || key == "\x1b[B") {
        mFirst = std::min(mFirst + 1, mLast);
    } else if (key == "k" || key == "\x1b[A") {
        mFirst -= std::min<size_t>(mFirst, 1);
    }
}

int Watcher::enter() {
    // Nothing of the terminal is taken yet: what ends or stops a program does so while it waits for its turn.
    mSignals.release();
    int error = mScreen.awaitForeground();
    mSignals.hold();
    if (error == 0) {
        error = mScreen.enter();
        mIsEntered = mIsEntered || error == 0;
    }
    return error;
}

/** After a stop that could not be seen: the shell had the terminal as it was. */
int Watcher::enterAgain() {
    {
        const StopSignals::WakeByContinue wake;
        int error = 0;
        while ((error = mScreen.awaitForeground()) == EINTR) {
            // Woken, and by no means with the terminal: what ends a program ends it in the background, too.
            for (int signal = 0; (signal = mSignals.takeNumber()) != 0;) {
                mIsOver = mIsOver || isEnd(signal);
            }
            if (mIsOver) {
                return 0;
            }
        }
        if (error != 0) {
            return error;
        }
    }
    return mScreen.enterAgain();
}

int Watcher::pause() {
    mScreen.leave();
    // As the terminal does it: the whole job, and not where nobody could wake it. The signal stays pending
    // until enter() lets it in, since all threads have it blocked.
    kill(0, SIGTSTP);
    return enter();
}

}  // namespace devicectl
