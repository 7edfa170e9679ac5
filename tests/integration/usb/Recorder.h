// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Who hears what the detector reports, and remembers it.
 */

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/common/ThreadProbe.h"
#include "usb/UsbDetectorHandlerItf.h"
#include "usb/UsbDetectorNotifierItf.h"

/** All operations: any thread. */
class NotifierRecorder : public usb::UsbDetectorNotifierItf {
  public:
    using Hook = std::function<void(const android::sp<usb::UsbDeviceItf>&)>;

    int onAttach(const android::sp<usb::UsbDeviceItf>& device) override {
        const Hook hook = note(mAttached, device, mAttachHook);
        if (hook) {
            hook(device);
        }
        return result;
    }

    int onDetach(const android::sp<usb::UsbDeviceItf>& device) override {
        const Hook hook = note(mDetached, device, mDetachHook);
        if (hook) {
            hook(device);
        }
        return result;
    }

    int onNotify(int event, int arg) override {
        const std::lock_guard<std::mutex> hold(mLock);
        mEvents.emplace_back(event, arg);
        mChanged.notify_all();
        return result;
    }

    /** What the operations return; before start only. */
    int result = 0;

    void setAttachHook(const Hook& hook) {
        const std::lock_guard<std::mutex> hold(mLock);
        mAttachHook = hook;
    }
    void setDetachHook(const Hook& hook) {
        const std::lock_guard<std::mutex> hold(mLock);
        mDetachHook = hook;
    }

    std::vector<android::sp<usb::UsbDeviceItf>> attached() const { return copy(mAttached); }
    std::vector<android::sp<usb::UsbDeviceItf>> detached() const { return copy(mDetached); }
    std::vector<std::pair<int, int>> events() const { return copy(mEvents); }

    bool waitForAttached(size_t count) { return waitFor(mAttached, count); }
    bool waitForDetached(size_t count) { return waitFor(mDetached, count); }
    bool waitForEvents(size_t count) { return waitFor(mEvents, count); }

    /** Waits for the device of these numbers; null when it does not come. */
    android::sp<usb::UsbDeviceItf> waitForProduct(uint32_t product) {
        std::unique_lock<std::mutex> hold(mLock);
        android::sp<usb::UsbDeviceItf> found;
        mChanged.wait_for(hold, kTestLimit, [this, product, &found] {
            for (const auto& device : mAttached) {
                if (device->getProductId() == product) {
                    found = device;
                }
            }
            return found != nullptr;
        });
        return found;
    }

  private:
    template <typename LIST, typename ITEM>
    Hook note(LIST& list, const ITEM& item, const Hook& hook) {
        const std::lock_guard<std::mutex> hold(mLock);
        list.push_back(item);
        mChanged.notify_all();
        return hook;
    }

    template <typename LIST>
    LIST copy(const LIST& list) const {
        const std::lock_guard<std::mutex> hold(mLock);
        return list;
    }

    template <typename LIST>
    bool waitFor(const LIST& list, size_t count) {
        std::unique_lock<std::mutex> hold(mLock);
        return mChanged.wait_for(hold, kTestLimit, [&list, count] { return list.size() >= count; });
    }

    mutable std::mutex mLock;  // guards what follows
    std::condition_variable mChanged;
    std::vector<android::sp<usb::UsbDeviceItf>> mAttached;
    std::vector<android::sp<usb::UsbDeviceItf>> mDetached;
    std::vector<std::pair<int, int>> mEvents;
    Hook mAttachHook;
    Hook mDetachHook;
};

/** All operations: any thread. */
class HandlerRecorder : public usb::UsbDetectorHandlerItf {
  public:
    struct Call {
        bool attach;
        void* context;
        void* device;
        std::string thread;
        std::chrono::steady_clock::time_point time;
    };
    using Hook = std::function<void(const Call&)>;

    int onAttach(void* context, void* device) override { return note(true, context, device); }
    int onDetach(void* context, void* device) override { return note(false, context, device); }

    /** What the operations return, and what they do; before start only. */
    int result = 0;
    Hook hook;

    std::vector<Call> calls() const {
        const std::lock_guard<std::mutex> hold(mLock);
        return mCalls;
    }

    bool waitForCalls(size_t count) {
        std::unique_lock<std::mutex> hold(mLock);
        return mChanged.wait_for(hold, kTestLimit, [this, count] { return mCalls.size() >= count; });
    }

  private:
    int note(bool attach, void* context, void* device) {
        const Call call = {attach, context, device, currentThreadName(), std::chrono::steady_clock::now()};
        {
            const std::lock_guard<std::mutex> hold(mLock);
            mCalls.push_back(call);
            mChanged.notify_all();
        }
        if (hook) {
            hook(call);
        }
        return result;
    }

    mutable std::mutex mLock;  // guards mCalls
    std::condition_variable mChanged;
    std::vector<Call> mCalls;
};
