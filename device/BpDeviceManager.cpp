// SPDX-License-Identifier: Apache-2.0
#include "device/BpDeviceManager.h"

#include "common/ServiceCall.h"
#include "device/DeviceParcel.h"

namespace device {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::String8;
using android::Vector;

int BpDeviceManager::startup() {
    ServiceCall call(getInterfaceDescriptor());
    return call.send(*remote(), kStartup).readInt32();
}

int BpDeviceManager::shutdown() {
    ServiceCall call(getInterfaceDescriptor());
    return call.send(*remote(), kShutdown).readInt32();
}

int BpDeviceManager::addNotifier(const sp<IBinder>& notifier) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeStrongBinder(notifier);
    return call.send(*remote(), kAddNotifier).readInt32();
}

int BpDeviceManager::removeNotifier(const sp<IBinder>& notifier) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeStrongBinder(notifier);
    return call.send(*remote(), kRemoveNotifier).readInt32();
}

sp<DeviceItf> BpDeviceManager::getDevice(const String8& subsystem, const String8& devName) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeString8(subsystem);
    call.request().writeString8(devName);
    const Parcel& reply = call.send(*remote(), kGetDevice);
    return reply.readInt32() != 0 ? readDevice(reply) : nullptr;
}

Vector<sp<DeviceItf>> BpDeviceManager::getDevices(const String8& path) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeString8(path);
    const Parcel& reply = call.send(*remote(), kGetDevices);

    Vector<sp<DeviceItf>> devices;
    for (int32_t left = reply.readInt32(); left > 0; --left) {
        const sp<DeviceItf> device = readDevice(reply);
        if (device == nullptr) {
            break;
        }
        devices.add(device);
    }
    return devices;
}

String8 BpDeviceManager::getDevicePath(int type, int id) {
    ServiceCall call(getInterfaceDescriptor());
    call.request().writeInt32(type);
    call.request().writeInt32(id);
    return call.send(*remote(), kGetDevicePath).readString8();
}

}  // namespace device
