// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbDeviceBuilder.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>

#include <vector>

#include "tests/unit/support/LogCapture.h"
#include "usb/UsbTopology.h"

using android::sp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using usb::UsbDevice;

/** What the library's functions below answer. */
struct libusb_device {
    libusb_device_descriptor descriptor = {};
    int descriptorResult = 0;
    libusb_config_descriptor* config = nullptr;
    int configResult = 0;
    int bus = 1;
    libusb_device* parent = nullptr;
    int freedConfigs = 0;
};

namespace {

libusb_device* sConfigOwner = nullptr;

}  // namespace

extern "C" {

int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor) {
    if (device->descriptorResult == 0) {
        *descriptor = device->descriptor;
    }
    return device->descriptorResult;
}

int libusb_get_active_config_descriptor(libusb_device* device, libusb_config_descriptor** config) {
    *config = device->config;
    sConfigOwner = device;
    return device->configResult;
}

void libusb_free_config_descriptor(libusb_config_descriptor* config) {
    if (config != nullptr) {
        ++sConfigOwner->freedConfigs;
    }
}

uint8_t libusb_get_bus_number(libusb_device* device) {
    return static_cast<uint8_t>(device->bus);
}

libusb_device* libusb_get_parent(libusb_device* device) {
    return device->parent;
}

}  // extern "C"

namespace {

constexpr const char* kTag = "UsbDetector";

libusb_interface_descriptor setting(uint8_t interfaceClass, uint8_t alternate = 0) {
    libusb_interface_descriptor descriptor = {};
    descriptor.bInterfaceClass = interfaceClass;
    descriptor.bInterfaceSubClass = static_cast<uint8_t>(interfaceClass + 1);
    descriptor.bInterfaceProtocol = static_cast<uint8_t>(interfaceClass + 2);
    descriptor.bAlternateSetting = alternate;
    return descriptor;
}

class UsbDeviceBuilderTest : public ::testing::Test {
  public:
    /** Gives the device an active configuration of these interfaces, each with its settings. */
    void configure(const std::vector<std::vector<libusb_interface_descriptor>>& interfaces) {
        mSettings = interfaces;
        for (const auto& settings : mSettings) {
            mInterfaces.push_back(
                {settings.empty() ? nullptr : settings.data(), static_cast<int>(settings.size())});
        }
        mConfig.bNumInterfaces = static_cast<uint8_t>(mInterfaces.size());
        mConfig.interface = mInterfaces.data();
        mDevice.config = &mConfig;
    }

    static std::vector<uint32_t> classesOf(const sp<UsbDevice>& device) {
        std::vector<uint32_t> classes;
        for (size_t i = 0; i < device->getInterfaceCount(); ++i) {
            const auto interface = device->getInterface(i);
            EXPECT_EQ(interface->getInterfaceClass() + 1, interface->getInterfaceSubClass());
            EXPECT_EQ(interface->getInterfaceClass() + 2, interface->getInterfaceProtocol());
            classes.push_back(interface->getInterfaceClass());
        }
        return classes;
    }

    std::vector<std::vector<libusb_interface_descriptor>> mSettings;
    std::vector<libusb_interface> mInterfaces;
    libusb_config_descriptor mConfig = {};
    libusb_device mDevice;
    LogCapture mLog;
};

TEST_F(UsbDeviceBuilderTest, TakesWhatTheDescriptorsSay) {
    mDevice.descriptor.idProduct = 0x5678;
    mDevice.descriptor.idVendor = 0x1234;
    mDevice.descriptor.bDeviceClass = 31;
    mDevice.descriptor.bDeviceSubClass = 2;
    mDevice.descriptor.bDeviceProtocol = 3;
    mDevice.bus = 200;
    mConfig.MaxPower = 255;
    configure({{setting(8)}});
    const sp<UsbDevice> device = usb::buildUsbDevice(&mDevice, 77);
    EXPECT_EQ(77U, device->getId());
    EXPECT_EQ(200U, device->getBusNumber());
    EXPECT_EQ(&mDevice, device->getDevice());
    EXPECT_EQ(0x5678U, device->getProductId());
    EXPECT_EQ(0x1234U, device->getVendorId());
    EXPECT_EQ(31U, device->getDeviceClass());
    EXPECT_EQ(2U, device->getDeviceSubClass());
    EXPECT_EQ(3U, device->getDeviceProtocol());
    EXPECT_EQ(255U, device->getConfig()->getMaxPower()) << "raw, not in milliamperes";
    EXPECT_THAT(classesOf(device), ElementsAre(8U));
    EXPECT_EQ(1, mDevice.freedConfigs);
    EXPECT_THAT(mLog.take(), IsEmpty());
}

TEST_F(UsbDeviceBuilderTest, TakesTheFirstSettingOfEachInterface) {
    configure({{setting(1), setting(11, 1)}, {setting(2)}, {setting(3), setting(13, 1), setting(23, 2)}});
    EXPECT_THAT(classesOf(usb::buildUsbDevice(&mDevice, 1)), UnorderedElementsAre(1U, 2U, 3U));
}

TEST_F(UsbDeviceBuilderTest, TakesAllInterfacesThatAConfigurationCanHave) {
    configure(std::vector<std::vector<libusb_interface_descriptor>>(255, {setting(8)}));
    EXPECT_EQ(255U, usb::buildUsbDevice(&mDevice, 1)->getInterfaceCount());
}

TEST_F(UsbDeviceBuilderTest, BuildsWithoutADeviceDescriptor) {
    mDevice.descriptorResult = LIBUSB_ERROR_IO;
    mConfig.MaxPower = 9;
    configure({{setting(8)}});
    const sp<UsbDevice> device = usb::buildUsbDevice(&mDevice, 1);
    EXPECT_EQ(0U, device->getVendorId());
    EXPECT_EQ(0U, device->getProductId());
    EXPECT_EQ(9U, device->getConfig()->getMaxPower());
    EXPECT_EQ(1U, device->getInterfaceCount());
    EXPECT_THAT(mLog.take(), ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                                 "Error getting device descriptor[LIBUSB_ERROR_IO]\n"}));
}

TEST_F(UsbDeviceBuilderTest, BuildsWithoutAConfiguration) {
    mDevice.descriptor.idVendor = 4;
    mDevice.configResult = LIBUSB_ERROR_NOT_FOUND;
    const sp<UsbDevice> device = usb::buildUsbDevice(&mDevice, 1);
    EXPECT_EQ(4U, device->getVendorId());
    ASSERT_NE(nullptr, device->getConfig());
    EXPECT_EQ(0U, device->getConfig()->getMaxPower());
    EXPECT_EQ(0U, device->getInterfaceCount());
    EXPECT_EQ(0, mDevice.freedConfigs);
    EXPECT_THAT(mLog.take(), ElementsAre(LogLine{
                                 ANDROID_LOG_WARN, kTag,
                                 "fail to getting active configure descriptor[LIBUSB_ERROR_NOT_FOUND]\n"}));
}

TEST_F(UsbDeviceBuilderTest, InterfaceWithoutASettingIsFatal) {
    configure({{setting(1)}, {}});
    EXPECT_DEATH(usb::buildUsbDevice(&mDevice, 1), "assertion \"interface_desc\" failed");
}

// --- topology ---

TEST(UsbTopologyTest, KnowsHubsAndDevices) {
    libusb_device_descriptor descriptor = {};
    for (unsigned deviceClass = 0; deviceClass < 256; ++deviceClass) {
        descriptor.bDeviceClass = static_cast<uint8_t>(deviceClass);
        const usb::UsbKind expected = deviceClass == 9                        ? usb::UsbKind::kHub
                                      : deviceClass == 0 || deviceClass == 31 ? usb::UsbKind::kDevice
                                                                              : usb::UsbKind::kOther;
        EXPECT_EQ(expected, usb::kindOf(descriptor)) << deviceClass;
    }
}

TEST(UsbTopologyTest, CountsHubsUpToTheRoot) {
    libusb_device chain[4];
    for (int i = 0; i < 3; ++i) {
        chain[i].descriptor.bDeviceClass = 9;
        chain[i + 1].parent = &chain[i];
    }
    LogCapture log;
    EXPECT_EQ(1, usb::hubDepth(&chain[0]));
    EXPECT_EQ(2, usb::hubDepth(&chain[1]));
    EXPECT_EQ(3, usb::hubDepth(&chain[2]));
    EXPECT_EQ(3, usb::hubDepth(&chain[3])) << "a device does not count";
    EXPECT_THAT(log.take(), IsEmpty());
    chain[1].descriptor.bDeviceClass = 255;
    EXPECT_EQ(2, usb::hubDepth(&chain[3])) << "the walk goes on";
    EXPECT_THAT(log.take(), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "unknown device class[255]\n"}));
    chain[1].descriptorResult = LIBUSB_ERROR_OTHER;
    EXPECT_EQ(1, usb::hubDepth(&chain[3])) << "the count so far";
    EXPECT_THAT(log.take(), ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                                "Error getting device descriptor[LIBUSB_ERROR_OTHER]\n"}));
}

}  // namespace
