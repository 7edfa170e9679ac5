// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A program with the daemon's signal catcher, for tests: signal-catcher-probe MODE.
 *
 * It installs the catcher, does what the mode says, and waits for a signal where that is not one. "ready" on
 * standard output tells that the signal may come; "exit handler" that the exit handlers ran.
 */

#include <pthread.h>
#include <signal.h>
#include <sysexits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/Assert.h"
#include "common/SignalCatcher.h"

namespace {

// The shortest that the limit can be: what hangs in a test hangs this long.
constexpr unsigned kShortLimitSeconds = 1;
constexpr int kDepth = 60;

void say(const char* text) {
    fputs(text, stdout);
    fputc('\n', stdout);
    fflush(stdout);
}

[[noreturn]] void waitForSignal() {
    say("ready");
    for (;;) {
        pause();
    }
}

struct Worker {
    bool holdsStandardError;
    pthread_barrier_t ready;
};

void* work(void* argument) {
    auto* const worker = static_cast<Worker*>(argument);
    pthread_setname_np(pthread_self(), "probe-worker");
    if (worker->holdsStandardError) {
        flockfile(stderr);
    }
    pthread_barrier_wait(&worker->ready);
    for (;;) {
        pause();
    }
}

/** Returns when the thread has its name, and the lock. */
void startWorker(bool holdsStandardError) {
    // Never freed: the thread goes on until the end of the process.
    static Worker sWorker;
    sWorker.holdsStandardError = holdsStandardError;
    pthread_barrier_init(&sWorker.ready, nullptr, 2);
    pthread_t thread;
    if (pthread_create(&thread, nullptr, work, &sWorker) != 0) {
        exit(EX_OSERR);
    }
    pthread_barrier_wait(&sWorker.ready);
}

__attribute__((noinline)) int raiseAtDepth(int depth) {
    const int below = depth == 0 ? raise(SIGTERM) : raiseAtDepth(depth - 1);
    // Keeps each call a frame of its own.
    asm volatile("" : : "r"(below) : "memory");
    return below + 1;
}

// A sanitizer that checks pointers first would end the process itself.
__attribute__((no_sanitize("undefined"))) void crash() {
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;  // NOLINT(clang-analyzer-core.NullDereference): meant
}

void writeIntoAClosedPipe() {
    int ends[2];
    if (pipe(ends) != 0) {
        exit(EX_OSERR);
    }
    close(ends[0]);
    const ssize_t written = write(ends[1], "x", 1);
    fprintf(stderr, "a broken pipe took %zd bytes\n", written);
    exit(EX_SOFTWARE);
}

void catchWithAHeldLock() {
    startWorker(true);
    raise(SIGTERM);
}

void failAnAssertion() {
    SERVICE_ASSERT_AT(false, "client", "Probe", 7, "void probe()");
}

void pauseInExit() {
    say("exit handler");
    for (;;) {
        pause();
    }
}

void crashInExit() {
    say("exit handler");
    crash();
}

void sayInExit() {
    say("exit handler");
}

int run(const std::string& mode) {
    if (mode == "wait") {
        atexit(sayInExit);
        startWorker(false);
        waitForSignal();
    } else if (mode == "exit-hangs") {
        atexit(pauseInExit);
        waitForSignal();
    } else if (mode == "exit-crashes") {
        atexit(crashInExit);
        raise(SIGSEGV);
    } else if (mode == "exit-aborts") {
        atexit(abort);
        raise(SIGABRT);
    } else if (mode == "lock-held") {
        catchWithAHeldLock();
    } else if (mode == "crash") {
        crash();
    } else if (mode == "assertion") {
        failAnAssertion();
    } else if (mode == "pipe") {
        writeIntoAClosedPipe();
    } else if (mode == "deep") {
        raiseAtDepth(kDepth);
    } else {
        fprintf(stderr, "signal-catcher-probe: unknown mode \"%s\"\n", mode.c_str());
        return EX_USAGE;
    }
    return EX_SOFTWARE;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fputs("usage: signal-catcher-probe MODE\n", stderr);
        return EX_USAGE;
    }
    std::string mode = argv[1];
    const std::string shortLimit = "short:";
    if (mode.compare(0, shortLimit.size(), shortLimit) == 0) {
        mode.erase(0, shortLimit.size());
        SignalCatcher::installWithLimit(kShortLimitSeconds);
    } else {
        SignalCatcher::install();
    }
    return run(mode);
}
