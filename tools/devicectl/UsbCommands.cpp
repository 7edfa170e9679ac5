// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/UsbNames.h"
#include "usb/IUsbManager.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using usb::IUsbManager;
using usb::UsbDeviceItf;

namespace {

/** Walks until two agree; a list that changes all the time is shown as it was last seen. */
constexpr int kMostWalks = 10;

/** By identifier, which no two devices of a daemon's life share. */
using Devices = std::map<uint32_t, sp<UsbDeviceItf>>;

/** The list by one walk. It may change on the way, which shifts the devices behind the change. */
Devices walk(IUsbManager& manager) {
    Devices devices;
    const int count = manager.getUsbDeviceCount();
    for (int index = 0; index < count; ++index) {
        const sp<UsbDeviceItf> device = manager.queryUsbDevice(index);
        if (device == nullptr) {
            break;
        }
        devices[device->getId()] = device;
    }
    return devices;
}

bool haveSameIds(const Devices& left, const Devices& right) {
    return left.size() == right.size() &&
           std::equal(left.begin(), left.end(), right.begin(),
                      [](const auto& one, const auto& other) { return one.first == other.first; });
}

std::vector<sp<UsbDeviceItf>> listDevices(IUsbManager& manager) {
    Devices devices = walk(manager);
    for (int walks = 1; walks < kMostWalks; ++walks) {
        const Devices again = walk(manager);
        const bool agrees = haveSameIds(devices, again);
        devices = again;
        if (agrees) {
            break;
        }
    }
    std::vector<sp<UsbDeviceItf>> list;
    for (const auto& [id, device] : devices) {
        list.push_back(device);
    }
    return list;
}

/** Calls an operation that answers with a number. */
int answerOf(IUsbManager& manager, const UsbRequest& request) {
    const char* const text = request.text.c_str();
    const auto deviceId = static_cast<uint32_t>(request.number);
    switch (request.operation) {
        case UsbOperation::kList:
            break;
        case UsbOperation::kPower:
            return manager.setUsbPortPower(request.number, request.on);
        case UsbOperation::kReset:
            return manager.resetUsbPort(request.number);
        case UsbOperation::kRole:
            return manager.usbDeviceIsActived(request.number);
        case UsbOperation::kSwitch:
            return manager.switchUsbState(request.number);
        case UsbOperation::kRoleSwitch:
            return manager.appleDeviceRoleSwitch(request.number);
        case UsbOperation::kCarplay:
            return manager.isAppleCarplaySupport(deviceId);
        case UsbOperation::kAoa:
            return manager.checkAoaModeSupport(deviceId);
        case UsbOperation::kScheme:
            return manager.configUsbEnumerateScheme(request.on);
        case UsbOperation::kDefaultMode:
            return manager.configDefaultMode(request.number, request.on);
        case UsbOperation::kAoaDescription:
            return manager.configAoaDescription(text);
        case UsbOperation::kAoaExclude:
            return manager.aoaModeSwitchFilter(text);
        case UsbOperation::kAoaTimeout:
            return manager.configAoaTimeoutAction(request.on);
        case UsbOperation::kIapName:
            return manager.configAppleIapNodeName(text);
        case UsbOperation::kEanName:
            return manager.configAppleEanNodeName(text);
        case UsbOperation::kEanString:
            return manager.configAppleEanStringName(text);
        case UsbOperation::kAutoRole:
            return manager.configKernelAutoRoleSwitch(request.on);
        case UsbOperation::kTestPost:
            return manager.postTestMessage(request.number);
        case UsbOperation::kTestGetCharging:
            return manager.getPortChargingMode(request.number);
        case UsbOperation::kTestSetCharging:
            return manager.switchPortChargingMode(request.number, request.second);
        case UsbOperation::kTestHubTier:
            return manager.setMaxHubTier(request.number);
        case UsbOperation::kTestRefuseClass:
            return manager.addUnsupportedClass(request.number);
        case UsbOperation::kTestAcceptClass:
            return manager.removeUnsupportedClass(request.number);
        case UsbOperation::kTestGetMode:
            return manager.getCertificationMode();
        case UsbOperation::kTestSetMode:
            return manager.setCertificationMode(request.number);
    }
    return -1;
}

}  // namespace

ExitCode runUsbCommand(const Options& options, const ServiceAccess& access) {
    sp<IBinder> service;
    const ExitCode found = access.find(IUsbManager::kServiceName, &service);
    if (found != kOk) {
        return found;
    }
    const sp<IUsbManager> manager = interface_cast<IUsbManager>(service);
    const bool lists = options.usb.operation == UsbOperation::kList;
    std::vector<sp<UsbDeviceItf>> devices;
    int answer = 0;
    {
        const CallLimit limit(access.answerSeconds(), IUsbManager::kServiceName);
        if (lists) {
            devices = listDevices(*manager);
        } else {
            answer = answerOf(*manager, options.usb);
        }
    }
    // A failed call answers zero, which means something here.
    const ExitCode alive = access.confirmAlive(IUsbManager::kServiceName, service);
    if (alive != kOk) {
        return alive;
    }
    if (lists) {
        return print(renderUsbDevices(options.format, devices, UsbNames::load()));
    }
    const ExitCode printed = print(renderUsbAnswer(options.format, options.usb, answer));
    const std::string refusal = usbRefusal(options.usb, answer);
    if (refusal.empty()) {
        return printed;
    }
    reportError(refusal);
    return kFailed;
}

}  // namespace devicectl
