// SPDX-License-Identifier: Apache-2.0
#include "volume/VolumeParcel.h"

#include <array>

#include "volume/Volume.h"

namespace volume {

using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String8;

status_t writeVolume(Parcel& parcel, const VolumeItf& volume) {
    status_t status = OK;
    for (const String8* text :
         {&volume.getName(), &volume.getUuid(), &volume.getLabel(), &volume.getFormat(),
          &volume.getAccessPath(), &volume.getDevicePath(), &volume.getMountPath(), &volume.getMbrPath()}) {
        if (status == OK) {
            status = parcel.writeString8(*text);
        }
    }
    return status;
}

sp<VolumeItf> readVolume(const Parcel& parcel) {
    std::array<String8, 8> texts;
    for (String8& text : texts) {
        if (parcel.readString8(&text) != OK) {
            return nullptr;
        }
    }
    return new Volume(texts[0], texts[1], texts[2], texts[3], texts[4], texts[5], texts[6], texts[7]);
}

}  // namespace volume
