// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/MountTable.h"

#include <cstddef>
#include <fstream>
#include <iterator>

namespace devicectl {

namespace {

constexpr size_t kMountPointField = 4;

bool isOctal(char digit) {
    return digit >= '0' && digit <= '7';
}

/** The kernel writes blanks, tabs, newlines and backslashes as a backslash and three octal digits. */
std::string unescaped(std::string_view field) {
    std::string text;
    for (size_t i = 0; i < field.size(); ++i) {
        const bool escape = field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
                            isOctal(field[i + 2]) && isOctal(field[i + 3]);
        if (escape) {
            text +=
                static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + field[i + 3] - '0');
            i += 3;
        } else {
            text += field[i];
        }
    }
    return text;
}

std::string_view fieldOf(std::string_view line, size_t index) {
    for (; index > 0; --index) {
        const size_t blank = line.find(' ');
        if (blank == std::string_view::npos) {
            return {};
        }
        line.remove_prefix(blank + 1);
    }
    return line.substr(0, line.find(' '));
}

}  // namespace

bool isMountPoint(std::string_view mountInfo, std::string_view path) {
    while (!mountInfo.empty()) {
        const size_t end = mountInfo.find('\n');
        if (!path.empty() && unescaped(fieldOf(mountInfo.substr(0, end), kMountPointField)) == path) {
            return true;
        }
        mountInfo.remove_prefix(end == std::string_view::npos ? mountInfo.size() : end + 1);
    }
    return false;
}

std::string readMountInfo() {
    std::ifstream file("/proc/self/mountinfo", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace devicectl
