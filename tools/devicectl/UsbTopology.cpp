// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/UsbTopology.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>

namespace devicectl {

namespace {

std::optional<uint32_t> number(std::string_view text, int base) {
    uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

std::optional<uint32_t> attribute(const std::filesystem::path& file) {
    std::string text;
    std::ifstream(file) >> text;
    return number(text, 16);
}

/** "1-1.4": bus, port, and the ports of hubs below; anything else is no device or a root hub. */
std::optional<UsbPlace> placeOf(std::string_view name) {
    const size_t dash = name.find('-');
    const std::optional<uint32_t> bus = number(name.substr(0, dash), 10);
    if (dash == std::string_view::npos || !bus) {
        return std::nullopt;
    }
    UsbPlace place;
    place.bus = *bus;
    for (std::string_view rest = name.substr(dash + 1);;) {
        const size_t dot = rest.find('.');
        const std::optional<uint32_t> port = number(rest.substr(0, dot), 10);
        if (!port) {
            return std::nullopt;
        }
        place.ports.push_back(*port);
        if (dot == std::string_view::npos) {
            return place;
        }
        rest.remove_prefix(dot + 1);
    }
}

}  // namespace

std::vector<UsbPlace> readUsbPlaces(const std::string& folder) {
    std::vector<UsbPlace> places;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::optional<UsbPlace> place = placeOf(entry->path().filename().string());
        const std::optional<uint32_t> vendor = place ? attribute(entry->path() / "idVendor") : std::nullopt;
        const std::optional<uint32_t> product = place ? attribute(entry->path() / "idProduct") : std::nullopt;
        // One that is going loses its attributes first.
        if (vendor && product) {
            place->vendor = *vendor;
            place->product = *product;
            places.push_back(std::move(*place));
        }
    }
    std::sort(places.begin(), places.end(), [](const UsbPlace& left, const UsbPlace& right) {
        return left.bus != right.bus ? left.bus < right.bus : left.ports < right.ports;
    });
    return places;
}

std::vector<uint32_t> takePlace(std::vector<UsbPlace>* places, uint32_t bus, uint32_t vendor,
                                uint32_t product) {
    const auto found = std::find_if(places->begin(), places->end(), [=](const UsbPlace& place) {
        return place.bus == bus && place.vendor == vendor && place.product == product;
    });
    if (found == places->end()) {
        return {};
    }
    std::vector<uint32_t> ports = found->ports;
    places->erase(found);
    return ports;
}

}  // namespace devicectl
