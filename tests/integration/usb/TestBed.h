// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * USB devices that libusb takes for real ones, in the process of the test.
 */

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/** One setting of one interface. */
struct UsbInterfaceSpec {
    uint8_t number = 0;
    uint8_t alternate = 0;
    uint8_t interfaceClass = 0;
    uint8_t interfaceSubClass = 0;
    uint8_t interfaceProtocol = 0;
};

/** A configuration; its value is its place in the device, from 1 on. */
struct UsbConfigSpec {
    uint8_t maxPower = 50;  //!< bMaxPower as it stands
    std::vector<UsbInterfaceSpec> interfaces;
};

/** A device as its descriptors describe it. */
struct UsbDeviceSpec {
    uint16_t vendor = 0x1234;
    uint16_t product = 0x5678;
    uint8_t deviceClass = 0;
    uint8_t deviceSubClass = 0;
    uint8_t deviceProtocol = 0;
    std::string speed = "480";  //!< as sysfs shows it
    std::vector<UsbConfigSpec> configs = {{50, {{0, 0, 8, 6, 80}}}};
    int activeConfig = 1;  //!< value of the active one; 0 for a device that is not configured
    std::string manufacturer;
    std::string productName;
    std::string serial;
    std::string descriptors;  //!< in place of all of the above if not empty

    static UsbDeviceSpec hub();
    static UsbDeviceSpec stick();
    static UsbDeviceSpec phoneOfApple(uint16_t product = 0x12A8);
};

/** A control request as a device sees it. */
struct UsbRequest {
    uint8_t requestType;
    uint8_t request;
    uint16_t value;
    uint16_t index;
    uint16_t length;
};

/** What a device makes of a request. */
struct UsbAnswer {
    enum Kind { kData, kStall, kNone };
    Kind kind = kData;
    std::string data;

    static UsbAnswer ok(const std::string& data = std::string()) { return {kData, data}; }
    static UsbAnswer stall() { return {kStall, {}}; }
    static UsbAnswer none() { return {kNone, {}}; }  //!< until the host gives up
};

/**
 * A machine with USB ports, seen by libusb alone through files and messages as udev's.
 *
 * Make it before anything of libusb, and let everything of libusb end before it. One at a time. While it
 * lives the process sees no other "/sys".
 *
 * Devices are named as in sysfs: "usb1" is the root hub of bus 1, "1-2" a device at its second port, "1-2.3"
 * one at the third port of the hub "1-2". Operations are those of one thread, but for the answers.
 */
class TestBed {
  public:
    using Responder = std::function<UsbAnswer(const UsbRequest&)>;

    TestBed();
    ~TestBed();
    TestBed(const TestBed&) = delete;
    TestBed& operator=(const TestBed&) = delete;

    /** Adds a root hub, with bus number @p bus. */
    void addBus(int bus);

    /** Adds a device, whose parent must be there, and waits until libusb lists it. */
    void plug(const std::string& name, const UsbDeviceSpec& spec);

    /** As plug(); requests other than those for descriptors are answered by @p responder, on another thread.
     */
    void plug(const std::string& name, const UsbDeviceSpec& spec, const Responder& responder);

    /** Removes a device, those below it first, as the kernel does, and waits until libusb lists none of them.
     */
    void unplug(const std::string& name);

    /** Takes the device's node away without telling, as it is just before the message of a removal. */
    void vanish(const std::string& name);

    /** The device's number on its bus. */
    int deviceNumber(const std::string& name) const;

    /** Requests that the device has received, without those for descriptors, in order. */
    std::vector<UsbRequest> requests(const std::string& name) const;

  private:
    class Private;
    const std::unique_ptr<Private> mPrivate;
};
