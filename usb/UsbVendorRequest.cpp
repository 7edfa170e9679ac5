// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbDetector"

#include "usb/UsbVendorRequest.h"

#include <libusb-1.0/libusb.h>
#include <log/log.h>

namespace usb {

namespace {

constexpr uint8_t kVendorRequest = unsigned{LIBUSB_REQUEST_TYPE_VENDOR} | unsigned{LIBUSB_RECIPIENT_DEVICE};
constexpr uint8_t kToDevice = kVendorRequest | unsigned{LIBUSB_ENDPOINT_OUT};
constexpr uint8_t kFromDevice = kVendorRequest | unsigned{LIBUSB_ENDPOINT_IN};
static_assert(kToDevice == 0x40 && kFromDevice == 0xC0, "as phones know them");

constexpr uint8_t kRequestRoleSwitch = 0x51;
constexpr uint8_t kRequestCarplaySupport = 0x53;
constexpr uint8_t kRequestAoaProtocol = 0x33;

}  // namespace

const UsbVendorRequest UsbVendorRequest::kRoleSwitchCarplay = {kToDevice, kRequestRoleSwitch, 1, 0, 1000, 870,
                                                               879};
const UsbVendorRequest UsbVendorRequest::kRoleSwitchPlain = {kToDevice, kRequestRoleSwitch, 0, 0, 1000, 895,
                                                             904};
const UsbVendorRequest UsbVendorRequest::kCarplaySupport = {
    kFromDevice, kRequestCarplaySupport, 0, kAnswerSize, 1000, 930, 942};
const UsbVendorRequest UsbVendorRequest::kAoaProtocol = {
    kFromDevice, kRequestAoaProtocol, 0, kAnswerSize, 100, 967, 979};

int UsbVendorRequest::send(libusb_device* device, uint16_t* word) const {
    libusb_device_handle* handle = nullptr;
    const int opened = device != nullptr ? libusb_open(device, &handle) : LIBUSB_ERROR_NO_DEVICE;
    if (opened < 0) {
        // The two kinds of requests have always spelled it differently.
        if (requestType == kToDevice) {
            ALOGE("Line:[%d],libusb open fail! errorType:%s", openLine, libusb_error_name(opened));
        } else {
            ALOGE("Line:[%d],libusb open fail errorType:[%s]", openLine, libusb_error_name(opened));
        }
        return opened;
    }
    uint8_t answer[kAnswerSize] = {};
    const int transferred = libusb_control_transfer(handle, requestType, request, value, 0,
                                                    length > 0 ? answer : nullptr, length, timeoutMillis);
    if (transferred < 0) {
        ALOGE("Line:[%d],libusb control transfer fail! errorType[%s]", transferLine,
              libusb_error_name(transferred));
    }
    libusb_close(handle);
    if (word != nullptr) {
        *word = static_cast<uint16_t>(answer[0] | answer[1] << 8);
    }
    return transferred < 0 ? transferred : 0;
}

}  // namespace usb
