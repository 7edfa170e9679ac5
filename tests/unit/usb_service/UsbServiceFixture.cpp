// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/usb_service/UsbServiceFixture.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "usb/BnUsbHostNotifier.h"
#include "usb/BnUsbManagerNotifier.h"

using android::IBinder;
using android::sp;

sp<usb::UsbDeviceItf> makeUsbDevice(uint32_t id, uint32_t interfaces) {
    usb::UsbDevice::Interfaces set;
    for (uint32_t i = 0; i < interfaces; ++i) {
        set.add(new usb::UsbInterface(40 + i, 50 + i, 60 + i));
    }
    return new usb::UsbDevice(id, 2, reinterpret_cast<libusb_device*>(uintptr_t{0xf1f2f3f0}), 0x12a8, 0x05ac,
                              9, 10, 11, set, new usb::UsbConfig(250));
}

void expectSameUsbDevice(const sp<usb::UsbDeviceItf>& expected, const sp<usb::UsbDeviceItf>& actual) {
    ASSERT_NE(nullptr, actual);
    EXPECT_NE(expected, actual);
    EXPECT_EQ(expected->getId(), actual->getId());
    EXPECT_EQ(expected->getBusNumber(), actual->getBusNumber());
    EXPECT_EQ(expected->getDeviceClass(), actual->getDeviceClass());
    EXPECT_EQ(expected->getDeviceSubClass(), actual->getDeviceSubClass());
    EXPECT_EQ(expected->getVendorId(), actual->getVendorId());
    EXPECT_EQ(expected->getProductId(), actual->getProductId());
    EXPECT_EQ(expected->getDeviceProtocol(), actual->getDeviceProtocol());
    EXPECT_EQ(expected->getConfig()->getMaxPower(), actual->getConfig()->getMaxPower());
    ASSERT_EQ(expected->getInterfaceCount(), actual->getInterfaceCount());
    const auto triples = [](const sp<usb::UsbDeviceItf>& device) {
        std::vector<std::array<uint32_t, 3>> all;
        for (uint32_t i = 0; i < device->getInterfaceCount(); ++i) {
            const sp<usb::UsbInterfaceItf> interface = device->getInterface(i);
            all.push_back({interface->getInterfaceClass(), interface->getInterfaceSubClass(),
                           interface->getInterfaceProtocol()});
        }
        std::sort(all.begin(), all.end());
        return all;
    };
    EXPECT_EQ(triples(expected), triples(actual));
}

void UsbServiceFixture::addHost(const sp<IBinder>& notifier, pid_t pid) {
    const CallingAs caller(pid);
    EXPECT_EQ(0, mService->addHostNotifier(notifier));
}

void UsbServiceFixture::removeHost(const sp<IBinder>& notifier, pid_t pid) {
    const CallingAs caller(pid);
    EXPECT_EQ(0, mService->removeHostNotifier(notifier));
}

sp<LoopbackBinder> UsbServiceFixture::remote(const sp<EventRecorder>& recorder) {
    return new LoopbackBinder(new usb::BnUsbManagerNotifier(recorder), getpid());
}

sp<LoopbackBinder> UsbServiceFixture::remote(const sp<HostRecorder>& recorder) {
    return new LoopbackBinder(new usb::BnUsbHostNotifier(recorder), getpid());
}
