// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <cstdint>
#include <functional>

#include "device/DeviceItf.h"
#include "usb/UsbDeviceItf.h"
#include "usb/UsbManagerNotifierItf.h"
#include "volume/VolumeItf.h"

namespace client {

/** The three services of the daemon. The values are bits of Options::services. */
enum class Service : uint32_t {
    kDeviceManager = 1,  ///< device::IDeviceManager
    kVolumeManager = 2,  ///< volume::IVolumeManager
    kUsbManager = 4,     ///< usb::IUsbManager
};

/**
 * What a Client tells: one call-back for each kind of event. One left empty is not told, and costs nothing.
 *
 * All of them run on the client's own thread, "DeviceClient", one after the other, each service's in the
 * order in which the daemon reported; numbered USB events may follow changes that came after them. They may
 * take their time and call anything, the client's own operations included; what comes meanwhile waits (see
 * Client). They must not throw.
 *
 * A thing that is told as removed is the very record that was told as added, so that records may be compared
 * by their addresses.
 */
struct Events {
    /**
     * @name The connection
     * connected() comes first; then what the daemon lists is compared with what was told before, and the
     * differences are told as the events below: what went, then what came; then pictureComplete(). From there
     * on events are live.
     * Between disconnected() and the next connected() the last picture stands.
     */
    ///@{
    std::function<void(Service service)> connected;        ///< A service is there.
    std::function<void(Service service)> pictureComplete;  ///< What it listed has been told.
    std::function<void(Service service)> disconnected;     ///< A service went; its picture stands.
    ///@}

    /** @name Devices of the card and USB controllers, as the kernel names them; by path. */
    ///@{
    std::function<void(const android::sp<device::DeviceItf>& device)> deviceAdded;    ///< One came.
    std::function<void(const android::sp<device::DeviceItf>& device)> deviceRemoved;  ///< One went.
    ///@}

    /**
     * @name Volumes, by name.
     * When volumeAdded() comes the volume is mounted already; getAccessPath() is where its files are,
     * "unknown" for a medium that could not be read or mounted. When volumeRemoved() comes the files are
     * gone.
     */
    ///@{
    std::function<void(const android::sp<volume::VolumeItf>& volume)> volumeAdded;    ///< One came.
    std::function<void(const android::sp<volume::VolumeItf>& volume)> volumeRemoved;  ///< One went.
    ///@}

    /** @name USB devices, hubs included; by the daemon's identifier. */
    ///@{
    std::function<void(const android::sp<usb::UsbDeviceItf>& device)> usbDeviceAttached;  ///< One came.
    std::function<void(const android::sp<usb::UsbDeviceItf>& device)> usbDeviceDetached;  ///< One went.
    ///@}

    /**
     * @name Numbered events, see the notifier interfaces of the services
     * They are not part of a picture: what is raised while the client is not connected is lost.
     */
    ///@{
    std::function<void(int32_t event, int32_t value)> usbEvent;      ///< usb::UsbManagerNotifierItf::UsbEvent
    std::function<void(int32_t event, int32_t value)> usbHostEvent;  ///< usb::UsbHostNotifierItf
    std::function<void(int32_t event, int32_t value)> deviceEvent;   ///< device::DeviceManagerNotifierItf
    std::function<void(int32_t event, int32_t value)> volumeEvent;   ///< volume::VolumeManagerNotifierItf
    ///@}

    /** The name under which @p service is registered, such as "VolumeManager"; of static storage. Any thread.
     */
    static const char* nameOf(Service service);
};

}  // namespace client
