// SPDX-License-Identifier: Apache-2.0
#include "volume/IVolumeManager.h"

#include "volume/BpVolumeManager.h"

namespace volume {

static_assert(IVolumeManager::kAddNotifier == 1);
static_assert(IVolumeManager::kQueryVolume == 6);

IMPLEMENT_META_INTERFACE(VolumeManager, "volume.VolumeManager")

}  // namespace volume
