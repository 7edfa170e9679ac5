// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbDevice.h"

#include <android/log.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "tests/unit/support/LogCapture.h"

using android::sp;
using android::wp;
using ::testing::UnorderedElementsAre;
using usb::UsbConfig;
using usb::UsbDevice;
using usb::UsbDeviceItf;
using usb::UsbInterface;
using usb::UsbInterfaceItf;

namespace {

/** Additions to ordered sets find no memory while it is set. */
bool sNoMemory = false;

libusb_device* somePointer() {
    return reinterpret_cast<libusb_device*>(0x1234);
}

sp<UsbDeviceItf> deviceWith(const UsbDevice::Interfaces& interfaces) {
    return new UsbDevice(1, 2, somePointer(), 3, 4, 5, 6, 7, interfaces, new UsbConfig(8));
}

}  // namespace

/** In place of android::SortedVectorImpl::add(const void*), for the client library as well. */
extern "C" ssize_t _ZN7android16SortedVectorImpl3addEPKv(void* self, const void* item) {
    using Add = ssize_t (*)(void*, const void*);
    static const auto sReal =
        reinterpret_cast<Add>(dlsym(RTLD_NEXT, "_ZN7android16SortedVectorImpl3addEPKv"));
    return sNoMemory ? -ENOMEM : sReal(self, item);
}

TEST(UsbInterfaceTest, KeepsClassSubClassAndProtocol) {
    const sp<UsbInterfaceItf> interface = new UsbInterface(1, 2, 3);
    EXPECT_EQ(1U, interface->getInterfaceClass());
    EXPECT_EQ(2U, interface->getInterfaceSubClass());
    EXPECT_EQ(3U, interface->getInterfaceProtocol());
}

TEST(UsbConfigTest, KeepsTheRawPower) {
    EXPECT_EQ(250U, sp<UsbConfig>(new UsbConfig(250))->getMaxPower());
}

TEST(UsbDeviceTest, TakesProductBeforeVendor) {
    const sp<UsbDeviceItf> device =
        new UsbDevice(11, 12, somePointer(), 13, 14, 15, 16, 17, UsbDevice::Interfaces(), new UsbConfig(18));
    EXPECT_EQ(11U, device->getId());
    EXPECT_EQ(12U, device->getBusNumber());
    EXPECT_EQ(somePointer(), device->getDevice());
    EXPECT_EQ(13U, device->getProductId());
    EXPECT_EQ(14U, device->getVendorId());
    EXPECT_EQ(15U, device->getDeviceClass());
    EXPECT_EQ(16U, device->getDeviceSubClass());
    EXPECT_EQ(17U, device->getDeviceProtocol());
    EXPECT_EQ(18U, device->getConfig()->getMaxPower());
    EXPECT_EQ(0U, device->getInterfaceCount());
}

TEST(UsbDeviceTest, KeepsWholeWords) {
    constexpr uint32_t kMost = 0xFFFFFFFF;
    const sp<UsbDeviceItf> device = new UsbDevice(kMost, kMost, nullptr, kMost, kMost, kMost, kMost, kMost,
                                                  UsbDevice::Interfaces(), new UsbConfig(kMost));
    EXPECT_EQ(kMost, device->getId());
    EXPECT_EQ(kMost, device->getBusNumber());
    EXPECT_EQ(kMost, device->getVendorId());
    EXPECT_EQ(kMost, device->getProductId());
    EXPECT_EQ(kMost, device->getConfig()->getMaxPower());
}

TEST(UsbDeviceTest, CopiesTheInterfaces) {
    UsbDevice::Interfaces interfaces;
    interfaces.add(new UsbInterface(1, 0, 0));
    interfaces.add(new UsbInterface(2, 0, 0));
    interfaces.add(new UsbInterface(2, 0, 0));
    const sp<UsbDeviceItf> device = deviceWith(interfaces);
    interfaces.clear();
    ASSERT_EQ(3U, device->getInterfaceCount());
    std::vector<uint32_t> classes;
    for (size_t i = 0; i < device->getInterfaceCount(); ++i) {
        classes.push_back(device->getInterface(i)->getInterfaceClass());
    }
    EXPECT_THAT(classes, UnorderedElementsAre(1U, 2U, 2U)) << "alike, and still two";
}

TEST(UsbDeviceTest, HasNothingBeyondItsInterfaces) {
    UsbDevice::Interfaces interfaces;
    interfaces.add(new UsbInterface(1, 0, 0));
    const sp<UsbDeviceItf> device = deviceWith(interfaces);
    EXPECT_NE(nullptr, device->getInterface(0));
    EXPECT_EQ(nullptr, device->getInterface(1));
    EXPECT_EQ(nullptr, device->getInterface(static_cast<size_t>(-1)));
}

TEST(UsbDeviceTest, InterfaceLostForWantOfMemoryIsCountedAndNull) {
    UsbDevice::Interfaces interfaces;
    interfaces.add(new UsbInterface(1, 0, 0));
    interfaces.add(new UsbInterface(2, 0, 0));
    LogCapture log;
    sNoMemory = true;
    const sp<UsbDeviceItf> device = deviceWith(interfaces);
    sNoMemory = false;
    const LogLine line = {ANDROID_LOG_ERROR, "UsbDevice", "Add UsbDeviceItf Fail"};
    EXPECT_EQ((std::vector<LogLine>{line, line}), log.take());
    EXPECT_EQ(2U, device->getInterfaceCount());
    EXPECT_EQ(nullptr, device->getInterface(0));
    EXPECT_EQ(nullptr, device->getInterface(1));
}

TEST(UsbDeviceTest, LetsGoOfItsPartsAtItsEnd) {
    UsbDevice::Interfaces interfaces;
    interfaces.add(new UsbInterface(1, 0, 0));
    const wp<UsbInterface> interface = interfaces[0];
    sp<UsbConfig> config = new UsbConfig(1);
    const wp<UsbConfig> watchedConfig = config;
    sp<UsbDeviceItf> device = new UsbDevice(1, 1, nullptr, 1, 1, 0, 0, 0, interfaces, config);
    interfaces.clear();
    config.clear();
    EXPECT_NE(nullptr, interface.promote());
    EXPECT_NE(nullptr, watchedConfig.promote());
    device.clear();
    EXPECT_EQ(nullptr, interface.promote());
    EXPECT_EQ(nullptr, watchedConfig.promote());
}

TEST(UsbDeviceTest, PartsOutliveTheDevice) {
    UsbDevice::Interfaces interfaces;
    interfaces.add(new UsbInterface(9, 0, 0));
    sp<UsbDeviceItf> device = deviceWith(interfaces);
    interfaces.clear();
    const sp<UsbInterfaceItf> interface = device->getInterface(0);
    const sp<usb::UsbConfigItf> config = device->getConfig();
    device.clear();
    EXPECT_EQ(9U, interface->getInterfaceClass());
    EXPECT_EQ(8U, config->getMaxPower());
}
