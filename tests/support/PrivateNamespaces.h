// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A corner of the machine for one test program.
 */

#include <string>

/**
 * Moves the calling process, which must have one thread, into network and mount namespaces of its own:
 * nothing that it mounts, and no uevent that it has injected there, reaches the rest of the machine. "/sys"
 * is mounted anew, so that it shows the new namespace's network devices.
 *
 * Superuser only. Real uevents of the machine's other devices are still heard inside.
 *
 * @return empty, or what failed
 */
std::string enterPrivateNamespaces();
