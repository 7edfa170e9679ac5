// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbTest"

#include "usb/UsbTest.h"

#include <log/log.h>
#include <vx_vendor_data.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/Assert.h"
#include "common/QueueStart.h"
#include "usb/AttributeFile.h"
#include "usb/CertificationPaths.h"
#include "usb/UsbTestDetectorHandler.h"
#include "usb/UsbTestImpl.h"
#include "usb/UsbTestMessageHandler.h"
#include "usb/UsbTestTidNotifier.h"

namespace usb {

using android::Mutex;
using android::sp;

namespace {

/** Items of the vendor data, each one letter: the ports' charging modes follow one another. */
constexpr int kItemCharging = 170;
constexpr int kItemMode = 173;
constexpr int kItemLength = 1;
constexpr int kFailed = -1;

constexpr int kPorts = 3;
constexpr int kModeShift = 8;

constexpr int kReadTries = 5;
constexpr nsecs_t kReadTime = 1000000000;
constexpr nsecs_t kOpenTime = 3000000000;
constexpr nsecs_t kWriteTime = 100000000;
/** For the port's voltage to settle. */
constexpr nsecs_t kPowerTime = 500000000;

constexpr int kQueueTimeoutMillis = 500;

bool isPort(int port) {
    return static_cast<unsigned>(port) < static_cast<unsigned>(kPorts);
}

char letterOfCharging(int mode) {
    switch (mode) {
        case UsbTest::kChargingD:
            return 'D';
        case UsbTest::kChargingS:
            return 'S';
        default:
            return 'C';
    }
}

/** The unit's tool for the ports' power; a failure shows in its own output. */
void runPowerTool(const char* format, int port) {
    char command[64];
    snprintf(command, sizeof(command), format, port);
    if (system(command) != 0) {
        ALOGW("[%s:%d] [%s] failed\n", "switchPortChargingMode", __LINE__, command);
    }
}

}  // namespace

UsbTest::UsbTest(const sp<UsbDetector>& detector, const sp<UsbTestWait>& wait)
    : mTest(new UsbTestImpl(detector, wait != nullptr ? wait : new UsbTestWait())) {
    SERVICE_ASSERT_AT(mTest != nullptr, "test", "UsbTest", 416,
                      "usb::UsbTest::UsbTest(const android::sp<usb::UsbDetector>&)");
    ALOGI("[%s:%d] init UsbTest\n", "UsbTest", 417);
    readCertificationMode();
    if (mMode == kModeNormal) {
        return;
    }
    mTest->mMessageQueue =
        new MessageQueue(new UsbTestMessageHandler(mTest, mMode), kQueueTimeoutMillis, "UsbTestQueue");
    const sp<UsbTID> checker = new UsbTID(new UsbTestTidNotifier(mTest), mMode, mTest->mWait);
    {
        Mutex::Autolock lock(mTest->mLock);
        mTest->mUsbTID = checker;
    }
    mTest->mDetectorHandler = new UsbTestDetectorHandler(mTest);
    detector->setHandler(mTest->mDetectorHandler);
}

UsbTest::~UsbTest() {
    SERVICE_ASSERT_AT(mTest != nullptr, "test", "UsbTest", 446, "virtual usb::UsbTest::~UsbTest()");
    // Threads and calls that still run would keep the companions, and they this.
    mTest->mWait->stop();
    if (mMode != kModeNormal) {
        mTest->mMessageQueue->stop();
        mTest->mMessageQueue.clear();
        mTest->mDetector->setHandler(nullptr);
        mTest->mDetectorHandler.clear();
        sp<UsbTID> checker;
        {
            Mutex::Autolock lock(mTest->mLock);
            checker = mTest->mUsbTID;
            mTest->mUsbTID.clear();
        }
        SERVICE_ASSERT_AT(checker != nullptr, "test->mUsbTID", "UsbTest", 452,
                          "virtual usb::UsbTest::~UsbTest()");
    }
    mTest->mDetector.clear();
    setNotifier(nullptr);
}

void UsbTest::readCertificationMode() {
    char letter = kModeNormal;
    for (int attempt = 0; attempt < kReadTries; ++attempt) {
        if (vx_vendor_data_read_string(kItemMode, kItemLength, &letter) != kFailed) {
            break;
        }
        letter = kModeNormal;
        ALOGE("get usb certificationMode failed...retry\n");
        mTest->mWait->pause(kReadTime);
    }
    mMode = certificationModeOf(letter);
}

void UsbTest::setNotifier(const sp<UsbTestNotifierItf>& notifier) {
    SERVICE_ASSERT_AT(mTest != nullptr, "test", "UsbTest", 465,
                      "void usb::UsbTest::setNotifier(const android::sp<usb::UsbTestNotifierItf>&)");
    // The former one goes without the lock.
    sp<UsbTestNotifierItf> former = notifier;
    Mutex::Autolock lock(mTest->mLock);
    std::swap(mTest->mNotifier, former);
}

void UsbTest::start() {
    SERVICE_ASSERT_AT(mTest != nullptr, "test", "UsbTest", 525, "void usb::UsbTest::start()");
    if (mMode == kModeNormal) {
        return;
    }
    SERVICE_ASSERT_AT(mTest->mMessageQueue != nullptr, "test->mMessageQueue.get()", "UsbTest", 528,
                      "void usb::UsbTest::start()");
    const sp<UsbTID> checker = mTest->checker();
    checker->reset();
    mTest->mWait->start();
    const bool posting = startQueue(mTest->mMessageQueue);
    Mutex::Autolock lock(mTest->mLock);
    mTest->mPosting = posting;
}

void UsbTest::stop() {
    SERVICE_ASSERT_AT(mTest != nullptr, "test", "UsbTest", 539, "void usb::UsbTest::stop()");
    endWaits();
    if (mMode == kModeNormal) {
        return;
    }
    {
        Mutex::Autolock lock(mTest->mLock);
        mTest->mPosting = false;
    }
    mTest->mMessageQueue->stop();
}

void UsbTest::endWaits() {
    mTest->mWait->stop();
}

int UsbTest::postTestMessage(int what) {
    if (mMode == kModeNormal) {
        return 1;
    }
    Mutex::Autolock lock(mTest->mLock);
    if (!mTest->mPosting) {
        ALOGW("not started, test message[%d] dropped\n", what);
        return 0;
    }
    mTest->mMessageQueue->removeMessage(static_cast<uint32_t>(what));
    mTest->mMessageQueue->sendMessage(static_cast<uint32_t>(what));
    return 0;
}

int UsbTest::switchPortChargingMode(int port, int mode) {
    if (!isPort(port)) {
        // The item behind the last port's is the certification mode.
        ALOGE("[%s:%d] no usb port[%d]\n", "switchPortChargingMode", __LINE__, port);
        return 1;
    }
    const char letter = letterOfCharging(mode);
    const bool kept = vx_vendor_data_write_string(&letter, kItemCharging + port, kItemLength) != kFailed;
    runPowerTool("usb_uphy --vbus_off %d", port);
    setChargingSwitch(port, mode);
    mTest->mWait->pause(kPowerTime);
    runPowerTool("usb_uphy --vbus_on %d", port);
    return kept ? 0 : 1;
}

/** Waits for the charging driver, unless the waits end. */
void UsbTest::setChargingSwitch(int port, int mode) {
    UsbTestWait& waits = *mTest->mWait;
    const UsbTestWait::Span span = waits.span();
    AttributeFile chargingSwitch;
    while (!chargingSwitch.open(path::kChargingSwitch)) {
        if (!waits.wait(span, kOpenTime)) {
            return;
        }
    }
    // As unsigned: a mode from a client may be negative.
    const unsigned value = (static_cast<unsigned>(mode) << kModeShift) | static_cast<unsigned>(port);
    while (!chargingSwitch.write(std::to_string(static_cast<int>(value)))) {
        if (!waits.wait(span, kWriteTime)) {
            return;
        }
    }
}

int UsbTest::getPortChargingMode(int port) {
    char letter = '\0';
    if (!isPort(port) || vx_vendor_data_read_string(kItemCharging + port, kItemLength, &letter) == kFailed) {
        return kChargingUnknown;
    }
    switch (letter) {
        case 'C':
        case 'c':
            return kChargingC;
        case 'D':
        case 'd':
            return kChargingD;
        case 'S':
        case 's':
            return kChargingS;
        default:
            return kChargingUnknown;
    }
}

int UsbTest::setMaxHubTier(int tier) {
    const sp<UsbTID> checker = mTest->checker();
    if (checker == nullptr) {
        return 1;
    }
    if (!checker->setMaxHubTier(tier)) {
        ALOGE("[%s:%d] set MaxHubTier failed\n", "setMaxHubTier", __LINE__);
    }
    return 0;
}

int UsbTest::addUnsupportedClass(int interfaceClass) {
    const sp<UsbTID> checker = mTest->checker();
    if (checker == nullptr) {
        return 1;
    }
    checker->addUnsupportedClass(interfaceClass);
    return 0;
}

int UsbTest::removeUnsupportedClass(int interfaceClass) {
    const sp<UsbTID> checker = mTest->checker();
    if (checker == nullptr) {
        return 1;
    }
    checker->removeUnsupportedClass(interfaceClass);
    return 0;
}

int UsbTest::setCertificationMode(int mode) {
    const char letter = static_cast<char>(
        mode == kModeTestDevices || mode == kModeLogo ? static_cast<CertificationMode>(mode) : kModeNormal);
    return vx_vendor_data_write_string(&letter, kItemMode, kItemLength) == kFailed ? 1 : 0;
}

int UsbTest::getCertificationMode() {
    return mMode;
}

}  // namespace usb
