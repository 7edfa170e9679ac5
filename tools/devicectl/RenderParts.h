// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/String8.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "device/DeviceItf.h"
#include "tools/devicectl/Render.h"
#include "tools/devicectl/UsbNames.h"
#include "usb/UsbDeviceItf.h"
#include "volume/VolumeItf.h"

namespace devicectl {

/*
 * What the rendering of several commands is made of. Pure functions, any thread.
 */

/** In the order in which the members are written. */
using Json = nlohmann::ordered_json;

/** Version of the shape of every JSON object: goes up when a member changes or goes, not when one is added.
 */
constexpr int kSchemaVersion = 1;

/** What a color says; the terminal's own palette is used. */
enum class Color {
    kNone,
    kHeading,
    kGood,
    kWait,
    kBad,
    kDim,
};

/** @p text, in the color where @p format has colors. */
std::string painted(Format format, Color color, std::string_view text);

/** Bytes as they are. */
std::string toString(const android::String8& text);

/** @p value as one line, after its version; ASCII only, which harms neither a terminal nor a strict reader.
 */
std::string jsonLine(const Json& value);

/** @p text with blanks up to @p width characters. */
std::string padded(std::string text, size_t width);

/** Characters, as far as one code point is one: the bytes of UTF-8 that begin one. */
size_t widthOf(std::string_view text);

/** Rows in columns as wide as their widest text; the first is the heading, the last column is not filled up.
 */
std::string tableText(Format format, const std::vector<std::vector<std::string>>& rows);

/** @p value in hexadecimal, with zeros up to so many digits. */
std::string hex(uint32_t value, int digits);

Json deviceJson(const device::DeviceItf& device);
/** Subsystem, node and path, in columns as far as they fit. */
std::string deviceColumns(const device::DeviceItf& device);
std::string propertyLines(const device::DeviceItf& device);

Json volumeJson(const volume::VolumeItf& volume);
/** For readers; a dash for what is empty or what the daemon does not know. */
std::string volumeText(const android::String8& text);
std::vector<std::string> volumeHeading();
std::vector<std::string> volumeRow(const volume::VolumeItf& volume);
/** As the columns of a device; what comes from the medium stands last. */
std::string volumeColumns(const volume::VolumeItf& volume);
std::string volumeLines(const volume::VolumeItf& volume);

Json usbJson(const usb::UsbDeviceItf& device);
/** As usbJson(), with the names. */
Json usbListJson(const usb::UsbDeviceItf& device, const UsbNames& names);
/** Vendor and product, hexadecimal. */
std::string usbNumber(const usb::UsbDeviceItf& device);
/** The descriptor counts in 2 mA (a SuperSpeed device, which the record does not tell, in 8 mA). */
uint32_t milliamperesOf(const usb::UsbDeviceItf& device);
/** Vendor's and product's name, for readers; a dash when neither is known. */
std::string usbName(const usb::UsbDeviceItf& device, const UsbNames& names);
std::string usbColumns(const usb::UsbDeviceItf& device);
std::vector<std::string> usbHeading();
std::vector<std::string> usbRow(const usb::UsbDeviceItf& device, const UsbNames& names);

const char* lifeText(ServiceState::Life life);
Color colorOf(ServiceState::Life life);

}  // namespace devicectl
