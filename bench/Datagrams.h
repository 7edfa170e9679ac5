// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/**
 * Uevents as the kernel of a head unit sends them when a USB stick is plugged in: tokens, each with its NUL.
 */
namespace bench {

/** The "add" of a partition: 12 properties. Without SEQNUM, which the kernel appends to injected events. */
std::string blockEvent();

/** The "add" of a USB device: 20 properties. Without SEQNUM. */
std::string usbEvent();

/** @p event with the SEQNUM that the kernel would append. */
std::string withSeqnum(const std::string& event);

}  // namespace bench
