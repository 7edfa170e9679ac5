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

#include <cstdio>
#include <cstdlib>

namespace {

using DecStrong = void (*)(const android::RefBase*, const void*);

[[maybe_unused]] const size_t kSharedTextIsMade = android::String8().length();

DecStrong realDecStrong() {
    void* const function = dlsym(RTLD_NEXT, "_ZNK7android7RefBase9decStrongEPKv");
    if (function == nullptr) {
        fputs("no RefBase::decStrong behind this program\n", stderr);
        abort();
    }
    return reinterpret_cast<DecStrong>(function);
}

}  // namespace

namespace android {

void RefBase::decStrong(const void* id) const {
    static const DecStrong sReal = realDecStrong();
    __tsan_release(const_cast<RefBase*>(this));
    sReal(this, id);
}

// Called by the thread that let go last, before it destroys the object.
void RefBase::onLastStrongRef(const void*) {
    __tsan_acquire(this);
}

}  // namespace android
