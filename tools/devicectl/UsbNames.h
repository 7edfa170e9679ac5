// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace devicectl {

/**
 * What vendors, products and classes are called, by the public list of USB numbers. A value.
 */
class UsbNames {
  public:
    /** Knows no name. */
    UsbNames() = default;

    /** Reads the system's list, if there is one. */
    static UsbNames load();

    /** Reads the list at @p path; knows nothing when that cannot be read. Lines that it cannot make out are
     *  left out. */
    static UsbNames load(const std::string& path);

    /** Empty when not known, as the two below. Bytes as they stand in the list. */
    std::string vendor(uint32_t vendorId) const;
    std::string product(uint32_t vendorId, uint32_t productId) const;

    /** Of a device's or an interface's class. */
    std::string classOf(uint32_t classCode) const;

  private:
    void take(const std::string& line);

    std::unordered_map<uint32_t, std::string> mVendors;
    std::unordered_map<uint32_t, std::string> mProducts;  ///< by vendor << 16 | product
    std::unordered_map<uint32_t, std::string> mClasses;
    /** While reading: the section that the line is in. */
    enum class Section { kNone, kVendor, kClass } mSection = Section::kNone;
    uint32_t mVendor = 0;
};

}  // namespace devicectl
