// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/String8.h>

namespace device {

/**
 * A device of the kernel, as one uevent described it: its path, its subsystem and its properties.
 *
 * Records are filled by the thread that creates them and only read once they are shared, so readers on
 * any thread need no lock. References returned stay valid as long as the record lives and is not changed.
 */
class DeviceItf : public virtual android::RefBase {
  public:
    /** Path below the sysfs root, such as "/devices/platform/ehci-platform.1/usb1/1-1"; empty if never set.
     */
    virtual const android::String8& getPath() const = 0;

    /** The kernel's subsystem name, such as "block"; empty if never set. */
    virtual const android::String8& getSubsystem() const = 0;

    /**
     * The value of the property @p key.
     *
     * Aborts the process when the device has no such property: ask only for keys that are known to be
     * present.
     */
    virtual const android::String8& getParam(const android::String8& key) const = 0;

    /** Number of properties. */
    virtual size_t getParamSize() const = 0;

    /** Key of the property at @p index, 0 to getParamSize() - 1, in ascending byte order of the keys. */
    virtual const android::String8& getParamName(size_t index) const = 0;

    /** Value of the property at @p index, 0 to getParamSize() - 1, in the order of getParamName(). */
    virtual const android::String8& getParamValue(size_t index) const = 0;

    /** Sets the path. @p path may be null, which leaves it empty. Before the record is shared only. */
    virtual void setPath(const char* path) = 0;

    /** Sets the subsystem. @p subsystem may be null, which leaves it empty. Before the record is shared only.
     */
    virtual void setSubsystem(const char* subsystem) = 0;

    /** Adds a property; a second value for a key replaces the first. Before the record is shared only. */
    virtual void addParam(const char* key, const char* value) = 0;

    /** @copydoc setPath(const char*) */
    virtual void setPath(const android::String8& path) = 0;

    /** @copydoc setSubsystem(const char*) */
    virtual void setSubsystem(const android::String8& subsystem) = 0;

    /** @copydoc addParam(const char*, const char*) */
    virtual void addParam(const android::String8& key, const android::String8& value) = 0;

    /** Writes the record to the log at info priority, one line for path, subsystem and each property. */
    virtual void dump() const = 0;

  protected:
    ~DeviceItf() override = default;
};

}  // namespace device
