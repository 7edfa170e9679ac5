// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Local objects, and the base of interface proxies.
 */

#include <binder/IBinder.h>

namespace android {

/**
 * An object of this process that others may call.
 *
 * Requests arrive on the process's binder threads, several at once.
 */
class BBinder : public IBinder {
  public:
    BBinder();

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr, uint32_t flags = 0,
                           wp<DeathRecipient>* outRecipient = nullptr) override;
    BBinder* localBinder() override;

  protected:
    ~BBinder() override;

    /**
     * Answers a request: derived classes handle their own codes and leave all others to this one, which
     * serves PING, INTERFACE and DUMP.
     *
     * @param reply may be null
     * @return the status that the caller sees; the reply travels only with OK
     */
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0);

  private:
    static status_t dumpFromRequest(BBinder& object, const Parcel& data);
};

/**
 * Holds the remote object of an interface proxy.
 */
class BpRefBase : public virtual RefBase {
  protected:
    explicit BpRefBase(const sp<IBinder>& remote) : mRemote(remote) {}  ///< @param remote not null
    ~BpRefBase() override = default;

    IBinder* remote() const { return mRemote.get(); }  ///< The remote object; not null.

  private:
    BpRefBase(const BpRefBase&) = delete;
    BpRefBase& operator=(const BpRefBase&) = delete;

    const sp<IBinder> mRemote;
};

}  // namespace android
