// SPDX-License-Identifier: Apache-2.0
#include "volume/DeviceNames.h"

#include <cstring>

namespace volume {

using android::String8;

namespace {

/** What sysfs paths and device names are made of; none of it means anything to a shell inside a word. */
constexpr char kPlain[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
    "abcdefghijklmnopqrstuvwxyz"
    "0123456789"
    "._-+:,@=";

bool isPlain(const char* text, const char* alsoAllowed) {
    for (const char* c = text; *c != '\0'; ++c) {
        if (strchr(kPlain, *c) == nullptr && strchr(alsoAllowed, *c) == nullptr) {
            return false;
        }
    }
    return *text != '\0' && strstr(text, "..") == nullptr;
}

}  // namespace

String8 joinPath(const char* directory, const String8& name) {
    return String8::format("%s/%s", directory, name.string());
}

bool isPlainName(const char* name) {
    // A leading "-" would be an option to a command.
    return isPlain(name, "") && name[0] != '-';
}

bool isPlainPath(const char* path) {
    return path[0] == '/' && isPlain(path, "/");
}

bool findDeviceName(const Regex& scsi, const Regex& mmc, const char* text, size_t* start, size_t* end) {
    return scsi.match(text, start, end) || mmc.match(text, start, end);
}

}  // namespace volume
