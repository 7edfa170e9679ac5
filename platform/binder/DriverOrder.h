// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Tells ThreadSanitizer of the order that the driver makes.
 *
 * A thread that sends an object has done with it what it did before; the thread that the driver then picks to
 * serve the object comes after. The sanitizer does not see inside the driver, and would call every first use
 * of a service a race with its constructor. Without the sanitizer both functions do nothing.
 */

#if defined(__SANITIZE_THREAD__)
#define BINDER_TELLS_DRIVER_ORDER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define BINDER_TELLS_DRIVER_ORDER 1
#endif
#endif

#ifdef BINDER_TELLS_DRIVER_ORDER
#include <sanitizer/tsan_interface.h>
#endif

namespace android {

/** What this thread did with @p object so far comes before what the driver has others do with it. */
inline void comesBeforeDriver([[maybe_unused]] void* object) {
#ifdef BINDER_TELLS_DRIVER_ORDER
    __tsan_release(object);
#endif
}

/** What this thread does with @p object from now on comes after what others did before they told the driver.
 */
inline void comesAfterDriver([[maybe_unused]] void* object) {
#ifdef BINDER_TELLS_DRIVER_ORDER
    __tsan_acquire(object);
#endif
}

}  // namespace android
