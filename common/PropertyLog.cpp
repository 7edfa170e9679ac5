// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "Property"

#include "common/PropertyLog.h"

#include <android/log.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>

PropertyLogSwitches sPropertyLogSwitches{{true}, {false}, {false}};

namespace {

constexpr size_t kLineSize = 500;

__attribute__((format(printf, 2, 0))) void write(int priority, const char* format, va_list arguments) {
    char line[kLineSize];
    vsnprintf(line, sizeof(line), format, arguments);
    __android_log_print(priority, LOG_TAG, "%s", line);
}

}  // namespace

void propertyError(const char* format, ...) {
    if (sPropertyLogSwitches.error) {
        va_list arguments;
        va_start(arguments, format);
        write(ANDROID_LOG_ERROR, format, arguments);
        va_end(arguments);
    }
}

void propertyWarning(const char* format, ...) {
    if (sPropertyLogSwitches.warning) {
        va_list arguments;
        va_start(arguments, format);
        write(ANDROID_LOG_WARN, format, arguments);
        va_end(arguments);
    }
}

void propertyInfo(const char* format, ...) {
    if (sPropertyLogSwitches.info) {
        va_list arguments;
        va_start(arguments, format);
        write(ANDROID_LOG_INFO, format, arguments);
        va_end(arguments);
    }
}
