// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The interface records of the unit's store.
 */

#include <utils/KeyedVector.h>
#include <utils/String8.h>

#include <cstdint>

#include "common/Uevent.h"

namespace usb {

/**
 * Publishes which device node sits on which USB interface.
 *
 * It follows the uevents of subsystem "usb": an interface that comes gets the next number of its bus, a node
 * that comes below an interface is published in the interface's record, and the record goes with the
 * interface. Numbers of a bus begin at 0 again once all its interfaces are gone.
 *
 * Nodes whose uevents carry a subsystem of their own (tty, hidraw, block) get no record. Failures are logged
 * with the tag "UsbManagerImpl"; a failed publication is not retried.
 *
 * Uevent thread.
 */
class UEventPublisher {
  public:
    UEventPublisher() = default;
    UEventPublisher(const UEventPublisher&) = delete;
    UEventPublisher& operator=(const UEventPublisher&) = delete;

    /** The one that the daemon feeds: created at the first call, never destroyed. */
    static UEventPublisher& instance();

    /** Takes one uevent, of any subsystem. Every one that is not of "usb" leaves an error line. */
    void handle(const Uevent& uevent);

    /**
     * The number of the bus in a device path, as in "/devices/platform/x/usb2/2-1": of the two characters
     * after the first "/usb". At least two characters must follow it, so the path of a root hub with a
     * number of one digit has none. Aborts on null.
     *
     * @return 0 to 99, or below 0 when there is none
     */
    static int getBusNum(const char* path);

  private:
    struct Interface {
        uint32_t index = 0;
        android::String8 path;
        /** Device path of the node published last; empty when there is none, or when it is gone. */
        android::String8 node;
    };

    struct Bus {
        /** By device path. */
        android::KeyedVector<android::String8, Interface> interfaces;
        uint32_t nextIndex = 0;
    };

    void removePath(int busNumber, const char* path);
    void addInterface(int busNumber, const char* path);
    void addNode(int busNumber, const char* path, const char* name);

    android::KeyedVector<int, Bus> mBuses;
};

}  // namespace usb
