// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "Device"

#include "device/Device.h"

#include <log/log.h>

namespace device {

using android::String8;

namespace {

/** Room for the properties of most uevents, so that the list does not grow step by step. */
constexpr size_t kUsualParams = 16;

String8 textOrEmpty(const char* text) {
    return text != nullptr ? String8(text) : String8();
}

}  // namespace

const String8& Device::getParam(const String8& key) const {
    const ssize_t index = mParams.indexOfKey(key);
    if (index < 0) {
        // Spelled out rather than left to valueFor: its tag would be that of whichever file the linker kept.
        __android_log_assert("i<0", LOG_TAG, "%s: key not found", __PRETTY_FUNCTION__);
    }
    return mParams.valueAt(static_cast<size_t>(index));
}

void Device::setPath(const char* path) {
    mPath = textOrEmpty(path);
}

void Device::setSubsystem(const char* subsystem) {
    mSubsystem = textOrEmpty(subsystem);
}

void Device::addParam(const char* key, const char* value) {
    addParam(textOrEmpty(key), textOrEmpty(value));
}

void Device::addParam(const String8& key, const String8& value) {
    if (mParams.isEmpty()) {
        mParams.setCapacity(kUsualParams);
    }
    mParams.add(key, value);
}

void Device::dump() const {
    ALOGI("[%10s] [%s]", "DEVPATH", mPath.string());
    ALOGI("[%10s] [%s]", "SUBSYSTEM", mSubsystem.string());
    for (size_t i = 0; i < mParams.size(); ++i) {
        ALOGI("[%10s] [%s]", mParams.keyAt(i).string(), mParams.valueAt(i).string());
    }
}

}  // namespace device
