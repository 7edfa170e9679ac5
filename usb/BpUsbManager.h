// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "usb/IUsbManager.h"

namespace usb {

/**
 * Client proxy of the service "UsbManager"; see IUsbManager for the operations.
 */
class BpUsbManager : public android::BpInterface<IUsbManager> {
  public:
    explicit BpUsbManager(const android::sp<android::IBinder>& service)
        : android::BpInterface<IUsbManager>(service) {}

    int startup() override;
    int shutdown() override;
    int addNotifier(const android::sp<android::IBinder>& notifier) override;
    int removeNotifier(const android::sp<android::IBinder>& notifier) override;
    int addHostNotifier(const android::sp<android::IBinder>& notifier) override;
    int removeHostNotifier(const android::sp<android::IBinder>& notifier) override;
    int configUsbEnumerateScheme(bool oldFirst) override;
    int configDefaultMode(int mask, bool on) override;
    int checkAoaModeSupport(uint32_t deviceId) override;
    int configAoaDescription(const char* file) override;
    int aoaModeSwitchFilter(const char* serial) override;
    int configAoaTimeoutAction(bool reset) override;
    int switchUsbState(int function) override;
    int configAppleIapNodeName(const char* name) override;
    int configAppleEanNodeName(const char* name) override;
    int configKernelAutoRoleSwitch(bool on) override;
    int appleDeviceRoleSwitch(int deviceId) override;
    int isAppleCarplaySupport(uint32_t deviceId) override;
    int configAppleEanStringName(const char* name) override;
    int setUsbPortPower(int port, bool on) override;
    int resetUsbPort(int port) override;
    int getUsbDeviceCount() override;
    android::sp<UsbDeviceItf> queryUsbDevice(int index) override;
    int usbDeviceIsActived(int port) override;
    int postTestMessage(int what) override;
    int switchPortChargingMode(int port, int mode) override;
    int getPortChargingMode(int port) override;
    int setMaxHubTier(int tier) override;
    int addUnsupportedClass(int interfaceClass) override;
    int removeUnsupportedClass(int interfaceClass) override;
    int setCertificationMode(int mode) override;
    int getCertificationMode() override;

  private:
    int call(uint32_t code);
    int call(uint32_t code, int32_t value);
    int call(uint32_t code, int32_t first, int32_t second);
    int call(uint32_t code, const char* text);
    int call(uint32_t code, const android::sp<android::IBinder>& object);
};

}  // namespace usb
