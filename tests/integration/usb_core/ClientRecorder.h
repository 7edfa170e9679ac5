// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Who hears what the USB manager's core tells, and remembers it.
 */

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/common/ThreadProbe.h"
#include "usb/UsbHostNotifierItf.h"
#include "usb/UsbManagerNotifierItf.h"

/** What was heard, in order; waits for more. All operations: any thread. */
template <typename Item>
class Heard {
  public:
    void add(const Item& item) {
        const std::lock_guard<std::mutex> hold(mLock);
        mItems.push_back(item);
        mChanged.notify_all();
    }

    std::vector<Item> all() const {
        const std::lock_guard<std::mutex> hold(mLock);
        return mItems;
    }

    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> hold(mLock);
        return mChanged.wait_for(hold, kTestLimit, [this, count] { return mItems.size() >= count; });
    }

  private:
    mutable std::mutex mLock;  // guards mItems
    std::condition_variable mChanged;
    std::vector<Item> mItems;
};

class EventRecorder : public usb::UsbManagerNotifierItf {
  public:
    int32_t onEvent(int32_t event, int32_t value) override {
        if (inside) {
            inside();
        }
        heard.add({event, value});
        return 5;
    }

    Heard<std::pair<int32_t, int32_t>> heard;
    /** Runs on the notifying thread, before the event is noted. Before start only. */
    std::function<void()> inside;
};

class HostRecorder : public usb::UsbHostNotifierItf {
  public:
    int32_t onUsbDeviceAttached(const android::sp<usb::UsbDeviceItf>& device) override {
        if (inside) {
            inside();
        }
        attached.add(device);
        return 5;
    }

    int32_t onUsbDeviceDetached(const android::sp<usb::UsbDeviceItf>& device) override {
        if (inside) {
            inside();
        }
        detached.add(device);
        return 5;
    }

    int32_t onEvent(int32_t event, int32_t value) override {
        events.add({event, value});
        return 5;
    }

    Heard<android::sp<usb::UsbDeviceItf>> attached;
    Heard<android::sp<usb::UsbDeviceItf>> detached;
    Heard<std::pair<int32_t, int32_t>> events;
    /** Runs on the notifying thread, before the device is noted. Before start only. */
    std::function<void()> inside;
};
