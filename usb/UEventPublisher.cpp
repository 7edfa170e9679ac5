// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UsbManagerImpl"

#include "usb/UEventPublisher.h"

#include <log/log.h>
#include <velta_pps/Publisher.h>

#include <cstdlib>
#include <cstring>

#include "common/Assert.h"
#include "usb/UsbRecordNames.h"

namespace usb {

using android::String8;

namespace {

constexpr char kUsb[] = "usb";
constexpr char kBusFolder[] = "/usb";
constexpr char kInterfaceType[] = "usb_interface";

/**
 * Value of the property @p key, null without it. Uevent::FindParam is no help: it takes any longer name for
 * the key, and logs what it does not find.
 */
const char* paramOf(const Uevent& uevent, const char* key) {
    for (int i = 0; i < uevent.getParamSize(); ++i) {
        if (strcmp(uevent.paramName(i), key) == 0) {
            return uevent.paramValue(i);
        }
    }
    return nullptr;
}

/**
 * Whether @p path holds @p interface as a whole: the node of ":1.10" does not sit on ":1.1".
 */
bool isBelow(const String8& interface, const char* path) {
    for (const char* found = strstr(path, interface.string()); found != nullptr;
         found = strstr(found + 1, interface.string())) {
        const char next = found[interface.size()];
        if (next == '/' || next == '\0') {
            return true;
        }
    }
    return false;
}

void publish(const velta_pps::PPSNotification& notification) {
    if (velta_pps::Publisher::self().publish(notification) != 0) {
        ALOGE("[UEventPublisher]publish failed!! obj_name[%s]", notification.object.name.c_str());
    }
}

}  // namespace

UEventPublisher& UEventPublisher::instance() {
    // Never destroyed: the uevent thread may run until the very end of the process.
    static auto* const sPublisher = new UEventPublisher();
    return *sPublisher;
}

int UEventPublisher::getBusNum(const char* path) {
    SERVICE_ASSERT(path != nullptr, "path!=__null", "UEventPublisher");
    const char* const found = strstr(path, kBusFolder);
    if (found == nullptr) {
        return -1;
    }
    const char* const digits = found + sizeof(kBusFolder) - 1;
    if (digits[0] == '\0' || digits[1] == '\0') {
        return -1;
    }
    if (digits[0] == '0') {
        return 0;
    }
    const char number[] = {digits[0], digits[1] != '/' ? digits[1] : '\0', '\0'};
    // Text that is no number gives 0.
    const int result = atoi(number);
    return result != 0 ? result : -1;
}

void UEventPublisher::handle(const Uevent& uevent) {
    const char* const subsystem = uevent.getSubsystem();
    if (subsystem == nullptr) {
        ALOGE("[UEventPublisher]have no sub system");
        return;
    }
    if (strcmp(subsystem, kUsb) != 0) {
        ALOGE("[UEventPublisher]the subsystem is not usb");
        return;
    }
    const char* const path = uevent.getPath();
    if (path == nullptr) {
        ALOGE("[UEventPublisher]have no device path");
        return;
    }
    const int busNumber = getBusNum(path);
    if (busNumber < 0) {
        ALOGE("[UEventPublisher]get bus num failed");
        return;
    }
    if (uevent.getAction() == Uevent::kActionRemove) {
        removePath(busNumber, path);
        return;
    }
    if (uevent.getAction() != Uevent::kActionAdd) {
        return;
    }
    const char* const type = paramOf(uevent, "DEVTYPE");
    if (type != nullptr && strcmp(type, kInterfaceType) == 0) {
        addInterface(busNumber, path);
    } else {
        addNode(busNumber, path, paramOf(uevent, "DEVNAME"));
    }
}

void UEventPublisher::removePath(int busNumber, const char* path) {
    const ssize_t busIndex = mBuses.indexOfKey(busNumber);
    if (busIndex < 0) {
        return;
    }
    Bus& bus = mBuses.editValueAt(static_cast<size_t>(busIndex));
    for (size_t i = bus.interfaces.size(); i-- > 0;) {
        Interface& interface = bus.interfaces.editValueAt(i);
        if (interface.node == path) {
            // The record stays until its interface goes; the next node is the only one again.
            interface.node = String8();
        }
        if (interface.path != path) {
            continue;
        }
        velta_pps::PPSNotification notification;
        notification.operation = velta_pps::PPSNotification::kRemove;
        notification.object.name = interfaceRecordName(busNumber, interface.index);
        publish(notification);
        if (bus.interfaces.removeItemsAt(i) < 0) {
            ALOGE("[UEventPublisher]remove usb interface failed!:path[%s]", path);
        }
    }
    if (bus.interfaces.isEmpty() && mBuses.removeItem(busNumber) < 0) {
        ALOGE("[UEventPublisher]remove usb device failed!:busNum[%d]", busNumber);
    }
}

void UEventPublisher::addInterface(int busNumber, const char* path) {
    ssize_t busIndex = mBuses.indexOfKey(busNumber);
    if (busIndex < 0) {
        busIndex = mBuses.add(busNumber, Bus());
    }
    const String8 key(path);
    // Out of memory a text is empty, which would then be found within every path.
    if (busIndex < 0 || key.isEmpty()) {
        ALOGE("[UEventPublisher]add usb interface failed!:path[%s]", path);
        return;
    }
    Bus& bus = mBuses.editValueAt(static_cast<size_t>(busIndex));
    if (bus.interfaces.indexOfKey(key) >= 0) {
        ALOGE("[UEventPublisher]interface add twice");
        return;
    }
    Interface interface;
    interface.index = bus.nextIndex++;
    interface.path = key;
    if (bus.interfaces.add(key, interface) < 0) {
        ALOGE("[UEventPublisher]add usb interface failed!:path[%s]", path);
    }
}

void UEventPublisher::addNode(int busNumber, const char* path, const char* name) {
    const ssize_t busIndex = mBuses.indexOfKey(busNumber);
    if (busIndex < 0) {
        return;
    }
    if (name == nullptr) {
        ALOGE("[UEventPublisher]uevent have no device name");
        return;
    }
    Bus& bus = mBuses.editValueAt(static_cast<size_t>(busIndex));
    for (size_t i = 0; i < bus.interfaces.size(); ++i) {
        Interface& interface = bus.interfaces.editValueAt(i);
        if (!isBelow(interface.path, path)) {
            continue;
        }
        if (!interface.node.isEmpty()) {
            ALOGW("[UEventPublisher]multiple devices on one interface");
        }
        interface.node = path;
        velta_pps::PPSNotification notification;
        notification.operation = velta_pps::PPSNotification::kPublish;
        notification.object.name = interfaceRecordName(busNumber, interface.index);
        notification.object.attributes = {{"DEVPATH", path}, {"DEVNAME", name}};
        publish(notification);
        return;
    }
}

}  // namespace usb
