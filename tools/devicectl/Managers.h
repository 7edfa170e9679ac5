// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/RefBase.h>

#include <string>
#include <string_view>
#include <vector>

namespace devicectl {

/** One manager of the daemon: a row of the table behind `start` and `stop`. */
struct Manager {
    const char* name;     ///< on the command line
    const char* service;  ///< in the service manager

    /** Starts it through its service's binder. @return the service's answer; 0 if the call itself fails */
    int (*startup)(const android::sp<android::IBinder>& service);

    /** Stops it, as startup. */
    int (*shutdown)(const android::sp<android::IBinder>& service);
};

/** The manager @p name; null if there is none such. */
const Manager* findManager(std::string_view name);

/** The names of all managers, for a text. */
std::string managerNames();

/**
 * The managers that a command is for, in the order in which they are started: the device manager, which
 * starts the events for all, comes last. They are stopped in the reverse order.
 *
 * @param name one manager's name; empty for all
 */
std::vector<const Manager*> managersToStart(std::string_view name);

/** As managersToStart(), in the order in which they are stopped. */
std::vector<const Manager*> managersToStop(std::string_view name);

}  // namespace devicectl
