// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/volume/MountHook.h"

#include <cerrno>
#include <mutex>

namespace {

std::mutex sLock;  // guards both
std::function<int(unsigned long)>* sBefore = nullptr;
std::function<void(unsigned long)>* sAfter = nullptr;

}  // namespace

MountHook::MountHook(std::function<int(unsigned long)> before, std::function<void(unsigned long)> after) {
    const std::lock_guard<std::mutex> hold(sLock);
    sBefore = before ? new std::function<int(unsigned long)>(std::move(before)) : nullptr;
    sAfter = after ? new std::function<void(unsigned long)>(std::move(after)) : nullptr;
}

MountHook::~MountHook() {
    const std::lock_guard<std::mutex> hold(sLock);
    delete sBefore;
    delete sAfter;
    sBefore = nullptr;
    sAfter = nullptr;
}

extern "C" {

int __real_mount(const char*, const char*, const char*, unsigned long, const void*);

int __wrap_mount(const char* source, const char* target, const char* type, unsigned long flags,
                 const void* data) {
    const std::lock_guard<std::mutex> hold(sLock);
    const int refusal = sBefore != nullptr ? (*sBefore)(flags) : 0;
    if (refusal != 0) {
        errno = refusal;
        return -1;
    }
    const int result = __real_mount(source, target, type, flags, data);
    if (result == 0 && sAfter != nullptr) {
        (*sAfter)(flags);
    }
    return result;
}

}  // extern "C"
