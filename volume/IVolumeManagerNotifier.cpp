// SPDX-License-Identifier: Apache-2.0
#include "volume/IVolumeManagerNotifier.h"

#include "volume/BpVolumeManagerNotifier.h"

namespace volume {

static_assert(IVolumeManagerNotifier::kOnEvent == 1);
static_assert(IVolumeManagerNotifier::kOnVolumeRemoved == 3);

IMPLEMENT_META_INTERFACE(VolumeManagerNotifier, "volume.VolumeManagerNotifier")

}  // namespace volume
