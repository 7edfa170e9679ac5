// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The device records, read through real libusb from devices that only this process sees.
 */
#include "usb/UsbDevicePublisher.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "tests/integration/usb/TestBed.h"
#include "tests/integration/usb/UsbHandles.h"
#include "tests/support/TestFolder.h"
#include "tests/unit/support/LogCapture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using usb::UsbDevicePublisher;

namespace {

std::atomic<bool> sDescriptorFails{false};

}  // namespace

extern "C" {

int __real_libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor);

int __wrap_libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor) {
    return sDescriptorFails ? LIBUSB_ERROR_IO : __real_libusb_get_device_descriptor(device, descriptor);
}

}  // extern "C"

namespace {

LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, "UsbDetector", text};
}

class UsbDevicePublisherTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, setenv("VELTA_PPS_DIR", mFolder.path().c_str(), 1));
        ASSERT_EQ(0, libusb_init(&mContext));
    }

    void TearDown() override {
        libusb_exit(mContext);
        EXPECT_EQ(0, UsbHandles::instance().held);
    }

    static UsbDeviceSpec named(const std::string& manufacturer, const std::string& product,
                               const std::string& serial) {
        UsbDeviceSpec spec = UsbDeviceSpec::stick();
        spec.manufacturer = manufacturer;
        spec.productName = product;
        spec.serial = serial;
        return spec;
    }

    /** Calls @p action with the device of this name, which libusb lists. */
    template <typename ACTION>
    void with(int bus, const std::string& name, const ACTION& action) {
        libusb_device** list = nullptr;
        const ssize_t size = libusb_get_device_list(mContext, &list);
        ASSERT_GT(size, 0);
        bool found = false;
        for (ssize_t i = 0; i < size; ++i) {
            if (libusb_get_bus_number(list[i]) == bus &&
                libusb_get_device_address(list[i]) == mBed.deviceNumber(name)) {
                found = true;
                action(list[i]);
            }
        }
        libusb_free_device_list(list, 1);
        ASSERT_TRUE(found) << name;
    }

    void publish(int bus, const std::string& name) { with(bus, name, UsbDevicePublisher::add); }
    void withdraw(int bus, const std::string& name) { with(bus, name, UsbDevicePublisher::remove); }

    std::string record(const std::string& name) const { return contentOf(mFolder.path(name)); }
    std::vector<LogLine> log() { return mLog.take("UsbDetector"); }

    TestBed mBed;
    LogCapture mLog;
    TestFolder mFolder;
    libusb_context* mContext = nullptr;
};

}  // namespace

TEST_F(UsbDevicePublisherTest, PublishesTheStringsOfADevice) {
    mBed.plug("1-1", named("Acme", "A stick", "0123"));
    publish(1, "1-1");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.dev"));
    EXPECT_EQ("MANUFACTURER=Acme\nPRODUCT=A stick\nSERVIAL=0123\n", record("usbdev.bus.1.dev"));
    withdraw(1, "1-1");
    EXPECT_THAT(mFolder.names(), IsEmpty());
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(UsbDevicePublisherTest, MissingStringsAreEmpty) {
    mBed.plug("1-1", named("", "", ""));
    publish(1, "1-1");
    EXPECT_EQ("MANUFACTURER=\nPRODUCT=\nSERVIAL=\n", record("usbdev.bus.1.dev"));
    mBed.plug("1-2", named("", "Only this", ""));
    publish(1, "1-2");
    EXPECT_EQ("MANUFACTURER=\nPRODUCT=Only this\nSERVIAL=\n", record("usbdev.bus.1.dev"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(UsbDevicePublisherTest, TheLongestStringsAreWhole) {
    const std::string longest(126, 'n');
    mBed.plug("1-1", named(longest, longest, longest));
    publish(1, "1-1");
    EXPECT_EQ("MANUFACTURER=" + longest + "\nPRODUCT=" + longest + "\nSERVIAL=" + longest + "\n",
              record("usbdev.bus.1.dev"));
}

TEST_F(UsbDevicePublisherTest, HostileStringsStayOnTheirLine) {
    mBed.plug("1-1", named("a\nSERVIAL=forged", "../../etc", "\x1b[2J\\"));
    publish(1, "1-1");
    EXPECT_EQ("MANUFACTURER=a\\nSERVIAL=forged\nPRODUCT=../../etc\nSERVIAL=\\x1b[2J\\\\\n",
              record("usbdev.bus.1.dev"));
}

TEST_F(UsbDevicePublisherTest, RootHubsOfTheUnitAreNotPublished) {
    int port = 0;
    for (const char* const serial : {"ehci-platform.1", "ohci-platform.3", "x ehci-platform"}) {
        const std::string name = "1-" + std::to_string(++port);
        mBed.plug(name, named("Linux", "Host Controller", serial));
        publish(1, name);
    }
    EXPECT_THAT(mFolder.names(), IsEmpty());
    EXPECT_THAT(log(), IsEmpty());
    mBed.plug("1-4", named("ehci-platform", "ohci-platform", "0000:00:1d.7"));
    publish(1, "1-4");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.dev"));
}

TEST_F(UsbDevicePublisherTest, ThereIsOneRecordForEachBus) {
    mBed.addBus(2);
    mBed.plug("1-1", named("One", "", ""));
    mBed.plug("1-2", named("Two", "", ""));
    mBed.plug("2-1", named("Three", "", ""));
    publish(1, "1-1");
    publish(2, "2-1");
    publish(1, "1-2");
    EXPECT_EQ("MANUFACTURER=Two\nPRODUCT=\nSERVIAL=\n", record("usbdev.bus.1.dev"));
    EXPECT_EQ("MANUFACTURER=Three\nPRODUCT=\nSERVIAL=\n", record("usbdev.bus.2.dev"));
    // Whichever device of the bus goes, its record goes.
    withdraw(1, "1-1");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.2.dev"));
    withdraw(1, "1-2");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.2.dev"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(UsbDevicePublisherTest, ADeviceThatCannotBeOpenedIsNotPublished) {
    mBed.plug("1-1", named("Acme", "", ""));
    with(1, "1-1", [this](libusb_device* device) {
        mBed.vanish("1-1");
        UsbDevicePublisher::add(device);
    });
    EXPECT_THAT(mFolder.names(), IsEmpty());
    EXPECT_THAT(log(), ElementsAre(error("libusb open dev failed!")));
}

TEST_F(UsbDevicePublisherTest, WithoutDescriptorTheStringsAreEmpty) {
    mBed.plug("1-1", named("Acme", "A", "B"));
    with(1, "1-1", [](libusb_device* device) {
        sDescriptorFails = true;
        UsbDevicePublisher::add(device);
        sDescriptorFails = false;
    });
    EXPECT_EQ("MANUFACTURER=\nPRODUCT=\nSERVIAL=\n", record("usbdev.bus.1.dev"));
    EXPECT_THAT(log(), ElementsAre(error("Error getting device descriptor[LIBUSB_ERROR_IO]\n")));
}

TEST_F(UsbDevicePublisherTest, AFailedPublicationIsLogged) {
    mBed.plug("1-1", named("Acme", "", ""));
    writeFile(mFolder.path("file"), "");
    ASSERT_EQ(0, setenv("VELTA_PPS_DIR", mFolder.path("file").c_str(), 1));
    publish(1, "1-1");
    withdraw(1, "1-1");
    const LogLine failed = error("publish failed!! obj_name[usbdev.bus.1.dev]");
    EXPECT_THAT(log(), ElementsAre(failed, failed));
}
