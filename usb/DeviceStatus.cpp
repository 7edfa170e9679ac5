// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbTID"

#include "usb/DeviceStatus.h"

#include <log/log.h>

#include <algorithm>
#include <array>

namespace usb {

namespace {

constexpr unsigned kTimeoutMillis = 1000;
constexpr size_t kStatusSize = 2;

/** A libusb context that nobody else uses. */
class OwnContext {
  public:
    OwnContext() {
        if (libusb_init(&mContext) < 0) {
            mContext = nullptr;
        }
    }
    ~OwnContext() {
        if (mContext != nullptr) {
            libusb_exit(mContext);
        }
    }
    OwnContext(const OwnContext&) = delete;
    OwnContext& operator=(const OwnContext&) = delete;

    /** Opens the device at the place of @p device, one of another context; null upon failure. */
    libusb_device_handle* open(libusb_device* device) const {
        libusb_device** list = nullptr;
        if (mContext == nullptr || device == nullptr) {
            return nullptr;
        }
        const ssize_t count = libusb_get_device_list(mContext, &list);
        if (count < 0) {
            return nullptr;
        }
        const auto isThere = [device](libusb_device* candidate) {
            return libusb_get_bus_number(candidate) == libusb_get_bus_number(device) &&
                   libusb_get_device_address(candidate) == libusb_get_device_address(device);
        };
        libusb_device_handle* handle = nullptr;
        libusb_device** const found = std::find_if(list, list + count, isThere);
        if (found == list + count || libusb_open(*found, &handle) < 0) {
            handle = nullptr;
        }
        libusb_free_device_list(list, /*unref_devices=*/1);
        return handle;
    }

  private:
    libusb_context* mContext = nullptr;
};

}  // namespace

int getDeviceStatus(libusb_device* device) {
    const OwnContext context;
    libusb_device_handle* const handle = context.open(device);
    if (handle == nullptr) {
        ALOGE("[%s:%d] open libusb device failed\n", "getDeviceStatus", __LINE__);
        return -1;
    }
    std::array<unsigned char, kStatusSize> status = {};
    const int size = libusb_control_transfer(handle, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_STATUS, 0, 0,
                                             status.data(), status.size(), kTimeoutMillis);
    libusb_close(handle);
    // Without its first byte the answer is none.
    if (size < 1) {
        ALOGE("[%s:%d] libusb_control_transfer failed\n", "getDeviceStatus", __LINE__);
        return -1;
    }
    return status[0];
}

}  // namespace usb
