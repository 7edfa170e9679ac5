// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/devicectl/EventQueue.h"
#include "usb/BnUsbManagerNotifier.h"
#include "usb/UsbHostNotifierItf.h"

namespace devicectl {

/**
 * The monitor's ear for the USB manager's events, as MonitorNotifier is for devices. Binder threads.
 */
class UsbMonitorNotifier : public usb::UsbManagerNotifierItf {
  public:
    explicit UsbMonitorNotifier(const android::sp<EventQueue>& queue) : mQueue(queue) {}

    int32_t onEvent(int32_t event, int32_t value) override;

  protected:
    ~UsbMonitorNotifier() override = default;

  private:
    const android::sp<EventQueue> mQueue;
};

/**
 * The monitor's ear for USB devices. Binder threads.
 */
class UsbHostMonitorNotifier : public usb::UsbHostNotifierItf {
  public:
    explicit UsbHostMonitorNotifier(const android::sp<EventQueue>& queue) : mQueue(queue) {}

    int32_t onUsbDeviceAttached(const android::sp<usb::UsbDeviceItf>& device) override;
    int32_t onUsbDeviceDetached(const android::sp<usb::UsbDeviceItf>& device) override;
    int32_t onEvent(int32_t event, int32_t value) override;

  protected:
    ~UsbHostMonitorNotifier() override = default;

  private:
    const android::sp<EventQueue> mQueue;
};

/**
 * Both ears as one: the binder of the manager notifier, which keeps that of the host notifier.
 */
class UsbMonitorEar : public usb::BnUsbManagerNotifier {
  public:
    explicit UsbMonitorEar(const android::sp<EventQueue>& queue);

    /** Registers both with the USB manager behind @p service. */
    static void add(const android::sp<android::IBinder>& service, const android::sp<android::IBinder>& ear);

    /**
     * Removes the manager notifier. The host notifier stays with the daemon until this process ends: there is
     * no call that removes it.
     */
    static void remove(const android::sp<android::IBinder>& service,
                       const android::sp<android::IBinder>& ear);

  protected:
    ~UsbMonitorEar() override = default;

  private:
    const android::sp<android::IBinder> mHostEar;
};

}  // namespace devicectl
