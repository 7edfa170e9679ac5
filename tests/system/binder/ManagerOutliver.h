// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * A client that lives on while the service manager dies and another one takes its place. Prints "linked" when
 * the former may be killed, "died" when the next may start.
 * @return the exit status: 0, or 1 after a line that says what went wrong
 */
int outliveManager();
