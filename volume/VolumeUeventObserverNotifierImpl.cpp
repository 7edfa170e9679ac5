// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "VolumeDetector"

#include "volume/VolumeUeventObserverNotifierImpl.h"

#include <log/log.h>

#include <cstring>

#include "volume/BlockShell.h"
#include "volume/DeviceNames.h"

namespace volume {

using android::sp;
using android::String8;

namespace {

/** The value of the parameter @p name; null when there is none, which is no error here. */
const char* parameter(const Uevent& event, const char* name) {
    for (int i = 0; i < event.getParamSize(); ++i) {
        if (strcmp(event.paramName(i), name) == 0) {
            return event.paramValue(i);
        }
    }
    return nullptr;
}

bool is(const char* text, const char* expected) {
    return text != nullptr && strcmp(text, expected) == 0;
}

/** Whether the kernel tells of the disk's write protection and of nothing else. */
bool tellsOfWriteProtectionAlone(const Uevent& event) {
    return parameter(event, "DISK_RO") != nullptr && parameter(event, "DISK_MEDIA_CHANGE") == nullptr &&
           parameter(event, "DISK_EJECT_REQUEST") == nullptr;
}

}  // namespace

int VolumeUeventObserverNotifierImpl::onUevent(const sp<Uevent>& event) {
    if (!is(event->getSubsystem(), "block") || !is(parameter(*event, "DEVTYPE"), "disk")) {
        return 0;
    }
    ALOGI("processUevent: Uevent subsystem=block, DEVTYPE=disk!\n");
    const String8 sysPath = String8("/sys") + event->getPath();
    switch (event->getAction()) {
        case Uevent::kActionAdd:
            if (isRemovable(sysPath)) {
                pollRemovableMedia();
            }
            break;
        case Uevent::kActionRemove:
            break;
        case Uevent::kActionChange:
            onChange(*event, sysPath);
            break;
        case Uevent::kActionOnline:
            onOnline(*event, sysPath);
            break;
        case Uevent::kActionOffline:
            onOffline(sysPath);
            break;
        default:
            ALOGW("processUevent unhandle action[%d]\n", event->getAction());
            break;
    }
    return 0;
}

void VolumeUeventObserverNotifierImpl::onChange(const Uevent& event, const String8& sysPath) {
    // A rescan has the kernel open a write-protected disk, find its protection anew and tell of it: answering
    // that with a rescan would never end.
    if (!tellsOfWriteProtectionAlone(event)) {
        rescanDevice(sysPath);
    }
}

void VolumeUeventObserverNotifierImpl::onOnline(const Uevent& event, const String8& sysPath) {
    size_t start = 0;
    size_t end = 0;
    const char* const deviceName = parameter(event, "DEVNAME");
    if (!findDeviceName(*mDetector->mSCSIDeviceRegex, *mDetector->mMMCDeviceRegex, sysPath.string(), &start,
                        &end) ||
        deviceName == nullptr || !isPlainName(deviceName)) {
        ALOGW("invalidate device add path[%s] ", sysPath.string());
        return;
    }
    if (!mDetector->isListening()) {
        return;
    }
    const String8 name(deviceName);
    const String8 path = joinPath(sDeviceDir, name);
    ALOGI("processUevent: volume device add path[%s] name[%s]", path.string(), name.string());
    if (mDetector->addDevice(path, name, /*orFake=*/false) != 0) {
        ALOGW("processUevent: unknown device (path[%s] name[%s]) add\n", path.string(), name.string());
        return;
    }
    rereadPartitionTable(name);
}

void VolumeUeventObserverNotifierImpl::onOffline(const String8& sysPath) {
    size_t start = 0;
    size_t end = 0;
    if (!findDeviceName(*mDetector->mSCSIDeviceRegex, *mDetector->mMMCDeviceRegex, sysPath.string(), &start,
                        &end)) {
        ALOGW("invalidate device remove path[%s]", sysPath.string());
        return;
    }
    if (!mDetector->isListening()) {
        return;
    }
    const String8 name(sysPath.string() + start, end - start);
    ALOGI("processUevent: volume device remove path[%s] name[%s]", sysPath.string(), name.string());
    mDetector->removeVolume(name);
    removeFirstPartitionNode(name);
}

}  // namespace volume
