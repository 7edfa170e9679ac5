// SPDX-License-Identifier: Apache-2.0
#include <utils/String8.h>
#include <utils/Vector.h>

#include <string>

#include "device/IDeviceManager.h"
#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/StandardStreams.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using android::String8;
using android::Vector;
using device::DeviceItf;
using device::IDeviceManager;

namespace {

/** What the device manager answers for a controller that it does not have. */
constexpr const char* kUnknownController = "unknown";

String8 toString8(const std::string& text) {
    return String8(text.data(), text.size());
}

/** Prints the answer; @p refusal, unless empty, makes it a "no". */
ExitCode printAnswer(const std::string& text, const std::string& refusal) {
    const ExitCode printed = print(text);
    if (refusal.empty()) {
        return printed;
    }
    reportError(refusal);
    return kFailed;
}

/** The three questions to one service. */
class Inquiry {
  public:
    Inquiry(const Options& options, const ServiceAccess& access, const sp<IBinder>& service)
        : mOptions(options),
          mAccess(access),
          mService(service),
          mManager(interface_cast<IDeviceManager>(service)) {}

    ExitCode get() const {
        sp<DeviceItf> device;
        {
            const CallLimit limit(mAccess.answerSeconds(), IDeviceManager::kServiceName);
            device = mManager->getDevice(toString8(mOptions.subsystem), toString8(mOptions.name));
        }
        // A null answer is a "no" only from a service that lives.
        const ExitCode alive = device != nullptr ? kOk : confirmAlive();
        if (alive != kOk) {
            return alive;
        }
        const std::string refusal =
            device == nullptr ? "no device " + mOptions.name + " in subsystem " + mOptions.subsystem : "";
        return printAnswer(renderDevice(mOptions.format, device), refusal);
    }

    ExitCode ancestors() const {
        Vector<sp<DeviceItf>> devices;
        {
            const CallLimit limit(mAccess.answerSeconds(), IDeviceManager::kServiceName);
            devices = mManager->getDevices(toString8(mOptions.path));
        }
        const ExitCode alive = devices.isEmpty() ? confirmAlive() : kOk;
        return alive != kOk ? alive : print(renderDevices(mOptions.format, devices));
    }

    ExitCode controller() const {
        String8 path;
        {
            const CallLimit limit(mAccess.answerSeconds(), IDeviceManager::kServiceName);
            path = mManager->getDevicePath(mOptions.controllerType, mOptions.controllerId);
        }
        const ExitCode alive = path.isEmpty() ? confirmAlive() : kOk;
        if (alive != kOk) {
            return alive;
        }
        const bool known = !path.isEmpty() && path != kUnknownController;
        const std::string refusal = known ? ""
                                          : "no controller " + std::to_string(mOptions.controllerId) +
                                                " of type " + std::to_string(mOptions.controllerType);
        return printAnswer(renderController(mOptions.format, mOptions.controllerType, mOptions.controllerId,
                                            known ? path.string() : ""),
                           refusal);
    }

  private:
    ExitCode confirmAlive() const { return mAccess.confirmAlive(IDeviceManager::kServiceName, mService); }

    const Options& mOptions;
    const ServiceAccess& mAccess;
    const sp<IBinder> mService;
    const sp<IDeviceManager> mManager;
};

}  // namespace

ExitCode runDeviceCommand(const Options& options, const ServiceAccess& access) {
    sp<IBinder> service;
    const ExitCode found = access.find(IDeviceManager::kServiceName, &service);
    if (found != kOk) {
        return found;
    }
    const Inquiry inquiry(options, access, service);
    switch (options.command) {
        case Options::Command::kDeviceGet:
            return inquiry.get();
        case Options::Command::kDeviceAncestors:
            return inquiry.ancestors();
        default:
            return inquiry.controller();
    }
}

}  // namespace devicectl
