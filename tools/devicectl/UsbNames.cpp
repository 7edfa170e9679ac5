// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/UsbNames.h"

#include <charconv>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>

namespace devicectl {

namespace {

constexpr const char* kPlaces[] = {"/usr/share/misc/usb.ids", "/var/lib/usbutils/usb.ids",
                                   "/usr/share/hwdata/usb.ids"};

struct Entry {
    uint32_t number;
    std::string name;
};

/** "046d  Name": a number of so many digits, two blanks and the name. */
std::optional<Entry> entryOf(std::string_view text, size_t digits) {
    if (text.size() < digits + 3 || text.substr(digits, 2) != "  ") {
        return std::nullopt;
    }
    uint32_t value = 0;
    const char* const end = text.data() + digits;
    const auto [rest, error] = std::from_chars(text.data(), end, value, 16);
    if (error != std::errc() || rest != end) {
        return std::nullopt;
    }
    return Entry{value, std::string(text.substr(digits + 2))};
}

std::string nameIn(const std::unordered_map<uint32_t, std::string>& names, uint32_t key) {
    const auto found = names.find(key);
    return found != names.end() ? found->second : std::string();
}

}  // namespace

UsbNames UsbNames::load() {
    for (const char* const place : kPlaces) {
        UsbNames names = load(place);
        if (!names.mVendors.empty()) {
            return names;
        }
    }
    return {};
}

UsbNames UsbNames::load(const std::string& path) {
    UsbNames names;
    std::ifstream list(path);
    for (std::string line; std::getline(list, line);) {
        names.take(line);
    }
    return names;
}

void UsbNames::take(const std::string& line) {
    if (line.empty() || line.front() == '#') {
        return;
    }
    const std::string_view text = line;
    if (text.front() != '\t') {
        // A section of another kind begins with a word, whose letters may be digits: hence the blanks.
        mSection = Section::kNone;
        if (text.substr(0, 2) == "C ") {
            if (const std::optional<Entry> entry = entryOf(text.substr(2), 2)) {
                mSection = Section::kClass;
                mClasses[entry->number] = entry->name;
            }
        } else if (const std::optional<Entry> entry = entryOf(text, 4)) {
            mSection = Section::kVendor;
            mVendor = entry->number;
            mVendors[mVendor] = entry->name;
        }
        return;
    }
    if (mSection == Section::kVendor) {
        if (const std::optional<Entry> entry = entryOf(text.substr(1), 4)) {
            mProducts[mVendor << 16 | entry->number] = entry->name;
        }
    }
}

std::string UsbNames::vendor(uint32_t vendorId) const {
    return nameIn(mVendors, vendorId);
}

std::string UsbNames::product(uint32_t vendorId, uint32_t productId) const {
    return nameIn(mProducts, vendorId << 16 | productId);
}

std::string UsbNames::classOf(uint32_t classCode) const {
    return nameIn(mClasses, classCode);
}

}  // namespace devicectl
