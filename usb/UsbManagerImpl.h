// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Mutex.h>

#include "common/MessageQueue.h"
#include "common/UeventObserver.h"
#include "usb/AppleFunction.h"
#include "usb/UsbConfiguration.h"
#include "usb/UsbDetector.h"
#include "usb/UsbManagerImplItf.h"
#include "usb/UsbTest.h"

namespace usb {

/**
 * The USB manager's core: owns the detector and the certification test mode, reports what they find to its
 * two notifiers, and configures the kernel's USB side for clients.
 *
 * The host notifier is called on the detector's queue thread; the manager notifier there, and in the
 * certification modes on the detector's event thread and on "UsbTestQueue" as well. No lock of the core is
 * held then: a notification may call any operation, with one exception: in the certification modes a
 * notification of the manager notifier must not start or stop the manager, whose stop waits for it.
 *
 * Uevents are heard from the first reference on, started or not. Drop the last one only when the uevent
 * thread rests.
 */
class UsbManagerImpl : public UsbManagerImplItf {
  public:
    /** Reads the certification mode; starts nothing. @p observer must not be null. */
    explicit UsbManagerImpl(const android::sp<UeventObserver>& observer);

    int startup() override;

    /**
     * @copydoc UsbManagerImplItf::shutdown
     *
     * Takes about a second. Waits for the detector's and the test mode's threads, for those that call clients
     * within the bound of MessageQueue::stop(); it may be called from inside a notification of the host
     * notifier.
     */
    int shutdown() override;

    int setNotifier(const android::sp<UsbManagerNotifierItf>& notifier) override;
    int setHostNotifier(const android::sp<UsbHostNotifierItf>& notifier) override;
    bool checkAoaModeSupport(uint32_t deviceId) override;
    int configAoaDescription(const char* file) override;
    int aoaModeSwitchFilter(const char* serial) override;
    int configAoaTimeoutAction(bool reset) override;
    int configUsbEnumerateScheme(bool oldFirst) override;
    int configDefaultMode(int mask, bool on) override;
    int switchUsbState(int function) override;
    int configAppleIapNodeName(const char* name) override;
    int configAppleEanNodeName(const char* name) override;
    int configKernelAutoRoleSwitch(bool on) override;
    int appleDeviceRoleSwitch(int deviceId) override;
    bool isAppleCarplaySupport(uint32_t deviceId) override;
    int configAppleEanStringName(const char* name) override;
    int setUsbPortPower(int port, bool on) override;
    int resetUsbPort(int port) override;
    int getUsbDeviceCount() override;
    android::sp<UsbDeviceItf> queryUsbDevice(int index) override;
    bool usbDeviceIsActived(int port) override;
    int postTestMessage(int what) override;
    int switchPortChargingMode(int port, int mode) override;
    int getPortChargingMode(int port) override;
    int setMaxHubTier(int tier) override;
    int addUnsupportedClass(int interfaceClass) override;
    int removeUnsupportedClass(int interfaceClass) override;
    int setCertificationMode(int mode) override;
    int getCertificationMode() override;
    int dump(const android::Vector<android::String16>& args, android::String8& result) override;
    int applyDefaultMode(int mask) override;

    /** The companions' way to the notifiers; null when there is none. Any thread. */
    const android::sp<UsbManagerNotifierItf>& notifier() const { return mNotifier; }
    const android::sp<UsbHostNotifierItf>& hostNotifier() const { return mHostNotifier; }

    /** The default modes that are written anew as a device comes. */
    int attachModeMask() const { return mAttachModeMask; }

    /** Takes one uevent of any subsystem. Uevent thread. */
    void handleUevent(const Uevent& event);

  protected:
    /** Logged as its number. */
    enum State : int32_t {
        kShutDown = 0,
        kStarted = 1,
    };

    ~UsbManagerImpl() override;

    /** Where the object is whole and held: only now may another thread reach it. */
    void onFirstRef() override;

    int32_t state() const;
    void setState(int32_t state);

  private:
    void start();
    void stop();

    /** Both written once before clients can register, read without a lock. */
    android::sp<UsbHostNotifierItf> mHostNotifier;
    android::sp<UsbManagerNotifierItf> mNotifier;
    /**
     * Serialises startup() and shutdown(). Taken before mLock and, unlike it, held while threads are started
     * and joined: they need mLock to come to their end.
     */
    android::Mutex mTransitionLock;
    /**
     * Guards mApple and mState. Held while an Apple function is set up and while roles are switched, shell
     * commands and transfers included: their steps belong together. Taken inside the uevent observer's lock,
     * by "apple" uevents alone, and before the configuration's.
     */
    mutable android::Mutex mLock;
    android::sp<MessageQueue> mMessageQueue;
    android::sp<UsbDetector> mDetector;
    android::sp<UsbTest> mUsbTest;
    android::sp<UeventObserver> mUeventObserver;
    android::sp<UeventObserverNotifier> mUeventNotifier;
    UsbConfiguration mConfiguration;
    AppleFunction mApple GUARDED_BY(mLock);
    const int mAttachModeMask = UsbConfiguration::kAndroidDefaultMode;
    int32_t mState GUARDED_BY(mLock) = kShutDown;
};

}  // namespace usb
