// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Makes records of devices whose descriptors are arbitrary bytes, as the real libusb parses them.
 *
 * The first byte of an input is the number of the active configuration, 0 for a device without one; the rest
 * is what the device's node holds: device descriptor, then configurations.
 */

#include <libusb-1.0/libusb.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "usb/UsbDeviceBuilder.h"
#include "usb/UsbTopology.h"

using android::sp;

namespace {

constexpr uint32_t kId = 7;

/** What the node answers when it is asked for the active configuration. */
uint8_t sActiveConfig = 0;

/** Ends the run, which libFuzzer reports with the input. */
void require(bool holds) {
    if (!holds) {
        abort();
    }
}

libusb_context* makeContext() {
    libusb_context* context = nullptr;
    libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
    require(libusb_init(&context) == 0);
    libusb_set_option(context, LIBUSB_OPTION_LOG_LEVEL, LIBUSB_LOG_LEVEL_NONE);
    return context;
}

/** A file that stands for the device's node; closed by the caller. */
int makeNode(const uint8_t* data, size_t size) {
    const int node = memfd_create("device", MFD_CLOEXEC);
    require(node >= 0);
    require(write(node, data, size) == static_cast<ssize_t>(size));
    return node;
}

void check(libusb_device* device) {
    libusb_device_descriptor descriptor = {};
    require(libusb_get_device_descriptor(device, &descriptor) == 0);
    sp<usb::UsbDevice> record = usb::buildUsbDevice(device, kId);
    require(record != nullptr && record->getId() == kId && record->getDevice() == device);
    require(record->getVendorId() == descriptor.idVendor && record->getProductId() == descriptor.idProduct);
    require(record->getDeviceClass() == descriptor.bDeviceClass);
    require(record->getConfig() != nullptr && record->getConfig()->getMaxPower() <= UINT8_MAX);
    require(record->getInterfaceCount() <= UINT8_MAX);
    for (size_t i = 0; i < record->getInterfaceCount(); ++i) {
        const sp<usb::UsbInterfaceItf> interface = record->getInterface(i);
        require(interface != nullptr && interface->getInterfaceClass() <= UINT8_MAX);
    }
    const android::wp<usb::UsbDevice> watched = record;
    record.clear();
    require(watched.promote() == nullptr);
    require(usb::hubDepth(device) == (usb::kindOf(descriptor) == usb::UsbKind::kHub ? 1 : 0));
}

}  // namespace

extern "C" {

/** libusb itself loses a few bytes when it gives a broken configuration up; what is ours is looked at below.
 */
const char* __asan_default_options() {
    return "detect_leaks=0";
}

/** The product's log would be longer than the run. */
int __android_log_print(int /*priority*/, const char* /*tag*/, const char* /*format*/, ...) {
    return 0;
}

/** libusb learns the bus and the address from the name of the node. */
ssize_t readlink(const char* /*path*/, char* buffer, size_t size) {
    constexpr char kNode[] = "/dev/bus/usb/001/002";
    require(size > strlen(kNode));
    memcpy(buffer, kNode, strlen(kNode));
    return static_cast<ssize_t>(strlen(kNode));
}

int ioctl(int /*node*/, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    switch (request) {
        case USBDEVFS_GET_CAPABILITIES:
            *static_cast<uint32_t*>(argument) = 0;
            return 0;
        case USBDEVFS_CONTROL:
            *static_cast<uint8_t*>(static_cast<usbdevfs_ctrltransfer*>(argument)->data) = sActiveConfig;
            return 1;
        default:
            errno = ENOTTY;
            return -1;
    }
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static libusb_context* const sContext = makeContext();
    if (size == 0) {
        return 0;
    }
    sActiveConfig = data[0];
    const int node = makeNode(data + 1, size - 1);
    libusb_device_handle* handle = nullptr;
    if (libusb_wrap_sys_device(sContext, node, &handle) == 0) {
        check(libusb_get_device(handle));
        libusb_close(handle);
    }
    close(node);
    return 0;
}

}  // extern "C"
