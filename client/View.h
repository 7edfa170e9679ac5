// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <cstdint>
#include <vector>

#include "client/Event.h"
#include "client/Picture.h"

namespace client {

/** How far a session is with a service. */
enum class Phase {
    kAbsent,   ///< not there, as far as is known
    kReading,  ///< being registered with, and its list being read
    kLive,     ///< connected
};

/**
 * What a session knows of one service, and what the application has heard of it. Under the session's lock.
 *
 * @tparam Access DeviceAccess, VolumeAccess or UsbAccess
 */
template <typename Access>
struct View {
    using Record = android::sp<typename Access::Record>;

    bool isWanted = false;
    Phase phase = Phase::kAbsent;
    /** Number of the connection; 0 without one. What is heard of another one is late, and ignored. */
    uint64_t connection = 0;
    /** Null unless live. */
    android::sp<typename Access::Manager> manager;
    /** Whether all that was listed when it was connected has been told. */
    bool isComplete = false;
    /** Whether the manager may have begun anew without a word, and its list is to be read again. */
    bool isDoubtful = false;
    /** When to look for it again, on the monotonic clock. */
    nsecs_t lookAt = 0;
    /** What is known, told or waiting to be told. */
    Picture<Access> picture;
    /** Numbered events that came while the list was read. */
    std::vector<Event> early;
    /** What has been told, in the order of telling. */
    std::vector<Record> told;
};

/**
 * The session's end of a connection. The session's thread alone; after its end, the thread that stops the
 * session.
 */
template <typename Access>
struct Link {
    android::sp<android::IBinder> service;
    android::sp<typename Access::Manager> manager;
    android::sp<android::IBinder::DeathRecipient> death;
    /** Null as long as none was registered. */
    android::sp<android::IBinder> notifier;
};

}  // namespace client
