// SPDX-License-Identifier: Apache-2.0
#include <velta_pps/Publisher.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "platform/folder/RecordFolder.h"

namespace velta_pps {

namespace {

constexpr char kFolder[] = "/run/velta-pps";
constexpr char kFolderVariable[] = "VELTA_PPS_DIR";
constexpr size_t kMaxRecordSize = size_t{1} << 20;

platform::RecordFolder folder() {
    const char* const chosen = secure_getenv(kFolderVariable);
    // Records describe what is plugged in now: they need not outlive the machine's run.
    return platform::RecordFolder(chosen != nullptr && *chosen != '\0' ? chosen : kFolder,
                                  platform::RecordFolder::Keep::kUntilReboot);
}

/** Appends @p text so that it stays on one line and, as a name, ends at the first "=". */
void appendEscaped(const std::string& text, bool isName, std::string* line) {
    constexpr char kDigits[] = "0123456789abcdef";
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '\\') {
            *line += "\\\\";
        } else if (character == '\n') {
            *line += "\\n";
        } else if (code < 0x20 || code == 0x7f || (isName && character == '=')) {
            *line += "\\x";
            *line += kDigits[code >> 4];
            *line += kDigits[code & 0xf];
        } else {
            *line += character;
        }
    }
}

int replace(const PPSObject& object) {
    std::string content;
    for (const PPSAttribute& attribute : object.attributes) {
        appendEscaped(attribute.name, true, &content);
        content += '=';
        appendEscaped(attribute.value, false, &content);
        content += '\n';
        if (content.size() > kMaxRecordSize) {
            return -E2BIG;
        }
    }
    return folder().replace(object.name, content);
}

}  // namespace

Publisher& Publisher::self() {
    // Never destroyed: threads publish until the very end of the process.
    static auto* const sPublisher = new Publisher();
    return *sPublisher;
}

// A member although it needs no object: a unit's own library keeps its connection there.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
int Publisher::publish(const PPSNotification& notification) {
    switch (notification.operation) {
        case PPSNotification::kPublish:
            return replace(notification.object);
        case PPSNotification::kRemove: {
            const int result = folder().remove(notification.object.name);
            return result == -ENOENT ? 0 : result;
        }
        default:
            return -EINVAL;
    }
}

}  // namespace velta_pps
