// SPDX-License-Identifier: Apache-2.0
#include <binder/IBinder.h>
#include <binder/ProcessState.h>
#include <bindercheck/BinderCheck.h>
#include <fcntl.h>
#include <linux/android/binder.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/binder/DriverNode.h"

using android::IBinder;
using android::ProcessState;
using android::sp;
using android::String8;

namespace bindercheck {

namespace {

constexpr const char* kLoadModule =
    "load the kernel module binder_linux (modprobe binder_linux) or use a kernel with "
    "CONFIG_ANDROID_BINDER_IPC";
constexpr const char* kGrantAccess = "run as root or let this user read and write the node";
constexpr const char* kOtherKernel = "use a kernel whose binder driver speaks protocol 8";
constexpr const char* kStartManager =
    "no service manager answers: start servicemanager before the services and their clients";

String8 problemWith(const char* what, int error, const char* remedy) {
    return String8::format("%s %s: %s; %s", what, binderDriverNode(), strerror(error), remedy);
}

String8 problemOf(int node) {
    binder_version version = {};
    if (ioctl(node, BINDER_VERSION, &version) != 0) {
        return problemWith("no binder driver behind", errno, kLoadModule);
    }
    if (version.protocol_version != BINDER_CURRENT_PROTOCOL_VERSION) {
        return problemWith("unknown binder protocol of", EPROTO, kOtherKernel);
    }
    return String8();
}

}  // namespace

String8 driverProblem() {
    const int node = open(binderDriverNode(), O_RDWR | O_CLOEXEC);
    if (node < 0) {
        const bool isRefused = errno == EACCES || errno == EPERM;
        return problemWith("cannot open", errno, isRefused ? kGrantAccess : kLoadModule);
    }
    const String8 problem = problemOf(node);
    close(node);
    return problem;
}

String8 serviceManagerProblem() {
    const String8 problem = driverProblem();
    if (!problem.isEmpty()) {
        return problem;
    }
    // Some libraries have no object for a manager that does not answer, others one whose calls fail.
    const sp<IBinder> manager = ProcessState::self()->getContextObject(nullptr);
    return manager != nullptr && manager->pingBinder() == android::OK ? String8() : String8(kStartManager);
}

}  // namespace bindercheck
