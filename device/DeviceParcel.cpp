// SPDX-License-Identifier: Apache-2.0
#include "device/DeviceParcel.h"

#include "device/Device.h"

namespace device {

using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String8;

status_t writeDevice(Parcel& parcel, const DeviceItf& device) {
    const size_t count = device.getParamSize();
    status_t status = parcel.writeString8(device.getPath());
    if (status == OK) {
        status = parcel.writeString8(device.getSubsystem());
    }
    if (status == OK) {
        status = parcel.writeInt32(static_cast<int32_t>(count));
    }
    for (size_t i = 0; status == OK && i < count; ++i) {
        status = parcel.writeString8(device.getParamName(i));
        if (status == OK) {
            status = parcel.writeString8(device.getParamValue(i));
        }
    }
    return status;
}

sp<DeviceItf> readDevice(const Parcel& parcel) {
    String8 path;
    String8 subsystem;
    int32_t count = 0;
    if (parcel.readString8(&path) != OK || parcel.readString8(&subsystem) != OK ||
        parcel.readInt32(&count) != OK) {
        return nullptr;
    }
    const sp<DeviceItf> device = new Device();
    device->setPath(path);
    device->setSubsystem(subsystem);
    // A count that the parcel cannot hold ends at the first property that is missing.
    for (; count > 0; --count) {
        String8 key;
        String8 value;
        if (parcel.readString8(&key) != OK || parcel.readString8(&value) != OK) {
            return nullptr;
        }
        device->addParam(key, value);
    }
    return device;
}

}  // namespace device
