// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/String8.h>

namespace volume {

/**
 * @p text for the log: a "?" stands for each control character. What a medium calls itself is anybody's text,
 * and must not be able to write lines of its own. Any thread.
 */
inline android::String8 printableText(const char* text) {
    android::String8 printable(text);
    const size_t length = printable.length();
    char* const bytes = printable.lockBuffer(length);
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (byte < ' ' || byte == 0x7f) {
            bytes[i] = '?';
        }
    }
    printable.unlockBuffer(length);
    return printable;
}

}  // namespace volume
