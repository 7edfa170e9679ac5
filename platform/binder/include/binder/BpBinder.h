// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The driver's handle of an object in another process.
 */

#include <binder/IBinder.h>
#include <utils/Mutex.h>

#include <atomic>
#include <vector>

namespace android {

class ProcessState;

/**
 * The proxy of an object in another process. There is one for each handle, made by ProcessState and shared by
 * whoever receives the object; its last reference gives the handle back.
 */
class BpBinder : public IBinder {
  public:
    /** The handle, for messages; meaningful in this process only. 0 is the service manager. */
    int32_t handle() const { return mHandle; }

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr, uint32_t flags = 0,
                           wp<DeathRecipient>* outRecipient = nullptr) override;
    BpBinder* remoteBinder() override;

    /**
     * The driver told that the object is dead: tells all recipients, once. A binder thread.
     * @param token of the request that the driver answers; one that was taken back meanwhile counts no more
     */
    void sendObituary(uint64_t token);

  protected:
    ~BpBinder() override;

  private:
    friend class ProcessState;

    struct Obituary {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    explicit BpBinder(int32_t handle);

    void clearDeathRequestLocked() REQUIRES(mLock);

    const int32_t mHandle;
    std::atomic<bool> mAlive{true};
    /** Guards the members below. Never held while another object is called. */
    mutable Mutex mLock;
    mutable const String16* mDescriptor GUARDED_BY(mLock) = nullptr;
    std::vector<Obituary> mObituaries GUARDED_BY(mLock);
    /** The driver's cookie for this proxy's death request; 0 when there is none. */
    uint64_t mDeathToken GUARDED_BY(mLock) = 0;
    bool mObituariesSent GUARDED_BY(mLock) = false;
    /** Whether this proxy counts as a reference of the handle; false for the service manager's at first. */
    bool mHoldsHandle GUARDED_BY(mLock) = false;
};

}  // namespace android
