// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Whether this process can use binder at all, asked before it does.
 *
 * A unit's libbinder may end a process that has no driver, or wait for ever for a service manager. A program
 * that asks here first tells its user in one line what is missing. Needs nothing of libbinder but its
 * published interface.
 */

#include <utils/String8.h>

namespace bindercheck {

/**
 * What keeps this process from the binder driver, and what to do about it, in one line; empty when the driver
 * is there, may be opened and speaks the protocol of this build. Opens the node for the length of the call.
 * Any thread.
 */
android::String8 driverProblem();

/**
 * What keeps this process from the service manager, and what to do about it, in one line; empty when it
 * answers. The driver's problem when there is one. Waits as long as the service manager takes to answer a
 * ping. Any thread.
 */
android::String8 serviceManagerProblem();

}  // namespace bindercheck
