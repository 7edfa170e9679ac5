// SPDX-License-Identifier: Apache-2.0
#include "usb/PowerTable.h"

#include <algorithm>

namespace usb {

bool PowerTable::add(const Place& device) {
    if (indexOf(device) < mCount) {
        return false;
    }
    if (mCount == kSize) {
        removeAt(0);
    }
    mEntries[mCount++] = {device, /*keep=*/true};
    return true;
}

void PowerTable::remove(const Place& device) {
    const size_t index = indexOf(device);
    if (index < mCount) {
        removeAt(index);
    }
}

void PowerTable::beginLook() {
    for (Entry& entry : mEntries) {
        entry.keep = false;
    }
}

void PowerTable::keep(const Place& device) {
    const size_t index = indexOf(device);
    if (index < mCount) {
        mEntries[index].keep = true;
    }
}

void PowerTable::endLook() {
    Entry* const end = mEntries.data() + mCount;
    Entry* const kept = std::remove_if(mEntries.data(), end, [](const Entry& entry) { return !entry.keep; });
    mCount = static_cast<size_t>(kept - mEntries.data());
}

/** mCount when it is not there. */
size_t PowerTable::indexOf(const Place& device) const {
    size_t index = 0;
    while (index < mCount && !(mEntries[index].device == device)) {
        ++index;
    }
    return index;
}

void PowerTable::removeAt(size_t index) {
    std::copy(mEntries.data() + index + 1, mEntries.data() + mCount, mEntries.data() + index);
    --mCount;
}

}  // namespace usb
