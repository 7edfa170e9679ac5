// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/KeyedVector.h>

#include "device/DeviceItf.h"

namespace device {

/**
 * The device record that the daemon keeps and that clients receive.
 */
class Device : public DeviceItf {
  public:
    Device() = default;

    const android::String8& getPath() const override { return mPath; }
    const android::String8& getSubsystem() const override { return mSubsystem; }
    const android::String8& getParam(const android::String8& key) const override;
    size_t getParamSize() const override { return mParams.size(); }
    const android::String8& getParamName(size_t index) const override { return mParams.keyAt(index); }
    const android::String8& getParamValue(size_t index) const override { return mParams.valueAt(index); }

    void setPath(const char* path) override;
    void setSubsystem(const char* subsystem) override;
    void addParam(const char* key, const char* value) override;
    void setPath(const android::String8& path) override { mPath = path; }
    void setSubsystem(const android::String8& subsystem) override { mSubsystem = subsystem; }
    void addParam(const android::String8& key, const android::String8& value) override;

    void dump() const override;

  protected:
    ~Device() override = default;

  private:
    android::String8 mPath;
    android::String8 mSubsystem;
    android::KeyedVector<android::String8, android::String8> mParams;
};

}  // namespace device
