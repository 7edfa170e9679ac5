// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "servicemanager"

#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <bindercheck/BinderCheck.h>
#include <log/log.h>
#include <signal.h>
#include <sysexits.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "platform/binder/servicemanager/ServiceDirectory.h"

using android::IPCThreadState;
using android::ProcessState;
using android::status_t;
using android::String8;

namespace {

constexpr const char* kUsage =
    "usage: servicemanager [--help | --version]\n"
    "\n"
    "The directory of the binder services on systems without one: services register under a name, clients "
    "look\n"
    "them up. Runs until it is ended by a signal. Start it before the services.\n"
    "\n"
    "The driver's node is /dev/binder, or what BINDER_DEVICE names.\n"
    "\n"
    "Exit status: 0 ended by SIGTERM or SIGINT, 64 wrong use, 69 no binder driver or another service "
    "manager.\n";

int refuse(const char* reason) {
    fprintf(stderr, "servicemanager: %s\n", reason);
    return EX_UNAVAILABLE;
}

void endOnSignal(int /*signal*/) {
    _exit(EX_OK);
}

int serve() {
    const String8 problem = bindercheck::driverProblem();
    if (!problem.isEmpty()) {
        return refuse(problem.string());
    }
    // Before others can see this one: they may end it as soon as they do.
    struct sigaction action = {};
    action.sa_handler = endOnSignal;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    const status_t status = ProcessState::self()->becomeContextManager(new ServiceDirectory());
    if (status == android::ALREADY_EXISTS) {
        return refuse("another service manager runs on this driver; one is enough");
    }
    if (status != android::OK) {
        return refuse(String8::format("the driver refused: %s", strerror(-status)).string());
    }
    // A single thread serves: no request of this program waits for anybody.
    ProcessState::self()->setThreadPoolMaxThreadCount(0);
    IPCThreadState::self()->joinThreadPool(true);
    return refuse("the driver failed");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 1) {
        return serve();
    }
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return EX_OK;
    }
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        puts("servicemanager " DEVICE_SERVICE_VERSION);
        return EX_OK;
    }
    fputs(kUsage, stderr);
    return EX_USAGE;
}
