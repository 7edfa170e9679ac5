// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace usb {

/**
 * The devices that were found to ask for more power than their ports give, as long as they stay attached: a
 * device that is announced twice is reported once.
 *
 * A device is known by its bus and address, which the bus hands to another one only after it has gone: no
 * reference to it is held, and none can outlive the detector's libusb context. When all entries are taken the
 * oldest gives way. For one thread at a time.
 */
class PowerTable {
  public:
    static constexpr size_t kSize = 5;

    /** A device's place on the buses at one time. */
    struct Place {
        uint8_t bus;
        uint8_t address;

        bool operator==(const Place& other) const { return bus == other.bus && address == other.address; }
    };

    /** Enters @p device. @return false when it is there already */
    bool add(const Place& device);

    /** Drops @p device; nothing happens when it is not there. */
    void remove(const Place& device);

    /** Drops all. */
    void clear() { mCount = 0; }

    /** Begins a look at what is attached: no entry is kept but for keep(). */
    void beginLook();

    /** Marks @p device as attached. */
    void keep(const Place& device);

    /** Ends the look: drops the entries that were not kept. */
    void endLook();

    /** The number of entries. */
    size_t size() const { return mCount; }

  private:
    struct Entry {
        Place device;
        bool keep;
    };

    size_t indexOf(const Place& device) const;
    void removeAt(size_t index);

    // The oldest first.
    std::array<Entry, kSize> mEntries = {};
    size_t mCount = 0;
};

}  // namespace usb
