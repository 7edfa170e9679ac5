// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/UsbOperations.h"

#include <algorithm>
#include <map>

namespace devicectl {

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

}  // namespace

std::vector<sp<UsbDeviceItf>> listUsbDevices(IUsbManager& manager) {
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

int askUsbManager(IUsbManager& manager, const UsbRequest& request) {
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

}  // namespace devicectl
