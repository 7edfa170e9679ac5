// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>
#include <utils/Vector.h>

#include "volume/IVolumeManager.h"

namespace devicectl {

using Volumes = android::Vector<android::sp<volume::VolumeItf>>;

/**
 * The volumes in ascending order of their names, none of them null. Read until two readings agree. A service
 * that dies meanwhile ends the list early: ask afterwards whether it lives.
 */
Volumes listVolumes(volume::IVolumeManager& manager);

/** Whether @p text, a path of a volume's record, says something. */
bool isKnown(const android::String8& text);

}  // namespace devicectl
