// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Saving a file without losing the former one.
 */

#include <string>

/**
 * Writes @p content to the file @p path, made if it is missing.
 *
 * Where the folder of the file permits, the content goes to a new file that takes the place of the former one
 * when it is complete and on the disk: whatever goes wrong before, the former file is as it was. Owner, group
 * and mode stay; a symbolic link stays one, and the file that it leads to is replaced.
 *
 * Written in place, after room for the content has been reserved, is a file whose folder is not writable,
 * whose owner this process cannot give to a file, which has a second name or which is a mount point: a loss
 * of power in the middle of that damages it.
 *
 * Any thread, but one at a time for a file that is written in place.
 *
 * @return 0 or a negative errno; -EINVAL for what is no plain file
 */
int replaceFile(const std::string& path, const std::string& content);
