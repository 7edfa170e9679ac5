// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbTest"

#include "usb/UsbTestMessageHandler.h"

#include <log/log.h>

#include <iterator>

#include "usb/CertificationMode.h"
#include "usb/CertificationPaths.h"

namespace usb {

using android::sp;

namespace {

/** Between two tries of what is not there yet, does not take a value yet, and two looks at the ports. */
constexpr nsecs_t kOpenTime = 3000000000;
constexpr nsecs_t kWriteTime = 100000000;
constexpr nsecs_t kWatchTime = 1000000000;

constexpr int kDisconnectedArg = 3;
constexpr char kConnected[] = "1";

/** A host port: what is plugged into it, and the lines about it. */
struct Port {
    const char* status;
    const char* connected;
    const char* disconnected;
};

constexpr Port kPorts[] = {
    {path::kPort1Status, "PORT1 CONNECTED\n", "PORT1 DISCONNECTED\n"},
    {path::kPort2Status, "PORT2 CONNECTED\n", "PORT2 DISCONNECTED\n"},
    {path::kPort3Status, "PORT3 CONNECTED\n", "PORT3 DISCONNECTED\n"},
};

}  // namespace

UsbTestMessageHandler::UsbTestMessageHandler(const sp<UsbTestImpl>& test, int mode)
    : mTest(test), mMode(mode) {}

// The products are those by which the host stack knows the electrical tests of USB 2.0, as test devices
// announce them.
const UsbTestMessageHandler::Identity* UsbTestMessageHandler::identityOf(uint32_t code) {
    static constexpr Identity kOff = {"0", "0", "0", "0"};
    static constexpr Identity kJ = {"6666", "258", "1", "1"};
    static constexpr Identity kK = {"6666", "259", "1", "1"};
    static constexpr Identity kSe0Nak = {"6666", "257", "1", "1"};
    static constexpr Identity kPacket = {"6666", "260", "1", "1"};
    static constexpr Identity kSuspendResume = {"6666", "262", "1", "1"};
    static constexpr Identity kSingleStep = {"6666", "263", "1", "1"};
    switch (code) {
        case kTestOff:
            return &kOff;
        case kTestJ:
            return &kJ;
        case kTestK:
            return &kK;
        case kTestSe0Nak:
            return &kSe0Nak;
        case kTestPacket:
            return &kPacket;
        case kTestSuspendResume:
            return &kSuspendResume;
        case kTestSingleStep:
            return &kSingleStep;
        default:
            return nullptr;
    }
}

void UsbTestMessageHandler::handleMessage(const android::Message& message) {
    const UsbTestWait::Span span = mTest->waits().spanWhileStarted();
    AttributeFile product;
    AttributeFile vendor;
    AttributeFile enable;
    AttributeFile start;
    if (!openWhenThere(span, &product, path::kIdProduct) || !openWhenThere(span, &vendor, path::kIdVendor) ||
        !openWhenThere(span, &enable, path::kIdEnable) ||
        !openWhenThere(span, &start, path::kLogoTestStart)) {
        return;
    }
    const uint32_t code = static_cast<uint32_t>(message.what);
    if (code >= kTestUndefined) {
        ALOGW("not defined usb test mode=[%d]\n", message.what);
        return;
    }
    if (code == kTestForceEnable) {
        watchForcedEnable(span);
        return;
    }
    const Identity* const identity = identityOf(code);
    if (identity == nullptr) {
        return;
    }
    if (mMode == kModeLogo && code != kTestOff) {
        makeRoleSwitchReady();
    }
    // In this order: what the last one starts takes the identity as it stands then.
    if (writeUntilTaken(span, &vendor, identity->vendor) &&
        writeUntilTaken(span, &product, identity->product) &&
        writeUntilTaken(span, &enable, identity->enable)) {
        writeUntilTaken(span, &start, identity->start);
    }
}

/** @return false when @p span ended first */
bool UsbTestMessageHandler::openWhenThere(const UsbTestWait::Span& span, AttributeFile* file,
                                          const char* path) {
    while (!file->open(path)) {
        if (!mTest->waits().wait(span, kOpenTime)) {
            return false;
        }
    }
    return true;
}

/** @return false when @p span ended first */
bool UsbTestMessageHandler::writeUntilTaken(const UsbTestWait::Span& span, AttributeFile* file,
                                            const std::string& value) {
    while (!file->write(value)) {
        if (!mTest->waits().wait(span, kWriteTime)) {
            return false;
        }
    }
    return true;
}

/** @return false when @p span ended first */
bool UsbTestMessageHandler::readWhenThere(const UsbTestWait::Span& span, const char* path,
                                          std::string* word) {
    while (!AttributeFile::readWord(path, word)) {
        if (!mTest->waits().wait(span, kOpenTime)) {
            return false;
        }
    }
    return true;
}

/** The port that can be a gadget must be out of the way of the host's test signals. */
void UsbTestMessageHandler::makeRoleSwitchReady() {
    if (!AttributeFile::put(path::kGadgetFullSpeed, "i")) {
        ALOGE("[%s:%d] can't write [%s] to [%s]\n", "handleMessage", __LINE__, "i", path::kGadgetFullSpeed);
    }
}

/** Until a device leaves one of the ports, or @p span ends. */
void UsbTestMessageHandler::watchForcedEnable(const UsbTestWait::Span& span) {
    bool connected[std::size(kPorts)] = {};
    do {
        ALOGI("TEST MODE FORCE ENABLE\n");
        for (size_t i = 0; i < std::size(kPorts); ++i) {
            std::string status;
            if (!readWhenThere(span, kPorts[i].status, &status)) {
                return;
            }
            if (status == kConnected) {
                connected[i] = true;
                ALOGI("%s", kPorts[i].connected);
            } else if (connected[i]) {
                ALOGI("%s", kPorts[i].disconnected);
                reportDisconnected();
                return;
            }
        }
    } while (mTest->waits().wait(span, kWatchTime));
}

void UsbTestMessageHandler::reportDisconnected() {
    const sp<UsbTestNotifierItf> notifier = mTest->notifier();
    if (notifier != nullptr && notifier->onEvent(kTestPortDisconnected, kDisconnectedArg) < 0) {
        ALOGE("handle event[%d] error\n", kTestPortDisconnected);
    }
}

}  // namespace usb
