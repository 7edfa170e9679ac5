// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * This thread and the binder driver.
 */

#include <binder/Parcel.h>
#include <sys/types.h>
#include <utils/Errors.h>

#include <cstdint>
#include <vector>

struct binder_transaction_data;

namespace android {

class BBinder;

/**
 * A thread's conversation with the driver. One for each thread that needs it; used by that thread alone.
 */
class IPCThreadState {
  public:
    /** The calling thread's. Needs no driver. */
    static IPCThreadState* self();

    /** The process whose request this thread serves; this process outside a request. */
    pid_t getCallingPid() const { return mCallingPid; }
    /** The effective user of that process. */
    uid_t getCallingUid() const { return mCallingUid; }

    /**
     * Makes this process the caller, so that checks made by what is called from here pass for the service
     * itself.
     * @return the caller until now, for restoreCallingIdentity()
     */
    int64_t clearCallingIdentity();

    /** @param token the uid in its upper half, the pid in its lower */
    void restoreCallingIdentity(int64_t token);

    /** Serves requests until the driver has no more use for the thread (@p isMain: until it fails). */
    void joinThreadPool(bool isMain = true);

    /** Sends what is queued for the driver. */
    void flushCommands();

    /** @name For BpBinder and ProcessState. */
    ///@{
    /** @param outTargetDied set when the driver says so, which a status from the callee does not tell */
    status_t transact(int32_t handle, uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags,
                      bool* outTargetDied);
    void acquireHandle(int32_t handle);                             ///< Counts a reference.
    void releaseHandle(int32_t handle);                             ///< Gives it back.
    void requestDeathNotification(int32_t handle, uint64_t token);  ///< @param token told with the death
    void clearDeathNotification(int32_t handle, uint64_t token);    ///< @param token as requested
                                                                    ///@}

  private:
    IPCThreadState();
    ~IPCThreadState();
    IPCThreadState(const IPCThreadState&) = delete;
    IPCThreadState& operator=(const IPCThreadState&) = delete;

    static void threadEnded(void* state);
    static void freeBuffer(const uint8_t* data, size_t size, size_t objectsCount);

    template <typename T>
    void queue(const T& value);
    template <typename T>
    bool take(T* value);
    void queueCommand(uint32_t command) { queue(command); }

    status_t talkWithDriver(bool receive = true);
    status_t waitForResponse(Parcel* reply, bool wantsReply, bool* outTargetDied = nullptr);
    status_t takeReply(Parcel* reply);
    status_t executeCommand(uint32_t command);
    status_t acknowledge(uint32_t command, uint32_t answer);
    status_t executeTransaction(const binder_transaction_data& transaction);
    status_t callTarget(const binder_transaction_data& transaction, const Parcel& request, Parcel* reply);
    void queueTransaction(uint32_t command, uint32_t flags, int32_t handle, uint32_t code, const Parcel& data,
                          const status_t& status);
    void processPending();
    void tellOfDeath(uint64_t token);

    std::vector<uint8_t> mOut;
    std::vector<uint8_t> mIn;
    size_t mInPos = 0;
    pid_t mCallingPid;
    uid_t mCallingUid;
    /** Requests that this thread is in the middle of. */
    int mExecuting = 0;
    /** Whether this thread is one of the pool, which does what is pending between two requests. */
    bool mIsPooled = false;
    /**
     * What the driver let go of, and the tokens of objects that died: kept until no command is half done and
     * no call waits, since destructors and recipients may call anything, and take locks that whoever waits
     * for a reply holds.
     */
    std::vector<RefBase::weakref_type*> mPendingWeak;
    std::vector<BBinder*> mPendingStrong;
    std::vector<uint64_t> mPendingDeaths;
};

}  // namespace android
