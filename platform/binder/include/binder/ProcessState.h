// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * This process and the binder driver.
 */

#include <binder/IBinder.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace android {

class BBinder;
class BpBinder;

/**
 * The process's end of the driver: the open node, the receive area, the table of handles and the thread pool.
 * One for the process, never destroyed. Any thread.
 *
 * The driver is opened when it is first needed; without it, calls fail with NO_INIT and everything that stays
 * in the process works. A forked child that does not exec has no driver: the parent's is not its own.
 */
class ProcessState : public virtual RefBase {
  public:
    /** Threads that the driver may ask for beside those that join by themselves. */
    static constexpr size_t kDefaultMaxThreads = 15;

    static sp<ProcessState> self();  ///< Made by the first call.

    /** The service manager's proxy, whether there is one or not. */
    sp<IBinder> getContextObject(const sp<IBinder>& caller = nullptr);

    /** The one proxy of @p handle; the caller must hold the handle some other way until this returns. */
    sp<IBinder> getStrongProxyForHandle(int32_t handle);

    /**
     * Makes @p manager the object that every process reaches as the service manager.
     * @return OK; ALREADY_EXISTS when there is one; another error of the driver
     */
    status_t becomeContextManager(const sp<BBinder>& manager);

    /**
     * Starts the first thread of the pool, which then grows as the driver asks. Repeated calls do nothing.
     * Where there is no driver yet, the thread waits until a later call of this process finds one.
     */
    void startThreadPool();

    /**
     * Starts a thread that joins the pool; @p isMain makes it one that the driver does not count. One that
     * the system refuses for now is started later, by a thread of this process that is done with a call.
     */
    void spawnPooledThread(bool isMain);

    /** How many threads the driver may ask for. */
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);

  private:
    friend class BpBinder;
    friend class IPCThreadState;

    class PoolThread;

    ProcessState() = default;
    ~ProcessState() override = default;

    /** The driver's descriptor; below 0 without a driver. Opens it when it is not open yet. */
    int driver();
    /** Waits until a call of some thread has opened the driver; not in a forked child, which never will. */
    void awaitDriver();
    int openLocked() REQUIRES(mDriverLock);
    /** Starts a thread of the pool, or takes note of it as missing. @return whether it was started */
    bool startPoolThread(bool isMain);
    /** Tries again to start what is missing. */
    void startMissingThreads();
    int nextThreadNumber();
    static void leaveToParent();
    int failLocked(int fd, const char* what, int error) REQUIRES(mDriverLock);
    sp<BBinder> contextManager();

    /** A proxy is on its way out: forgets it and gives its handle back. */
    void expunge(BpBinder* proxy, int32_t handle, bool holdsHandle);

    uint64_t addDeathToken(const wp<BpBinder>& proxy);
    sp<BpBinder> proxyOfDeathToken(uint64_t token);
    void removeDeathToken(uint64_t token);

    /** Stands for the descriptor until the driver is open. */
    static constexpr int kNotOpen = -1;
    /** Stands for the descriptor in a forked child. */
    static constexpr int kLeftToParent = -2;

    /** Changed once, with mDriverLock held, and in a forked child. */
    std::atomic<int> mDriver{kNotOpen};
    /** Serialises the opening and guards mFailureTold and mMaxThreads. Taken inside mLock. */
    Mutex mDriverLock;
    Condition mDriverOpened;
    bool mFailureTold GUARDED_BY(mDriverLock) = false;
    size_t mMaxThreads GUARDED_BY(mDriverLock) = kDefaultMaxThreads;

    /**
     * Threads of the pool that could not be started. The driver asks for one at a time, and for no other
     * until that one has come: forgotten, the pool would stay as small as it is for good.
     */
    std::atomic<bool> mMissesFirstThread{false};
    std::atomic<bool> mMissesAskedThread{false};

    /** Guards the members below. Held across reference commands, which never wait. */
    Mutex mLock;
    bool mPoolStarted GUARDED_BY(mLock) = false;
    int mThreadNumber GUARDED_BY(mLock) = 0;
    sp<BBinder> mContextManager GUARDED_BY(mLock);
    std::unordered_map<int32_t, wp<BpBinder>> mProxies GUARDED_BY(mLock);

    /** Guards the death tokens. */
    Mutex mDeathLock;
    uint64_t mLastDeathToken GUARDED_BY(mDeathLock) = 0;
    std::unordered_map<uint64_t, wp<BpBinder>> mDeathTokens GUARDED_BY(mDeathLock);
};

}  // namespace android
