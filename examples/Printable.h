// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

/**
 * A label may hold any bytes: a control character must not reach the terminal, neither as one byte nor as the
 * two (c2 80 to c2 9f) in which UTF-8 writes those that some terminals obey, too.
 */
inline std::string printable(const char* text) {
    std::string shown = text;
    for (size_t i = 0; i < shown.size(); ++i) {
        const auto byte = static_cast<unsigned char>(shown[i]);
        const bool isLead = byte == 0xc2 && i + 1 < shown.size() && (shown[i + 1] & 0xe0) == 0x80;
        // Such a byte is part of a character only behind another one of it.
        const bool isAlone = byte >= 0x80 && byte <= 0x9f &&
                             (i == 0 || (static_cast<unsigned char>(shown[i - 1]) & 0x80) == 0);
        if (byte < ' ' || byte == 0x7f || isAlone) {
            shown[i] = '?';
        } else if (isLead) {
            shown.replace(i, 2, "?");
        }
    }
    return shown;
}
