// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/usb_service/UsbServiceFixture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "usb/BnUsbHostNotifier.h"
#include "usb/BnUsbManagerNotifier.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::Vector;

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

void writeToken(Parcel& request, const char* name) {
    request.writeInt32(0);
    request.writeString16(String16(name));
}

status_t UsbServiceFixture::transact(uint32_t code, const Writer& write, Parcel* reply, const char* token) {
    Parcel request;
    writeToken(request, token);
    if (write) {
        write(request);
    }
    const CallingAs caller(kClient);
    return mService->transact(code, request, reply);
}

std::string UsbServiceFixture::dump(std::initializer_list<const char*> arguments) {
    Vector<String16> args;
    for (const char* argument : arguments) {
        args.add(String16(argument));
    }
    const int fd = memfd_create("dump", MFD_CLOEXEC);
    EXPECT_EQ(OK, mService->dump(fd, args));
    std::string text(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    EXPECT_EQ(static_cast<ssize_t>(text.size()), pread(fd, text.data(), text.size(), 0));
    close(fd);
    return text;
}

void UsbServiceFixture::add(const sp<IBinder>& notifier, pid_t pid) {
    const CallingAs caller(pid);
    EXPECT_EQ(0, mService->addNotifier(notifier));
}

void UsbServiceFixture::remove(const sp<IBinder>& notifier, pid_t pid) {
    const CallingAs caller(pid);
    EXPECT_EQ(0, mService->removeNotifier(notifier));
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
