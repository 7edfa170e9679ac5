// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

namespace usb {

/**
 * Hears of each single hot-plug event, before the detector has settled what it means.
 *
 * Both operations run on the detector's event thread, outside of libusb's event handling: synchronous
 * transfers are allowed. While one runs no further event is taken up, and UsbDetector::stop() waits for it,
 * within a bound: they, or who they wait for, may stop and start the detector.
 *
 * Both arguments are untyped and valid for the length of the call: the libusb_context and the libusb_device.
 */
class UsbDetectorHandlerItf : public virtual android::RefBase {
  public:
    /** @p device arrived. @return 0; anything else is logged and changes nothing */
    virtual int onAttach(void* context, void* device) = 0;

    /** @p device left; it answers no more. @return 0; anything else is logged and changes nothing */
    virtual int onDetach(void* context, void* device) = 0;

  protected:
    ~UsbDetectorHandlerItf() override = default;
};

}  // namespace usb
