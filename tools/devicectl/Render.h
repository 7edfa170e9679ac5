// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/Vector.h>

#include <string>
#include <string_view>
#include <vector>

#include "device/DeviceItf.h"
#include "tools/devicectl/Event.h"
#include "tools/devicectl/UsbNames.h"
#include "tools/devicectl/UsbRequest.h"
#include "usb/UsbDeviceItf.h"
#include "volume/VolumeItf.h"

namespace devicectl {

/*
 * What the commands print, as text that ends in a newline. Pure functions, any thread.
 *
 * Human text holds no control character but the newlines and tabs of its own layout. JSON is one object on
 * one line, of ASCII characters only: bytes of a device or a volume that are no UTF-8 become U+FFFD. Its
 * first member is the version of its shape; docs/devicectl.schema.json describes each.
 */
enum class Format {
    kHuman,
    kColor,  ///< as kHuman, with colors of a terminal
    kJson,
};

/** One row of the list of services. */
struct ServiceState {
    enum class Life {
        kAlive,
        kDead,     ///< registered, its process is gone
        kSilent,   ///< gives no answer
        kMissing,  ///< not registered
    };

    std::string name;
    Life life;
};

/** What was done to one manager. */
struct ManagerAction {
    std::string manager;  ///< its name on the command line
    std::string service;  ///< the service it stands behind
    int result;           ///< what the service answered; 0 is success
};

/** @p verb is "start" or "stop". The human form leaves out actions that failed. */
std::string renderActions(Format format, std::string_view verb, const std::vector<ManagerAction>& actions);

/** @p device with all its properties; null is JSON's null and no human text at all. */
std::string renderDevice(Format format, const android::sp<device::DeviceItf>& device);

/** The human form is one line for each device. */
std::string renderDevices(Format format, const android::Vector<android::sp<device::DeviceItf>>& devices);

/** The human form is a table with a heading; what is empty or unknown is a dash. */
std::string renderVolumes(Format format, const android::Vector<android::sp<volume::VolumeItf>>& volumes);

/** The human form is a table with a heading; a number without a name stands alone. */
std::string renderUsbDevices(Format format, const std::vector<android::sp<usb::UsbDeviceItf>>& devices,
                             const UsbNames& names);

/** What the USB manager answered to any operation but the list; the human form is empty where all is said. */
std::string renderUsbAnswer(Format format, const UsbRequest& request, int answer);

/** Why @p answer makes the command fail; empty when it does not. */
std::string usbRefusal(const UsbRequest& request, int answer);

/** @p path is empty for an unknown controller: JSON's null and no human text at all. */
std::string renderController(Format format, int type, int id, std::string_view path);

/** The human form is @p text itself, made safe for a terminal. */
std::string renderDump(Format format, std::string_view service, const std::vector<std::string>& arguments,
                       std::string_view text);

std::string renderServices(Format format, const std::vector<ServiceState>& services);

/**
 * One event of a monitor.
 * @param properties the human form of an arrival goes on with one line for each property
 */
std::string renderEvent(Format format, const Event& event, bool properties);

}  // namespace devicectl
