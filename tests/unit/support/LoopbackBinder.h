// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A call across processes without a second process and without a driver.
 */

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <sys/types.h>
#include <utils/Mutex.h>

#include <functional>
#include <vector>

/**
 * Stands for the proxy of an object in another process: not local, so that every field of a call is written
 * to a parcel, copied, and read back. The target sees the caller as the process that the test says.
 *
 * A call that wants no answer gets none, whatever the target writes.
 *
 * Local objects in a request reach the target as they are. As a value in a parcel of its own a loopback
 * cannot travel: the driver does not know it.
 */
class LoopbackBinder : public android::IBinder {
  public:
    /** Looks at, or replaces, what a call answers: the status, and the reply when the status is OK. */
    using ReplyHook = std::function<void(android::status_t* status, android::Parcel* reply)>;
    /** Looks at the request as the target will see it. */
    using RequestHook = std::function<void(uint32_t code, const android::Parcel& request)>;

    /** @param pid the process that calls @p target */
    LoopbackBinder(const android::sp<android::BBinder>& target, pid_t pid, uid_t uid = 0)
        : mTarget(target), mPid(pid), mUid(uid) {}

    void onRequest(const RequestHook& hook) { mRequestHook = hook; }
    void onReply(const ReplyHook& hook) { mReplyHook = hook; }

    /** The target's process ends: links are told, calls fail from now on. */
    void die();

    /** Links that were made and neither taken back nor told. */
    size_t linkCount() const;

    const android::String16& getInterfaceDescriptor() const override {
        return mTarget->getInterfaceDescriptor();
    }
    bool isBinderAlive() const override;
    android::status_t pingBinder() override;
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;
    android::status_t transact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags = 0) override;
    android::status_t linkToDeath(const android::sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                  uint32_t flags = 0) override;
    android::status_t unlinkToDeath(const android::wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                    uint32_t flags = 0,
                                    android::wp<DeathRecipient>* outRecipient = nullptr) override;

  private:
    /** Taken back only by who names it as it was made. */
    struct Link {
        android::wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    const android::sp<android::BBinder> mTarget;
    const pid_t mPid;
    const uid_t mUid;
    RequestHook mRequestHook;
    ReplyHook mReplyHook;
    /** Guards the members below. */
    mutable android::Mutex mLock;
    bool mAlive GUARDED_BY(mLock) = true;
    std::vector<Link> mLinks GUARDED_BY(mLock);
};

/** Makes the calling thread serve @p pid for as long as it lives, as the driver does for a call. */
class CallingAs {
  public:
    explicit CallingAs(pid_t pid, uid_t uid = 0);
    ~CallingAs();
    CallingAs(const CallingAs&) = delete;
    CallingAs& operator=(const CallingAs&) = delete;

  private:
    const int64_t mOuter;
};
