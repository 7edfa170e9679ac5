// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UsbAttribute.h"

#include <log/log.h>
#include <utils/String8.h>

#include <cstdlib>

#include "common/Assert.h"

namespace usb {

using android::String8;

namespace {

constexpr const char* kFile = "UsbManagerImpl";

}  // namespace

void runShell(const char* command) {
    [[maybe_unused]] const int result = system(command);
}

void setValue(const char* file, uint32_t value) {
    SERVICE_ASSERT(file != nullptr, "file", kFile);
    const String8 command = String8::format("echo %d > %s", static_cast<int>(value), file);
    runShell(command.string());
    ALOGW("%s", command.string());
}

void setValueString(const char* file, const char* value) {
    SERVICE_ASSERT(file != nullptr, "file", kFile);
    // Of any length: a text of a client's is not cut to a buffer. What is too long for the system is refused
    // by the system.
    const String8 command = String8::format("echo -n %s > %s", value != nullptr ? value : "(null)", file);
    ALOGW("%s", command.string());
    runShell(command.string());
}

}  // namespace usb
