// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include "tools/devicectl/Registration.h"
#include "tools/devicectl/WakeUp.h"

namespace devicectl {

/*
 * Registrations of which only that something changed is heard: whoever waits looks at the lists again. What
 * came between two looks is in the next one, and one that registers before its first look misses nothing.
 */

/** Hears of volumes. @param wakeUp posted at each change */
RegistrationKind volumeChanges(const android::sp<WakeUp>& wakeUp);

/**
 * Hears of USB devices. There is no call that takes such a registration back: the daemon drops it when this
 * process ends. @param wakeUp posted at each change
 */
RegistrationKind usbChanges(const android::sp<WakeUp>& wakeUp);

}  // namespace devicectl
