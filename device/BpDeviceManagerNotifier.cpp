// SPDX-License-Identifier: Apache-2.0
#include "device/BpDeviceManagerNotifier.h"

#include "device/DeviceParcel.h"

namespace device {

using android::Parcel;
using android::sp;

int32_t BpDeviceManagerNotifier::onEvent(int32_t event, int32_t value) {
    Parcel request;
    Parcel reply;
    request.writeInterfaceToken(getInterfaceDescriptor());
    request.writeInt32(event);
    request.writeInt32(value);
    remote()->transact(kOnEvent, request, &reply, 0);
    return reply.readInt32();
}

int32_t BpDeviceManagerNotifier::onDeviceAdded(const sp<DeviceItf>& device) {
    return sendDevice(kOnDeviceAdded, device);
}

int32_t BpDeviceManagerNotifier::onDeviceRemoved(const sp<DeviceItf>& device) {
    return sendDevice(kOnDeviceRemoved, device);
}

int32_t BpDeviceManagerNotifier::sendDevice(uint32_t code, const sp<DeviceItf>& device) {
    Parcel request;
    Parcel reply;
    request.writeInterfaceToken(getInterfaceDescriptor());
    writeDevice(request, *device);
    remote()->transact(code, request, &reply, 0);
    return reply.readInt32();
}

}  // namespace device
