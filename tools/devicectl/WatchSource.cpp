// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/WatchSource.h"

#include <bindercheck/BinderCheck.h>
#include <poll.h>
#include <pthread.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <thread>
#include <utility>

#include "client/Lists.h"
#include "device/DeviceManagerItf.h"
#include "device/IDeviceManager.h"
#include "tools/devicectl/ChangeEars.h"
#include "tools/devicectl/MountTable.h"
#include "tools/devicectl/RenderParts.h"
#include "tools/devicectl/UsbTopology.h"
#include "tools/devicectl/VolumeOperations.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using device::IDeviceManager;
using usb::IUsbManager;
using usb::UsbDeviceItf;
using volume::IVolumeManager;
using volume::VolumeItf;

namespace {

/** Usage changes without a word. */
constexpr int kLookAgainMs = 1000;
constexpr uint32_t kHubClass = 9;

/** A controller that every unit of this kind has; asking for any other is an error in the daemon's log. */
struct KnownController {
    const char* name;
    int type;
    int id;
};

constexpr std::array kKnownControllers{
    KnownController{"usb 0", device::kControllerUsbHost, 0},
    KnownController{"usb 1", device::kControllerUsbHost, 1},
    KnownController{"usb 2", device::kControllerUsbHost, 2},
    KnownController{"card 0", device::kControllerCard, 0},
    KnownController{"card 1", device::kControllerCard, 1},
};

/** Of what is mounted at @p path; nothing where nothing is, or where it does not answer. */
std::optional<WatchModel::Usage> usageOf(const std::string& path) {
    struct statvfs info = {};
    if (statvfs(path.c_str(), &info) != 0) {
        return std::nullopt;
    }
    const uint64_t block = info.f_frsize;
    return WatchModel::Usage{info.f_blocks * block, (info.f_blocks - info.f_bfree) * block};
}

}  // namespace

WatchSource::WatchSource(const sp<WakeUp>& news)
    : mNews(news),
      mChanges(new WakeUp()),
      mAccess(0),
      mNames(UsbNames::load()),
      mVolumeChanges(mAccess, volumeChanges(mChanges), mChanges),
      mUsbChanges(mAccess, usbChanges(mChanges), mChanges),
      mWhen(Clock::now()) {}

void WatchSource::start() {
    std::thread thread([self = sp<WatchSource>(this)] { self->run(); });
    pthread_setname_np(thread.native_handle(), "WatchSource");
    thread.detach();
}

WatchModel WatchSource::model(Clock::time_point* when) const {
    const std::lock_guard<std::mutex> lock(mLock);
    *when = mWhen;
    return mModel;
}

void WatchSource::run() {
    for (;;) {
        // Before the look: what changes from here on ends the next wait.
        mChanges->clear();
        WatchModel model = look();
        {
            const std::lock_guard<std::mutex> lock(mLock);
            mModel = std::move(model);
            mWhen = Clock::now();
        }
        mNews->post();
        pollfd source{mChanges->fd(), POLLIN, 0};
        poll(&source, 1, kLookAgainMs);
    }
}

WatchModel WatchSource::look() {
    WatchModel model;
    mVolumeChanges.dropDead();
    mUsbChanges.dropDead();
    lookAtControllers(serviceOf(IDeviceManager::kServiceName, &model), &model);
    lookAtVolumes(serviceOf(IVolumeManager::kServiceName, &model), &model);
    lookAtUsb(serviceOf(IUsbManager::kServiceName, &model), &model);
    return model;
}

sp<IBinder> WatchSource::serviceOf(const char* name, WatchModel* model) {
    ServiceState::Life life = ServiceState::Life::kMissing;
    sp<IBinder> service;
    // Also keeps from a libbinder that waits for a service manager without end.
    if (bindercheck::serviceManagerProblem().isEmpty()) {
        service = mAccess.lookUp(name);
    }
    if (service != nullptr) {
        life = mAccess.isAlive(name, service) ? ServiceState::Life::kAlive : ServiceState::Life::kDead;
    }
    model->services.push_back({name, life});
    return life == ServiceState::Life::kAlive ? service : nullptr;
}

void WatchSource::lookAtControllers(const sp<IBinder>& service, WatchModel* model) {
    if (service != nullptr && service != mAsked) {
        // The answers are the same for as long as the daemon lives.
        mControllers.clear();
        const sp<IDeviceManager> manager = interface_cast<IDeviceManager>(service);
        for (const KnownController& known : kKnownControllers) {
            mControllers.push_back(
                {known.name, toString(manager->getDevicePath(known.type, known.id)), false});
        }
        mAsked = mAccess.isAlive(IDeviceManager::kServiceName, service) ? service : nullptr;
    }
    if (service == nullptr) {
        return;
    }
    model->controllers = mControllers;
    for (WatchModel::Controller& controller : model->controllers) {
        controller.isPresent =
            !controller.path.empty() && access(("/sys" + controller.path).c_str(), F_OK) == 0;
    }
}

void WatchSource::lookAtVolumes(const sp<IBinder>& service, WatchModel* model) {
    if (service == nullptr || !mVolumeChanges.make(service)) {
        return;
    }
    const std::string mounts = readMountInfo();
    for (const sp<VolumeItf>& volume : listVolumes(*interface_cast<IVolumeManager>(service))) {
        const std::string path = toString(volume->getMountPath());
        const bool isMounted = isKnown(volume->getMountPath()) && isMountPoint(mounts, path);
        model->volumes.push_back({toString(volume->getName()), toString(volume->getLabel()),
                                  toString(volume->getFormat()), toString(volume->getAccessPath()),
                                  isMounted ? usageOf(path) : std::nullopt});
    }
}

void WatchSource::lookAtUsb(const sp<IBinder>& service, WatchModel* model) {
    if (service == nullptr || !mUsbChanges.make(service)) {
        return;
    }
    std::vector<UsbPlace> places = readUsbPlaces();
    for (const sp<UsbDeviceItf>& device : client::Lists::usbDevices(*interface_cast<IUsbManager>(service))) {
        const uint32_t bus = device->getBusNumber();
        model->usb.push_back({device->getId(), bus,
                              takePlace(&places, bus, device->getVendorId(), device->getProductId()),
                              usbNumber(*device), usbName(*device, mNames), milliamperesOf(*device),
                              device->getDeviceClass() == kHubClass});
    }
}

}  // namespace devicectl
