// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include "common/MessageQueue.h"
#include "usb/UsbDetector.h"
#include "usb/UsbTID.h"
#include "usb/UsbTestNotifierItf.h"
#include "usb/UsbTestWait.h"

namespace usb {

class UsbTestDetectorHandler;

/**
 * What UsbTest and its companions share.
 *
 * The companions hold it strongly and are held by it; UsbTest, its owner, takes them out of it at its end.
 */
class UsbTestImpl : public android::RefBase {
  public:
    UsbTestImpl(const android::sp<UsbDetector>& detector, const android::sp<UsbTestWait>& wait);

    /** Who hears of findings; may be null. Any thread. */
    android::sp<UsbTestNotifierItf> notifier() const;

    /** The checker; null in normal operation and after the owner's end. Any thread. */
    android::sp<UsbTID> checker() const;

    /** The waits that end when the owner is stopped. Any thread. */
    UsbTestWait& waits() const { return *mWait; }

  protected:
    ~UsbTestImpl() override;

  private:
    friend class UsbTest;

    // Guards the members that name it. Nothing is called with it held, but posting to the queue.
    mutable android::Mutex mLock;
    android::sp<UsbTestNotifierItf> mNotifier GUARDED_BY(mLock);
    android::sp<UsbTID> mUsbTID GUARDED_BY(mLock);
    // Whether the queue takes messages: posting to one without a thread would end the process.
    bool mPosting GUARDED_BY(mLock) = false;

    // Written in the owner's construction and destruction only.
    android::sp<UsbTestDetectorHandler> mDetectorHandler;
    android::sp<MessageQueue> mMessageQueue;
    android::sp<UsbDetector> mDetector;
    const android::sp<UsbTestWait> mWait;
};

}  // namespace usb
