// SPDX-License-Identifier: Apache-2.0
#include "device/DeviceObserver.h"

#include "common/Assert.h"
#include "device/DeviceObserverState.h"
#include "device/UeventNotifier.h"

namespace device {

using android::Mutex;
using android::sp;
using android::String8;

DeviceObserver::DeviceObserver(const sp<UeventObserver>& observer)
    : mState(std::make_unique<DeviceObserverState>()) {
    SERVICE_ASSERT_AT(mState, "observer", "DeviceObserver", 121,
                      "device::DeviceObserver::DeviceObserver(const android::sp<UeventObserver>&)");
    mState->mUeventNotifier = new UeventNotifier(mState.get());
    mState->mUeventObserver = observer;
    mState->mUeventObserver->registerNotifier(mState->mUeventNotifier);
}

DeviceObserver::~DeviceObserver() {
    SERVICE_ASSERT_AT(mState, "observer", "DeviceObserver", 132,
                      "virtual device::DeviceObserver::~DeviceObserver()");
    {
        Mutex::Autolock lock(mState->mLock);
        mState->mNotifiers.clear();
    }
    // Waits for a dispatch in progress; after it nothing points to the state record any more.
    mState->mUeventObserver->unregisterNotifier(mState->mUeventNotifier);
    mState->mUeventObserver.clear();
    mState->mUeventNotifier.clear();
}

void DeviceObserver::add(const String8& subsystem, const sp<DeviceObserverNotifierItf>& notifier) {
    SERVICE_ASSERT_AT(mState, "observer", "DeviceObserver", 146,
                      "void device::DeviceObserver::add(const android::String8&, "
                      "const android::sp<device::DeviceObserverNotifierItf>&)");
    Mutex::Autolock lock(mState->mLock);
    mState->mNotifiers.add(subsystem, notifier);
}

void DeviceObserver::remove(const String8& subsystem) {
    SERVICE_ASSERT_AT(mState, "observer", "DeviceObserver", 158,
                      "void device::DeviceObserver::remove(const android::String8&)");
    Mutex::Autolock lock(mState->mLock);
    mState->mNotifiers.removeItem(subsystem);
}

void DeviceObserver::start() {
    SERVICE_ASSERT_AT(mState, "observer", "DeviceObserver", 169, "void device::DeviceObserver::start()");
    mState->mUeventObserver->start();
}

void DeviceObserver::stop() {
    SERVICE_ASSERT_AT(mState, "observer", "DeviceObserver", 178, "void device::DeviceObserver::stop()");
    mState->mUeventObserver->stop();
}

}  // namespace device
