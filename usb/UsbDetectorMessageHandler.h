// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Looper.h>

namespace usb {

class UsbDetectorImpl;

/**
 * Hands the messages of the detector's queue to the detector, on the queue's thread.
 *
 * It holds the detector's state, whose queue holds it in turn: the detector drops the queue at its end.
 */
class UsbDetectorMessageHandler : public android::MessageHandler {
  public:
    /** Codes on the queue. */
    enum Message : int {
        kMessageUpdate = 4,          //!< scan and report what changed
        kMessageHubTooDeep = 5,      //!< report UsbDetectorNotifierItf::kEventHubTooDeep
        kMessageTooManyDevices = 6,  //!< report UsbDetectorNotifierItf::kEventTooManyDevices
    };

    /** @param detector  not null */
    explicit UsbDetectorMessageHandler(const android::sp<UsbDetectorImpl>& detector);

    /** Queue thread. A code that is none of the above is logged. */
    void handleMessage(const android::Message& message) override;

  protected:
    ~UsbDetectorMessageHandler() override;

  private:
    const android::sp<UsbDetectorImpl> mDetector;
};

}  // namespace usb
