// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Looks at the USB peripherals of the machine with libusb alone: what they are, and what they answer to a
 * control request. Prints one JSON object, or one a device.
 */
#include <libusb.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace {

using nlohmann::json;

constexpr const char* kUsage = R"(usage: usb-ask list
       usb-ask control VENDOR PRODUCT TYPE REQUEST VALUE INDEX LENGTH TIMEOUT_MS
list: a line for each device. control: {"result": bytes or an error's name, "data": hexadecimal}
)";

constexpr int kUsageStatus = 2;
constexpr int kFailed = 1;

/** The text of a string descriptor; empty where there is none. */
std::string stringOf(libusb_device_handle* handle, uint8_t index) {
    unsigned char text[128] = {};
    const int length =
        index == 0 ? 0
                   : libusb_get_string_descriptor_ascii(handle, index, text, static_cast<int>(sizeof(text)));
    return length > 0 ? std::string(reinterpret_cast<char*>(text), static_cast<size_t>(length))
                      : std::string();
}

json describe(libusb_device* device) {
    libusb_device_descriptor descriptor = {};
    if (libusb_get_device_descriptor(device, &descriptor) != 0) {
        return {{"error", "no descriptor"}};
    }
    json entry = {{"bus", libusb_get_bus_number(device)}, {"address", libusb_get_device_address(device)},
                  {"class", descriptor.bDeviceClass},     {"vendor", descriptor.idVendor},
                  {"product", descriptor.idProduct},      {"speed", libusb_get_device_speed(device)},
                  {"interfaces", json::array()}};
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_config_descriptor(device, 0, &config) == 0) {
        entry["power"] = config->MaxPower;
        for (int i = 0; i < config->bNumInterfaces; ++i) {
            const libusb_interface_descriptor& setting = config->interface[i].altsetting[0];
            entry["interfaces"].push_back(
                {setting.bInterfaceClass, setting.bInterfaceSubClass, setting.bInterfaceProtocol});
        }
        libusb_free_config_descriptor(config);
    }
    libusb_device_handle* handle = nullptr;
    if (libusb_open(device, &handle) == 0) {
        entry["manufacturer"] = stringOf(handle, descriptor.iManufacturer);
        entry["name"] = stringOf(handle, descriptor.iProduct);
        entry["serial"] = stringOf(handle, descriptor.iSerialNumber);
        libusb_close(handle);
    }
    return entry;
}

int list(libusb_context* context) {
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(context, &devices);
    for (ssize_t i = 0; i < count; ++i) {
        std::cout << describe(devices[i]).dump() << std::endl;
    }
    if (count >= 0) {
        libusb_free_device_list(devices, 1);
    }
    return count < 0 ? kFailed : EXIT_SUCCESS;
}

std::string hexadecimal(const std::vector<unsigned char>& bytes, size_t count) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < count && i < bytes.size(); ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xF];
    }
    return text;
}

int control(libusb_context* context, const std::vector<unsigned long>& numbers) {
    const auto wire = [&](size_t index) { return static_cast<uint16_t>(numbers[index]); };
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(context, wire(0), wire(1));
    if (handle == nullptr) {
        fputs("usb-ask: there is no such device\n", stderr);
        return kFailed;
    }
    std::vector<unsigned char> data(wire(6));
    const int result = libusb_control_transfer(handle, static_cast<uint8_t>(numbers[2]),
                                               static_cast<uint8_t>(numbers[3]), wire(4), wire(5),
                                               data.data(), wire(6), static_cast<unsigned int>(numbers[7]));
    libusb_close(handle);
    json answer = {{"data", hexadecimal(data, result > 0 ? static_cast<size_t>(result) : 0)}};
    answer["result"] = result < 0 ? json(libusb_error_name(result)) : json(result);
    std::cout << answer.dump() << std::endl;
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int kNumbers = 8;
    const std::string command = argc > 1 ? argv[1] : "";
    std::vector<unsigned long> numbers;
    for (int i = 2; i < argc; ++i) {
        numbers.push_back(strtoul(argv[i], nullptr, 0));
    }
    const bool isList = command == "list" && numbers.empty();
    const bool isControl = command == "control" && numbers.size() == kNumbers;
    if (!isList && !isControl) {
        fputs(kUsage, stderr);
        return kUsageStatus;
    }
    libusb_context* context = nullptr;
    if (libusb_init(&context) != 0) {
        fputs("usb-ask: no libusb\n", stderr);
        return kFailed;
    }
    const int status = isList ? list(context) : control(context, numbers);
    libusb_exit(context);
    return status;
}
