// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbDetector"

#include "usb/UsbDetectorImpl.h"

#include <log/log.h>

#include <utility>

#include "common/Assert.h"
#include "common/QueueStart.h"
#include "usb/UsbDetectorMessageHandler.h"
#include "usb/UsbDeviceBuilder.h"
#include "usb/UsbDevicePublisher.h"
#include "usb/UsbTopology.h"

namespace usb {

using android::Mutex;
using android::sp;
using android::Vector;

using Handler = UsbDetectorMessageHandler;

namespace {

constexpr int kQueueTimeoutMillis = 100;

constexpr uint16_t kVendorApple = 0x05AC;
/** The high byte of the products that are phones. */
constexpr uint8_t kProductsPhone = 0x12;

constexpr int kRootHubDepth = 1;

/** How the error lines of a notifier's result name the scan. */
constexpr const char* kUpdateName = "handleDeviceUpdate";
constexpr int kDetachLine = 696;
constexpr int kAttachLine = 728;

/** A pointer as the log shows it. */
unsigned shown(const void* pointer) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

void logCheckFailed(const char* function, int line) {
    ALOGE("%s %d:check return value failed", function, line);
}

bool isPhoneOfApple(const libusb_device_descriptor& descriptor) {
    return descriptor.idVendor == kVendorApple && descriptor.idProduct >> 8 == kProductsPhone;
}

}  // namespace

/** What differs between the handling of an arrival and of a departure. */
struct UsbDetectorImpl::HotplugSide {
    int (UsbDetectorHandlerItf::*call)(void* context, void* device);
    const char* name;
    int handlerLine;
    int classHandlerLine;
    /** The deepest hub that leads to a scan. */
    int deepestHub;
    /** Only an arrival reports a hub beyond that, and only for one phones of Apple lead to a scan at once. */
    bool arrives;
};

const UsbDetectorImpl::HotplugSide UsbDetectorImpl::kAttachSide = {
    &UsbDetectorHandlerItf::onAttach, "hotplug_callback_attach", 373, 402, 6, true};
const UsbDetectorImpl::HotplugSide UsbDetectorImpl::kDetachSide = {
    &UsbDetectorHandlerItf::onDetach, "hotplug_callback_detach", 430, 459, 5, false};

UsbDetectorImpl::UsbDetectorImpl(nsecs_t debounce, nsecs_t stopLimit)
    : mDebounce(debounce), mStopLimit(stopLimit) {}

void UsbDetectorImpl::makeQueue() {
    mMessageQueue = new MessageQueue(new Handler(this), kQueueTimeoutMillis, "UsbDetectorQueue");
    SERVICE_ASSERT(mMessageQueue != nullptr, "detector->mMessageQueue.get()", LOG_TAG);
}

void UsbDetectorImpl::dissolve() {
    stop();
    Mutex::Autolock transition(mTransitionLock);
    if (mHasThread) {
        // The event thread itself lets go of the detector, or a handler holds it: it ends on its own.
        pthread_detach(mThread);
        mHasThread = false;
    }
    mMessageQueue.clear();
    setHandler(nullptr);
    setClassPerInterfaceHandler(nullptr);
    setNotifier(nullptr);
}

// The former pointer goes when the argument does, outside the lock: its destructor may be long.
void UsbDetectorImpl::setHandler(const sp<UsbDetectorHandlerItf>& handler) {
    sp<UsbDetectorHandlerItf> former = handler;
    Mutex::Autolock lock(mLock);
    std::swap(mHandler, former);
}

void UsbDetectorImpl::setClassPerInterfaceHandler(const sp<UsbDetectorHandlerItf>& handler) {
    sp<UsbDetectorHandlerItf> former = handler;
    Mutex::Autolock lock(mLock);
    std::swap(mClassPerInterfaceHandler, former);
}

void UsbDetectorImpl::setNotifier(const sp<UsbDetectorNotifierItf>& notifier) {
    sp<UsbDetectorNotifierItf> former = notifier;
    Mutex::Autolock lock(mLock);
    std::swap(mNotifier, former);
}

sp<UsbDetectorNotifierItf> UsbDetectorImpl::notifier() const {
    Mutex::Autolock lock(mLock);
    return mNotifier;
}

void UsbDetectorImpl::start() {
    Mutex::Autolock transition(mTransitionLock);
    if (mStop == 0) {
        return;
    }
    // The event thread posts to the queue: on a slow machine it must not be faster than that.
    startQueue(mMessageQueue);
    if (keepEventThread()) {
        return;
    }
    joinEventThread();
    mStop = 0;
    mStartsAnew = false;
    {
        Mutex::Autolock lock(mEndLock);
        mEnded = false;
    }
    // The thread's own reference.
    incStrong(this);
    const int ret = pthread_create(&mThread, nullptr, eventThread, this);
    SERVICE_ASSERT(ret == 0, "!ret", LOG_TAG);
    mHasThread = true;
}

void UsbDetectorImpl::stop() {
    Mutex::Autolock transition(mTransitionLock);
    mStop = 1;
    wakeEventThread();
    joinEventThread();
    mMessageQueue->stop();
    forgetDevices();
}

void UsbDetectorImpl::forgetDevices() {
    // Records may be the last of their kind; they go after the lock.
    android::SortedVector<sp<UsbDevice>> records;
    Mutex::Autolock lock(mLock);
    // None are left but when the event thread could not be waited for: it gives them back with its context.
    for (libusb_device* device : mDeviceList) {
        mLeftDevices.add(device);
    }
    mDeviceList.clear();
    std::swap(records, mUsbDeviceList);
}

bool UsbDetectorImpl::isEventThread() const {
    return mHasThread && pthread_equal(mThread, pthread_self()) != 0;
}

/** Has a thread that was told to end and is held by its handler begin anew; false when there is none. */
bool UsbDetectorImpl::keepEventThread() {
    if (!mHasThread) {
        return false;
    }
    Mutex::Autolock lock(mEndLock);
    if (mEnded) {
        return false;
    }
    mStartsAnew = true;
    mStop = 0;
    return true;
}

/** Ends the wait for events; a thread that is before its first wait sees mStop. */
void UsbDetectorImpl::wakeEventThread() {
    const UsbContext::Use use(mContext);
    if (use) {
        libusb_interrupt_event_handler(use.get());
    }
}

void UsbDetectorImpl::joinEventThread() {
    if (!mHasThread) {
        return;
    }
    if (!isEventThread() && !waitForEnd()) {
        ALOGW("the event thread is held by a handler, it stops when that returns");
        return;
    }
    // A handler that stops the detector runs on the thread itself, which whoever comes next joins.
    if (isEventThread() || pthread_join(mThread, nullptr) != 0) {
        logCheckFailed("stop", 1005);
        return;
    }
    mHasThread = false;
}

/** Returns false when the limit passed: a client that a handler calls may itself wait for this very stop. */
bool UsbDetectorImpl::waitForEnd() {
    const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + mStopLimit;
    Mutex::Autolock lock(mEndLock);
    while (!mEnded) {
        const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
        if (left <= 0) {
            return false;
        }
        mEnd.waitRelative(mEndLock, left);
    }
    return true;
}

size_t UsbDetectorImpl::count() const {
    Mutex::Autolock lock(mLock);
    return mUsbDeviceList.size();
}

sp<UsbDevice> UsbDetectorImpl::deviceAt(size_t index) const {
    Mutex::Autolock lock(mLock);
    return index < mUsbDeviceList.size() ? mUsbDeviceList[index] : nullptr;
}

sp<UsbDevice> UsbDetectorImpl::deviceById(uint32_t deviceId) const {
    Mutex::Autolock lock(mLock);
    return findByIdLocked(deviceId);
}

sp<UsbDevice> UsbDetectorImpl::findByIdLocked(uint32_t deviceId) const {
    for (const sp<UsbDevice>& device : mUsbDeviceList) {
        if (device->getId() == deviceId) {
            return device;
        }
    }
    ALOGE("Can't get usbDevice which ID = %d", static_cast<int>(deviceId));
    ALOGE("Error! Can't get UsbDevice with ID:%d.", static_cast<int>(deviceId));
    return nullptr;
}

sp<UsbDevice> UsbDetectorImpl::findByDeviceLocked(libusb_device* device) const {
    for (const sp<UsbDevice>& candidate : mUsbDeviceList) {
        if (candidate->getDevice() == device) {
            return candidate;
        }
    }
    ALOGE("Can't get usbDevice which DevicePtr = 0x%08x", shown(device));
    return nullptr;
}

int UsbDetectorImpl::request(uint32_t deviceId, const UsbVendorRequest& request, uint16_t* word) {
    const UsbContext::Use use(mContext);
    libusb_device* device = nullptr;
    {
        Mutex::Autolock lock(mLock);
        const sp<UsbDevice> record = findByIdLocked(deviceId);
        if (record == nullptr) {
            return -1;
        }
        // Without a context the event thread has failed, and the record's device is no more.
        if (use) {
            device = libusb_ref_device(record->getDevice());
        }
    }
    const int result = request.send(device, word);
    if (device != nullptr) {
        libusb_unref_device(device);
    }
    return result;
}

// --- event thread ---

void* UsbDetectorImpl::eventThread(void* detector) {
    const sp<UsbDetectorImpl> self = static_cast<UsbDetectorImpl*>(detector);
    self->decStrong(detector);
    pthread_setname_np(pthread_self(), LOG_TAG);
    do {
        self->runEvents();
    } while (self->beginsAnew());
    return nullptr;
}

/** Whether a start came while the thread could not end; if not, this is its end. */
bool UsbDetectorImpl::beginsAnew() {
    Mutex::Autolock lock(mEndLock);
    if (mStartsAnew.exchange(false) && mStop == 0) {
        return true;
    }
    mEnded = true;
    mEnd.broadcast();
    return false;
}

void UsbDetectorImpl::runEvents() {
    libusb_context* const context = openContext();
    SERVICE_ASSERT(context != nullptr, "detector->usb_ctx", LOG_TAG);
    // What a scan has listed after a stop that did not wait is of the context before.
    forgetDevices();
    mContext.open(context);
    // The devices that were there before.
    schedule(Handler::kMessageUpdate, 0);
    while (isCurrent()) {
        // One second; as 1,000,000 microseconds libusb would refuse it.
        timeval tv = {1, 0};
        const int result = libusb_handle_events_timeout(context, &tv);
        handleEvents(context);
        if (result == LIBUSB_ERROR_INTERRUPTED) {
            ALOGE("libusb_handle_events() error: %s\n", libusb_error_name(result));
        } else if (result < 0) {
            ALOGE("libusb_handle_events() failed: %s\n", libusb_error_name(result));
            break;
        }
    }
    closeContext(context);
}

/** Null when libusb cannot be had or has no hot-plug, which is logged. */
libusb_context* UsbDetectorImpl::openContext() {
    libusb_context* context = nullptr;
    const int initialised = libusb_init(&context);
    if (initialised < 0) {
        ALOGE("failed to initialise libusb: %s\n", libusb_error_name(initialised));
        return nullptr;
    }
    libusb_set_option(context, LIBUSB_OPTION_LOG_LEVEL, LIBUSB_LOG_LEVEL_NONE);
    if (libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG) == 0) {
        ALOGE("Hotplug capabilites are not supported on this platform\n");
        libusb_exit(context);
        return nullptr;
    }
    const int registered = registerHotplug(context);
    if (registered < 0) {
        ALOGE("Error registering callback [%s]\n", libusb_error_name(registered));
        libusb_exit(context);
        return nullptr;
    }
    return context;
}

/** Present devices are not reported: the first scan finds them. */
int UsbDetectorImpl::registerHotplug(libusb_context* context) {
    const auto registerFor = [this, context](libusb_hotplug_event event,
                                             libusb_hotplug_callback_handle* handle) {
        return libusb_hotplug_register_callback(context, event, 0, LIBUSB_HOTPLUG_MATCH_ANY,
                                                LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, onHotplug,
                                                this, handle);
    };
    const int attach = registerFor(LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, &mAttachHandle);
    return attach < 0 ? attach : registerFor(LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, &mDetachHandle);
}

void UsbDetectorImpl::closeContext(libusb_context* context) {
    libusb_hotplug_deregister_callback(context, mAttachHandle);
    libusb_hotplug_deregister_callback(context, mDetachHandle);
    mContext.close();
    for (const HotplugEvent& event : takeEvents()) {
        libusb_unref_device(event.device);
    }
    Vector<libusb_device*> devices;
    {
        Mutex::Autolock lock(mLock);
        std::swap(devices, mLeftDevices);
        for (libusb_device* device : mDeviceList) {
            devices.add(device);
        }
        mDeviceList.clear();
    }
    for (libusb_device* device : devices) {
        libusb_unref_device(device);
    }
    libusb_exit(context);
}

/**
 * Only keeps the event: while this runs libusb holds back every transfer, and it may run on any thread that
 * waits for a transfer of its own. The event thread handles it as soon as libusb lets go of it.
 */
int UsbDetectorImpl::onHotplug(libusb_context* /*context*/, libusb_device* device, libusb_hotplug_event event,
                               void* detector) {
    SERVICE_ASSERT(detector != nullptr, "detector", LOG_TAG);
    auto* const self = static_cast<UsbDetectorImpl*>(detector);
    Mutex::Autolock lock(self->mEventLock);
    if (self->mEvents.add({libusb_ref_device(device), event}) < 0) {
        libusb_unref_device(device);
    }
    return 0;
}

Vector<UsbDetectorImpl::HotplugEvent> UsbDetectorImpl::takeEvents() {
    Vector<HotplugEvent> events;
    Mutex::Autolock lock(mEventLock);
    std::swap(events, mEvents);
    return events;
}

void UsbDetectorImpl::handleEvents(libusb_context* context) {
    // Until none is left: a handler that waits for a transfer lets libusb report more, for which the next
    // wait would not end.
    for (Vector<HotplugEvent> events = takeEvents(); !events.isEmpty(); events = takeEvents()) {
        for (const HotplugEvent& event : events) {
            const bool arrived = event.event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED;
            if (isCurrent()) {
                handleEvent(context, event.device, arrived ? kAttachSide : kDetachSide);
            }
            libusb_unref_device(event.device);
        }
    }
}

void UsbDetectorImpl::handleEvent(libusb_context* context, libusb_device* device, const HotplugSide& side) {
    sp<UsbDetectorHandlerItf> handler;
    sp<UsbDetectorHandlerItf> classHandler;
    {
        Mutex::Autolock lock(mLock);
        handler = mHandler;
        classHandler = mClassPerInterfaceHandler;
    }
    if (handler != nullptr && (handler.get()->*side.call)(context, device) != 0) {
        logCheckFailed(side.name, side.handlerLine);
    }
    libusb_device_descriptor descriptor = {};
    const int result = libusb_get_device_descriptor(device, &descriptor);
    if (result < 0) {
        ALOGE("Error getting device descriptor[%s]\n", libusb_error_name(result));
        return;
    }
    switch (kindOf(descriptor)) {
        case UsbKind::kHub:
            handleHub(device, descriptor, side);
            return;
        case UsbKind::kOther:
            ALOGW("unknown device class[%d]\n", descriptor.bDeviceClass);
            return;
        case UsbKind::kDevice:
            break;
    }
    if (side.arrives) {
        ALOGI("attach devce [0x%08x] class[%d]\n", shown(device), descriptor.bDeviceClass);
    } else {
        ALOGI("detach devce [0x%08x] class[%d]\n", shown(device), descriptor.bDeviceClass);
    }
    if (classHandler != nullptr && (classHandler.get()->*side.call)(context, device) != 0) {
        logCheckFailed(side.name, side.classHandlerLine);
    }
    const bool hurry = side.arrives && isPhoneOfApple(descriptor);
    schedule(Handler::kMessageUpdate, hurry ? 0 : mDebounce);
}

void UsbDetectorImpl::handleHub(libusb_device* device, const libusb_device_descriptor& descriptor,
                                const HotplugSide& side) {
    const int depth = hubDepth(device);
    if (depth == kRootHubDepth) {
        ALOGW("skip root usb hub[%d]\n", descriptor.bDeviceClass);
    } else if (depth > side.deepestHub) {
        cancel(Handler::kMessageHubTooDeep);
        if (side.arrives) {
            schedule(Handler::kMessageHubTooDeep, mDebounce);
        }
        ALOGW("HUB [0x%08x] is exceed max num[%d]\n", shown(device), depth);
    } else if (depth > kRootHubDepth) {
        schedule(Handler::kMessageUpdate, mDebounce);
        ALOGI("add devce  HUB [0x%08x] num[%d]\n", shown(device), depth);
    }
}

/** Posts @p message in place of one that is pending. */
void UsbDetectorImpl::schedule(int message, nsecs_t delay) {
    // A stop that did not wait for the handler may have left a queue that takes no messages; and after a new
    // start, the first scan is the new context's.
    if (!isCurrent()) {
        return;
    }
    mMessageQueue->removeMessage(message);
    if (delay > 0) {
        mMessageQueue->sendMessageDelayed(message, delay);
    } else {
        mMessageQueue->sendMessage(message);
    }
}

void UsbDetectorImpl::cancel(int message) {
    if (isCurrent()) {
        mMessageQueue->removeMessage(message);
    }
}

// --- queue thread ---

/**
 * Nothing of libusb is in use while the notifier runs: it may reach a client that waits for the detector's
 * stop. A stop that came in between has forgotten all devices, and the scan ends where it is.
 */
void UsbDetectorImpl::handleDeviceUpdate() {
    DeviceSet removed;
    DeviceSet added;
    uint32_t session = 0;
    {
        const UsbContext::Use use(mContext);
        if (!use || !findChanges(use.get(), removed, added)) {
            return;
        }
        session = use.session();
    }
    for (libusb_device* device : removed) {
        if (!detach(session, device)) {
            return;
        }
    }
    for (libusb_device* device : added) {
        if (!attach(session, device)) {
            return;
        }
    }
}

/** Fills the sets; what is added is in mDeviceList already and keeps its reference there. */
bool UsbDetectorImpl::findChanges(libusb_context* context, DeviceSet& removed, DeviceSet& added) {
    libusb_device** list = nullptr;
    const ssize_t listed = libusb_get_device_list(context, &list);
    if (listed < 0) {
        ALOGE("libusb_get_device_list() failed: %s\n", libusb_error_name(static_cast<int>(listed)));
        return false;
    }
    DeviceSet present;
    const bool complete = listPresent(list, listed, present);
    if (complete) {
        compareLists(present, removed, added);
    }
    libusb_free_device_list(list, 1);
    return complete;
}

/** Fills @p present with the listed devices and hubs that count. */
bool UsbDetectorImpl::listPresent(libusb_device* const* list, ssize_t listed, DeviceSet& present) {
    for (ssize_t i = 0; i < listed; ++i) {
        libusb_device* const device = list[i];
        libusb_device_descriptor descriptor = {};
        if (libusb_get_device_descriptor(device, &descriptor) < 0) {
            ALOGE("failed to get device descriptor");
            return false;
        }
        switch (kindOf(descriptor)) {
            case UsbKind::kHub:
                if (libusb_get_parent(device) == nullptr) {
                    ALOGW("skip root usb hub[%d]\n", descriptor.bDeviceClass);
                    continue;
                }
                ALOGI("add devce  HUB [0x%08x]\n", shown(device));
                break;
            case UsbKind::kOther:
                ALOGW("unknown device class[%d]\n", descriptor.bDeviceClass);
                continue;
            case UsbKind::kDevice:
                ALOGI("add device[0x%08x]\n", shown(device));
                break;
        }
        const ssize_t ret = present.add(device);
        if (ret < 0) {
            ALOGE("add device to devicelist failed,ret:%d", static_cast<int>(ret));
        }
    }
    return true;
}

void UsbDetectorImpl::compareLists(const DeviceSet& present, DeviceSet& removed, DeviceSet& added) {
    Mutex::Autolock lock(mLock);
    for (libusb_device* device : mDeviceList) {
        const ssize_t ret = present.indexOf(device) < 0 ? removed.add(device) : 0;
        if (ret < 0) {
            ALOGE("add device to mRemoveList failed,ret:%d", static_cast<int>(ret));
        }
    }
    for (libusb_device* device : present) {
        const ssize_t ret = mDeviceList.indexOf(device) < 0 ? added.add(device) : 0;
        if (ret < 0) {
            ALOGE("add device to mAddList failed,ret:%d", static_cast<int>(ret));
        }
    }
    // All at once, since the list that holds them now is freed before the first is reported.
    for (libusb_device* device : added) {
        const ssize_t ret = mDeviceList.add(device);
        if (ret < 0) {
            ALOGE("add device to mDeviceList failed,ret:%d", static_cast<int>(ret));
        } else {
            libusb_ref_device(device);
        }
    }
}

/** @return false when the detector was stopped meanwhile: the scan is over. */
bool UsbDetectorImpl::detach(uint32_t session, libusb_device* device) {
    sp<UsbDevice> record;
    {
        const UsbContext::Use use(mContext, session);
        if (!use) {
            return false;
        }
        UsbDevicePublisher::remove(device);
        record = unlist(device);
    }
    const sp<UsbDetectorNotifierItf> notifier = this->notifier();
    if (record != nullptr && notifier != nullptr && notifier->onDetach(record) != 0) {
        logCheckFailed(kUpdateName, kDetachLine);
    }
    const UsbContext::Use use(mContext, session);
    if (!use) {
        return false;
    }
    const bool forgotten = forget(device, record);
    if (record != nullptr) {
        ALOGI("notify dettach\n");
    }
    if (forgotten) {
        libusb_unref_device(device);
    }
    return true;
}

/** Takes the record of @p device from the list; null when there is none. */
sp<UsbDevice> UsbDetectorImpl::unlist(libusb_device* device) {
    Mutex::Autolock lock(mLock);
    sp<UsbDevice> record = findByDeviceLocked(device);
    if (record == nullptr) {
        ALOGE("Error! Can't get UsbDevice with devicePtr:0x%08x", shown(device));
        return nullptr;
    }
    const ssize_t ret = mUsbDeviceList.remove(record);
    if (ret < 0) {
        ALOGE("remove device from mUsbDeviceList failed,ret:%d", static_cast<int>(ret));
    }
    return record;
}

/** @return false when the reference must stay, since a list still has the device: the next scan tries again.
 */
bool UsbDetectorImpl::forget(libusb_device* device, const sp<UsbDevice>& record) {
    Mutex::Autolock lock(mLock);
    if (record != nullptr && mUsbDeviceList.indexOf(record) >= 0) {
        return false;
    }
    const ssize_t ret = mDeviceList.remove(device);
    if (ret < 0) {
        ALOGE("remove  device from mDeviceList failed,ret:%d", static_cast<int>(ret));
    }
    return ret >= 0;
}

/**
 * The record is listed before it is reported, so that whoever hears of it, also in another thread, can ask
 * for it. @return false when the detector was stopped meanwhile: the scan is over.
 */
bool UsbDetectorImpl::attach(uint32_t session, libusb_device* device) {
    sp<UsbDevice> record;
    {
        const UsbContext::Use use(mContext, session);
        if (!use) {
            return false;
        }
        if (!isKept(device)) {
            return true;
        }
        UsbDevicePublisher::add(device);
        record = buildUsbDevice(device, takeId());
        list(record);
    }
    const sp<UsbDetectorNotifierItf> notifier = this->notifier();
    if (notifier != nullptr && notifier->onAttach(record) != 0) {
        logCheckFailed(kUpdateName, kAttachLine);
    }
    ALOGI("notify attach\n");
    return true;
}

/** False for a device that there was no memory to keep: the next scan tries again. */
bool UsbDetectorImpl::isKept(libusb_device* device) const {
    Mutex::Autolock lock(mLock);
    return mDeviceList.indexOf(device) >= 0;
}

uint32_t UsbDetectorImpl::takeId() {
    Mutex::Autolock lock(mLock);
    return mNextId++;
}

void UsbDetectorImpl::list(const sp<UsbDevice>& record) {
    Mutex::Autolock lock(mLock);
    const ssize_t ret = mUsbDeviceList.add(record);
    if (ret < 0) {
        ALOGE("add device to mUsbDeviceList failed,ret:%d", static_cast<int>(ret));
    }
}

}  // namespace usb
