// SPDX-License-Identifier: Apache-2.0
#include "common/DumpText.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

void appendDumpLine(android::String8& text, const char* format, ...) {
    char line[kDumpLineSize];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    text.append(line);
}

void appendDumpHeader(android::String8& text, const char* descriptor) {
    char line[256];
    snprintf(line, sizeof(line), "-[%s]-\n", descriptor);
    text.append(line);
}

void writeDump(int fd, const android::String8& text) {
    [[maybe_unused]] const ssize_t written = write(fd, text.string(), text.size());
}
