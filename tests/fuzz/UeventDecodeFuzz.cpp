// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Decodes arbitrary datagrams and reads all that a notifier may read.
 */

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/Uevent.h"

using android::sp;

namespace {

/** Ends the run, which libFuzzer reports with the input. */
void require(bool holds) {
    if (!holds) {
        abort();
    }
}

/** Reads a string of the record to its end: the sanitizer sees what lies outside. */
size_t lengthOf(const char* text) {
    require(text != nullptr);
    return strlen(text);
}

void check(const Uevent& event, size_t size) {
    require(event.getAction() >= Uevent::kActionNone && event.getAction() <= Uevent::kActionOffline);
    require(event.getParamSize() >= 0 && event.getParamSize() <= Uevent::kMaxParams);
    size_t total = lengthOf(event.getPath());
    if (event.getSubsystem() != nullptr) {
        total += lengthOf(event.getSubsystem());
    }
    for (int i = 0; i < event.getParamSize(); ++i) {
        require(strchr(event.paramName(i), '=') == nullptr);
        total += lengthOf(event.paramName(i)) + lengthOf(event.paramValue(i));
        const char* const found = event.FindParam(event.paramName(i));
        require(found != nullptr);
    }
    // Every byte of the datagram belongs to one string at most.
    require(total <= size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The decoder writes to its buffer, and a block of its own makes each byte past the end a finding.
    const std::unique_ptr<char[]> buffer(new char[size]);
    memcpy(buffer.get(), data, size);

    const sp<Uevent> event = new Uevent();
    const bool decoded = event->decode(buffer.get(), size);
    if (decoded) {
        memset(buffer.get(), '=', size);
        check(*event, size);
    } else {
        require(event->getPath() == nullptr && event->getParamSize() == 0);
    }

    // A record that decodes once more holds the second datagram alone.
    memcpy(buffer.get(), data, size);
    require(event->decode(buffer.get(), size / 2) || event->getPath() == nullptr);
    if (event->getPath() != nullptr) {
        check(*event, size / 2);
    }
    return 0;
}
