// SPDX-License-Identifier: Apache-2.0
#include "device/BnDeviceManager.h"

#include <binder/Parcel.h>

#include "device/DeviceParcel.h"

namespace device {

using android::BAD_VALUE;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String8;
using android::Vector;

NotifierRegistry<DeviceNotifierTraits>& DeviceNotifierTraits::registryOf(BnDeviceManager& manager) {
    return manager.mNotifiers;
}

BnDeviceManager::BnDeviceManager(const sp<DeviceManagerImplItf>& impl) : ManagerService(impl) {}

sp<DeviceItf> BnDeviceManager::getDevice(const String8& subsystem, const String8& devName) {
    return mImpl->getDevice(subsystem, devName);
}

Vector<sp<DeviceItf>> BnDeviceManager::getDevices(const String8& path) {
    return mImpl->getDevices(path);
}

String8 BnDeviceManager::getDevicePath(int type, int id) {
    return mImpl->getDevicePath(type, id);
}

status_t BnDeviceManager::dispatch(uint32_t code, const Parcel& data, Parcel& reply) {
    switch (code) {
        case kGetDevice:
            return replyDevice(data, reply);
        case kGetDevices:
            return replyDevices(data, reply);
        default:
            return replyDevicePath(data, reply);
    }
}

status_t BnDeviceManager::replyDevice(const Parcel& data, Parcel& reply) {
    String8 subsystem;
    String8 devName;
    if (data.readString8(&subsystem) != OK || data.readString8(&devName) != OK) {
        return BAD_VALUE;
    }
    const sp<DeviceItf> device = getDevice(subsystem, devName);
    if (device == nullptr) {
        return reply.writeInt32(0);
    }
    reply.writeInt32(1);
    return writeDevice(reply, *device);
}

status_t BnDeviceManager::replyDevices(const Parcel& data, Parcel& reply) {
    String8 path;
    if (data.readString8(&path) != OK) {
        return BAD_VALUE;
    }
    const Vector<sp<DeviceItf>> devices = getDevices(path);
    status_t status = reply.writeInt32(static_cast<int32_t>(devices.size()));
    for (size_t i = 0; status == OK && i < devices.size(); ++i) {
        status = writeDevice(reply, *devices[i]);
    }
    return status;
}

status_t BnDeviceManager::replyDevicePath(const Parcel& data, Parcel& reply) {
    int32_t type = 0;
    int32_t id = 0;
    if (data.readInt32(&type) != OK || data.readInt32(&id) != OK) {
        return BAD_VALUE;
    }
    return reply.writeString8(getDevicePath(type, id));
}

}  // namespace device
