// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Mutex.h>

#include "common/ManagerState.h"
#include "common/MessageQueue.h"
#include "common/UeventObserver.h"
#include "usb/AppleFunction.h"
#include "usb/UsbConfiguration.h"
#include "usb/UsbDetector.h"
#include "usb/UsbManagerImplItf.h"
#include "usb/UsbTest.h"

namespace usb {

class UsbUeventObserverNotifier;

/**
 * The USB manager's core: turns what clients ask into attributes of the kernel, questions to devices and
 * operations of the certification test mode, and passes on what detector, test mode and uevents tell.
 *
 * The host notifier is called on the detector's queue thread ("UsbDetectorQueue"). The manager notifier is
 * called there too, and by the test mode on the detector's event thread or on "UsbTestQueue". Neither is
 * called with a lock of the manager's held: both may call any operation, or wait for a thread that does. One
 * that keeps the event thread while the manager is stopped is waited for within UsbDetector::kStopLimit.
 *
 * Uevents are heard from construction on, whether the manager is started or not, as long as the uevent
 * observer is.
 */
class UsbManagerImpl : public UsbManagerImplItf {
  public:
    /**
     * Prepares everything and starts nothing; writes the default modes of a fresh unit as soon as the object
     * has its first owner. @p observer must not be null.
     */
    explicit UsbManagerImpl(const android::sp<UeventObserver>& observer);

    int startup() override;

    /**
     * @copydoc UsbManagerItf::shutdown
     *
     * Waits for the detector's event thread, about a second, and for the queue threads, within the bounds of
     * UsbDetector::stop() and MessageQueue::stop(). May be called from inside a notification.
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

  protected:
    /** Stops a manager that still runs; on none of its own threads then. */
    ~UsbManagerImpl() override;

    /**
     * The part of the construction that lets other threads in: with the first owner, since a reference that
     * such a thread takes and drops before would end the object.
     */
    void onFirstRef() override;

    int32_t state() const { return mState.get(); }
    void setState(int32_t state) { mState.set(state); }

  private:
    friend class UsbManagerClassPerInterfaceHandler;
    friend class UsbManagerDetectorNotifier;
    friend class UsbManagerTestNotifier;
    friend class UsbUeventObserverNotifier;

    void handleUevent(const Uevent& event);
    void handleAppleUevent(const Uevent& event);

    /** Both written once before clients can register, read without a lock. */
    android::sp<UsbHostNotifierItf> mHostNotifier;
    android::sp<UsbManagerNotifierItf> mNotifier;
    /**
     * Guards mAppleFunction, and with it the unit's role toward Apple devices: held while a function is set
     * up by the shell and while a phone is asked to switch roles, two seconds at most. Taken inside the
     * uevent observer's lock, before the configuration's.
     */
    android::Mutex mLock;
    android::sp<MessageQueue> mMessageQueue;
    android::sp<UsbDetector> mDetector;
    android::sp<UsbTest> mUsbTest;
    const android::sp<UeventObserver> mUeventObserver;
    android::sp<UsbUeventObserverNotifier> mUeventNotifier;
    /** The default modes that are written again whenever a device is attached: the Android one. */
    const int mAttachModeMask = UsbConfiguration::kAndroidDefaultMode;
    UsbConfiguration mConfiguration;
    AppleFunction mAppleFunction GUARDED_BY(mLock);
    ManagerState mState;
};

}  // namespace usb
