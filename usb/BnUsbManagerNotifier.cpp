// SPDX-License-Identifier: Apache-2.0
#include "usb/BnUsbManagerNotifier.h"

#include <binder/Parcel.h>

#include "common/Assert.h"
#include "common/NotifierAnswer.h"

namespace usb {

using android::Parcel;
using android::sp;
using android::status_t;

BnUsbManagerNotifier::BnUsbManagerNotifier(const sp<UsbManagerNotifierItf>& impl) : mImpl(impl) {
    SERVICE_ASSERT(mImpl != nullptr, "impl.get()", "IUsbManagerNotifier");
}

int32_t BnUsbManagerNotifier::onEvent(int32_t event, int32_t value) {
    return mImpl->onEvent(event, value);
}

status_t BnUsbManagerNotifier::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    return code == kOnEvent ? answerEvent(*this, data, reply) : BBinder::onTransact(code, data, reply, flags);
}

}  // namespace usb
