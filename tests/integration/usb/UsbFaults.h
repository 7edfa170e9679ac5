// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * libusb's functions as the detector calls them: counted, and made to fail where a real bus would seldom do
 * so.
 *
 * The program that links this wraps the functions (--wrap); what a test does not set goes on to libusb.
 */

#include <libusb-1.0/libusb.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/** Faults and counters of the process. Faults are set before the threads that meet them start. */
struct UsbFaults {
    static UsbFaults& instance();

    /** Results in place of libusb's, once each is not 0. */
    std::atomic<int> initResult{0};
    std::atomic<int> registerResult{0};
    /** As registerResult, for the second call-back only. */
    std::atomic<int> secondRegisterResult{0};
    std::atomic<int> activeConfigResult{0};
    std::atomic<int> deviceListResult{0};
    std::atomic<int> deviceDescriptorResult{0};
    /** Of the next wait for events only. */
    std::atomic<int> handleEventsResult{0};
    std::atomic<bool> noHotplug{false};

    /** Which addition to an ordered set, from 1 on, finds no memory, and which removal; on the scanning
     * thread. */
    std::atomic<int> failingAdd{0};
    std::atomic<int> failingRemove{0};

    /** Called after each list of devices has been made, on the scanning thread. */
    void setAfterList(const std::function<void()>& action);

    std::atomic<int> lists{0};       //!< lists of devices asked for
    std::atomic<int> references{0};  //!< taken less given back, those within lists not counted
    std::atomic<int> contexts{0};    //!< initialised less exited
    /** References and handles at the last end of a context. */
    std::atomic<int> referencesAtExit{0};
    std::atomic<int> handlesAtExit{0};

    std::function<void()> afterList() const;

    /**
     * What the event thread did with its context, in order: "init", "log LEVEL", "register EVENT FLAGS VENDOR
     * PRODUCT CLASS", "wait SECONDS MICROSECONDS" once however often, "deregister NUMBER" with the
     * call-back's number from 1 on, "exit".
     */
    std::vector<std::string> steps() const;
    void noteStep(const std::string& step);
    /** Numbers the call-back of @p handle. */
    void noteRegistered(libusb_hotplug_callback_handle handle);
    int numberOf(libusb_hotplug_callback_handle handle) const;

  private:
    mutable std::mutex mLock;  // guards what follows
    std::function<void()> mAfterList;
    std::vector<std::string> mSteps;
    std::vector<libusb_hotplug_callback_handle> mRegistered;
};
