// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/usb/UsbFaults.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "tests/integration/usb/UsbHandles.h"

UsbFaults& UsbFaults::instance() {
    static auto* const sInstance = new UsbFaults();
    return *sInstance;
}

void UsbFaults::setAfterList(const std::function<void()>& action) {
    const std::lock_guard<std::mutex> hold(mLock);
    mAfterList = action;
}

std::function<void()> UsbFaults::afterList() const {
    const std::lock_guard<std::mutex> hold(mLock);
    return mAfterList;
}

std::vector<std::string> UsbFaults::steps() const {
    const std::lock_guard<std::mutex> hold(mLock);
    return mSteps;
}

void UsbFaults::noteStep(const std::string& step) {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    // The test bed has a context of its own.
    if (strcmp(name, "UsbDetector") != 0) {
        return;
    }
    const std::lock_guard<std::mutex> hold(mLock);
    if (mSteps.empty() || mSteps.back() != step) {
        mSteps.push_back(step);
    }
}

void UsbFaults::noteRegistered(libusb_hotplug_callback_handle handle) {
    const std::lock_guard<std::mutex> hold(mLock);
    mRegistered.push_back(handle);
}

int UsbFaults::numberOf(libusb_hotplug_callback_handle handle) const {
    const std::lock_guard<std::mutex> hold(mLock);
    const auto found = std::find(mRegistered.begin(), mRegistered.end(), handle);
    return found != mRegistered.end() ? static_cast<int>(found - mRegistered.begin()) + 1 : 0;
}

namespace {

/** The numbers after @p name, with a blank before each. */
std::string stepOf(std::string name, std::initializer_list<long> numbers) {
    for (const long number : numbers) {
        name += " " + std::to_string(number);
    }
    return name;
}

UsbFaults& faults() {
    return UsbFaults::instance();
}

/** The test bed makes lists too. */
bool isScanningThread() {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return strcmp(name, "UsbDetectorQueu") == 0;
}

/** Counts down on the scanning thread; true when it comes to 0. */
bool isTurnOf(std::atomic<int>& countdown) {
    return countdown > 0 && isScanningThread() && --countdown == 0;
}

}  // namespace

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_libusb_init(libusb_context** context);
int __real_libusb_set_option(libusb_context* context, int option, ...);
void __real_libusb_hotplug_deregister_callback(libusb_context* context,
                                               libusb_hotplug_callback_handle handle);
void __real_libusb_exit(libusb_context* context);
int __real_libusb_has_capability(uint32_t capability);
int __real_libusb_hotplug_register_callback(libusb_context* context, int events, int flags, int vendor,
                                            int product, int deviceClass, libusb_hotplug_callback_fn function,
                                            void* data, libusb_hotplug_callback_handle* handle);
int __real_libusb_handle_events_timeout(libusb_context* context, timeval* wait);
ssize_t __real_libusb_get_device_list(libusb_context* context, libusb_device*** list);
int __real_libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor);
int __real_libusb_get_active_config_descriptor(libusb_device* device, libusb_config_descriptor** config);
libusb_device* __real_libusb_ref_device(libusb_device* device);
void __real_libusb_unref_device(libusb_device* device);
// android::SortedVectorImpl::add(const void*) and remove(const void*)
ssize_t __real__ZN7android16SortedVectorImpl3addEPKv(void* self, const void* item);
ssize_t __real__ZN7android16SortedVectorImpl6removeEPKv(void* self, const void* item);

ssize_t __wrap__ZN7android16SortedVectorImpl3addEPKv(void* self, const void* item) {
    return isTurnOf(faults().failingAdd) ? -ENOMEM : __real__ZN7android16SortedVectorImpl3addEPKv(self, item);
}

ssize_t __wrap__ZN7android16SortedVectorImpl6removeEPKv(void* self, const void* item) {
    return isTurnOf(faults().failingRemove) ? -ENOMEM
                                            : __real__ZN7android16SortedVectorImpl6removeEPKv(self, item);
}

int __wrap_libusb_init(libusb_context** context) {
    const int fault = faults().initResult;
    if (fault != 0) {
        return fault;
    }
    ++faults().contexts;
    faults().noteStep("init");
    return __real_libusb_init(context);
}

// The option as what it is promoted to, of which va_start may take the last.
int __wrap_libusb_set_option(libusb_context* context, int option, ...) {
    va_list arguments;
    va_start(arguments, option);
    const int level = va_arg(arguments, int);
    va_end(arguments);
    faults().noteStep(option == LIBUSB_OPTION_LOG_LEVEL ? stepOf("log", {level}) : "option");
    return __real_libusb_set_option(context, option, level);
}

void __wrap_libusb_exit(libusb_context* context) {
    faults().referencesAtExit = faults().references.load();
    faults().handlesAtExit = UsbHandles::instance().held.load();
    --faults().contexts;
    faults().noteStep("exit");
    __real_libusb_exit(context);
}

int __wrap_libusb_has_capability(uint32_t capability) {
    return faults().noHotplug ? 0 : __real_libusb_has_capability(capability);
}

int __wrap_libusb_hotplug_register_callback(libusb_context* context, int events, int flags, int vendor,
                                            int product, int deviceClass, libusb_hotplug_callback_fn function,
                                            void* data, libusb_hotplug_callback_handle* handle) {
    const bool second = events == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
    const int fault = second ? faults().secondRegisterResult : faults().registerResult;
    if (fault != 0) {
        return fault;
    }
    faults().noteStep(stepOf("register", {events, flags, vendor, product, deviceClass}));
    const int result = __real_libusb_hotplug_register_callback(context, events, flags, vendor, product,
                                                               deviceClass, function, data, handle);
    faults().noteRegistered(*handle);
    return result;
}

void __wrap_libusb_hotplug_deregister_callback(libusb_context* context,
                                               libusb_hotplug_callback_handle handle) {
    faults().noteStep(stepOf("deregister", {faults().numberOf(handle)}));
    __real_libusb_hotplug_deregister_callback(context, handle);
}

int __wrap_libusb_handle_events_timeout(libusb_context* context, timeval* wait) {
    const bool blocking = wait->tv_sec > 0;  // the bed's own waits are short
    const int fault = blocking ? faults().handleEventsResult.exchange(0) : 0;
    faults().noteStep(stepOf("wait", {static_cast<long>(wait->tv_sec), static_cast<long>(wait->tv_usec)}));
    return fault != 0 ? fault : __real_libusb_handle_events_timeout(context, wait);
}

ssize_t __wrap_libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    if (!isScanningThread()) {
        return __real_libusb_get_device_list(context, list);
    }
    ++faults().lists;
    const int fault = faults().deviceListResult;
    if (fault != 0) {
        return fault;
    }
    const ssize_t result = __real_libusb_get_device_list(context, list);
    const std::function<void()> action = faults().afterList();
    if (action != nullptr) {
        action();
    }
    return result;
}

int __wrap_libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor) {
    const int fault = faults().deviceDescriptorResult;
    return fault != 0 ? fault : __real_libusb_get_device_descriptor(device, descriptor);
}

int __wrap_libusb_get_active_config_descriptor(libusb_device* device, libusb_config_descriptor** config) {
    const int fault = faults().activeConfigResult;
    return fault != 0 ? fault : __real_libusb_get_active_config_descriptor(device, config);
}

libusb_device* __wrap_libusb_ref_device(libusb_device* device) {
    ++faults().references;
    return __real_libusb_ref_device(device);
}

void __wrap_libusb_unref_device(libusb_device* device) {
    --faults().references;
    __real_libusb_unref_device(device);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
