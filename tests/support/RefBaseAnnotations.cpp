// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Tells ThreadSanitizer what orders the threads that share a reference-counted object.
 *
 * libutils is not instrumented, so the sanitizer does not see its atomic counters: without this, each
 * destructor run by the last of several threads looks like a race with what the others did before they let
 * go. For the same reason the text that all empty strings share is made before any thread runs. Linked into
 * the tests of the tsan preset only.
 */

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

using DecStrong = void (*)(const android::RefBase*, const void*);

[[maybe_unused]] const size_t kSharedTextIsMade = android::String8().length();

using ReleaseBuffer = int32_t (*)(const void*, uint32_t);
using EditBuffer = void* (*)(const void*);
using ResizeBuffer = void* (*)(const void*, size_t);

/** As a flag of SharedBuffer::release(): the caller frees the last one's memory. */
constexpr uint32_t kKeepStorage = 1;

template <typename Function>
Function realFunction(const char* symbol) {
    void* const function = dlsym(RTLD_NEXT, symbol);
    if (function == nullptr) {
        fprintf(stderr, "no %s behind this program\n", symbol);
        abort();
    }
    return reinterpret_cast<Function>(function);
}

}  // namespace

namespace android {

void RefBase::decStrong(const void* id) const {
    static const auto sReal = realFunction<DecStrong>("_ZNK7android7RefBase9decStrongEPKv");
    __tsan_release(const_cast<RefBase*>(this));
    sReal(this, id);
}

// Called by the thread that let go last, before it destroys the object.
void RefBase::onLastStrongRef(const void*) {
    __tsan_acquire(this);
}

}  // namespace android

// libutils' SharedBuffer::release(), of a class that its headers do not show.
extern "C" int32_t releaseSharedBuffer(const void* buffer,
                                       uint32_t flags) __asm__("_ZNK7android12SharedBuffer7releaseEj");

extern "C" int32_t releaseSharedBuffer(const void* buffer, uint32_t flags) {
    static const auto sReal = realFunction<ReleaseBuffer>("_ZNK7android12SharedBuffer7releaseEj");
    void* const annotated = const_cast<void*>(buffer);
    __tsan_release(annotated);
    const int32_t before = sReal(buffer, flags | kKeepStorage);
    if (before == 1) {
        __tsan_acquire(annotated);
        if ((flags & kKeepStorage) == 0) {
            free(annotated);
        }
    }
    return before;
}

// Those who change a buffer in place, since all others have let go of it. Its counter tells them so.
extern "C" {
void* editSharedBuffer(const void* buffer) __asm__("_ZNK7android12SharedBuffer4editEv");
void* attemptEditSharedBuffer(const void* buffer) __asm__("_ZNK7android12SharedBuffer11attemptEditEv");
void* resizeSharedBuffer(const void* buffer, size_t size) __asm__("_ZNK7android12SharedBuffer10editResizeEm");

void* editSharedBuffer(const void* buffer) {
    static const auto sReal = realFunction<EditBuffer>("_ZNK7android12SharedBuffer4editEv");
    __tsan_acquire(const_cast<void*>(buffer));
    return sReal(buffer);
}

void* attemptEditSharedBuffer(const void* buffer) {
    static const auto sReal = realFunction<EditBuffer>("_ZNK7android12SharedBuffer11attemptEditEv");
    __tsan_acquire(const_cast<void*>(buffer));
    return sReal(buffer);
}

void* resizeSharedBuffer(const void* buffer, size_t size) {
    static const auto sReal = realFunction<ResizeBuffer>("_ZNK7android12SharedBuffer10editResizeEm");
    __tsan_acquire(const_cast<void*>(buffer));
    return sReal(buffer, size);
}
}
