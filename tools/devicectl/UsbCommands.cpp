// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "client/Lists.h"
#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/UsbNames.h"
#include "tools/devicectl/UsbOperations.h"

namespace devicectl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using usb::IUsbManager;
using usb::UsbDeviceItf;

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
            devices = client::Lists::usbDevices(*manager);
        } else {
            answer = askUsbManager(*manager, options.usb);
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
