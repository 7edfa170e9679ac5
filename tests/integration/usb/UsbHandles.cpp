// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/usb/UsbHandles.h"

#include <libusb-1.0/libusb.h>

#include <mutex>

UsbHandles& UsbHandles::instance() {
    static auto* const sInstance = new UsbHandles();
    return *sInstance;
}

namespace {

/** Held while the bed's table changes. Opening asks the bed's own thread, which opens nothing. */
std::mutex& tableLock() {
    static auto* const sLock = new std::mutex();
    return *sLock;
}

}  // namespace

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_libusb_open(libusb_device* device, libusb_device_handle** handle);
void __real_libusb_close(libusb_device_handle* handle);

int __wrap_libusb_open(libusb_device* device, libusb_device_handle** handle) {
    ++UsbHandles::instance().opens;
    const std::lock_guard<std::mutex> hold(tableLock());
    const int result = __real_libusb_open(device, handle);
    if (result == LIBUSB_SUCCESS) {
        ++UsbHandles::instance().held;
    }
    return result;
}

void __wrap_libusb_close(libusb_device_handle* handle) {
    --UsbHandles::instance().held;
    const std::lock_guard<std::mutex> hold(tableLock());
    __real_libusb_close(handle);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
