// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "ProcessState"

#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <linux/android/binder.h>
#include <log/log.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utils/Thread.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/binder/DriverNode.h"

namespace android {

namespace {

constexpr size_t kReceiveAreaSize = size_t{1024} * 1024;
constexpr int32_t kServiceManagerHandle = 0;
constexpr size_t kThreadNameSize = 16;

}  // namespace

/** A thread of the pool: serves requests until the driver has no more use for it. */
class ProcessState::PoolThread : public Thread {
  public:
    explicit PoolThread(bool isMain) : Thread(false), mIsMain(isMain) {}

  private:
    bool threadLoop() override {
        const int number = ProcessState::self()->nextThreadNumber();
        char name[kThreadNameSize];
        snprintf(name, sizeof(name), "Binder:%d_%X", getpid(), static_cast<unsigned>(number));
        pthread_setname_np(pthread_self(), name);
        ProcessState::self()->awaitDriver();
        IPCThreadState::self()->joinThreadPool(mIsMain);
        return false;
    }

    const bool mIsMain;
};

sp<ProcessState> ProcessState::self() {
    static ProcessState* const sSelf = [] {
        auto* const state = new ProcessState();
        state->incStrong(nullptr);
        return state;
    }();
    return sSelf;
}

sp<IBinder> ProcessState::getContextObject(const sp<IBinder>& /*caller*/) {
    return getStrongProxyForHandle(kServiceManagerHandle);
}

sp<IBinder> ProcessState::getStrongProxyForHandle(int32_t handle) {
    Mutex::Autolock lock(mLock);
    const auto known = mProxies.find(handle);
    if (known != mProxies.end()) {
        const sp<BpBinder> proxy = known->second.promote();
        if (proxy != nullptr) {
            return proxy;
        }
    }
    const sp<BpBinder> proxy = new BpBinder(handle);
    if (handle != kServiceManagerHandle) {
        // With the driver before anybody else knows the proxy: the release of one thread must not overtake
        // the acquisition of another. The service manager's handle needs no reference to be called.
        IPCThreadState::self()->acquireHandle(handle);
        Mutex::Autolock proxyLock(proxy->mLock);
        proxy->mHoldsHandle = true;
    }
    mProxies[handle] = proxy;
    return proxy;
}

void ProcessState::expunge(BpBinder* proxy, int32_t handle, bool holdsHandle) {
    {
        Mutex::Autolock lock(mLock);
        const auto known = mProxies.find(handle);
        // A successor may stand there already, made when this one could not be revived any more.
        if (known != mProxies.end() && known->second.unsafe_get() == proxy) {
            mProxies.erase(known);
        }
    }
    if (holdsHandle) {
        IPCThreadState::self()->releaseHandle(handle);
    }
}

status_t ProcessState::becomeContextManager(const sp<BBinder>& manager) {
    const int fd = driver();
    if (fd < 0) {
        return NO_INIT;
    }
    {
        Mutex::Autolock lock(mLock);
        mContextManager = manager;
    }
    flat_binder_object object = {};
    object.flags = FLAT_BINDER_FLAG_ACCEPTS_FDS;
    int32_t unused = 0;
    if (ioctl(fd, BINDER_SET_CONTEXT_MGR_EXT, &object) == 0 ||
        ioctl(fd, BINDER_SET_CONTEXT_MGR, &unused) == 0) {
        return OK;
    }
    const int error = errno;
    Mutex::Autolock lock(mLock);
    mContextManager.clear();
    return error == EBUSY ? static_cast<status_t>(ALREADY_EXISTS) : -error;
}

sp<BBinder> ProcessState::contextManager() {
    Mutex::Autolock lock(mLock);
    return mContextManager;
}

void ProcessState::startThreadPool() {
    {
        Mutex::Autolock lock(mLock);
        if (mPoolStarted) {
            return;
        }
        mPoolStarted = true;
    }
    spawnPooledThread(true);
}

void ProcessState::spawnPooledThread(bool isMain) {
    {
        Mutex::Autolock lock(mLock);
        if (!mPoolStarted) {
            return;
        }
    }
    if (!startPoolThread(isMain)) {
        ALOGE("cannot start a thread for the pool now");
    }
}

bool ProcessState::startPoolThread(bool isMain) {
    const sp<PoolThread> thread = new PoolThread(isMain);
    const bool started = thread->run("Binder", PRIORITY_DEFAULT, 0) == OK;
    if (!started) {
        (isMain ? mMissesFirstThread : mMissesAskedThread) = true;
    }
    return started;
}

void ProcessState::startMissingThreads() {
    for (const bool isMain : {true, false}) {
        std::atomic<bool>& misses = isMain ? mMissesFirstThread : mMissesAskedThread;
        if (misses && misses.exchange(false)) {
            startPoolThread(isMain);
        }
    }
}

int ProcessState::nextThreadNumber() {
    Mutex::Autolock lock(mLock);
    return ++mThreadNumber;
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    Mutex::Autolock lock(mDriverLock);
    mMaxThreads = maxThreads;
    const int fd = mDriver;
    if (fd < 0) {
        return OK;
    }
    const auto count = static_cast<uint32_t>(maxThreads);
    return ioctl(fd, BINDER_SET_MAX_THREADS, &count) == 0 ? OK : -errno;
}

int ProcessState::driver() {
    const int open = mDriver;
    if (open >= 0 || open == kLeftToParent) {
        return open;
    }
    Mutex::Autolock lock(mDriverLock);
    if (mDriver < 0) {
        mDriver = openLocked();
        if (mDriver >= 0) {
            mDriverOpened.broadcast();
        }
    }
    return mDriver;
}

void ProcessState::awaitDriver() {
    if (driver() >= 0) {
        return;
    }
    Mutex::Autolock lock(mDriverLock);
    while (mDriver == kNotOpen) {
        mDriverOpened.wait(mDriverLock);
    }
}

int ProcessState::openLocked() {
    const int fd = open(binderDriverNode(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return failLocked(fd, "cannot open", errno);
    }
    binder_version version = {};
    if (ioctl(fd, BINDER_VERSION, &version) != 0) {
        return failLocked(fd, "no binder driver behind", errno);
    }
    if (version.protocol_version != BINDER_CURRENT_PROTOCOL_VERSION) {
        return failLocked(fd, "unknown binder protocol of", EPROTO);
    }
    const auto maxThreads = static_cast<uint32_t>(mMaxThreads);
    ioctl(fd, BINDER_SET_MAX_THREADS, &maxThreads);

    // Two pages less than a power of two: the kernel guards the area on both sides. Mapped for good.
    const size_t size = kReceiveAreaSize - 2 * static_cast<size_t>(sysconf(_SC_PAGESIZE));
    if (mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, fd, 0) == MAP_FAILED) {
        return failLocked(fd, "no receive area from", errno);
    }
    pthread_atfork(nullptr, nullptr, leaveToParent);
    return fd;
}

/**
 * In a forked child: the driver would take its calls for the parent's, and would not see the parent's end as
 * long as the child keeps the descriptor. Other threads' locks may be held for ever here; none is taken.
 */
void ProcessState::leaveToParent() {
    const int fd = self()->mDriver.exchange(kLeftToParent);
    if (fd >= 0) {
        close(fd);
    }
}

/** Says once why there is no driver: it is looked for again with each call. @return -1 */
int ProcessState::failLocked(int fd, const char* what, int error) {
    if (!mFailureTold) {
        mFailureTold = true;
        ALOGE("%s %s: %s", what, binderDriverNode(), strerror(error));
    }
    if (fd >= 0) {
        close(fd);
    }
    return -1;
}

uint64_t ProcessState::addDeathToken(const wp<BpBinder>& proxy) {
    Mutex::Autolock lock(mDeathLock);
    mDeathTokens[++mLastDeathToken] = proxy;
    return mLastDeathToken;
}

sp<BpBinder> ProcessState::proxyOfDeathToken(uint64_t token) {
    Mutex::Autolock lock(mDeathLock);
    const auto entry = mDeathTokens.find(token);
    return entry != mDeathTokens.end() ? entry->second.promote() : nullptr;
}

void ProcessState::removeDeathToken(uint64_t token) {
    Mutex::Autolock lock(mDeathLock);
    mDeathTokens.erase(token);
}

}  // namespace android
