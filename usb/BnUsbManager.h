// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/ManagerService.h"
#include "usb/IUsbManager.h"
#include "usb/UsbHostNotifierProxy.h"
#include "usb/UsbHostNotifierWapper.h"
#include "usb/UsbManagerImplItf.h"
#include "usb/UsbManagerNotifierProxy.h"
#include "usb/UsbManagerNotifierWapper.h"

namespace usb {

class BnUsbManager;
class UsbHostNotifierDeathRecipient;
class UsbManagerNotifierDeathRecipient;

/** The USB service's instance of the client registry for events. */
struct UsbManagerNotifierTraits {
    using Interface = IUsbManager;
    using Impl = UsbManagerImplItf;
    using Manager = BnUsbManager;
    using NotifierItf = UsbManagerNotifierItf;
    using Wapper = UsbManagerNotifierWapper;
    using Proxy = UsbManagerNotifierProxy;
    using DeathRecipient = UsbManagerNotifierDeathRecipient;

    static constexpr uint32_t kLastCode = Interface::kGetCertificationMode;
    static constexpr const char* kFile = "IUsbManager";
    static constexpr const char* kConstructor =
        "usb::BnUsbManager::BnUsbManager(const android::sp<usb::UsbManagerImplItf>&)";
    static constexpr const char* kAddFunction =
        "virtual int usb::BnUsbManager::addNotifier(const android::sp<android::IBinder>&)";
    static constexpr const char* kRemoveFunction =
        "virtual int usb::BnUsbManager::removeNotifier(const android::sp<android::IBinder>&)";

    static NotifierRegistry<UsbManagerNotifierTraits>& registryOf(BnUsbManager& manager);
};

/** The USB service's instance of the client registry for devices. */
struct UsbHostNotifierTraits {
    using Manager = BnUsbManager;
    using NotifierItf = UsbHostNotifierItf;
    using Wapper = UsbHostNotifierWapper;
    using Proxy = UsbHostNotifierProxy;
    using DeathRecipient = UsbHostNotifierDeathRecipient;

    static constexpr const char* kFile = "IUsbManager";
    static constexpr const char* kAddFunction =
        "virtual int usb::BnUsbManager::addHostNotifier(const android::sp<android::IBinder>&)";
    static constexpr const char* kRemoveFunction =
        "virtual int usb::BnUsbManager::removeHostNotifier(const android::sp<android::IBinder>&)";

    static NotifierRegistry<UsbHostNotifierTraits>& registryOf(BnUsbManager& manager);
};

/** Drops a client's manager notifier when it dies. */
class UsbManagerNotifierDeathRecipient : public NotifierDeathRecipient<UsbManagerNotifierTraits> {
  public:
    using NotifierDeathRecipient::NotifierDeathRecipient;

  protected:
    ~UsbManagerNotifierDeathRecipient() override = default;
};

/** Drops a client's host notifier when it dies. */
class UsbHostNotifierDeathRecipient : public NotifierDeathRecipient<UsbHostNotifierTraits> {
  public:
    using NotifierDeathRecipient::NotifierDeathRecipient;

  protected:
    ~UsbHostNotifierDeathRecipient() override = default;
};

/**
 * The service object "UsbManager": unpacks requests for the USB manager's core and keeps the clients'
 * notifiers of both kinds. Its dump does not list the host notifiers. A text or a binder that a request lacks
 * is null to the operation.
 *
 * Any thread, several at once.
 */
class BnUsbManager : public ManagerService<UsbManagerNotifierTraits> {
  public:
    /** Serves @p impl and becomes its two notifiers. Aborts the process when it is null. */
    explicit BnUsbManager(const android::sp<UsbManagerImplItf>& impl);

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

  protected:
    ~BnUsbManager() override = default;

  private:
    friend struct UsbHostNotifierTraits;

    android::status_t dispatch(uint32_t code, const android::Parcel& data, android::Parcel& reply) override;
    android::status_t dispatchText(uint32_t code, const char* text, android::Parcel& reply);
    android::status_t dispatchNumber(uint32_t code, int32_t value, android::Parcel& reply);
    android::status_t dispatchNumbers(uint32_t code, int32_t first, int32_t second, android::Parcel& reply);
    android::status_t replyUsbDevice(int32_t index, android::Parcel& reply);

    const android::sp<UsbHostNotifierProxy> mHostNotifierProxy;
    NotifierRegistry<UsbHostNotifierTraits> mHostNotifiers;
};

}  // namespace usb
