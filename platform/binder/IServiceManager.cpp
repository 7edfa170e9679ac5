// SPDX-License-Identifier: Apache-2.0
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <unistd.h>

namespace android {

namespace {

constexpr int kLooks = 5;
constexpr unsigned kSecondsBetweenLooks = 1;

class BpServiceManager : public BpInterface<IServiceManager> {
  public:
    explicit BpServiceManager(const sp<IBinder>& manager) : BpInterface<IServiceManager>(manager) {}

    sp<IBinder> getService(const String16& name) const override {
        for (int look = 1; look <= kLooks; ++look) {
            sp<IBinder> service;
            const status_t status = lookUp(name, &service);
            if (service != nullptr || status == DEAD_OBJECT || status == NO_INIT) {
                return service;
            }
            if (look < kLooks) {
                sleep(kSecondsBetweenLooks);
            }
        }
        return nullptr;
    }

    sp<IBinder> checkService(const String16& name) const override {
        sp<IBinder> service;
        lookUp(name, &service);
        return service;
    }

    status_t addService(const String16& name, const sp<IBinder>& service, bool allowIsolated) override {
        Parcel request;
        Parcel reply;
        request.writeInterfaceToken(descriptor);
        request.writeString16(name);
        request.writeStrongBinder(service);
        request.writeInt32(allowIsolated ? 1 : 0);
        const status_t status = remote()->transact(ADD_SERVICE_TRANSACTION, request, &reply, 0);
        return status == OK ? reply.readExceptionCode() : status;
    }

    Vector<String16> listServices() override {
        Vector<String16> names;
        for (int32_t index = 0;; ++index) {
            Parcel request;
            Parcel reply;
            request.writeInterfaceToken(descriptor);
            request.writeInt32(index);
            String16 name;
            if (remote()->transact(LIST_SERVICES_TRANSACTION, request, &reply, 0) != OK ||
                reply.readString16(&name) != OK) {
                return names;
            }
            names.add(name);
        }
    }

  private:
    /** @return an error when the manager cannot be asked; a service that is not there is none */
    status_t lookUp(const String16& name, sp<IBinder>* service) const {
        Parcel request;
        Parcel reply;
        request.writeInterfaceToken(descriptor);
        request.writeString16(name);
        const status_t status = remote()->transact(CHECK_SERVICE_TRANSACTION, request, &reply, 0);
        *service = reply.readStrongBinder();
        return status;
    }
};

}  // namespace

IMPLEMENT_META_INTERFACE(ServiceManager, "android.os.IServiceManager")

sp<IServiceManager> defaultServiceManager() {
    static IServiceManager* const sManager = [] {
        const sp<IServiceManager> manager =
            interface_cast<IServiceManager>(ProcessState::self()->getContextObject());
        manager->incStrong(nullptr);
        return manager.get();
    }();
    return sManager;
}

}  // namespace android
