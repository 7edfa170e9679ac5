// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>
#include <pthread.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/SortedVector.h>
#include <utils/Timers.h>
#include <utils/Vector.h>

#include <atomic>

#include "common/MessageQueue.h"
#include "usb/UsbContext.h"
#include "usb/UsbDetectorHandlerItf.h"
#include "usb/UsbDetectorNotifierItf.h"
#include "usb/UsbDevice.h"
#include "usb/UsbVendorRequest.h"

namespace usb {

/**
 * The detector's state and its two threads.
 *
 * - Event thread: initialises libusb, waits for hot-plug events, handles them, and ends libusb again.
 * - Queue thread ("UsbDetectorQueue"): scans and calls the notifier. It alone adds to the lists and takes
 * single devices from them, so that a scan as a whole needs no lock: the lists' own is short, and no client
 * that a notification reaches can hold up a query.
 *
 * References to devices of libusb: a kept hot-plug event has one, and each entry of mDeviceList. Both kinds
 * are given back before the context ends; who needs a device between holds a UsbContext::Use.
 */
class UsbDetectorImpl : public virtual android::RefBase {
  public:
    UsbDetectorImpl(nsecs_t debounce, nsecs_t stopLimit);

    /** Makes the queue, which refers back: to be called once, when someone holds this object. */
    void makeQueue();
    /** Ends the threads and drops queue, handlers and notifier. Nothing may be called afterwards. */
    void dissolve();

    void setHandler(const android::sp<UsbDetectorHandlerItf>& handler);
    void setClassPerInterfaceHandler(const android::sp<UsbDetectorHandlerItf>& handler);
    void setNotifier(const android::sp<UsbDetectorNotifierItf>& notifier);
    /** Any thread; null when none is set. */
    android::sp<UsbDetectorNotifierItf> notifier() const;

    void start();
    void stop();

    size_t count() const;
    /** Null when there is none. */
    android::sp<UsbDevice> deviceAt(size_t index) const;
    /** Null, with an error line, when it is not listed. */
    android::sp<UsbDevice> deviceById(uint32_t deviceId) const;

    /**
     * Makes a transfer to a listed device. Any thread.
     *
     * @return 0, libusb's error code, or -1 when the device is not listed
     */
    int request(uint32_t deviceId, const UsbVendorRequest& request, uint16_t* word);

    /** One scan. Queue thread. */
    void handleDeviceUpdate();

  protected:
    ~UsbDetectorImpl() override = default;

  private:
    using DeviceSet = android::SortedVector<libusb_device*>;

    struct HotplugEvent {
        libusb_device* device;  //!< referenced
        libusb_hotplug_event event;
    };
    struct HotplugSide;
    static const HotplugSide kAttachSide;
    static const HotplugSide kDetachSide;

    static void* eventThread(void* detector);
    static int onHotplug(libusb_context* context, libusb_device* device, libusb_hotplug_event event,
                         void* detector);

    void wakeEventThread();
    bool isEventThread() const REQUIRES(mTransitionLock);
    bool keepEventThread() REQUIRES(mTransitionLock);
    void joinEventThread() REQUIRES(mTransitionLock);
    bool waitForEnd();
    bool beginsAnew();
    void forgetDevices();

    void runEvents();
    /** False when the thread's context is to end, for good or for a new one. */
    bool isCurrent() const { return mStop == 0 && !mStartsAnew; }
    libusb_context* openContext();
    int registerHotplug(libusb_context* context);
    void closeContext(libusb_context* context);
    android::Vector<HotplugEvent> takeEvents();
    void handleEvents(libusb_context* context);
    void handleEvent(libusb_context* context, libusb_device* device, const HotplugSide& side);
    void handleHub(libusb_device* device, const libusb_device_descriptor& descriptor,
                   const HotplugSide& side);
    void schedule(int message, nsecs_t delay);
    void cancel(int message);

    bool findChanges(libusb_context* context, DeviceSet& removed, DeviceSet& added);
    static bool listPresent(libusb_device* const* list, ssize_t listed, DeviceSet& present);
    void compareLists(const DeviceSet& present, DeviceSet& removed, DeviceSet& added);
    bool detach(uint32_t session, libusb_device* device);
    bool attach(uint32_t session, libusb_device* device);
    android::sp<UsbDevice> unlist(libusb_device* device);
    bool forget(libusb_device* device, const android::sp<UsbDevice>& record);
    bool isKept(libusb_device* device) const;
    uint32_t takeId();
    void list(const android::sp<UsbDevice>& record);

    android::sp<UsbDevice> findByIdLocked(uint32_t deviceId) const REQUIRES(mLock);
    android::sp<UsbDevice> findByDeviceLocked(libusb_device* device) const REQUIRES(mLock);

    const nsecs_t mDebounce;
    const nsecs_t mStopLimit;
    UsbContext mContext;
    /** 1 while the event thread is to end or there is none. */
    std::atomic<int> mStop{1};
    /** The thread was told to end and, before it did, to go on: with a new context. */
    std::atomic<bool> mStartsAnew{false};
    /** Event thread only. */
    libusb_hotplug_callback_handle mAttachHandle = 0;
    libusb_hotplug_callback_handle mDetachHandle = 0;
    /**
     * Serialises start() and stop(), and guards the event thread's handle. Taken before every other lock and
     * held while threads are waited for, within bounds: either may wait for it.
     */
    android::Mutex mTransitionLock;
    /** Of meaning only while mHasThread. */
    pthread_t mThread GUARDED_BY(mTransitionLock) = 0;
    bool mHasThread GUARDED_BY(mTransitionLock) = false;

    /** Guards mEnded, and makes it one with the decision to begin anew. */
    android::Mutex mEndLock;
    /** The event thread has decided to end. */
    bool mEnded GUARDED_BY(mEndLock) = false;
    /** Signalled when mEnded becomes true. */
    android::Condition mEnd;

    /** Guards the lists, the numbers given to devices, and whom to call; nothing is called with it held. */
    mutable android::Mutex mLock;
    /** What the last scan found, each with a reference of its own. */
    DeviceSet mDeviceList GUARDED_BY(mLock);
    /** What was in mDeviceList when a stop did not wait for the event thread, with the references. */
    android::Vector<libusb_device*> mLeftDevices GUARDED_BY(mLock);
    /** What is reported as attached. Each entry's device is in mDeviceList as long as the context lives. */
    android::SortedVector<android::sp<UsbDevice>> mUsbDeviceList GUARDED_BY(mLock);
    uint32_t mNextId GUARDED_BY(mLock) = 1;
    android::sp<UsbDetectorHandlerItf> mHandler GUARDED_BY(mLock);
    android::sp<UsbDetectorHandlerItf> mClassPerInterfaceHandler GUARDED_BY(mLock);
    android::sp<UsbDetectorNotifierItf> mNotifier GUARDED_BY(mLock);

    /** Guards mEvents: libusb reports hot-plug on whatever thread handles its events. */
    android::Mutex mEventLock;
    /** Reported and not yet handled, in order. */
    android::Vector<HotplugEvent> mEvents GUARDED_BY(mEventLock);

    android::sp<MessageQueue> mMessageQueue;
};

}  // namespace usb
