// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "IPCThreadState"

#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <linux/android/binder.h>
#include <log/log.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/binder/DriverOrder.h"

namespace android {

namespace {

constexpr size_t kReadSize = 1024;
constexpr size_t kSmallBuffer = 4096;
/** Newer than some kernels' headers: a oneway request is kept for a process that is frozen. */
constexpr uint32_t kOnewayKeptForFrozen = _IO('r', 20);

template <typename T>
T* pointerFrom(binder_uintptr_t value) {
    return reinterpret_cast<T*>(static_cast<uintptr_t>(value));
}

binder_uintptr_t wireAddress(const void* pointer) {
    return static_cast<binder_uintptr_t>(reinterpret_cast<uintptr_t>(pointer));
}

}  // namespace

IPCThreadState* IPCThreadState::self() {
    // A key rather than a thread_local object: exit() must not run the main thread's destructor while other
    // threads still call.
    static const pthread_key_t sKey = [] {
        pthread_key_t key;
        LOG_ALWAYS_FATAL_IF(pthread_key_create(&key, threadEnded) != 0, "no key for the threads' state");
        return key;
    }();
    auto* state = static_cast<IPCThreadState*>(pthread_getspecific(sKey));
    if (state == nullptr) {
        state = new IPCThreadState();
        pthread_setspecific(sKey, state);
    }
    return state;
}

void IPCThreadState::threadEnded(void* state) {
    auto* const self = static_cast<IPCThreadState*>(state);
    // What the last call read beyond its answer: references that the driver gave up would be lost.
    uint32_t command = 0;
    while (self->take(&command)) {
        self->executeCommand(command);
    }
    self->processPending();
    self->flushCommands();
    const int fd = ProcessState::self()->mDriver;
    if (fd >= 0) {
        int32_t unused = 0;
        ioctl(fd, BINDER_THREAD_EXIT, &unused);
    }
    delete self;
}

IPCThreadState::IPCThreadState() : mCallingPid(getpid()), mCallingUid(getuid()) {}

IPCThreadState::~IPCThreadState() = default;

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token =
        static_cast<int64_t>((static_cast<uint64_t>(mCallingUid) << 32) | static_cast<uint32_t>(mCallingPid));
    mCallingPid = getpid();
    mCallingUid = getuid();
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mCallingUid = static_cast<uid_t>(static_cast<uint64_t>(token) >> 32);
    mCallingPid = static_cast<pid_t>(static_cast<uint64_t>(token) & 0xffffffffU);
}

void IPCThreadState::joinThreadPool(bool isMain) {
    queueCommand(isMain ? BC_ENTER_LOOPER : BC_REGISTER_LOOPER);
    mIsPooled = true;
    for (;;) {
        processPending();
        ProcessState::self()->startMissingThreads();
        const status_t status = talkWithDriver();
        if (status != OK) {
            ALOGE("thread leaves the pool: %s", strerror(-status));
            break;
        }
        uint32_t command = 0;
        if (take(&command) && executeCommand(command) == TIMED_OUT && !isMain) {
            break;
        }
    }
    mIsPooled = false;
    queueCommand(BC_EXIT_LOOPER);
    flushCommands();
}

void IPCThreadState::flushCommands() {
    if (!mOut.empty()) {
        talkWithDriver(false);
    }
}

status_t IPCThreadState::transact(int32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags, bool* outTargetDied) {
    if (reply != nullptr) {
        reply->freeData();
    }
    if (data.errorCheck() != OK) {
        return data.errorCheck();
    }
    const bool oneway = (flags & TF_ONE_WAY) != 0;
    const status_t noStatus = OK;
    queueTransaction(BC_TRANSACTION, flags | TF_ACCEPT_FDS, handle, code, data, noStatus);

    Parcel unused;
    Parcel* const answer = reply != nullptr ? reply : &unused;
    const status_t status = waitForResponse(oneway ? nullptr : answer, !oneway, outTargetDied);
    if (mExecuting == 0 && !mIsPooled) {
        processPending();
        ProcessState::self()->startMissingThreads();
    }
    return status;
}

void IPCThreadState::acquireHandle(int32_t handle) {
    queueCommand(BC_INCREFS);
    queue(static_cast<uint32_t>(handle));
    queueCommand(BC_ACQUIRE);
    queue(static_cast<uint32_t>(handle));
    flushCommands();
}

void IPCThreadState::releaseHandle(int32_t handle) {
    queueCommand(BC_RELEASE);
    queue(static_cast<uint32_t>(handle));
    queueCommand(BC_DECREFS);
    queue(static_cast<uint32_t>(handle));
    // At once: this thread may never talk with the driver again.
    flushCommands();
}

void IPCThreadState::requestDeathNotification(int32_t handle, uint64_t token) {
    queueCommand(BC_REQUEST_DEATH_NOTIFICATION);
    binder_handle_cookie request = {};
    request.handle = static_cast<uint32_t>(handle);
    request.cookie = token;
    queue(request);
    flushCommands();
}

void IPCThreadState::clearDeathNotification(int32_t handle, uint64_t token) {
    queueCommand(BC_CLEAR_DEATH_NOTIFICATION);
    binder_handle_cookie request = {};
    request.handle = static_cast<uint32_t>(handle);
    request.cookie = token;
    queue(request);
    flushCommands();
}

template <typename T>
void IPCThreadState::queue(const T& value) {
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&value);
    mOut.insert(mOut.end(), bytes, bytes + sizeof(value));
}

template <typename T>
bool IPCThreadState::take(T* value) {
    if (mIn.size() - mInPos < sizeof(*value)) {
        return false;
    }
    memcpy(value, mIn.data() + mInPos, sizeof(*value));
    mInPos += sizeof(*value);
    return true;
}

void IPCThreadState::freeBuffer(const uint8_t* data, size_t size, size_t objectsCount) {
    IPCThreadState* const thread = self();
    thread->queueCommand(BC_FREE_BUFFER);
    thread->queue(wireAddress(data));
    // A small buffer goes back with the next call. A large one must not wait for it: the receive area is
    // small, and this thread may not call again for long. Nor must one with objects: it keeps them alive.
    if (size > kSmallBuffer || objectsCount > 0) {
        thread->flushCommands();
    }
}

/** Writes what is queued, and reads when @p receive is set and everything read before has been handled. */
status_t IPCThreadState::talkWithDriver(bool receive) {
    const int fd = ProcessState::self()->driver();
    if (fd < 0) {
        mOut.clear();
        return NO_INIT;
    }
    const bool needsRead = receive && mInPos >= mIn.size();
    if (!needsRead && receive) {
        return OK;
    }
    uint8_t incoming[kReadSize];
    binder_write_read exchange = {};
    exchange.write_buffer = wireAddress(mOut.data());
    exchange.write_size = mOut.size();
    if (needsRead) {
        exchange.read_buffer = wireAddress(incoming);
        exchange.read_size = sizeof(incoming);
    }
    if (exchange.write_size == 0 && exchange.read_size == 0) {
        return OK;
    }
    const int result = TEMP_FAILURE_RETRY(ioctl(fd, BINDER_WRITE_READ, &exchange));
    const int error = errno;
    if (result < 0) {
        // What the driver refuses once it refuses again; and a request left here points at a parcel that
        // goes.
        mOut.clear();
        return -error;
    }
    mOut.erase(mOut.begin(), mOut.begin() + static_cast<ptrdiff_t>(exchange.write_consumed));
    if (needsRead) {
        mIn.assign(incoming, incoming + exchange.read_consumed);
        mInPos = 0;
    }
    return OK;
}

/** Serves what the driver sends until this thread's call has its answer: a nested call runs in here. */
status_t IPCThreadState::waitForResponse(Parcel* reply, bool wantsReply, bool* outTargetDied) {
    for (;;) {
        const status_t status = talkWithDriver();
        if (status != OK) {
            return status;
        }
        uint32_t command = 0;
        if (!take(&command)) {
            continue;
        }
        switch (command) {
            case BR_ONEWAY_SPAM_SUSPECT:
            case kOnewayKeptForFrozen:
            case BR_TRANSACTION_COMPLETE:
                if (!wantsReply) {
                    return OK;
                }
                break;
            case BR_DEAD_REPLY:
                if (outTargetDied != nullptr) {
                    *outTargetDied = true;
                }
                return DEAD_OBJECT;
            case BR_FAILED_REPLY:
            case BR_FROZEN_REPLY:
                return FAILED_TRANSACTION;
            case BR_REPLY:
                return takeReply(reply);
            default: {
                const status_t executed = executeCommand(command);
                if (executed != OK) {
                    return executed;
                }
                break;
            }
        }
    }
}

status_t IPCThreadState::takeReply(Parcel* reply) {
    binder_transaction_data transaction = {};
    if (!take(&transaction)) {
        return NOT_ENOUGH_DATA;
    }
    // A status travels as contents, too, and what a hostile callee packs beside it must go with it.
    Parcel statusOnly;
    const bool hasStatus = (transaction.flags & TF_STATUS_CODE) != 0;
    Parcel& received = hasStatus || reply == nullptr ? statusOnly : *reply;
    received.ipcSetDataReference(pointerFrom<const uint8_t>(transaction.data.ptr.buffer),
                                 transaction.data_size,
                                 pointerFrom<const uint64_t>(transaction.data.ptr.offsets),
                                 transaction.offsets_size / sizeof(binder_size_t), freeBuffer);
    if (!hasStatus) {
        return OK;
    }
    status_t status = UNKNOWN_ERROR;
    received.readInt32(&status);
    return status;
}

status_t IPCThreadState::executeCommand(uint32_t command) {
    switch (command) {
        case BR_OK:
        case BR_NOOP:
        case BR_TRANSACTION_COMPLETE:
            return OK;
        case BR_ERROR: {
            int32_t error = UNKNOWN_ERROR;
            take(&error);
            return error;
        }
        case BR_FINISHED:
            return TIMED_OUT;
        case BR_INCREFS:
            return acknowledge(command, BC_INCREFS_DONE);
        case BR_ACQUIRE:
            return acknowledge(command, BC_ACQUIRE_DONE);
        case BR_DECREFS:
        case BR_RELEASE:
            return acknowledge(command, 0);
        case BR_TRANSACTION: {
            binder_transaction_data transaction = {};
            return take(&transaction) ? executeTransaction(transaction) : NOT_ENOUGH_DATA;
        }
        case BR_SPAWN_LOOPER:
            ProcessState::self()->spawnPooledThread(false);
            return OK;
        case BR_DEAD_BINDER: {
            uint64_t token = 0;
            take(&token);
            mPendingDeaths.push_back(token);
            return OK;
        }
        case BR_CLEAR_DEATH_NOTIFICATION_DONE: {
            uint64_t token = 0;
            take(&token);
            ProcessState::self()->removeDeathToken(token);
            return OK;
        }
        default:
            ALOGE("unknown command 0x%x of the driver", command);
            return UNKNOWN_ERROR;
    }
}

/** The driver counts its references of a local object on the object itself. */
status_t IPCThreadState::acknowledge(uint32_t command, uint32_t answer) {
    binder_ptr_cookie object = {};
    if (!take(&object)) {
        return NOT_ENOUGH_DATA;
    }
    auto* const references = pointerFrom<RefBase::weakref_type>(object.ptr);
    auto* const local = pointerFrom<BBinder>(object.cookie);
    switch (command) {
        case BR_INCREFS:
            references->incWeak(this);
            break;
        case BR_ACQUIRE:
            local->incStrong(this);
            break;
        case BR_DECREFS:
            mPendingWeak.push_back(references);
            break;
        default:
            mPendingStrong.push_back(local);
            break;
    }
    if (answer != 0) {
        queueCommand(answer);
        queue(object);
    }
    return OK;
}

status_t IPCThreadState::executeTransaction(const binder_transaction_data& transaction) {
    Parcel request;
    request.ipcSetDataReference(pointerFrom<const uint8_t>(transaction.data.ptr.buffer),
                                transaction.data_size,
                                pointerFrom<const uint64_t>(transaction.data.ptr.offsets),
                                transaction.offsets_size / sizeof(binder_size_t), freeBuffer);
    const pid_t outerPid = std::exchange(mCallingPid, transaction.sender_pid);
    const uid_t outerUid = std::exchange(mCallingUid, transaction.sender_euid);
    ++mExecuting;

    Parcel reply;
    const status_t status = callTarget(transaction, request, &reply);
    if ((transaction.flags & TF_ONE_WAY) == 0) {
        if (status != OK) {
            reply.setError(status);
        }
        // Sent before the request's buffer is given back: its objects may be in the reply.
        const status_t error = reply.errorCheck();
        queueTransaction(BC_REPLY, 0, 0, 0, reply, error);
        waitForResponse(nullptr, false);
    }
    --mExecuting;
    mCallingPid = outerPid;
    mCallingUid = outerUid;
    return OK;
}

status_t IPCThreadState::callTarget(const binder_transaction_data& transaction, const Parcel& request,
                                    Parcel* reply) {
    if (transaction.target.ptr == 0) {
        const sp<BBinder> manager = ProcessState::self()->contextManager();
        return manager != nullptr ? manager->transact(transaction.code, request, reply, transaction.flags)
                                  : UNKNOWN_TRANSACTION;
    }
    auto* const references = pointerFrom<RefBase::weakref_type>(transaction.target.ptr);
    if (!references->attemptIncStrong(this)) {
        return UNKNOWN_TRANSACTION;
    }
    auto* const local = pointerFrom<BBinder>(transaction.cookie);
    comesAfterDriver(local);
    const status_t status = local->transact(transaction.code, request, reply, transaction.flags);
    comesBeforeDriver(local);
    local->decStrong(this);
    return status;
}

/** @p status is sent instead of @p data when it is an error; it must live until the driver has read it. */
void IPCThreadState::queueTransaction(uint32_t command, uint32_t flags, int32_t handle, uint32_t code,
                                      const Parcel& data, const status_t& status) {
    binder_transaction_data transaction = {};
    transaction.target.handle = static_cast<uint32_t>(handle);
    transaction.code = code;
    transaction.flags = flags;
    if (status == OK) {
        transaction.data_size = data.dataSize();
        transaction.data.ptr.buffer = wireAddress(data.data());
        transaction.offsets_size = data.objectsCount() * sizeof(binder_size_t);
        transaction.data.ptr.offsets = wireAddress(data.ipcObjects());
    } else {
        transaction.flags |= TF_STATUS_CODE;
        transaction.data_size = sizeof(status);
        transaction.data.ptr.buffer = wireAddress(&status);
    }
    queueCommand(command);
    queue(transaction);
}

void IPCThreadState::processPending() {
    if (mInPos < mIn.size()) {
        return;
    }
    // What goes may have more to give up.
    while (!mPendingWeak.empty() || !mPendingStrong.empty() || !mPendingDeaths.empty()) {
        const std::vector<RefBase::weakref_type*> weak = std::exchange(mPendingWeak, {});
        const std::vector<BBinder*> strong = std::exchange(mPendingStrong, {});
        const std::vector<uint64_t> deaths = std::exchange(mPendingDeaths, {});
        for (BBinder* object : strong) {
            comesAfterDriver(object);
            object->decStrong(this);
        }
        for (RefBase::weakref_type* references : weak) {
            references->decWeak(this);
        }
        for (const uint64_t token : deaths) {
            tellOfDeath(token);
        }
    }
}

void IPCThreadState::tellOfDeath(uint64_t token) {
    const sp<BpBinder> proxy = ProcessState::self()->proxyOfDeathToken(token);
    if (proxy != nullptr) {
        proxy->sendObituary(token);
    }
    queueCommand(BC_DEAD_BINDER_DONE);
    queue(token);
}

}  // namespace android
