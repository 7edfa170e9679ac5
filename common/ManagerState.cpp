// SPDX-License-Identifier: Apache-2.0
#include "common/ManagerState.h"

#include <android/log.h>

using android::Mutex;

void ManagerState::startup(const std::function<bool()>& start) {
    Mutex::Autolock transition(mTransitionLock);
    const int32_t current = get();
    switch (current) {
        case kShutDown:
            if (start()) {
                set(kStarted);
            }
            break;
        case kStarted:
            __android_log_print(ANDROID_LOG_WARN, mTag, "already startup, no need re-startup");
            break;
        default:
            __android_log_print(ANDROID_LOG_ERROR, mTag, "unknown state[%d], why??", current);
            break;
    }
}

void ManagerState::shutdown(const std::function<void()>& stop) {
    Mutex::Autolock transition(mTransitionLock);
    const int32_t current = get();
    switch (current) {
        case kShutDown:
            __android_log_print(ANDROID_LOG_WARN, mTag, "already shutdown, no need re-shutdown");
            break;
        case kStarted:
            stop();
            set(kShutDown);
            break;
        default:
            __android_log_print(ANDROID_LOG_ERROR, mTag, "unknown state[%d], why??", current);
            break;
    }
}
