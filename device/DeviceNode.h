// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>

#include "device/DeviceItf.h"

namespace device {

/**
 * An entry of the device manager's list: one device and the rules by which queries find it.
 *
 * Immutable; any thread.
 */
class DeviceNode : public virtual android::RefBase {
  public:
    /** @param device the record to wrap; must not be null. */
    explicit DeviceNode(const android::sp<DeviceItf>& device) : mDevice(device) {}

    const android::sp<DeviceItf>& getDevice() const { return mDevice; }

    /**
     * True when the device's path is a strict prefix of @p path.
     *
     * A plain prefix test, path components are not looked at: "/devices/a/usb1" counts as an ancestor of
     * "/devices/a/usb10". A device is never an ancestor of its own path.
     */
    bool isAncestorOf(const android::String8& path) const;

    /** True when @p path is the device's path. */
    bool isSamePath(const android::String8& path) const;

    /**
     * True when the device is of @p subsystem and its "DEVNAME" property is @p devName.
     *
     * Aborts the process when the subsystem matches and the device has no "DEVNAME".
     */
    bool match(const android::String8& subsystem, const android::String8& devName) const;

  protected:
    ~DeviceNode() override = default;

  private:
    const android::sp<DeviceItf> mDevice;
};

}  // namespace device
