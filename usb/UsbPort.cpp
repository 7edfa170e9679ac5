// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbPort.h"

#include <log/log.h>
#include <unistd.h>
#include <utils/String8.h>

#include <cstdio>

#include "usb/UsbAttribute.h"

namespace usb {

using android::String8;

namespace {

constexpr const char* kPower = "/sys/bus/platform/devices/ehci-platform.%d/usb_power_set";
constexpr const char* kRole = "/sys/devices/platform/ehci-platform.%d/usb_role";

constexpr unsigned kPorts = 3;
/** The port whose controller is a host's only. */
constexpr unsigned kHostOnlyPort = 2;
/** What a reset takes the power away for. */
constexpr useconds_t kResetMicros = 1000000;

constexpr size_t kPathSize = 128;
/** Of the line that tells the role, its NUL included. */
constexpr int kRoleSize = 32;

/** Numbers that the log names the steps of usbDeviceIsActived() by. */
enum Step : int {
    kBuildPath = 1009,
    kBuildCommand = 1010,
    kCloseEmpty = 1018,
    kClose = 1022,
};

bool isPort(int port) {
    return static_cast<unsigned>(port) < kPorts;
}

String8 powerOf(int port) {
    return String8::format(kPower, port + 1);
}

void check(bool succeeded, Step step) {
    if (!succeeded) {
        ALOGE("%s %d:check return value failed", "usbDeviceIsActived", static_cast<int>(step));
    }
}

bool fits(int length, size_t size) {
    return length >= 0 && static_cast<size_t>(length) < size;
}

}  // namespace

int setUsbPortPower(int port, bool on) {
    if (!isPort(port)) {
        ALOGE("%s can't power on usb port number[%d]", "power", port);
        return 0;
    }
    setValue(powerOf(port).string(), on ? 1 : 0);
    return 0;
}

int resetUsbPort(int port) {
    if (!isPort(port)) {
        ALOGE("%s can't power on usb port number[%d]", "reset", port);
        return 0;
    }
    const String8 power = powerOf(port);
    setValue(power.string(), 0);
    usleep(kResetMicros);
    setValue(power.string(), 1);
    return 0;
}

bool usbDeviceIsActived(int port) {
    if (static_cast<unsigned>(port) == kHostOnlyPort) {
        ALOGE("Func:[%s], Usb port[%d] only support Host mode.", __func__, port);
        return false;
    }
    if (!isPort(port)) {
        ALOGE("Func:[%s], Error port number:[%d].", __func__, port);
        return false;
    }
    char path[kPathSize];
    char command[kPathSize + sizeof("cat ")];
    check(fits(snprintf(path, sizeof(path), kRole, port + 1), sizeof(path)), kBuildPath);
    check(fits(snprintf(command, sizeof(command), "cat %s", path), sizeof(command)), kBuildCommand);

    // "e": the pipe's end stays out of shells that other threads run meanwhile.
    FILE* const output = popen(command, "re");
    if (output == nullptr) {
        ALOGE("Error, Func:[%s] popen fail.", __func__);
        return false;
    }
    char line[kRoleSize];
    if (fgets(line, sizeof(line), output) == nullptr) {
        ALOGE("Error, Func:[%s] fgets nothing.", __func__);
        check(pclose(output) != -1, kCloseEmpty);
        return false;
    }
    check(pclose(output) != -1, kClose);
    ALOGI("Cmd \"%s\" result:%s", command, line);
    return line[0] == '0';
}

}  // namespace usb
