// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace devicectl {

namespace {

struct Range {
    uint32_t first;
    uint32_t last;
};

/** Code points that move the cursor, change the terminal's state or reorder what is shown around them. */
constexpr std::array<Range, 7> kUnsafe{{
    {0x0000, 0x001F},
    {0x007F, 0x009F},
    {0x061C, 0x061C},
    {0x200E, 0x200F},
    {0x2028, 0x202E},
    {0x2066, 0x2069},
    {0xFEFF, 0xFEFF},
}};

struct Character {
    size_t length;  ///< bytes; 0 when the text does not go on with well-formed UTF-8
    uint32_t codePoint;
};

uint8_t byteAt(std::string_view text, size_t index) {
    return static_cast<uint8_t>(text[index]);
}

/** The character that the non-empty @p text begins with. */
Character firstCharacter(std::string_view text) {
    static constexpr std::array<uint32_t, 5> kSmallestOfLength{0, 0, 0x80, 0x800, 0x10000};
    constexpr Character kMalformed{0, 0};

    const uint8_t lead = byteAt(text, 0);
    if (lead < 0x80) {
        return {1, lead};
    }
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return kMalformed;
    }
    uint32_t codePoint = lead & (0x7FU >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byteAt(text, i) & 0xC0) != 0x80) {
            return kMalformed;
        }
        codePoint = codePoint << 6 | (byteAt(text, i) & 0x3FU);
    }
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (codePoint < kSmallestOfLength[length] || codePoint > 0x10FFFF || surrogate) {
        return kMalformed;
    }
    return {length, codePoint};
}

bool isUnsafe(uint32_t codePoint) {
    return std::any_of(kUnsafe.begin(), kUnsafe.end(), [codePoint](const Range& range) {
        return codePoint >= range.first && codePoint <= range.last;
    });
}

void appendHex(std::string& out, std::string_view bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    for (const char byte : bytes) {
        const auto value = static_cast<uint8_t>(byte);
        out += "\\x";
        out += kDigits[value >> 4];
        out += kDigits[value & 0xF];
    }
}

std::string escape(std::string_view text, bool lines) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        const std::string_view bytes = text.substr(0, std::max<size_t>(character.length, 1));
        const bool layout = lines && (bytes == "\n" || bytes == "\t");
        if (character.length == 0 || (isUnsafe(character.codePoint) && !layout)) {
            appendHex(out, bytes);
        } else if (bytes == "\\" && !lines) {
            out += "\\\\";
        } else {
            out += bytes;
        }
        text.remove_prefix(bytes.size());
    }
    return out;
}

}  // namespace

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = firstCharacter(text).length;
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

std::string escapeLine(std::string_view text) {
    return escape(text, false);
}

std::string escapeText(std::string_view text) {
    return escape(text, true);
}

}  // namespace devicectl
