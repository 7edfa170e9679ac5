// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "client/Events.h"
#include "device/IDeviceManager.h"
#include "usb/IUsbManager.h"
#include "volume/IVolumeManager.h"

namespace client {

class Session;
struct Environment;

/** What a Client is to do. */
struct Options {
    /** All three. */
    static constexpr uint32_t kAllServices = static_cast<uint32_t>(Service::kDeviceManager) |
                                             static_cast<uint32_t>(Service::kVolumeManager) |
                                             static_cast<uint32_t>(Service::kUsbManager);

    /** The services to connect to: Service values, or-ed. Others are left alone. */
    uint32_t services = kAllServices;

    /** How long to wait before looking again for a service that is not there. 1 ms to a day. */
    std::chrono::milliseconds retryInterval{250};
};

/**
 * An application's connection to the daemon: finds the services, waits for them, keeps a picture of what
 * there is, tells what changes, and connects again when the daemon was restarted.
 *
 *     client::Events events;
 *     events.volumeAdded = [](const auto& volume) { puts(volume->getAccessPath().string()); };
 *     client::Client client;
 *     if (client.start(events) != android::OK) { ... }
 *
 * The picture (devices(), volumes(), usbDevices()) and the events agree: a thing is in the picture when its
 * added event begins, and no more when its removed event begins. Each thing is told once as added and once as
 * removed, also when it comes or goes while the client connects. After a restart of the daemon the
 * differences are told in the same way, so that an application that follows the events needs no special case.
 *
 * Events wait without limit of time while a call-back runs, and the daemon is never held up by one. Their
 * number is bounded: with 256 waiting, what came and went unseen is left out, and so is the oldest numbered
 * event for each new one. What is left waiting is then bounded by the number of things there are.
 *
 * One for a process: the daemon knows a process's notifiers by its pid, and a second registration ends it. A
 * second Client that is started is refused; do not register notifiers of your own with the services that the
 * Client is connected to, either. A child that is forked must exec before it uses a client.
 *
 * Nothing is hidden: deviceManager(), volumeManager() and usbManager() are the services' own interfaces.
 *
 * Any thread, but for construction, start() and destruction, which are the owner's.
 */
class Client {
  public:
    /** Does nothing yet: see start(). */
    Client();

    /**
     * Ends: waits for the call-back that is running, takes the registrations back, and forgets the events.
     * No call-back runs afterwards. Hold no lock that a call-back takes. A daemon that lives but does not
     * answer holds it up.
     *
     * From inside a call-back: allowed. That call-back is the last one; what the events hold lives until it
     * returns.
     *
     * Another Client of this process may be started as soon as it returns.
     */
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /** @cond For the tests of the library: services from elsewhere. */
    explicit Client(Environment environment);
    /** @endcond */

    /**
     * Begins: starts the process's binder threads and the client's thread, which connects, and tells from now
     * on. Returns at once, whether there is a daemon, a service manager and a binder driver or not.
     *
     * @param events  copied; they and what they hold are gone when the destructor returns (see ~Client())
     * @return OK; ALREADY_EXISTS when a Client of this process, this one included, is started already;
     *         BAD_VALUE for options out of range; another error when there can be no thread
     */
    android::status_t start(Events events, const Options& options = Options());

    /**
     * Waits until every service of the options is connected and what it lists has been told.
     *
     * From inside a call-back it does not wait, since nothing could be told meanwhile.
     *
     * @param limit 0 or less looks only
     * @return whether all are connected
     */
    bool waitUntilConnected(std::chrono::milliseconds limit);

    /** Whether @p service is connected now and what it lists has been told. */
    bool isConnected(Service service) const;

    /**
     * @name The picture
     * What has been told so far, in the order in which it was told. No call of the daemon. While a service is
     * not connected, the last picture stands. Records are immutable and live as long as someone refers to
     * them.
     */
    ///@{
    /** Of the device manager. */
    std::vector<android::sp<device::DeviceItf>> devices() const;
    /** Of the volume manager. */
    std::vector<android::sp<volume::VolumeItf>> volumes() const;
    /** Of the USB manager, hubs included. */
    std::vector<android::sp<usb::UsbDeviceItf>> usbDevices() const;
    ///@}

    /**
     * @name The services
     * For every operation that they have; null while the service is not connected. Their calls wait for the
     * daemon, and answer with nothing when it dies (see the interfaces).
     */
    ///@{
    /** The device manager. */
    android::sp<device::IDeviceManager> deviceManager() const;
    /** The volume manager. */
    android::sp<volume::IVolumeManager> volumeManager() const;
    /** The USB manager. */
    android::sp<usb::IUsbManager> usbManager() const;
    ///@}

  private:
    const android::sp<Session> mSession;
};

}  // namespace client
