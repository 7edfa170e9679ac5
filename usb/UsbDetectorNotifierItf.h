// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "usb/UsbDeviceItf.h"
#include "usb/UsbManagerNotifierItf.h"

namespace usb {

/**
 * Hears what the detector finds.
 *
 * All operations run on the detector's queue thread, one at a time and with no lock held: they may ask the
 * detector anything. The list of devices has changed already when the operation is called.
 */
class UsbDetectorNotifierItf : public virtual android::RefBase {
  public:
    /** Events of onNotify(): those of the manager notifier, which they reach. */
    enum Event : int {
        kEventHubTooDeep = UsbManagerNotifierItf::kHubTooDeep,
        kEventTooManyDevices = UsbManagerNotifierItf::kTooManyDevices,
    };

    /** @p device, a hub included, is listed now. @return 0; anything else is logged and changes nothing */
    virtual int onAttach(const android::sp<UsbDeviceItf>& device) = 0;

    /** @p device is listed no more. @return 0; anything else is logged and changes nothing */
    virtual int onDetach(const android::sp<UsbDeviceItf>& device) = 0;

    /**
     * Something happened that is not about one listed device.
     *
     * @param event  an Event
     * @param arg    0
     * @return 0; anything else is logged for kEventHubTooDeep and changes nothing
     */
    virtual int onNotify(int event, int arg) = 0;

  protected:
    ~UsbDetectorNotifierItf() override = default;
};

}  // namespace usb
