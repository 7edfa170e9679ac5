// SPDX-License-Identifier: Apache-2.0
#include "usb/BpUsbManagerNotifier.h"

#include "usb/NotifierCall.h"

namespace usb {

int32_t BpUsbManagerNotifier::onEvent(int32_t event, int32_t value) {
    NotifierCall call(getInterfaceDescriptor());
    call.request().writeInt32(event);
    call.request().writeInt32(value);
    return call.send(*remote(), kOnEvent);
}

}  // namespace usb
