// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Wait.h"

#include <binder/ProcessState.h>
#include <bindercheck/BinderCheck.h>
#include <poll.h>

#include <algorithm>
#include <vector>

#include "client/Lists.h"
#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/ChangeEars.h"
#include "tools/devicectl/Managers.h"
#include "tools/devicectl/MountTable.h"
#include "tools/devicectl/RenderWait.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/VolumeOperations.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::ProcessState;
using android::sp;
using std::chrono::milliseconds;
using usb::IUsbManager;
using usb::UsbDeviceItf;
using volume::IVolumeManager;
using volume::VolumeItf;

namespace {

/** Between two looks for a service: the service manager tells nobody of an arrival. */
constexpr milliseconds kLookForService{250};
/** Between two looks at a list of which changes are heard: a mount may go without a word. */
constexpr milliseconds kLookAgain{1000};
/** For the removal at the end. The daemon drops a client that ends, so little is lost without it. */
constexpr unsigned kFarewellSeconds = 5;
/** A daemon that hangs keeps this program from its own look at the clock. */
constexpr unsigned kHangSeconds = 1;

std::string describe(const WaitRequest& request) {
    switch (request.kind) {
        case WaitRequest::Kind::kService:
            return request.text == "all" ? "the services" : "service " + request.text;
        case WaitRequest::Kind::kVolume:
            return "volume " + request.text;
        case WaitRequest::Kind::kUsb:
            break;
    }
    return "USB device " + request.text;
}

std::string lateText(const Options& options, const std::string& reason) {
    return describe(options.wait) + " not there within " + std::to_string(options.answerSeconds) +
           " s: " + reason;
}

}  // namespace

Wait::Wait(const Options& options) : mOptions(options), mAccess(0), mWakeUp(new WakeUp()) {
    if (options.wait.kind == WaitRequest::Kind::kVolume) {
        mRegistration.emplace(mAccess, volumeChanges(mWakeUp), mWakeUp);
    } else if (options.wait.kind == WaitRequest::Kind::kUsb) {
        mRegistration.emplace(mAccess, usbChanges(mWakeUp), mWakeUp);
    }
    if (options.answerSeconds > 0) {
        mDeadline = Clock::now() + std::chrono::seconds(options.answerSeconds);
    }
}

ExitCode Wait::run() {
    const android::String8 driver = bindercheck::driverProblem();
    if (!driver.isEmpty()) {
        reportError(driver.string());
        return kNoDriver;
    }
    if (mWakeUp->fd() < 0) {
        reportError("no file descriptor left to wait with: close some or raise the limit");
        return kFailed;
    }
    const std::optional<std::string> found = waitUntilThere();
    if (!found) {
        reportError(lateText(mOptions, mReason));
        return kTimedOut;
    }
    const ExitCode printed = print(*found);
    if (mRegistration) {
        const CallLimit limit(kFarewellSeconds, printed, "");
        mRegistration->remove(0);
    }
    return printed;
}

std::optional<std::string> Wait::waitUntilThere() {
    const unsigned seconds = mOptions.answerSeconds;
    const CallLimit limit(seconds > 0 ? seconds + kHangSeconds : 0, kTimedOut,
                          lateText(mOptions, "a service gives no answer: its process hangs or is stopped"));
    if (mRegistration) {
        ProcessState::self()->startThreadPool();
    }
    for (;;) {
        // Before the look: what changes from here on ends the next sleep.
        mWakeUp->clear();
        std::optional<std::string> found = look();
        if (found || (mDeadline && Clock::now() >= *mDeadline)) {
            return found;
        }
        sleep();
    }
}

std::optional<std::string> Wait::look() {
    // Also keeps from a libbinder that waits for a service manager without end.
    const android::String8 problem = bindercheck::serviceManagerProblem();
    if (!problem.isEmpty()) {
        mReason = problem.string();
        return std::nullopt;
    }
    if (!mRegistration) {
        return lookForServices();
    }
    const sp<IBinder> service = registeredService();
    if (service == nullptr) {
        return std::nullopt;
    }
    return mOptions.wait.kind == WaitRequest::Kind::kVolume ? lookForVolume(service)
                                                            : lookForUsbDevice(service);
}

std::optional<std::string> Wait::lookForServices() {
    std::vector<std::string> names{mOptions.wait.text};
    if (mOptions.wait.text == "all") {
        names.clear();
        for (const Manager* const manager : managersToStop("")) {
            names.emplace_back(manager->service);
        }
    }
    if (!std::all_of(names.begin(), names.end(),
                     [this](const std::string& name) { return isLiving(name); })) {
        return std::nullopt;
    }
    std::vector<ServiceState> states;
    states.reserve(names.size());
    for (const std::string& name : names) {
        states.push_back({name, ServiceState::Life::kAlive});
    }
    return renderFoundServices(mOptions.format, states);
}

bool Wait::isLiving(const std::string& name) {
    const sp<IBinder> service = mAccess.lookUp(name);
    if (service != nullptr && mAccess.isAlive(name, service)) {
        return true;
    }
    mReason = "service " + name + (service == nullptr ? " is not registered" : " is registered but dead");
    return false;
}

sp<IBinder> Wait::registeredService() {
    mRegistration->dropDead();
    const std::string name = mRegistration->service();
    const sp<IBinder> service = mAccess.lookUp(name);
    if (service == nullptr || !mAccess.isAlive(name, service) || !mRegistration->make(service)) {
        mReason = "service " + name + (service == nullptr ? " is not registered" : " is registered but dead");
        return nullptr;
    }
    return service;
}

std::optional<std::string> Wait::lookForVolume(const sp<IBinder>& service) {
    const std::string& wanted = mOptions.wait.text;
    const std::string mounts = readMountInfo();
    bool isListed = false;
    sp<VolumeItf> found;
    for (const sp<VolumeItf>& volume : listVolumes(*interface_cast<IVolumeManager>(service))) {
        const bool byName = volume->getName() == wanted.c_str();
        const bool byLabel = isKnown(volume->getLabel()) && volume->getLabel() == wanted.c_str();
        if (!byName && !byLabel) {
            continue;
        }
        isListed = true;
        const bool isThere =
            isKnown(volume->getMountPath()) && isMountPoint(mounts, volume->getMountPath().string());
        // Several may have one label; the one of this name is meant before them.
        if (isThere && (byName || found == nullptr)) {
            found = volume;
        }
    }
    if (found == nullptr) {
        mReason = isListed ? "the volume is listed but not mounted" : "no such volume is listed";
        return std::nullopt;
    }
    return renderFoundVolume(mOptions.format, found);
}

std::optional<std::string> Wait::lookForUsbDevice(const sp<IBinder>& service) {
    for (const sp<UsbDeviceItf>& device : client::Lists::usbDevices(*interface_cast<IUsbManager>(service))) {
        if (device->getVendorId() == mOptions.wait.vendor &&
            device->getProductId() == mOptions.wait.product) {
            return renderFoundUsbDevice(mOptions.format, device, UsbNames::load());
        }
    }
    mReason = "no such device is listed";
    return std::nullopt;
}

void Wait::sleep() {
    milliseconds length = mRegistration && mRegistration->isThere() ? kLookAgain : kLookForService;
    if (mDeadline) {
        length = std::min(length, std::chrono::ceil<milliseconds>(*mDeadline - Clock::now()));
    }
    pollfd source{mWakeUp->fd(), POLLIN, 0};
    poll(&source, 1, static_cast<int>(std::max<milliseconds::rep>(length.count(), 0)));
}

}  // namespace devicectl
