// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbTest"

#include "usb/UsbTestDetectorHandler.h"

#include <log/log.h>

#include "common/Assert.h"

namespace usb {

using android::sp;

UsbTestDetectorHandler::UsbTestDetectorHandler(const sp<UsbTestImpl>& test) : mTest(test) {
    SERVICE_ASSERT_AT(
        mTest != nullptr, "mTest", "UsbTest", 67,
        "usb::UsbTestDetectorHandler::UsbTestDetectorHandler(const android::sp<usb::UsbTestImpl>&)");
}

int UsbTestDetectorHandler::onAttach(void* ctx, void* dev) {
    constexpr char kFunction[] = "virtual int usb::UsbTestDetectorHandler::onAttach(void*, void*)";
    SERVICE_ASSERT_AT(ctx != nullptr, "ctx", "UsbTest", 76, kFunction);
    SERVICE_ASSERT_AT(dev != nullptr, "dev", "UsbTest", 77, kFunction);
    check("attach", ctx, dev);
    return 0;
}

int UsbTestDetectorHandler::onDetach(void* ctx, void* dev) {
    constexpr char kFunction[] = "virtual int usb::UsbTestDetectorHandler::onDetach(void*, void*)";
    SERVICE_ASSERT_AT(ctx != nullptr, "ctx", "UsbTest", 88, kFunction);
    SERVICE_ASSERT_AT(dev != nullptr, "dev", "UsbTest", 89, kFunction);
    check("detach", ctx, dev);
    return 0;
}

void UsbTestDetectorHandler::check(const char* action, void* ctx, void* dev) {
    const sp<UsbTID> checker = mTest->checker();
    // The owner's end may come while the detector still calls.
    if (checker != nullptr &&
        checker->doAction(action, static_cast<libusb_context*>(ctx), static_cast<libusb_device*>(dev)) != 0) {
        ALOGE("TID do action fail\n");
    }
}

}  // namespace usb
