// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/UsbOperations.h"

namespace devicectl {

using usb::IUsbManager;

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
