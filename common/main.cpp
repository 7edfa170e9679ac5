// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DeviceService"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <bindercheck/BinderCheck.h>
#include <log/log.h>
#include <malloc.h>
#include <sysexits.h>

#include <cstdio>

#include "common/SignalCatcher.h"
#include "common/UeventObserver.h"
#include "device/BnDeviceManager.h"
#include "device/DeviceManagerImpl.h"
#include "device/DeviceObserver.h"
#include "usb/BnUsbManager.h"
#include "usb/UsbManagerImpl.h"
#include "volume/BnVolumeManager.h"
#include "volume/VolumeManagerImpl.h"

using android::defaultServiceManager;
using android::IPCThreadState;
using android::ProcessState;
using android::sp;
using android::String16;
using android::String8;

namespace {

/**
 * An allocator arena for each thread makes a process of many mostly idle threads grow for hours before it
 * settles. Two serve the requests and the events side by side.
 */
constexpr int kAllocatorArenas = 2;

}  // namespace

int main() {
    mallopt(M_ARENA_MAX, kAllocatorArenas);
    SignalCatcher::install();

    // Before anything on the unit is touched: building the managers already sets USB modes.
    const String8 problem = bindercheck::serviceManagerProblem();
    if (!problem.isEmpty()) {
        fprintf(stderr, "device-service: %s\n", problem.string());
        return EX_UNAVAILABLE;
    }

    const sp<UeventObserver> ueventObserver = new UeventObserver();

    const sp<device::DeviceObserver> deviceObserver = new device::DeviceObserver(ueventObserver);
    const sp<device::DeviceManagerImpl> deviceManager = new device::DeviceManagerImpl(deviceObserver);
    const sp<device::BnDeviceManager> deviceService = new device::BnDeviceManager(deviceManager);

    const sp<volume::VolumeManagerImpl> volumeManager = new volume::VolumeManagerImpl(ueventObserver);
    const sp<volume::BnVolumeManager> volumeService = new volume::BnVolumeManager(volumeManager);

    const sp<usb::UsbManagerImpl> usbManager = new usb::UsbManagerImpl(ueventObserver);
    const sp<usb::BnUsbManager> usbService = new usb::BnUsbManager(usbManager);

    defaultServiceManager()->addService(String16(device::IDeviceManager::kServiceName), deviceService, false);
    defaultServiceManager()->addService(String16(volume::IVolumeManager::kServiceName), volumeService, false);
    defaultServiceManager()->addService(String16(usb::IUsbManager::kServiceName), usbService, false);

    ALOGE("device service is starting.....");

    ProcessState::self()->startThreadPool();
    IPCThreadState::self()->joinThreadPool(true);
    return 0;
}
