// SPDX-License-Identifier: Apache-2.0
#include "usb/BpUsbManagerNotifier.h"

#include "common/NotifierCall.h"

namespace usb {

int32_t BpUsbManagerNotifier::onEvent(int32_t event, int32_t value) {
    return NotifierCall(getInterfaceDescriptor()).sendEvent(*remote(), kOnEvent, event, value);
}

}  // namespace usb
