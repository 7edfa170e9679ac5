// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Notifiers that remember what the USB manager's core tells them, and that a test can wait for.
 */

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tests/unit/common/ThreadProbe.h"
#include "usb/UsbHostNotifierItf.h"
#include "usb/UsbManagerNotifierItf.h"

/** Any thread. */
class Remembered {
  public:
    void note(const std::string& call) {
        const std::lock_guard<std::mutex> hold(mLock);
        mCalls.push_back(call);
        mChanged.notify_all();
    }

    std::vector<std::string> calls() const {
        const std::lock_guard<std::mutex> hold(mLock);
        return mCalls;
    }

    /** @return false when @p call has not come @p times times within the limit of a test */
    bool waitFor(const std::string& call, ptrdiff_t times = 1) const {
        std::unique_lock<std::mutex> hold(mLock);
        return mChanged.wait_for(hold, 3 * kTestLimit, [this, &call, times] {
            return std::count(mCalls.begin(), mCalls.end(), call) >= times;
        });
    }

  private:
    mutable std::mutex mLock;  // guards mCalls
    mutable std::condition_variable mChanged;
    std::vector<std::string> mCalls;
};

/** Remembers "event CODE VALUE". */
class EventMemory : public usb::UsbManagerNotifierItf, public Remembered {
  public:
    int32_t onEvent(int32_t event, int32_t value) override {
        note("event " + std::to_string(event) + " " + std::to_string(value));
        return 0;
    }
};

/** Remembers "attached PRODUCT", "detached PRODUCT" and "event CODE VALUE". */
class HostMemory : public usb::UsbHostNotifierItf, public Remembered {
  public:
    using Hook = std::function<void(const android::sp<usb::UsbDeviceItf>& device)>;

    int32_t onUsbDeviceAttached(const android::sp<usb::UsbDeviceItf>& device) override {
        if (attachHook) {
            attachHook(device);
        }
        note("attached " + std::to_string(device->getProductId()));
        return 0;
    }
    int32_t onUsbDeviceDetached(const android::sp<usb::UsbDeviceItf>& device) override {
        note("detached " + std::to_string(device->getProductId()));
        return 0;
    }
    int32_t onEvent(int32_t event, int32_t value) override {
        note("event " + std::to_string(event) + " " + std::to_string(value));
        return 0;
    }

    /** Runs inside an attach, before it is remembered; set before the start. */
    Hook attachHook;
};
