// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Lives of a daemon, and what surrounds a client: the services are the daemon's own, the cores are the
 * test's.
 */

#include <utils/Mutex.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "client/Environment.h"
#include "device/BnDeviceManager.h"
#include "tests/unit/support/LoopbackBinder.h"
#include "tests/unit/usb_service/UsbServiceFixture.h"
#include "volume/BnVolumeManager.h"

/** A device at @p path with one property that the test gives. */
android::sp<device::DeviceItf> makeDevice(const std::string& path, const std::string& number = "0");

/** A volume of @p name that is mounted. */
android::sp<volume::VolumeItf> makeVolume(const std::string& name, const std::string& uuid = "1");

/**
 * The records of a manager, as its core keeps them: the list changes first, then the notifier is told. Any
 * thread.
 */
template <typename Itf>
class FakeList {
  public:
    using Record = android::sp<Itf>;

    /** Runs on the asking thread before each question about the list is answered. Set before the first. */
    std::function<void()> mOnQuestion;

    void insert(const Record& record) {
        const std::lock_guard<std::mutex> hold(mLock);
        mRecords.push_back(record);
    }
    void erase(const Record& record) {
        const std::lock_guard<std::mutex> hold(mLock);
        mRecords.erase(std::remove(mRecords.begin(), mRecords.end(), record), mRecords.end());
    }
    /** Forgets all without a word. */
    void clear() {
        const std::lock_guard<std::mutex> hold(mLock);
        mRecords.clear();
    }
    /** What is listed, for a question. */
    std::vector<Record> asked() {
        if (mOnQuestion) {
            mOnQuestion();
        }
        const std::lock_guard<std::mutex> hold(mLock);
        return mRecords;
    }

  private:
    std::mutex mLock;
    std::vector<Record> mRecords;
};

class FakeDevices : public device::DeviceManagerImplItf {
  public:
    int startup() override { return 0; }
    int shutdown() override { return 0; }
    int setNotifier(const android::sp<device::DeviceManagerNotifierItf>& notifier) override {
        mNotifier = notifier;
        return 0;
    }
    android::sp<device::DeviceItf> getDevice(const android::String8& subsystem,
                                             const android::String8& devName) override;
    android::Vector<android::sp<device::DeviceItf>> getDevices(const android::String8& path) override;
    android::String8 getDevicePath(int type, int id) override;
    int dump(const android::Vector<android::String16>& args, android::String8& result) override;

    void add(const android::sp<device::DeviceItf>& device) {
        mList.insert(device);
        mNotifier->onDeviceAdded(device);
    }
    void remove(const android::sp<device::DeviceItf>& device) {
        mList.erase(device);
        mNotifier->onDeviceRemoved(device);
    }

    FakeList<device::DeviceItf> mList;
    android::sp<device::DeviceManagerNotifierItf> mNotifier;
};

class FakeVolumes : public volume::VolumeManagerImplItf {
  public:
    int startup() override { return 0; }
    int shutdown() override { return 0; }
    int setNotifier(const android::sp<volume::VolumeManagerNotifierItf>& notifier) override {
        mNotifier = notifier;
        return 0;
    }
    int getVolumeCount() override { return static_cast<int>(mList.asked().size()); }
    android::sp<volume::VolumeItf> queryVolume(int index) override;
    int dump(const android::Vector<android::String16>& args, android::String8& result) override;

    void add(const android::sp<volume::VolumeItf>& volume) {
        mList.insert(volume);
        mNotifier->onVolumeAdded(volume);
    }
    void remove(const android::sp<volume::VolumeItf>& volume) {
        mList.erase(volume);
        mNotifier->onVolumeRemoved(volume);
    }

    FakeList<volume::VolumeItf> mList;
    android::sp<volume::VolumeManagerNotifierItf> mNotifier;
};

class FakeUsb : public FakeUsbCore {
  public:
    int getUsbDeviceCount() override { return static_cast<int>(mList.asked().size()); }
    android::sp<usb::UsbDeviceItf> queryUsbDevice(int index) override;

    void attach(const android::sp<usb::UsbDeviceItf>& device) {
        mList.insert(device);
        mHostNotifier->onUsbDeviceAttached(device);
    }
    void detach(const android::sp<usb::UsbDeviceItf>& device) {
        mList.erase(device);
        mHostNotifier->onUsbDeviceDetached(device);
    }

    FakeList<usb::UsbDeviceItf> mList;
};

/** One service, as the process of the test reaches it. */
struct FakeService {
    android::sp<LoopbackBinder> remote;
    /** How often a transaction code was sent. */
    std::function<int(uint32_t code)> calls;
};

/** One life of the daemon: the services' own objects, so that a broken registration ends the test. */
class FakeDaemon {
  public:
    FakeDaemon();

    /** All services end, one after the other, and their deaths are told. */
    void die() const;

    android::sp<FakeDevices> mDevices = new FakeDevices();
    android::sp<FakeVolumes> mVolumes = new FakeVolumes();
    android::sp<FakeUsb> mUsb = new FakeUsb();
    FakeService mDeviceService;
    FakeService mVolumeService;
    FakeService mUsbService;
};

/** The service manager and the kernel, as a client sees them. Any thread. */
class FakeSurroundings {
  public:
    /** Registers the three services of @p daemon in place of what was there. */
    void publish(const FakeDaemon& daemon);
    void publish(const std::string& name, const android::sp<android::IBinder>& service);
    void withdrawAll();

    /** The kernel's devices. */
    void setDevicePaths(const std::vector<std::string>& paths);

    /** How often a service was looked for. */
    int lookUps() const { return mLookUps; }
    int threadStarts() const { return mThreadStarts; }

    /** For a client; the surroundings must outlive it. */
    client::Environment environment();

  private:
    std::mutex mLock;
    std::map<std::string, android::sp<android::IBinder>> mServices;
    std::vector<std::string> mPaths;
    std::atomic<int> mLookUps{0};
    std::atomic<int> mThreadStarts{0};
};
