// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DeviceService"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <log/log.h>
#include <sysexits.h>

#include <cstdio>

#include "common/SignalCatcher.h"
#include "common/UeventObserver.h"
#include "device/BnDeviceManager.h"
#include "device/DeviceManagerImpl.h"
#include "device/DeviceObserver.h"
#include "volume/BnVolumeManager.h"
#include "volume/VolumeManagerImpl.h"

using android::defaultServiceManager;
using android::IPCThreadState;
using android::ProcessState;
using android::serviceManagerProblem;
using android::sp;
using android::String16;
using android::String8;

int main() {
    SignalCatcher::install();

    const sp<UeventObserver> ueventObserver = new UeventObserver();

    const sp<device::DeviceObserver> deviceObserver = new device::DeviceObserver(ueventObserver);
    const sp<device::DeviceManagerImpl> deviceManager = new device::DeviceManagerImpl(deviceObserver);
    const sp<device::BnDeviceManager> deviceService = new device::BnDeviceManager(deviceManager);

    const sp<volume::VolumeManagerImpl> volumeManager = new volume::VolumeManagerImpl(ueventObserver);
    const sp<volume::BnVolumeManager> volumeService = new volume::BnVolumeManager(volumeManager);

    const String8 problem = serviceManagerProblem();
    if (!problem.isEmpty()) {
        fprintf(stderr, "device-service: %s\n", problem.string());
        return EX_UNAVAILABLE;
    }
    defaultServiceManager()->addService(String16(device::IDeviceManager::kServiceName), deviceService, false);
    defaultServiceManager()->addService(String16(volume::IVolumeManager::kServiceName), volumeService, false);

    ALOGE("device service is starting.....");

    ProcessState::self()->startThreadPool();
    IPCThreadState::self()->joinThreadPool(true);
    return 0;
}
