// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DeviceObserver"

#include "device/UeventNotifier.h"

#include <log/log.h>

#include "device/Device.h"
#include "device/DeviceObserverState.h"

namespace device {

using android::Mutex;
using android::sp;
using android::String8;

namespace {

sp<DeviceItf> makeDevice(Uevent& event) {
    const sp<DeviceItf> device = new Device();
    device->setPath(event.getPath());
    device->setSubsystem(event.getSubsystem());
    for (int i = 0; i < event.getParamSize(); ++i) {
        device->addParam(event.paramName(i), event.paramValue(i));
    }
    return device;
}

}  // namespace

int UeventNotifier::onUevent(const sp<Uevent>& event) {
    // The kernel names a subsystem for every device, but a datagram need not: such an event concerns nobody.
    const char* const subsystem = event->getSubsystem();
    const String8 key(subsystem != nullptr ? subsystem : "");

    Mutex::Autolock lock(mObserver->mLock);
    const ssize_t index = mObserver->mNotifiers.indexOfKey(key);
    if (index < 0) {
        return 0;
    }
    const sp<DeviceObserverNotifierItf> notifier = mObserver->mNotifiers.valueAt(static_cast<size_t>(index));
    const sp<DeviceItf> device = makeDevice(*event);

    switch (event->getAction()) {
        case Uevent::kActionAdd:
            notifier->onAdd(device);
            break;
        case Uevent::kActionRemove:
            notifier->onRemove(device);
            break;
        default:
            ALOGW("not handle action[%d]", event->getAction());
            break;
    }
    return 0;
}

}  // namespace device
