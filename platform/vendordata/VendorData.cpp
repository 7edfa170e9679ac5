// SPDX-License-Identifier: Apache-2.0
#include <vx_vendor_data.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "platform/folder/RecordFolder.h"

namespace {

constexpr char kFolder[] = "/var/lib/vx-vendor-data";
constexpr char kFolderVariable[] = "VX_VENDOR_DATA_DIR";

/** The certification mode, and what it is on a unit that was never set up for certification. */
constexpr int kCertificationMode = 173;
constexpr char kNormalOperation[] = "O";

platform::RecordFolder folder() {
    const char* const chosen = secure_getenv(kFolderVariable);
    return platform::RecordFolder(chosen != nullptr && *chosen != '\0' ? chosen : kFolder,
                                  platform::RecordFolder::Keep::kForGood);
}

bool areArguments(int item, int length, const void* buffer) {
    return item >= 0 && length >= 1 && length <= VX_VENDOR_DATA_MAX_LENGTH && buffer != nullptr;
}

/** Returns @p result as the C functions do. */
int answer(int result) {
    if (result == 0) {
        return 0;
    }
    errno = -result;
    return -1;
}

}  // namespace

int vx_vendor_data_read_string(int item, int length, char* buffer) {
    if (!areArguments(item, length, buffer)) {
        return answer(-EINVAL);
    }
    const auto size = static_cast<size_t>(length);
    std::string content;
    const int result = folder().read(std::to_string(item), &content, size);
    if (result == -ENOENT && item == kCertificationMode) {
        content = kNormalOperation;
    } else if (result != 0) {
        return answer(result);
    }
    if (content.empty()) {
        return answer(-ENODATA);
    }
    std::fill_n(buffer, size, '\0');
    content.copy(buffer, size);
    return 0;
}

int vx_vendor_data_write_string(const char* buffer, int item, int length) {
    if (!areArguments(item, length, buffer)) {
        return answer(-EINVAL);
    }
    const std::string content(buffer, static_cast<size_t>(length));
    return answer(folder().replace(std::to_string(item), content));
}
