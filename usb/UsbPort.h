// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Power and role of the unit's USB host ports.
 *
 * Ports are numbered from 0 to 2 here and from 1 to 3 in the names of their platform devices. Any thread;
 * each operation waits for the shell.
 */

namespace usb {

/**
 * Turns the power of a port on or off.
 * @param port 0 to 2; any other logs an error and does nothing else
 * @return 0
 */
int setUsbPortPower(int port, bool on);

/**
 * Takes the power of a port away for a second. The caller waits that long.
 * @param port 0 to 2; any other logs an error and does nothing else
 * @return 0
 */
int resetUsbPort(int port);

/**
 * Whether a port is in the role of a host: its attribute begins with "0".
 * @param port 0 or 1; port 2 has no role to ask for, and any other is none: an error line and false
 * @return false also when the attribute cannot be read
 */
bool usbDeviceIsActived(int port);

}  // namespace usb
