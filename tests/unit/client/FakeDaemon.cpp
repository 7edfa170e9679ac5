// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/client/FakeDaemon.h"

#include <unistd.h>

#include <memory>

#include "device/Device.h"
#include "volume/Volume.h"

using android::BBinder;
using android::IBinder;
using android::sp;
using android::String16;
using android::String8;
using android::Vector;

namespace {

/** A process like any other: the registries take one registration of each kind from it. */
constexpr pid_t kClient = 1001;

FakeService serve(const sp<BBinder>& object) {
    struct Counts {
        std::mutex lock;
        std::map<uint32_t, int> calls;
    };
    const auto counts = std::make_shared<Counts>();
    FakeService service;
    service.remote = new LoopbackBinder(object, kClient);
    service.remote->onRequest([counts](uint32_t code, const android::Parcel& /*request*/) {
        const std::lock_guard<std::mutex> hold(counts->lock);
        ++counts->calls[code];
    });
    service.calls = [counts](uint32_t code) {
        const std::lock_guard<std::mutex> hold(counts->lock);
        return counts->calls[code];
    };
    return service;
}

}  // namespace

sp<device::DeviceItf> makeDevice(const std::string& path, const std::string& number) {
    const sp<device::DeviceItf> device = new device::Device();
    device->setPath(path.c_str());
    device->setSubsystem("block");
    device->addParam("DEVNAME", path.substr(path.rfind('/') + 1).c_str());
    device->addParam("NUMBER", number.c_str());
    // Properties of the uevent, which differ each time.
    static std::atomic<int> sSequence{0};
    device->addParam("SEQNUM", std::to_string(++sSequence).c_str());
    return device;
}

sp<volume::VolumeItf> makeVolume(const std::string& name, const std::string& uuid) {
    const auto text = [](const std::string& value) { return String8(value.c_str()); };
    return new volume::Volume(text(name), text(uuid), text("LABEL"), text("vfat"), text("/media/" + name),
                              text("/dev/" + name), text("/mnt/" + name), text("/dev/sda"));
}

sp<device::DeviceItf> FakeDevices::getDevice(const String8& /*subsystem*/, const String8& devName) {
    for (const sp<device::DeviceItf>& device : mList.asked()) {
        if (device->getParam(String8("DEVNAME")) == devName) {
            return device;
        }
    }
    return nullptr;
}

Vector<sp<device::DeviceItf>> FakeDevices::getDevices(const String8& path) {
    Vector<sp<device::DeviceItf>> above;
    const std::string below = path.string();
    for (const sp<device::DeviceItf>& device : mList.asked()) {
        const std::string candidate = device->getPath().string();
        if (candidate.size() < below.size() && below.compare(0, candidate.size(), candidate) == 0) {
            above.add(device);
        }
    }
    return above;
}

String8 FakeDevices::getDevicePath(int /*type*/, int /*id*/) {
    return String8("/devices/controller");
}

int FakeDevices::dump(const Vector<String16>& /*args*/, String8& /*result*/) {
    return 0;
}

sp<volume::VolumeItf> FakeVolumes::queryVolume(int index) {
    const auto volumes = mList.asked();
    const auto position = static_cast<size_t>(index);
    return position < volumes.size() ? volumes[position] : sp<volume::VolumeItf>(new volume::Volume());
}

int FakeVolumes::dump(const Vector<String16>& /*args*/, String8& /*result*/) {
    return 0;
}

sp<usb::UsbDeviceItf> FakeUsb::queryUsbDevice(int index) {
    const auto devices = mList.asked();
    const auto position = static_cast<size_t>(index);
    return position < devices.size() ? devices[position] : nullptr;
}

FakeDaemon::FakeDaemon()
    : mDeviceService(serve(new device::BnDeviceManager(mDevices))),
      mVolumeService(serve(new volume::BnVolumeManager(mVolumes))),
      mUsbService(serve(new usb::BnUsbManager(mUsb))) {}

void FakeDaemon::die() const {
    mDeviceService.remote->die();
    mVolumeService.remote->die();
    mUsbService.remote->die();
}

void FakeSurroundings::publish(const FakeDaemon& daemon) {
    publish("DeviceManager", daemon.mDeviceService.remote);
    publish("VolumeManager", daemon.mVolumeService.remote);
    publish("UsbManager", daemon.mUsbService.remote);
}

void FakeSurroundings::publish(const std::string& name, const sp<IBinder>& service) {
    const std::lock_guard<std::mutex> hold(mLock);
    mServices[name] = service;
}

void FakeSurroundings::withdrawAll() {
    const std::lock_guard<std::mutex> hold(mLock);
    mServices.clear();
}

void FakeSurroundings::setDevicePaths(const std::vector<std::string>& paths) {
    const std::lock_guard<std::mutex> hold(mLock);
    mPaths = paths;
}

client::Environment FakeSurroundings::environment() {
    client::Environment environment;
    environment.lookUp = [this](const char* name) -> sp<IBinder> {
        const std::lock_guard<std::mutex> hold(mLock);
        ++mLookUps;
        const auto found = mServices.find(name);
        return found != mServices.end() ? found->second : nullptr;
    };
    environment.startThreads = [this] { ++mThreadStarts; };
    environment.devicePaths = [this] {
        const std::lock_guard<std::mutex> hold(mLock);
        return mPaths;
    };
    return environment;
}
