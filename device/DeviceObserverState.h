// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/KeyedVector.h>
#include <utils/Mutex.h>
#include <utils/String8.h>

#include "common/UeventObserver.h"
#include "device/DeviceObserverNotifierItf.h"

namespace device {

class UeventNotifier;

/**
 * What a DeviceObserver shares with the UeventNotifier that works for it. Private to the two.
 */
struct DeviceObserverState {
    /** Guards mNotifiers; held while a notifier runs. Taken inside the uevent observer's lock. */
    android::Mutex mLock;
    /** Subsystem name to notifier. */
    android::KeyedVector<android::String8, android::sp<DeviceObserverNotifierItf>> mNotifiers
        GUARDED_BY(mLock);
    android::sp<UeventObserver> mUeventObserver;
    android::sp<UeventNotifier> mUeventNotifier;
};

}  // namespace device
