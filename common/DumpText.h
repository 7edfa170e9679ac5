// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Lines of a service's dump.
 */

#include <utils/String8.h>

#include <cstddef>

/** Room for one line of a dump, its final NUL included. */
constexpr size_t kDumpLineSize = 1024;

/**
 * Appends a line, formatted as by printf, to @p text. A line that does not fit kDumpLineSize is cut, its line
 * feed with it. Any thread.
 */
void appendDumpLine(android::String8& text, const char* format, ...) __attribute__((format(printf, 2, 3)));

/** As appendDumpLine() for the head of a dump: "-[descriptor]-", in at most 256 bytes. */
void appendDumpHeader(android::String8& text, const char* descriptor);

/**
 * Hands the whole dump to @p fd in one write. What the reader does not take is lost: a dump must not hold up
 * a binder thread, and its reader is expected to pass a file.
 */
void writeDump(int fd, const android::String8& text);
