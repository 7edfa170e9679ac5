// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The unit's vendor data: small texts under fixed numbers that outlive every restart.
 *
 * The bundled library keeps each item as a file of its number in /var/lib/vx-vendor-data, or in the folder
 * that the environment variable VX_VENDOR_DATA_DIR names (an absolute path; ignored in programs that gain
 * privileges at their start). See docs/vendor-data.md.
 *
 * Both functions: any thread, any number of processes at once. A read gives the whole of what one write
 * wrote.
 */

#ifdef __cplusplus
extern "C" {
#endif

/** Most characters of an item in the bundled library. */
#define VX_VENDOR_DATA_MAX_LENGTH 4096

/**
 * Reads an item.
 *
 * @param item    its number, 0 or more
 * @param length  characters to read, 1 to VX_VENDOR_DATA_MAX_LENGTH
 * @param buffer  room for @p length characters: the first ones of the item, then zeros where it is shorter.
 *                There is no terminating NUL when it is not. As it was upon failure.
 * @return 0, or -1 with errno set: ENOENT when the item was never written, EINVAL for wrong arguments,
 *         ENODATA for an empty item, or why it cannot be read. Item 173, the certification mode, is "O" as
 *         long as it was never written.
 */
int vx_vendor_data_read_string(int item, int length, char* buffer);

/**
 * Writes an item. When it returns 0 the item would survive a loss of power.
 *
 * @param buffer  its @p length characters; needs no terminating NUL
 * @param item    its number, 0 or more
 * @param length  1 to VX_VENDOR_DATA_MAX_LENGTH
 * @return 0, or -1 with errno set; the item is then as it was, unless only the last step failed, that of
 *         making its folder durable
 */
int vx_vendor_data_write_string(const char* buffer, int item, int length);

#ifdef __cplusplus
}
#endif
