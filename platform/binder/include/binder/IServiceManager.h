// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The directory of services.
 */

#include <binder/IInterface.h>
#include <utils/String16.h>
#include <utils/Vector.h>

namespace android {

/**
 * The service manager, by its classic protocol. All operations: any thread.
 */
class IServiceManager : public IInterface {
  public:
    DECLARE_META_INTERFACE(ServiceManager)

    /** Transaction codes. The values are the wire contract. */
    enum Transaction : uint32_t {
        GET_SERVICE_TRANSACTION = IBinder::FIRST_CALL_TRANSACTION,
        CHECK_SERVICE_TRANSACTION,
        ADD_SERVICE_TRANSACTION,
        LIST_SERVICES_TRANSACTION,
    };

    /** Longest name that is accepted, in characters. */
    static constexpr size_t kMaxNameLength = 127;

    /**
     * The service @p name; waits for it, looking once a second, five seconds at most. Null when it does not
     * come, at once when there is no service manager.
     */
    virtual sp<IBinder> getService(const String16& name) const = 0;

    /** The service @p name if it is registered now; else null. */
    virtual sp<IBinder> checkService(const String16& name) const = 0;

    /**
     * Registers @p service under @p name, in place of the one registered before.
     * @param allowIsolated passed on; of no meaning to the bundled manager
     * @return OK, the manager's refusal, or what hindered the call
     */
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false) = 0;

    /** Names of all services. */
    virtual Vector<String16> listServices() = 0;
};

/** The service manager's proxy. Never null and never waits; its operations fail when there is no manager. */
sp<IServiceManager> defaultServiceManager();

/** The service @p name as INTERFACE. @return OK, or NAME_NOT_FOUND */
template <typename INTERFACE>
status_t getService(const String16& name, sp<INTERFACE>* outService) {
    const sp<IBinder> binder = defaultServiceManager()->getService(name);
    *outService = interface_cast<INTERFACE>(binder);
    return *outService != nullptr ? OK : NAME_NOT_FOUND;
}

}  // namespace android
