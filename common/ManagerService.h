// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <utils/Mutex.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include <cstdint>

#include "common/Assert.h"
#include "common/DumpText.h"
#include "common/NotifierRegistry.h"

/**
 * What the managers' service objects have in common: the core and its one notifier, the clients' notifiers,
 * the first four transactions, the dump.
 *
 * A service object derives from it with the traits of its registry, which name some things more:
 *
 *     struct Traits {                                       // besides what NotifierRegistry asks for:
 *         using Interface = ...;                            // with kAddNotifier, kRemoveNotifier, kStartup
 *                                                           // and kShutdown, the first and lowest four
 *         using Impl = ...;                                 // the interface of the manager's core
 *         static constexpr uint32_t kLastCode = ...;        // the highest transaction code of Interface
 *         static constexpr const char* kConstructor = ...;  // signature in the assertion of the constructor
 *     };
 *
 * Any thread, several at once.
 */
template <typename Traits>
class ManagerService : public android::BnInterface<typename Traits::Interface> {
  public:
    int startup() override { return mImpl->startup(); }
    int shutdown() override { return mImpl->shutdown(); }
    int addNotifier(const android::sp<android::IBinder>& notifier) override {
        return mNotifiers.add(self(), notifier, callingPid());
    }
    int removeNotifier(const android::sp<android::IBinder>& notifier) override {
        return mNotifiers.remove(notifier, callingPid());
    }

    /**
     * Writes the service's state to @p fd in one write: the interface's descriptor, then the registered
     * clients when the first of @p args is "notifier", else the core's dump, which is made without a lock
     * held.
     * @return OK
     */
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;

    /**
     * Every reply begins with an int32 0, also those of the base class's transactions and those to a caller
     * who wants none.
     * @return -1 when the request is not for this interface; an error status when it is cut short
     */
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;

  protected:
    /** Serves @p impl and becomes its notifier. Aborts the process when it is null. */
    explicit ManagerService(const android::sp<typename Traits::Impl>& impl);
    ~ManagerService() override = default;

    /** Of the client that is being served. */
    static int32_t callingPid() { return android::IPCThreadState::self()->getCallingPid(); }

    /** The whole service object. */
    typename Traits::Manager* self() { return static_cast<typename Traits::Manager*>(this); }

    const android::sp<typename Traits::Proxy> mNotifierProxy;
    /** Guards the entries of mNotifiers, and of the derived class's registries. Taken before the proxies'
     * locks. */
    android::Mutex mLock;
    NotifierRegistry<Traits> mNotifiers;
    const android::sp<typename Traits::Impl> mImpl;

  private:
    friend Traits;

    /**
     * Answers a request of an operation of the service's own.
     * @param code one of Interface beyond the first four
     * @param data at its first field
     * @param reply behind its leading 0
     */
    virtual android::status_t dispatch(uint32_t code, const android::Parcel& data,
                                       android::Parcel& reply) = 0;
};

template <typename Traits>
ManagerService<Traits>::ManagerService(const android::sp<typename Traits::Impl>& impl)
    : mNotifierProxy(new typename Traits::Proxy()), mNotifiers(mLock, mNotifierProxy), mImpl(impl) {
    SERVICE_ASSERT_IN(mImpl != nullptr, "impl.get()", Traits::kFile, Traits::kConstructor);
    mImpl->setNotifier(mNotifierProxy);
}

template <typename Traits>
android::status_t ManagerService<Traits>::dump(int fd, const android::Vector<android::String16>& args) {
    android::String8 text;
    appendDumpHeader(text, android::String8(this->getInterfaceDescriptor()).string());
    if (!args.isEmpty() && args[0] == android::String16("notifier")) {
        mNotifiers.dump(text);
    } else {
        mImpl->dump(args, text);
    }
    writeDump(fd, text);
    return android::OK;
}

template <typename Traits>
android::status_t ManagerService<Traits>::onTransact(uint32_t code, const android::Parcel& data,
                                                     android::Parcel* reply, uint32_t flags) {
    android::Parcel unused;
    android::Parcel& answer = reply != nullptr ? *reply : unused;
    answer.writeInt32(0);
    if (code < Traits::Interface::kAddNotifier || code > Traits::kLastCode) {
        return android::BBinder::onTransact(code, data, &answer, flags);
    }
    if (!data.checkInterface(this)) {
        return -1;
    }
    switch (code) {
        case Traits::Interface::kAddNotifier:
            return answer.writeInt32(this->addNotifier(data.readStrongBinder()));
        case Traits::Interface::kRemoveNotifier:
            return answer.writeInt32(this->removeNotifier(data.readStrongBinder()));
        case Traits::Interface::kStartup:
            return answer.writeInt32(this->startup());
        case Traits::Interface::kShutdown:
            return answer.writeInt32(this->shutdown());
        default:
            return dispatch(code, data, answer);
    }
}
