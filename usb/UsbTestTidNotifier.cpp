// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbTest"

#include "usb/UsbTestTidNotifier.h"

#include <log/log.h>

#include "common/Assert.h"

namespace usb {

using android::sp;

UsbTestTidNotifier::UsbTestTidNotifier(const sp<UsbTestImpl>& test) : mTest(test) {
    SERVICE_ASSERT_IN(mTest != nullptr, "mTest", "UsbTest",
                      "usb::UsbTestTidNotifier::UsbTestTidNotifier(const android::sp<usb::UsbTestImpl>&)");
}

int UsbTestTidNotifier::onTidEvent(int event, int arg) {
    const sp<UsbTestNotifierItf> notifier = mTest->notifier();
    if (notifier == nullptr) {
        return 0;
    }
    const int result = notifier->onEvent(event, arg);
    if (result < 0) {
        ALOGE("handle event[%d] error\n", event);
    }
    return result;
}

}  // namespace usb
