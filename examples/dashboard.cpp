// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A small live table: the services, the volumes with their space, the USB devices.
 *
 * Shows: the picture that a client keeps, drawn anew whenever anything changes; all services at once; how the
 * picture stands while the daemon is away.
 */
#include <client/Client.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <string>

#include "Printable.h"
#include "Program.h"

namespace {

/** Free space in MiB as text; "-" where nothing is mounted. */
std::string freeSpace(const std::string& folder) {
    struct statvfs space = {};
    if (statvfs(folder.c_str(), &space) != 0) {
        return "-";
    }
    return std::to_string(static_cast<unsigned long long>(space.f_bavail) * space.f_frsize >> 20) +
           " MiB free";
}

/** From the client's thread and, once, from the main one. */
void draw(const client::Client& client) {
    static std::mutex sLock;
    const std::lock_guard<std::mutex> hold(sLock);
    if (isatty(STDOUT_FILENO) != 0) {
        printf("\033[H\033[2J");
    }
    for (const auto service :
         {client::Service::kDeviceManager, client::Service::kVolumeManager, client::Service::kUsbManager}) {
        printf("%-14s %s\n", client::Events::nameOf(service),
               client.isConnected(service) ? "connected" : "away");
    }
    printf("%zu devices\n", client.devices().size());
    for (const auto& volume : client.volumes()) {
        const std::string folder = volume->getAccessPath().string();
        printf("  volume %-12s %-6s %-12s %s, %s\n", volume->getName().string(), volume->getFormat().string(),
               printable(volume->getLabel().string()).c_str(), folder.c_str(), freeSpace(folder).c_str());
    }
    for (const auto& device : client.usbDevices()) {
        printf("  usb    %04x:%04x bus %u class %u\n", device->getVendorId(), device->getProductId(),
               device->getBusNumber(), device->getDeviceClass());
    }
    printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    const Program program(argc, argv, "A live table of services, volumes and USB devices.");

    client::Client client;
    const auto drawAnew = [&client](const auto&) { draw(client); };
    client::Events events;
    events.pictureComplete = events.disconnected = drawAnew;
    events.deviceAdded = events.deviceRemoved = drawAnew;
    events.volumeAdded = events.volumeRemoved = drawAnew;
    events.usbDeviceAttached = events.usbDeviceDetached = drawAnew;
    if (client.start(events) != android::OK) {
        fprintf(stderr, "the client cannot be started\n");
        return 1;
    }
    draw(client);
    program.runUntilEnd();
    return 0;
}
