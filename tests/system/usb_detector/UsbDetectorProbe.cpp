// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A detector on its own: prints a JSON object a line for what it reports, and does what lines on standard
 * input say.
 *
 *     list        the listed devices
 *     bus ID      number of the device's bus
 *     aoa ID      whether the device has accessory mode
 *     carplay ID  whether the device supports CarPlay
 *     restart     stops and starts
 *
 * It stops and ends with its input.
 */
#include <cstdint>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "usb/UsbDetector.h"

namespace {

using android::sp;
using nlohmann::json;
using usb::UsbDetector;
using usb::UsbDeviceItf;

void print(const json& object) {
    static auto* const sLock = new std::mutex();
    const std::lock_guard<std::mutex> hold(*sLock);
    std::cout << object.dump() << std::endl;
}

json describe(const sp<UsbDeviceItf>& device) {
    json interfaces = json::array();
    for (size_t i = 0; i < device->getInterfaceCount(); ++i) {
        const auto interface = device->getInterface(i);
        interfaces.push_back({interface->getInterfaceClass(), interface->getInterfaceSubClass(),
                              interface->getInterfaceProtocol()});
    }
    return {{"id", device->getId()},
            {"bus", device->getBusNumber()},
            {"vendor", device->getVendorId()},
            {"product", device->getProductId()},
            {"class", device->getDeviceClass()},
            {"subClass", device->getDeviceSubClass()},
            {"protocol", device->getDeviceProtocol()},
            {"maxPower", device->getConfig()->getMaxPower()},
            {"interfaces", interfaces}};
}

class Printer : public usb::UsbDetectorNotifierItf {
  public:
    int onAttach(const sp<UsbDeviceItf>& device) override {
        print({{"attached", describe(device)}});
        return 0;
    }
    int onDetach(const sp<UsbDeviceItf>& device) override {
        print({{"detached", describe(device)}});
        return 0;
    }
    int onNotify(int event, int arg) override {
        print({{"event", event}, {"arg", arg}});
        return 0;
    }
};

json list(UsbDetector& detector) {
    json devices = json::array();
    for (size_t i = 0; i < detector.count(); ++i) {
        const sp<UsbDeviceItf> device = detector.query(i);
        if (device != nullptr) {
            devices.push_back(describe(device));
        }
    }
    return devices;
}

void obey(UsbDetector& detector, const std::string& line) {
    std::istringstream words(line);
    std::string order;
    uint32_t id = 0;
    words >> order >> id;
    if (order == "list") {
        print({{"list", list(detector)}});
    } else if (order == "bus") {
        print({{"bus", detector.getBusNumber(id)}});
    } else if (order == "aoa") {
        print({{"aoa", detector.checkAoaModeSupport(id)}});
    } else if (order == "carplay") {
        print({{"carplay", detector.isAppleCarplaySupport(id)}});
    } else if (order == "restart") {
        detector.stop();
        print({{"stopped", list(detector)}});
        detector.start();
    } else {
        print({{"unknown", line}});
    }
}

}  // namespace

int main() {
    const sp<UsbDetector> detector = new UsbDetector();
    detector->setNotifier(new Printer());
    detector->start();
    std::string line;
    while (std::getline(std::cin, line)) {
        obey(*detector, line);
    }
    detector->stop();
    print({{"ended", list(*detector)}});
    return 0;
}
