// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Mutex.h>
#include <utils/Vector.h>

#include "common/ManagerState.h"
#include "common/MessageQueue.h"
#include "device/DeviceManagerImplItf.h"
#include "device/DeviceNode.h"
#include "device/DeviceObserver.h"

namespace device {

/**
 * The device manager's core: lists the devices present in the watched subsystems and tells its notifier of
 * every one that comes or goes.
 *
 * The list changes on the uevent thread; the notifier is called on the queue thread ("DeviceManagerQueue"),
 * in the order of the uevents. A query that races with a notification already sees the new list.
 *
 * Devices present before startup() are not enumerated.
 *
 * The destructor takes locks that the uevent thread holds while it calls in, as it does for moments with a
 * reference of its own: whoever drops the last reference to a started manager makes sure that no uevent is
 * being handled. The daemon never drops it.
 */
class DeviceManagerImpl : public DeviceManagerImplItf {
  public:
    /** Messages on the queue, each posted to a handler that carries its device. */
    enum Message : int {
        kMessageAttached = 1,
        kMessageDetached = 2,
    };

    /** Registers with @p observer for every watched subsystem; starts nothing. @p observer must not be null.
     */
    explicit DeviceManagerImpl(const android::sp<DeviceObserver>& observer);

    int startup() override;

    /**
     * @copydoc DeviceManagerItf::shutdown
     *
     * Waits for the uevent thread, and for the queue thread within the bound of MessageQueue::stop(); it may
     * be called from inside a notification.
     */
    int shutdown() override;

    int setNotifier(const android::sp<DeviceManagerNotifierItf>& notifier) override;
    android::sp<DeviceItf> getDevice(const android::String8& subsystem,
                                     const android::String8& devName) override;
    android::Vector<android::sp<DeviceItf>> getDevices(const android::String8& path) override;
    android::String8 getDevicePath(int type, int id) override;
    int dump(const android::Vector<android::String16>& args, android::String8& result) override;

    /** Lists @p device, also when its path is listed already. Any thread. */
    virtual void addDevice(const android::sp<DeviceItf>& device);

    /** Drops the first listed device that has the path of @p device; none: nothing happens. Any thread. */
    virtual void removeDevice(const android::sp<DeviceItf>& device);

  protected:
    ~DeviceManagerImpl() override;

    int32_t state() const { return mState.get(); }
    void setState(int32_t state) { mState.set(state); }

  private:
    friend class DeviceManagerObserverNotifier;
    friend class DeviceMessageHandler;

    /** Written once before clients can register, read without a lock. */
    android::sp<DeviceManagerNotifierItf> mNotifier;
    /** Guards mDevices. Taken inside the device observer's lock; nothing is called with it held. */
    mutable android::Mutex mLock;
    android::Vector<android::sp<DeviceNode>> mDevices GUARDED_BY(mLock);
    android::sp<DeviceObserver> mObserver;
    android::sp<MessageQueue> mMessageQueue;
    ManagerState mState;
};

}  // namespace device
