// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Writing the kernel's attributes: module parameters, sysfs and procfs entries.
 *
 * Every write is an `echo` of the shell. Nothing is quoted, neither path nor value: who passes a text on from
 * a client passes on what the shell makes of it (docs/usb-configuration.md).
 */

#include <cstdint>

namespace usb {

/**
 * Writes @p value in decimal (of an int32: 0xffffffff is written as -1) and a line feed, then logs the
 * command as a warning. Any thread; waits for the shell.
 *
 * Whether it succeeded is not looked at: the shell tells on standard error.
 *
 * @param file  path of the attribute; aborts when null
 */
void setValue(const char* file, uint32_t value);

/**
 * Logs the command as a warning, then writes @p value as it stands, without a line feed. Any thread; waits
 * for the shell.
 *
 * Whether it succeeded is not looked at, as in setValue().
 *
 * @param file   path of the attribute; aborts when null
 * @param value  null is written as "(null)", and the shell makes what it makes of that
 */
void setValueString(const char* file, const char* value);

/** Runs @p command in the shell and waits for its end; its result is not looked at. Any thread. */
void runShell(const char* command);

}  // namespace usb
