// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "volume/VolumeManagerItf.h"

namespace volume {

/**
 * The volume manager as the binder service holds it: what clients may ask, and the dump.
 */
class VolumeManagerImplItf : public VolumeManagerItf {
  public:
    /**
     * Appends the manager's fixed line to @p result; the volumes themselves are in the log. Any thread.
     * @param args not used
     * @return 0
     */
    virtual int dump(const android::Vector<android::String16>& args, android::String8& result) = 0;

  protected:
    ~VolumeManagerImplItf() override = default;
};

}  // namespace volume
