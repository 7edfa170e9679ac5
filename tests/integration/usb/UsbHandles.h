// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * libusb_open() and libusb_close() of the program under test, counted and one at a time: the bed keeps the
 * device nodes that are open in a table without a lock, and of two that are opened at once it may forget one.
 */

#include <atomic>

/** Handles of the process. Every thread may read them. */
struct UsbHandles {
    static UsbHandles& instance();

    std::atomic<int> opens{0};  //!< calls of libusb_open()
    std::atomic<int> held{0};   //!< opened less closed
};
