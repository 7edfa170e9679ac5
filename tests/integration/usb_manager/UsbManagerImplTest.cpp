// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The USB manager's core on the real shell and on real uevents, without devices.
 */
#include "usb/UsbManagerImpl.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vx_vendor_data.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "common/Uevent.h"
#include "tests/integration/usb_manager/AttributeBed.h"
#include "tests/integration/usb_manager/UsbRecorders.h"
#include "tests/support/UeventInjector.h"
#include "tests/unit/common/ThreadProbe.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/UsbDevice.h"
#include "usb/UsbManagerClassPerInterfaceHandler.h"
#include "usb/UsbManagerDetectorNotifier.h"
#include "usb/UsbManagerMessageHandler.h"
#include "usb/UsbManagerTestNotifier.h"
#include "usb/UsbUeventObserverNotifier.h"

using android::sp;
using android::String16;
using android::String8;
using android::Vector;
using android::wp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using usb::UsbManagerImpl;

namespace {

constexpr const char* kTag = "UsbManagerImpl";
constexpr const char* kQueue = "UsbManagerQueue";
constexpr const char* kDetectorQueue = "UsbDetectorQueu";
constexpr const char* kDetector = "UsbDetector";
constexpr const char* kTestQueue = "UsbTestQueue";

const std::string kApple = "/sys/module/usbcore/parameters/apple_dev_default_mode";
const std::string kAndroid = "/sys/module/usbcore/parameters/android_default_mode";
const std::string kCheck = "/sys/module/usbcore/parameters/android_interface_check";
const std::string kEnable = "/sys/class/android_usb/android0/enable";
const std::string kFunctions = "/sys/class/android_usb/android0/functions";
const std::string kRole = "/sys/module/usbcore/parameters/apple_role";

LogLine warning(const std::string& text) {
    return {ANDROID_LOG_WARN, kTag, text};
}
LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, kTag, text};
}
LogLine info(const std::string& text) {
    return {ANDROID_LOG_INFO, kTag, text};
}

/** With the state in the test's hands. */
class Manager : public UsbManagerImpl {
  public:
    using UsbManagerImpl::setState;
    using UsbManagerImpl::state;
    using UsbManagerImpl::UsbManagerImpl;
};

/** Sees numbered uevents go by: those before were handed to every notifier then. */
class Fence : public UeventObserverNotifier {
  public:
    static constexpr const char* kPath = "/devices/fence/";

    int onUevent(const sp<Uevent>& event) override {
        const std::string path = event->getPath() != nullptr ? event->getPath() : "";
        if (path.rfind(kPath, 0) == 0) {
            const std::lock_guard<std::mutex> hold(mLock);
            mSeen = std::max(mSeen, std::stoi(path.substr(strlen(kPath))));
            mChanged.notify_all();
        }
        return 0;
    }

    /** @return false when @p number has not gone by within a second */
    bool waitFor(int number) {
        std::unique_lock<std::mutex> hold(mLock);
        return mChanged.wait_for(hold, std::chrono::seconds(1), [&] { return mSeen >= number; });
    }

  private:
    std::mutex mLock;  // guards mSeen
    std::condition_variable mChanged;
    int mSeen = 0;
};

class UsbManagerImplTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ("", mBed.problem());
        ASSERT_EQ(0, mInjector.open());
        setMode('O');
        make();
        mUevents->registerNotifier(mFence);
        mUevents->start();
    }

    void TearDown() override {
        mUevents->stop();
        if (mManager != nullptr) {
            mManager->shutdown();
        }
    }

    static void setMode(char letter) { ASSERT_NE(-1, vx_vendor_data_write_string(&letter, 173, 1)); }

    /** A new manager; what it writes at first is forgotten. */
    void make() {
        mManager = new Manager(mUevents);
        mManager->setNotifier(mEvents);
        mManager->setHostNotifier(mHosts);
        mBed.take();
        mLog.take();
    }

    void started() {
        mManager->startup();
        mBed.take();
        mLog.take();
    }

    /** Has the kernel tell of an Apple device, and waits until the manager has taken it. */
    void inject(const std::string& action) {
        ASSERT_EQ(0, mInjector.send(action, "/devices/platform/apple", "apple"));
        fence();
    }

    /** What was told before is handled when this returns. */
    void fence() {
        const int number = ++mFences;
        const std::string path = Fence::kPath + std::to_string(number);
        // Again and again: where there was a storm, the socket may have had no room for the first one.
        ASSERT_TRUE(eventually([&] {
            EXPECT_EQ(0, mInjector.send("change", path, "fence"));
            return mFence->waitFor(number);
        }));
    }

    /** The core's lines since the last time, without those of injected and foreign uevents. */
    std::vector<LogLine> lines() {
        std::vector<LogLine> kept;
        for (const LogLine& line : mLog.take(kTag)) {
            if (line.text.find("[UEventPublisher]") != 0 &&
                !(line == info("process usb subsystem=[apple]!\n"))) {
                kept.push_back(line);
            }
        }
        return kept;
    }

    static bool eventually(const std::function<bool()>& holds) {
        const auto deadline = std::chrono::steady_clock::now() + 3 * kTestLimit;
        while (!holds()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    LogCapture mLog;
    AttributeBed mBed;
    UeventInjector mInjector;
    int mFences = 0;
    sp<Fence> mFence = new Fence();
    sp<UeventObserver> mUevents = new UeventObserver();
    sp<EventMemory> mEvents = new EventMemory();
    sp<HostMemory> mHosts = new HostMemory();
    sp<Manager> mManager;
};

using UsbManagerImplDeathTest = UsbManagerImplTest;

}  // namespace

TEST_F(UsbManagerImplTest, BeginsWithTheDefaultModesOfPhones) {
    mManager.clear();
    mBed.take();
    mManager = new Manager(mUevents);
    EXPECT_THAT(mBed.take(), ElementsAre(kApple + "=1\n", kAndroid + "=1\n", kCheck + "=0\n"));
    EXPECT_EQ(0, mManager->state());
}

TEST_F(UsbManagerImplTest, StartsAndStops) {
    const auto counts = [] {
        return std::vector<int>{countThreads(kQueue), countThreads(kDetectorQueue), countThreads(kDetector),
                                countThreads(kTestQueue)};
    };
    EXPECT_EQ(0, mManager->startup());
    EXPECT_EQ(1, mManager->state());
    EXPECT_THAT(mBed.take(),
                ElementsAre("insmod /usr/local/drivers/ehci-hcd.ko", "insmod /usr/local/drivers/ohci-hcd.ko",
                            "insmod /usr/local/drivers/vxsdv2.ko"));
    EXPECT_TRUE(eventually([&] { return counts() == std::vector<int>({1, 1, 1, 0}); }));
    EXPECT_THAT(lines(), IsEmpty());

    EXPECT_EQ(0, mManager->startup());
    EXPECT_EQ(1, mManager->state());
    EXPECT_THAT(lines(), ElementsAre(warning("already startup, no need re-startup")));
    EXPECT_THAT(mBed.take(), IsEmpty());

    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_EQ(0, mManager->state());
    EXPECT_THAT(mBed.take(), ElementsAre(kApple + "=0\n", kAndroid + "=0\n"));
    EXPECT_TRUE(eventually([&] { return counts() == std::vector<int>({0, 0, 0, 0}); }));
    lines();

    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_THAT(lines(), ElementsAre(warning("already shutdown, no need re-shutdown")));
    EXPECT_THAT(mBed.take(), IsEmpty());

    EXPECT_EQ(0, mManager->startup());
    EXPECT_THAT(mBed.take(), ::testing::SizeIs(3));
    EXPECT_EQ(1, mManager->state());
}

TEST_F(UsbManagerImplTest, ShutdownBeforeStartupOnlyLogs) {
    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_THAT(lines(), ElementsAre(warning("already shutdown, no need re-shutdown")));
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, LogsAnImpossibleState) {
    mManager->setState(7);
    EXPECT_EQ(0, mManager->startup());
    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_EQ(0, mManager->switchUsbState(1));
    EXPECT_EQ(7, mManager->state());
    EXPECT_THAT(lines(), ElementsAre(error("unknown state[7], why??"), error("unknown state[7], why??"),
                                     error("Error State, why?")));
    EXPECT_THAT(mBed.take(), IsEmpty());
    mManager->setState(0);
}

TEST_F(UsbManagerImplTest, TheFunctionWaitsUntilTheAppleDeviceIsGone) {
    started();
    inject("add");
    EXPECT_EQ(0, mManager->switchUsbState(1));
    EXPECT_THAT(mBed.take(), IsEmpty());
    EXPECT_THAT(lines(), IsEmpty());
    inject("remove");
    EXPECT_THAT(mBed.take(),
                ElementsAre(kEnable + "=0\n", kFunctions + "=eap", kRole + "=1\n", kEnable + "=1\n"));
    // It is set up now: nothing is pending at the next removal.
    inject("add");
    inject("remove");
    EXPECT_THAT(mBed.take(), IsEmpty());
    // Nor does a device that has gone hold up the next request.
    EXPECT_EQ(0, mManager->switchUsbState(3));
    EXPECT_THAT(mBed.take(), ::testing::SizeIs(2));
}

TEST_F(UsbManagerImplTest, OfPendingFunctionsTheLastCounts) {
    started();
    inject("add");
    mManager->switchUsbState(0);
    mManager->switchUsbState(7);
    mManager->switchUsbState(2);
    EXPECT_THAT(mBed.take(), IsEmpty());
    inject("remove");
    EXPECT_THAT(
        mBed.take(),
        ElementsAre(kApple + "=0\n", "/sys/module/usbcore/parameters/platform_host_mode_apple_function=1\n"));
}

TEST_F(UsbManagerImplTest, WithoutAnAppleDeviceTheFunctionIsSetUpAtOnce) {
    started();
    EXPECT_EQ(0, mManager->switchUsbState(3));
    EXPECT_THAT(
        mBed.take(),
        ElementsAre(kApple + "=0\n", "/sys/module/usbcore/parameters/platform_host_mode_apple_function=0\n"));
    EXPECT_EQ(0, mManager->switchUsbState(3));
    EXPECT_THAT(mBed.take(), ::testing::SizeIs(2));
}

TEST_F(UsbManagerImplTest, BeforeTheStartTheFunctionIsSetUpAtOnceAndUeventsCountAllTheSame) {
    inject("add");
    EXPECT_EQ(0, mManager->switchUsbState(1));
    EXPECT_THAT(mBed.take(), ::testing::SizeIs(4));
    // The device that came before the start is remembered.
    started();
    EXPECT_EQ(0, mManager->switchUsbState(3));
    EXPECT_THAT(mBed.take(), IsEmpty());
    mManager->shutdown();
    mBed.take();
    inject("remove");
    EXPECT_THAT(
        mBed.take(),
        ElementsAre(kApple + "=0\n", "/sys/module/usbcore/parameters/platform_host_mode_apple_function=0\n"));
}

TEST_F(UsbManagerImplTest, AnUnknownFunctionStaysPending) {
    EXPECT_EQ(0, mManager->switchUsbState(7));
    EXPECT_THAT(lines(), ElementsAre(error("doConfigAppleFunction apple usb unknown")));
    inject("remove");
    EXPECT_THAT(lines(), ElementsAre(error("doConfigAppleFunction apple usb unknown")));
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, LogsAppleUevents) {
    ASSERT_EQ(0, mInjector.send("online", "/devices/platform/apple", "apple"));
    EXPECT_TRUE(mLog.waitFor(warning("unhandle action[5]\n"), 3 * kTestLimit));
    EXPECT_EQ(
        1U, mLog.count([](const LogLine& line) { return line == info("process usb subsystem=[apple]!\n"); }));
    // Every uevent reaches the records' publisher, these too.
    EXPECT_LE(1U, mLog.count([](const LogLine& line) {
        return line == error("[UEventPublisher]the subsystem is not usb");
    }));
}

TEST_F(UsbManagerImplTest, EveryUeventReachesThePublisher) {
    ASSERT_EQ(0, mInjector.send("add", "/devices/x", ""));
    EXPECT_TRUE(mLog.waitFor(error("[UEventPublisher]have no sub system"), 3 * kTestLimit));
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(0, mInjector.send("add", "/devices/platform/ehci-platform.1/usb1/1-1/1-1:1.0", "usb",
                                    {"DEVTYPE=usb_interface"}));
    }
    EXPECT_TRUE(mLog.waitFor(error("[UEventPublisher]interface add twice"), 3 * kTestLimit));
    ASSERT_EQ(0, mInjector.send("remove", "/devices/platform/ehci-platform.1/usb1/1-1/1-1:1.0", "usb"));
    fence();
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, TellsTheNotifiersWhatTheDetectorFinds) {
    const sp<usb::UsbManagerDetectorNotifier> notifier = new usb::UsbManagerDetectorNotifier(mManager);
    usb::UsbDevice::Interfaces none;
    const sp<usb::UsbDevice> device =
        new usb::UsbDevice(1, 1, nullptr, 17, 2, 0, 0, 0, none, new usb::UsbConfig(0));
    EXPECT_EQ(0, notifier->onAttach(device));
    EXPECT_EQ(0, notifier->onDetach(device));
    EXPECT_EQ(0, notifier->onNotify(1, 0));
    EXPECT_EQ(0, notifier->onNotify(9, 2));
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(0, notifier->onNotify(5, -3));
    EXPECT_THAT(lines(), ElementsAre(warning("unknown event[5]")));
    EXPECT_THAT(mHosts->calls(), ElementsAre("attached 17", "detached 17"));
    EXPECT_THAT(mEvents->calls(), ElementsAre("event 1 0", "event 9 2", "event 5 -3"));

    mManager->setNotifier(nullptr);
    mManager->setHostNotifier(nullptr);
    EXPECT_EQ(0, notifier->onAttach(device));
    EXPECT_EQ(0, notifier->onDetach(device));
    EXPECT_EQ(0, notifier->onNotify(1, 0));
    EXPECT_EQ(2U, mHosts->calls().size());
    EXPECT_EQ(3U, mEvents->calls().size());
}

TEST_F(UsbManagerImplTest, TellsTheNotifierWhatTheTestModeFinds) {
    const sp<usb::UsbManagerTestNotifier> notifier = new usb::UsbManagerTestNotifier(mManager);
    EXPECT_EQ(0, notifier->onEvent(4, 3));
    EXPECT_THAT(mEvents->calls(), ElementsAre("event 4 3"));
    mManager->setNotifier(nullptr);
    EXPECT_EQ(0, notifier->onEvent(4, 3));
    EXPECT_EQ(1U, mEvents->calls().size());
}

TEST_F(UsbManagerImplTest, WritesTheAndroidModeAnewAsADeviceComes) {
    const sp<usb::UsbManagerClassPerInterfaceHandler> handler =
        new usb::UsbManagerClassPerInterfaceHandler(mManager);
    int something = 0;
    EXPECT_EQ(0, handler->onAttach(&something, &something));
    EXPECT_THAT(mBed.take(), ElementsAre(kAndroid + "=1\n"));
    EXPECT_EQ(0, handler->onDetach(&something, &something));
    EXPECT_THAT(mBed.take(), IsEmpty());
    mManager->configDefaultMode(2, false);
    mBed.take();
    EXPECT_EQ(0, handler->onAttach(&something, &something));
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, CompanionsSurviveTheManager) {
    const wp<UsbManagerImpl> manager = mManager;
    const sp<usb::UsbManagerDetectorNotifier> detector = new usb::UsbManagerDetectorNotifier(manager);
    const sp<usb::UsbManagerClassPerInterfaceHandler> handler =
        new usb::UsbManagerClassPerInterfaceHandler(manager);
    const sp<usb::UsbManagerTestNotifier> test = new usb::UsbManagerTestNotifier(manager);
    const sp<usb::UsbUeventObserverNotifier> uevents = new usb::UsbUeventObserverNotifier(mManager.get());
    uevents->detach();
    mUevents->stop();
    mManager.clear();
    EXPECT_EQ(nullptr, manager.promote());
    int something = 0;
    EXPECT_EQ(0, detector->onAttach(nullptr));
    EXPECT_EQ(0, detector->onDetach(nullptr));
    EXPECT_EQ(0, detector->onNotify(1, 0));
    EXPECT_EQ(0, handler->onAttach(&something, &something));
    EXPECT_EQ(0, test->onEvent(1, 3));
    EXPECT_EQ(0, uevents->onUevent(new Uevent()));
    EXPECT_THAT(mEvents->calls(), IsEmpty());
}

// A uevent in the middle of the construction took the first reference, and the last one with it.
TEST_F(UsbManagerImplTest, MayBeMadeWhileUeventsCome) {
    std::atomic<bool> stop = false;
    std::thread storm([&] {
        UeventInjector injector;
        EXPECT_EQ(0, injector.open());
        while (!stop) {
            EXPECT_EQ(0, injector.send("add", "/devices/x", "block"));
        }
    });
    std::vector<sp<Manager>> managers;
    for (int i = 0; i < 5; ++i) {
        managers.push_back(new Manager(mUevents));
        EXPECT_EQ(79, managers.back()->getCertificationMode());
    }
    stop = true;
    storm.join();
    fence();
    mUevents->stop();
}

TEST_F(UsbManagerImplTest, GoesEvenWhenItIsStarted) {
    started();
    const wp<UsbManagerImpl> manager = mManager;
    mUevents->stop();
    mManager.clear();
    EXPECT_EQ(nullptr, manager.promote());
    EXPECT_TRUE(eventually(
        [] { return countThreads(kQueue) + countThreads(kDetectorQueue) + countThreads(kDetector) == 0; }));
}

TEST_F(UsbManagerImplTest, Dumps) {
    String8 text("before\n");
    Vector<String16> args;
    args.add(String16("all"));
    args.add(String16("gr\xc3\xbc\xc3\x9f"));
    args.add(String16(String8(std::string(1500, 'x').c_str())));
    EXPECT_EQ(0, mManager->dump(args, text));
    EXPECT_STREQ("before\n---dump UsbManager---\n", text.string());
    EXPECT_THAT(lines(), ElementsAre(info("arg[0] : all "), info("arg[1] : gr\xc3\xbc\xc3\x9f "),
                                     info(("arg[2] : " + std::string(1023, 'x')).substr(0, 1023))));
}

TEST_F(UsbManagerImplTest, KnowsNoDeviceWhereThereIsNone) {
    started();
    EXPECT_EQ(0, mManager->getUsbDeviceCount());
    for (const int index : {0, 1, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(nullptr, mManager->queryUsbDevice(index));
    }
    EXPECT_FALSE(mManager->checkAoaModeSupport(1));
    EXPECT_FALSE(mManager->isAppleCarplaySupport(0xffffffff));
    EXPECT_EQ(1U, mLog.count([](const LogLine& line) {
        return line == LogLine{ANDROID_LOG_ERROR, "UsbDetector",
                               "No this (index = -1) UsbDevie object in mUsbDeviceList"};
    }));
}

TEST_F(UsbManagerImplTest, ARoleSwitchThatFailsWritesNothing) {
    EXPECT_EQ(-1, mManager->appleDeviceRoleSwitch(1));
    EXPECT_EQ(1U, mLog.count([](const LogLine& line) {
        return line.text == "Error! Other usb device type,shouldn't role switch.";
    }));
    EXPECT_THAT(lines(), ElementsAre(info("AppleDevice roleSwitch fail!")));
    for (const int function : {0, 1}) {
        mManager->switchUsbState(function);
        mBed.take();
        mLog.take();
        EXPECT_EQ(-1, mManager->appleDeviceRoleSwitch(1));
        EXPECT_EQ(1U, mLog.count([function](const LogLine& line) {
            return line.text == (function == 0 ? "Apple Carplay RoleSwitch!" : "Apple RoleSwitch");
        }));
        EXPECT_THAT(lines(), ElementsAre(info("AppleDevice roleSwitch fail!")));
    }
    EXPECT_THAT(mBed.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, EveryConfigurationOperationIsTheConfigurations) {
    EXPECT_EQ(0, mManager->configUsbEnumerateScheme(true));
    EXPECT_EQ(-1, mManager->configAoaDescription("/no/such/file"));
    EXPECT_EQ(0, mManager->aoaModeSwitchFilter("S"));
    EXPECT_EQ(0, mManager->configAoaTimeoutAction(true));
    EXPECT_EQ(0, mManager->configDefaultMode(4, true));
    EXPECT_EQ(0, mManager->applyDefaultMode(4));
    EXPECT_EQ(0, mManager->configAppleIapNodeName("i"));
    EXPECT_EQ(0, mManager->configAppleEanNodeName("e"));
    EXPECT_EQ(0, mManager->configAppleEanStringName("n"));
    EXPECT_EQ(1, mManager->configKernelAutoRoleSwitch(false));
    EXPECT_EQ(0, mManager->setUsbPortPower(1, true));
    EXPECT_EQ(0, mManager->resetUsbPort(3));
    EXPECT_FALSE(mManager->usbDeviceIsActived(2));
    EXPECT_THAT(mBed.take(),
                ElementsAre("/sys/module/usbcore/parameters/old_scheme_first=1\n",
                            "/sys/module/usbcore/parameters/use_both_schemes=0\n",
                            "/sys/module/usbcore/parameters/not_run_aoa_serial_number=S",
                            "/sys/module/aoa/parameters/aoa_write_timeout_reset_ctrl=1\n", kCheck + "=1\n",
                            kCheck + "=1\n", "/sys/module/g_android/parameters/iap_name=mfi_iap_i",
                            "/sys/module/g_android/parameters/ean_name=mfi_ean_e",
                            "/sys/module/g_android/parameters/ean_string_name=n",
                            "/sys/module/vx_usb_host/parameters/kernel_auto_role_switch=0\n",
                            "/sys/bus/platform/devices/ehci-platform.2/usb_power_set=1\n"));
}

TEST_F(UsbManagerImplTest, NormalOperationKnowsNoTests) {
    EXPECT_EQ(79, mManager->getCertificationMode());
    EXPECT_EQ(1, mManager->postTestMessage(7));
    EXPECT_EQ(1, mManager->setMaxHubTier(5));
    EXPECT_EQ(1, mManager->addUnsupportedClass(8));
    EXPECT_EQ(1, mManager->removeUnsupportedClass(8));
    for (const int mode : {0, 1, 2}) {
        const char letter = "CDS"[mode];
        ASSERT_NE(-1, vx_vendor_data_write_string(&letter, 171, 1));
        EXPECT_EQ(mode, mManager->getPortChargingMode(1));
    }
    AttributeBed::put("/sys/module/vxqa4410_bc/bc_switch", "");
    EXPECT_EQ(0, mManager->switchPortChargingMode(2, 1));
    EXPECT_EQ(1, mManager->getPortChargingMode(2));
    EXPECT_EQ(0, mManager->setCertificationMode(84));
    EXPECT_EQ(79, mManager->getCertificationMode());
}

TEST_F(UsbManagerImplTest, CertificationLeavesTheDefaultModesAlone) {
    setMode('T');
    mManager.clear();
    mBed.take();
    make();
    setMode('O');
    EXPECT_EQ(84, mManager->getCertificationMode());
    EXPECT_EQ(0, mManager->configDefaultMode(2, true));
    EXPECT_EQ(84, mManager->applyDefaultMode(2));
    EXPECT_THAT(mBed.take(), IsEmpty());
    EXPECT_EQ(0, mManager->startup());
    EXPECT_THAT(mBed.take(), ::testing::Contains("insmod /usr/local/drivers/vxsdv2.ko"));
    EXPECT_TRUE(eventually([] { return countThreads(kTestQueue) == 1; }));
    EXPECT_EQ(0, mManager->addUnsupportedClass(8));
    EXPECT_EQ(0, mManager->removeUnsupportedClass(8));
    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_TRUE(eventually([] { return countThreads(kTestQueue) == 0; }));
    EXPECT_EQ(0, mManager->state());
}

TEST_F(UsbManagerImplDeathTest, CompanionsNeedAManager) {
    const wp<UsbManagerImpl> none;
    const char* const message = "assertion \"manager.get\\(\\)\" failed: file \"UsbManagerImpl\"";
    EXPECT_DEATH(new usb::UsbManagerDetectorNotifier(none), message);
    EXPECT_DEATH(new usb::UsbManagerClassPerInterfaceHandler(none), message);
    EXPECT_DEATH(new usb::UsbManagerTestNotifier(none), message);
    EXPECT_DEATH(new usb::UsbUeventObserverNotifier(nullptr), message);
    EXPECT_DEATH(new usb::UsbManagerMessageHandler(none), message);
}

TEST_F(UsbManagerImplDeathTest, TheHandlerNeedsContextAndDevice) {
    const sp<usb::UsbManagerClassPerInterfaceHandler> handler =
        new usb::UsbManagerClassPerInterfaceHandler(mManager);
    int something = 0;
    EXPECT_DEATH(handler->onAttach(nullptr, &something), "assertion \"ctx\" failed: file \"UsbManagerImpl\"");
    EXPECT_DEATH(handler->onAttach(&something, nullptr), "assertion \"dev\" failed: file \"UsbManagerImpl\"");
    EXPECT_DEATH(handler->onDetach(nullptr, &something), "assertion \"ctx\" failed: file \"UsbManagerImpl\"");
    EXPECT_DEATH(handler->onDetach(&something, nullptr), "assertion \"dev\" failed: file \"UsbManagerImpl\"");
}

TEST_F(UsbManagerImplDeathTest, TheAccessoryFileNeedsAName) {
    EXPECT_DEATH(mManager->configAoaDescription(nullptr), "assertion \"filename\" failed: file \"Property\"");
}
