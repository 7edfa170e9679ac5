// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The USB manager's core without devices: its life, uevents from the kernel, and what it writes.
 */
#include "usb/UsbManagerImpl.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vx_vendor_data.h>

#include <future>
#include <thread>

#include "common/Uevent.h"
#include "tests/integration/usb_core/ClientRecorder.h"
#include "tests/integration/usb_manager/AttributeBed.h"
#include "tests/support/UeventInjector.h"
#include "tests/unit/support/LogCapture.h"
#include "usb/UsbDevice.h"
#include "usb/UsbManagerClassPerInterfaceHandler.h"
#include "usb/UsbManagerDetectorNotifier.h"
#include "usb/UsbManagerTestNotifier.h"
#include "usb/UsbUeventObserverNotifier.h"

using android::sp;
using android::String16;
using android::String8;
using android::Vector;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using usb::UsbDeviceItf;
using usb::UsbManagerImpl;

namespace {

constexpr const char* kTag = "UsbManagerImpl";
constexpr int kModeItem = 173;

std::string parameter(const char* name, const char* value) {
    return std::string("/sys/module/usbcore/parameters/") + name + "=" + value;
}

std::vector<std::string> accessoryWrites() {
    return {"/sys/class/android_usb/android0/enable=0\n", "/sys/class/android_usb/android0/functions=eap",
            parameter("apple_role", "1\n"), "/sys/class/android_usb/android0/enable=1\n"};
}

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

/** Tells that a uevent has come through to all notifiers: made after the manager, before or after it in line.
 */
class Fence : public UeventObserverNotifier {
  public:
    int onUevent(const sp<Uevent>& event) override {
        heard.add(event->getPath());
        return 0;
    }
    Heard<std::string> heard;
};

class UsbManagerImplTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ("", mAttributes.problem());
        ASSERT_EQ(0, mInjector.open());
        store('O');
        mUevents = new UeventObserver();
        mUevents->registerNotifier(mFence);
        mUevents->start();
        make();
    }

    void TearDown() override {
        if (mManager != nullptr && mManager->state() == 1) {
            mManager->shutdown();
        }
        if (mUevents != nullptr) {
            mUevents->stop();
        }
    }

    static void store(char mode) { ASSERT_EQ(0, vx_vendor_data_write_string(&mode, kModeItem, 1)); }

    void make() {
        mManager = new Manager(mUevents);
        mManager->setNotifier(mEvents);
        mManager->setHostNotifier(mHost);
        mConstruction = mAttributes.take();
        mLog.take();
    }

    /** Sends a uevent and waits until all have had it, those that came before included. */
    void inject(const std::string& action, const std::string& subsystem) {
        ASSERT_EQ(0, mInjector.send(action, "/devices/x", subsystem));
        const std::string fence = "/devices/fence" + std::to_string(++mFences);
        ASSERT_EQ(0, mInjector.send("change", fence, "fence"));
        ASSERT_TRUE(eventually([this, &fence] {
            const std::vector<std::string> heard = mFence->heard.all();
            return std::find(heard.begin(), heard.end(), fence) != heard.end();
        }));
        // Another uevent ends the round that the fence is still in.
        ASSERT_EQ(0, mInjector.send("change", "/devices/end" + std::to_string(mFences), "fence"));
        ASSERT_TRUE(eventually([this] {
            const std::vector<std::string> heard = mFence->heard.all();
            return std::find(heard.begin(), heard.end(), "/devices/end" + std::to_string(mFences)) !=
                   heard.end();
        }));
    }

    /** The manager's lines, without those of the publisher. */
    std::vector<LogLine> lines() {
        std::vector<LogLine> kept;
        for (const LogLine& line : mLog.take(kTag)) {
            if (line.text.rfind("[UEventPublisher]", 0) != 0) {
                kept.push_back(line);
            }
        }
        return kept;
    }

    LogCapture mLog;
    AttributeBed mAttributes;
    UeventInjector mInjector;
    int mFences = 0;
    sp<Fence> mFence = new Fence();
    sp<EventRecorder> mEvents = new EventRecorder();
    sp<HostRecorder> mHost = new HostRecorder();
    sp<UeventObserver> mUevents;
    sp<Manager> mManager;
    std::vector<std::string> mConstruction;
};

using UsbManagerImplDeathTest = UsbManagerImplTest;

}  // namespace

TEST_F(UsbManagerImplTest, WritesTheDefaultModesWhenItIsMade) {
    EXPECT_THAT(mConstruction, ElementsAre(parameter("apple_dev_default_mode", "1\n"),
                                           parameter("android_default_mode", "1\n"),
                                           parameter("android_interface_check", "0\n")));
    EXPECT_EQ(0, mManager->state());
}

TEST_F(UsbManagerImplTest, LoadsTheDriversAndStartsOnce) {
    EXPECT_EQ(0, mManager->startup());
    EXPECT_EQ(1, mManager->state());
    EXPECT_THAT(mAttributes.take(),
                ElementsAre("insmod /usr/local/drivers/ehci-hcd.ko", "insmod /usr/local/drivers/ohci-hcd.ko",
                            "insmod /usr/local/drivers/vxsdv2.ko"));
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(1, countThreads("UsbManagerQueue"));

    EXPECT_EQ(0, mManager->startup());
    EXPECT_EQ(1, mManager->state());
    EXPECT_THAT(lines(), ElementsAre(warning("already startup, no need re-startup")));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
    EXPECT_EQ(1, countThreads("UsbManagerQueue"));
}

TEST_F(UsbManagerImplTest, StopsOnceAndTurnsThePhonesModesOff) {
    mManager->startup();
    mAttributes.take();
    mLog.take();
    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_EQ(0, mManager->state());
    EXPECT_THAT(mAttributes.take(), ElementsAre(parameter("apple_dev_default_mode", "0\n"),
                                                parameter("android_default_mode", "0\n")));
    EXPECT_THAT(lines(),
                ElementsAre(warning("echo 0 > /sys/module/usbcore/parameters/apple_dev_default_mode"),
                            warning("echo 0 > /sys/module/usbcore/parameters/android_default_mode")));
    EXPECT_TRUE(eventually([] { return countThreads("UsbManagerQueue") == 0; }));
    EXPECT_TRUE(eventually([] { return countThreads("UsbDetectorQueu") == 0; }));

    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_THAT(lines(), ElementsAre(warning("already shutdown, no need re-shutdown")));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, ShutdownBeforeStartup) {
    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_THAT(lines(), ElementsAre(warning("already shutdown, no need re-shutdown")));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, StartsAgainAndLoadsTheDriversAgain) {
    for (int round = 0; round < 3; ++round) {
        mManager->startup();
        EXPECT_THAT(mAttributes.take(), Contains("insmod /usr/local/drivers/vxsdv2.ko")) << round;
        mManager->shutdown();
    }
    EXPECT_EQ(0, mManager->state());
}

TEST_F(UsbManagerImplTest, LogsAnImpossibleState) {
    mManager->setState(7);
    EXPECT_EQ(0, mManager->startup());
    EXPECT_EQ(0, mManager->shutdown());
    EXPECT_EQ(0, mManager->switchUsbState(1));
    EXPECT_EQ(7, mManager->state());
    EXPECT_THAT(lines(), ElementsAre(error("unknown state[7], why??"), error("unknown state[7], why??"),
                                     error("Error State, why?")));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
    mManager->setState(0);
}

TEST_F(UsbManagerImplTest, StartsAndStopsOfManyThreadsDoNotMix) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            for (int round = 0; round < 2; ++round) {
                if (i % 2 == 0) {
                    mManager->startup();
                } else {
                    mManager->shutdown();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    mManager->shutdown();
    EXPECT_EQ(0, mManager->state());
    EXPECT_TRUE(eventually([] { return countThreads("UsbManagerQueue") == 0; }));
}

TEST_F(UsbManagerImplTest, AnAppleUeventIsHandledBeforeStartup) {
    inject("add", "apple");
    inject("change", "apple");
    EXPECT_THAT(lines(),
                ElementsAre(info("process usb subsystem=[apple]!\n"),
                            info("process usb subsystem=[apple]!\n"), warning("unhandle action[3]\n")));
    // Shut down, the function is set up at once, whoever is there.
    EXPECT_EQ(0, mManager->switchUsbState(1));
    EXPECT_EQ(accessoryWrites(), mAttributes.take());
}

TEST_F(UsbManagerImplTest, AFunctionIsSetUpAtOnceWithoutAnAppleDevice) {
    mManager->startup();
    inject("add", "apple");
    inject("remove", "apple");
    mAttributes.take();
    EXPECT_EQ(0, mManager->switchUsbState(1));
    EXPECT_EQ(accessoryWrites(), mAttributes.take());
}

TEST_F(UsbManagerImplTest, AFunctionWaitsUntilTheAppleDeviceIsGone) {
    mManager->startup();
    inject("add", "apple");
    mAttributes.take();
    EXPECT_EQ(0, mManager->switchUsbState(1));
    inject("change", "apple");
    inject("add", "apple");
    EXPECT_THAT(mAttributes.take(), IsEmpty());

    inject("remove", "apple");
    EXPECT_EQ(accessoryWrites(), mAttributes.take());
    // It is set up now: another removal changes nothing.
    inject("remove", "apple");
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, TheLastRequestCounts) {
    mManager->startup();
    inject("add", "apple");
    mAttributes.take();
    mManager->switchUsbState(0);
    mManager->switchUsbState(3);
    mManager->switchUsbState(1);
    inject("remove", "apple");
    EXPECT_EQ(accessoryWrites(), mAttributes.take());
}

TEST_F(UsbManagerImplTest, ARequestForWhatIsSetUpTakesThePendingOneBack) {
    mManager->switchUsbState(1);
    mManager->startup();
    inject("add", "apple");
    mAttributes.take();
    mManager->switchUsbState(0);
    mManager->switchUsbState(1);
    inject("remove", "apple");
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, AnUnknownFunctionIsRefusedWhenItsTimeComes) {
    mManager->startup();
    inject("add", "apple");
    mAttributes.take();
    EXPECT_EQ(0, mManager->switchUsbState(7));
    mLog.take();
    inject("remove", "apple");
    EXPECT_THAT(lines(), ElementsAre(info("process usb subsystem=[apple]!\n"),
                                     error("doConfigAppleFunction apple usb unknown")));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, APendingFunctionOutlivesAStop) {
    mManager->startup();
    inject("add", "apple");
    mManager->switchUsbState(1);
    mManager->shutdown();
    mAttributes.take();
    inject("remove", "apple");
    EXPECT_EQ(accessoryWrites(), mAttributes.take());
}

TEST_F(UsbManagerImplTest, UeventsOfOtherSubsystemsAreThePublishersAlone) {
    inject("remove", "block");
    inject("add", "");
    inject("add", "apples");
    const std::vector<LogLine> all = mLog.take(kTag);
    EXPECT_THAT(all, Contains(error("[UEventPublisher]the subsystem is not usb")));
    EXPECT_THAT(all, Contains(error("[UEventPublisher]have no sub system")));
    EXPECT_THAT(all, Not(Contains(info("process usb subsystem=[apple]!\n"))));
    // The publisher hears of "apple" too.
    inject("add", "apple");
    const std::vector<LogLine> apple = mLog.take(kTag);
    EXPECT_THAT(apple, Contains(error("[UEventPublisher]the subsystem is not usb")));
    EXPECT_THAT(apple, Contains(info("process usb subsystem=[apple]!\n")));
}

TEST_F(UsbManagerImplTest, ARoleSwitchNeedsAFunction) {
    EXPECT_EQ(-1, mManager->appleDeviceRoleSwitch(1));
    EXPECT_THAT(lines(), ElementsAre(info("AppleDevice roleSwitch fail!")));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, WithoutDevicesEveryQuestionIsAnswered) {
    EXPECT_EQ(0, mManager->getUsbDeviceCount());
    for (const int index : {0, 1, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(nullptr, mManager->queryUsbDevice(index)) << index;
    }
    EXPECT_FALSE(mManager->isAppleCarplaySupport(1));
    EXPECT_FALSE(mManager->checkAoaModeSupport(UINT32_MAX));
}

TEST_F(UsbManagerImplTest, ASlowShellHoldsUpNobodyElse) {
    mAttributes.block("/sys/class/android_usb/android0/functions");
    auto slow = std::async(std::launch::async, [this] { return mManager->switchUsbState(1); });
    ASSERT_TRUE(mAttributes.waitForOpen("/sys/class/android_usb/android0/functions"));

    // Each would wait for ever if it needed what the shell holds up.
    EXPECT_EQ(0, mManager->startup());
    EXPECT_EQ(0, mManager->getUsbDeviceCount());
    EXPECT_EQ(nullptr, mManager->queryUsbDevice(0));
    String8 text;
    EXPECT_EQ(0, mManager->dump(Vector<String16>(), text));
    EXPECT_EQ(0, mManager->configDefaultMode(2, true));
    EXPECT_EQ(79, mManager->getCertificationMode());
    inject("add", "usb");
    EXPECT_EQ(0, mManager->shutdown());

    mAttributes.release("/sys/class/android_usb/android0/functions");
    EXPECT_EQ(0, slow.get());
}

TEST_F(UsbManagerImplTest, DumpsItsLineAndLogsTheArguments) {
    String8 text("before\n");
    Vector<String16> args;
    EXPECT_EQ(0, mManager->dump(args, text));
    EXPECT_EQ(String8("before\n---dump UsbManager---\n"), text);
    EXPECT_THAT(lines(), IsEmpty());

    args.add(String16("first"));
    args.add(String16("%s"));
    args.add(String16(std::u16string(u"\u00fc").c_str()));
    args.add(String16(std::string(3000, 'a').c_str()));
    text = "";
    EXPECT_EQ(0, mManager->dump(args, text));
    EXPECT_EQ(String8("---dump UsbManager---\n"), text);
    const std::string cut = "arg[3] : " + std::string(1023, 'a') + " ";
    // The log itself cuts a line to 1023 bytes.
    EXPECT_THAT(lines(), ElementsAre(info("arg[0] : first "), info("arg[1] : %s "),
                                     info("arg[2] : \xc3\xbc "), info(cut.substr(0, 1023))));
}

TEST_F(UsbManagerImplTest, WhatTheDetectorFindsReachesTheNotifiers) {
    const sp<usb::UsbManagerDetectorNotifier> notifier = new usb::UsbManagerDetectorNotifier(mManager);
    const sp<UsbDeviceItf> device =
        new usb::UsbDevice(1, 1, nullptr, 2, 3, 0, 0, 0, usb::UsbDevice::Interfaces(), new usb::UsbConfig(0));
    // A client may call back: nothing is locked.
    mHost->inside = mEvents->inside = [this] {
        mManager->switchUsbState(7);
        mManager->startup();
        mManager->shutdown();
    };
    EXPECT_EQ(0, notifier->onAttach(device));
    EXPECT_EQ(0, notifier->onDetach(device));
    EXPECT_THAT(mHost->attached.all(), ElementsAre(device));
    EXPECT_THAT(mHost->detached.all(), ElementsAre(device));
    mHost->inside = mEvents->inside = nullptr;
    lines();

    EXPECT_EQ(0, notifier->onNotify(1, 0));
    EXPECT_EQ(0, notifier->onNotify(9, 4));
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(0, notifier->onNotify(5, -2));
    EXPECT_EQ(0, notifier->onNotify(0, 0));
    EXPECT_THAT(lines(), ElementsAre(warning("unknown event[5]"), warning("unknown event[0]")));
    EXPECT_THAT(mEvents->heard.all(), ElementsAre(Pair(1, 0), Pair(9, 4), Pair(5, -2), Pair(0, 0)));
    EXPECT_THAT(mHost->events.all(), IsEmpty());
}

TEST_F(UsbManagerImplTest, WhatTheTestModeFindsReachesTheNotifier) {
    const sp<usb::UsbManagerTestNotifier> notifier = new usb::UsbManagerTestNotifier(mManager);
    EXPECT_EQ(0, notifier->onEvent(4, 3));
    EXPECT_EQ(0, notifier->onEvent(-1, 300));
    EXPECT_THAT(mEvents->heard.all(), ElementsAre(Pair(4, 3), Pair(-1, 300)));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(UsbManagerImplTest, WithoutNotifiersNothingIsDone) {
    const sp<Manager> lonely = new Manager(mUevents);
    const sp<usb::UsbManagerDetectorNotifier> notifier = new usb::UsbManagerDetectorNotifier(lonely);
    EXPECT_EQ(0, notifier->onAttach(nullptr));
    EXPECT_EQ(0, notifier->onDetach(nullptr));
    EXPECT_EQ(0, notifier->onNotify(1, 0));
    EXPECT_EQ(0, sp<usb::UsbManagerTestNotifier>(new usb::UsbManagerTestNotifier(lonely))->onEvent(1, 0));
}

TEST_F(UsbManagerImplTest, AnArrivalWritesTheAndroidModeAgain) {
    const sp<usb::UsbManagerClassPerInterfaceHandler> handler =
        new usb::UsbManagerClassPerInterfaceHandler(mManager);
    int anything = 0;
    EXPECT_EQ(0, handler->onAttach(&anything, &anything));
    EXPECT_THAT(mAttributes.take(), ElementsAre(parameter("android_default_mode", "1\n")));
    EXPECT_EQ(0, handler->onDetach(&anything, &anything));
    EXPECT_THAT(mAttributes.take(), IsEmpty());

    mManager->configDefaultMode(2, false);
    mAttributes.take();
    EXPECT_EQ(0, handler->onAttach(&anything, &anything));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, TheCompanionsOutliveIt) {
    const sp<usb::UsbManagerDetectorNotifier> detected = new usb::UsbManagerDetectorNotifier(mManager);
    const sp<usb::UsbManagerTestNotifier> tested = new usb::UsbManagerTestNotifier(mManager);
    const sp<usb::UsbManagerClassPerInterfaceHandler> handler =
        new usb::UsbManagerClassPerInterfaceHandler(mManager);
    const android::wp<Manager> gone = mManager;
    mManager.clear();
    EXPECT_EQ(nullptr, gone.promote()) << "companions keep it";

    int anything = 0;
    EXPECT_EQ(0, detected->onAttach(nullptr));
    EXPECT_EQ(0, detected->onNotify(1, 0));
    EXPECT_EQ(0, tested->onEvent(1, 0));
    EXPECT_EQ(0, handler->onAttach(&anything, &anything));
    EXPECT_THAT(mEvents->heard.all(), IsEmpty());
    EXPECT_THAT(mAttributes.take(), IsEmpty());
    mLog.take();
    inject("add", "apple");
    EXPECT_THAT(mLog.take(kTag), IsEmpty());
}

TEST_F(UsbManagerImplTest, GoesWhileUeventsCome) {
    std::atomic<bool> over{false};
    std::thread sender([this, &over] {
        // Few enough at a time for the socket, whoever reads how slowly.
        while (!over) {
            const size_t before = mFence->heard.all().size();
            for (int i = 0; i < 20; ++i) {
                mInjector.send("add", "/devices/x", "apple");
            }
            eventually([this, before] { return mFence->heard.all().size() >= before + 20; });
        }
    });
    for (int round = 0; round < 20; ++round) {
        mManager.clear();
        mManager = new Manager(mUevents);
    }
    over = true;
    sender.join();
    mManager.clear();
}

TEST_F(UsbManagerImplTest, DroppedWithoutAStopItEndsItsThreads) {
    mManager->startup();
    mManager.clear();
    EXPECT_TRUE(eventually([] { return countThreads("UsbManagerQueue") == 0; }));
    EXPECT_TRUE(eventually([] { return countThreads("UsbDetectorQueu") == 0; }));
}

TEST_F(UsbManagerImplTest, ForCertificationTheDefaultModesAreLeftAlone) {
    store('T');
    mManager.clear();
    mAttributes.take();
    make();
    store('O');
    EXPECT_THAT(mConstruction, IsEmpty());
    EXPECT_EQ('T', mManager->getCertificationMode());
    EXPECT_EQ(0, mManager->configDefaultMode(7, true));
    EXPECT_EQ('T', mManager->applyDefaultMode(7));
    int anything = 0;
    const sp<usb::UsbManagerClassPerInterfaceHandler> handler =
        new usb::UsbManagerClassPerInterfaceHandler(mManager);
    EXPECT_EQ(0, handler->onAttach(&anything, &anything));
    EXPECT_THAT(mAttributes.take(), IsEmpty());
}

TEST_F(UsbManagerImplTest, ATestMessageOutsideARunIsDropped) {
    store('T');
    mManager.clear();
    make();
    store('O');
    EXPECT_EQ(0, mManager->postTestMessage(9));
    mManager->startup();
    EXPECT_EQ(1, countThreads("UsbTestQueue"));
    mManager->shutdown();
    EXPECT_EQ(0, mManager->postTestMessage(9));
    EXPECT_TRUE(eventually([] { return countThreads("UsbTestQueue") == 0; }));
}

TEST_F(UsbManagerImplTest, TestOperationsAreTheTestModesOwn) {
    EXPECT_EQ(79, mManager->getCertificationMode());
    EXPECT_EQ(1, mManager->postTestMessage(1));
    EXPECT_EQ(1, mManager->setMaxHubTier(3));
    EXPECT_EQ(1, mManager->addUnsupportedClass(8));
    EXPECT_EQ(1, mManager->removeUnsupportedClass(8));
    EXPECT_EQ(3, mManager->getPortChargingMode(2));
    EXPECT_EQ(0, vx_vendor_data_write_string("S", 172, 1));
    EXPECT_EQ(2, mManager->getPortChargingMode(2));
    EXPECT_EQ(0, mManager->setCertificationMode('M'));
    EXPECT_EQ(79, mManager->getCertificationMode());
    char stored = 0;
    EXPECT_EQ(0, vx_vendor_data_read_string(kModeItem, 1, &stored));
    EXPECT_EQ('M', stored);
}

TEST_F(UsbManagerImplTest, EveryConfigurationReachesItsAttribute) {
    EXPECT_EQ(0, mManager->configUsbEnumerateScheme(true));
    EXPECT_EQ(0, mManager->aoaModeSwitchFilter("ABC"));
    EXPECT_EQ(0, mManager->configAoaTimeoutAction(true));
    EXPECT_EQ(0, mManager->configAppleIapNodeName("a"));
    EXPECT_EQ(0, mManager->configAppleEanNodeName("b"));
    EXPECT_EQ(0, mManager->configAppleEanStringName("c"));
    EXPECT_EQ(1, mManager->configKernelAutoRoleSwitch(true));
    EXPECT_EQ(0, mManager->setUsbPortPower(0, false));
    EXPECT_EQ(0, mManager->resetUsbPort(2));
    EXPECT_EQ(-1, mManager->configAoaDescription("/nonexistent/aoa.xml"));
    EXPECT_FALSE(mManager->usbDeviceIsActived(0));
    const std::string power = "/sys/bus/platform/devices/ehci-platform.";
    EXPECT_THAT(mAttributes.take(),
                ElementsAre(parameter("old_scheme_first", "1\n"), parameter("use_both_schemes", "0\n"),
                            parameter("not_run_aoa_serial_number", "ABC"),
                            "/sys/module/aoa/parameters/aoa_write_timeout_reset_ctrl=1\n",
                            "/sys/module/g_android/parameters/iap_name=mfi_iap_a",
                            "/sys/module/g_android/parameters/ean_name=mfi_ean_b",
                            "/sys/module/g_android/parameters/ean_string_name=c",
                            "/sys/module/vx_usb_host/parameters/kernel_auto_role_switch=1\n",
                            power + "1/usb_power_set=0\n", power + "3/usb_power_set=0\n",
                            power + "3/usb_power_set=1\n"));
}

TEST_F(UsbManagerImplDeathTest, TheCompanionsNeedAManager) {
    EXPECT_DEATH(new usb::UsbManagerDetectorNotifier(nullptr),
                 "assertion \"manager.get\\(\\)\" failed: file \"UsbManagerImpl\"");
    EXPECT_DEATH(new usb::UsbManagerTestNotifier(nullptr), "assertion \"manager.get\\(\\)\" failed");
    EXPECT_DEATH(new usb::UsbManagerClassPerInterfaceHandler(nullptr),
                 "assertion \"manager.get\\(\\)\" failed");
    EXPECT_DEATH(new usb::UsbUeventObserverNotifier(nullptr), "assertion \"manager.get\\(\\)\" failed");
}

TEST_F(UsbManagerImplDeathTest, TheHandlerNeedsContextAndDevice) {
    int anything = 0;
    const sp<usb::UsbManagerClassPerInterfaceHandler> handler =
        new usb::UsbManagerClassPerInterfaceHandler(mManager);
    EXPECT_DEATH(handler->onAttach(nullptr, &anything), "assertion \"ctx\" failed");
    EXPECT_DEATH(handler->onAttach(&anything, nullptr), "assertion \"dev\" failed");
    EXPECT_DEATH(handler->onDetach(nullptr, &anything), "assertion \"ctx\" failed");
    EXPECT_DEATH(handler->onDetach(&anything, nullptr), "assertion \"dev\" failed");
}
