// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DeviceManagerImpl"

#include "device/DeviceManagerImpl.h"

#include <log/log.h>

#include <iterator>

#include "common/DumpText.h"
#include "common/QueueStart.h"
#include "device/DeviceManagerMessageHandler.h"
#include "device/DeviceManagerObserverNotifier.h"

namespace device {

using android::Mutex;
using android::sp;
using android::String16;
using android::String8;
using android::Vector;

namespace {

constexpr int kQueueTimeoutMillis = 100;

/** The subsystems whose devices are listed; a null entry ends the table. */
constexpr const char* sSubsystem[] = {"block", "usb", "usb_device", "mmc", nullptr};

/** USB host controllers of the unit, by id. */
constexpr const char* sUsbDevice[] = {
    "/devices/platform/ehci-platform.1/usb1",
    "/devices/platform/ehci-platform.2/usb2",
    "/devices/platform/ehci-platform.3/usb3",
};

/** Card controllers of the unit, by id. */
constexpr const char* sCardDevice[] = {
    "/devices/platform/vxsdv2-sdc.0",
    "/devices/platform/vxsdv2-sdc.1",
};

}  // namespace

DeviceManagerImpl::DeviceManagerImpl(const sp<DeviceObserver>& observer)
    : mObserver(observer), mState(LOG_TAG) {
    mMessageQueue =
        new MessageQueue(new DeviceManagerMessageHandler(this), kQueueTimeoutMillis, "DeviceManagerQueue");
    for (const char* const* name = sSubsystem; *name != nullptr; ++name) {
        mObserver->add(String8(*name), new DeviceManagerObserverNotifier(this));
    }
}

DeviceManagerImpl::~DeviceManagerImpl() {
    if (state() == ManagerState::kStarted) {
        // Threads that run on would keep the queue alive for ever.
        mObserver->stop();
        mMessageQueue->stop();
    }
    mMessageQueue.clear();
    mDevices.clear();
    for (const char* const* name = sSubsystem; *name != nullptr; ++name) {
        mObserver->remove(String8(*name));
    }
    mObserver.clear();
    mNotifier.clear();
}

int DeviceManagerImpl::startup() {
    mState.startup([this] {
        // The uevent thread posts to the queue: it starts only when the queue can take messages.
        if (!startQueue(mMessageQueue)) {
            return false;
        }
        mObserver->start();
        return true;
    });
    return 0;
}

int DeviceManagerImpl::shutdown() {
    mState.shutdown([this] {
        mObserver->stop();
        mMessageQueue->stop();
    });
    return 0;
}

int DeviceManagerImpl::setNotifier(const sp<DeviceManagerNotifierItf>& notifier) {
    mNotifier = notifier;
    return 0;
}

sp<DeviceItf> DeviceManagerImpl::getDevice(const String8& subsystem, const String8& devName) {
    Mutex::Autolock lock(mLock);
    for (const sp<DeviceNode>& node : mDevices) {
        if (node->match(subsystem, devName)) {
            return node->getDevice();
        }
    }
    return nullptr;
}

Vector<sp<DeviceItf>> DeviceManagerImpl::getDevices(const String8& path) {
    Vector<sp<DeviceItf>> devices;
    Mutex::Autolock lock(mLock);
    for (const sp<DeviceNode>& node : mDevices) {
        if (node->isAncestorOf(path)) {
            devices.add(node->getDevice());
        }
    }
    return devices;
}

String8 DeviceManagerImpl::getDevicePath(int type, int id) {
    const unsigned index = static_cast<unsigned>(id);
    switch (type) {
        case kControllerUsbHost:
            if (index < std::size(sUsbDevice)) {
                return String8(sUsbDevice[index]);
            }
            ALOGE("unknown usb controller id[%d], must 0 <= id < %d", id,
                  static_cast<int>(std::size(sUsbDevice)));
            break;
        case kControllerCard:
            if (index < std::size(sCardDevice)) {
                return String8(sCardDevice[index]);
            }
            ALOGE("unknown card controller id[%d], must 0 <= id < %d", id,
                  static_cast<int>(std::size(sCardDevice)));
            break;
        default:
            ALOGE("unknown type[%d] id[%d]", type, id);
            break;
    }
    return String8("unknown");
}

int DeviceManagerImpl::dump(const Vector<String16>& /*args*/, String8& result) {
    appendDumpLine(result, "---- dump DeviceManager----\n");
    appendDumpLine(result, "---dump device---\n");

    Mutex::Autolock lock(mLock);
    for (size_t i = 0; i < mDevices.size(); ++i) {
        const sp<DeviceItf>& device = mDevices[i]->getDevice();
        appendDumpLine(result, "---device[%d]---\n", static_cast<int>(i));
        appendDumpLine(result, "[%10s] [%s]\n", "SUBSYSTEM", device->getSubsystem().string());
        for (size_t j = 0; j < device->getParamSize(); ++j) {
            appendDumpLine(result, "[%10s] [%s]\n", device->getParamName(j).string(),
                           device->getParamValue(j).string());
        }
    }
    return 0;
}

void DeviceManagerImpl::addDevice(const sp<DeviceItf>& device) {
    const sp<DeviceNode> node = new DeviceNode(device);
    Mutex::Autolock lock(mLock);
    mDevices.add(node);
}

void DeviceManagerImpl::removeDevice(const sp<DeviceItf>& device) {
    Mutex::Autolock lock(mLock);
    for (size_t i = 0; i < mDevices.size(); ++i) {
        if (mDevices[i]->isSamePath(device->getPath())) {
            mDevices.removeAt(i);
            return;
        }
    }
}

}  // namespace device
