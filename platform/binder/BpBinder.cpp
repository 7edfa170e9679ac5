// SPDX-License-Identifier: Apache-2.0
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>

#include <memory>

namespace android {

namespace {

constexpr int32_t kServiceManagerHandle = 0;

}  // namespace

BpBinder::BpBinder(int32_t handle) : mHandle(handle) {}

BpBinder::~BpBinder() {
    bool holdsHandle = false;
    {
        Mutex::Autolock lock(mLock);
        clearDeathRequestLocked();
        holdsHandle = mHoldsHandle;
        delete mDescriptor;
    }
    ProcessState::self()->expunge(this, mHandle, holdsHandle);
}

const String16& BpBinder::getInterfaceDescriptor() const {
    static const String16& sNone = *new String16();
    {
        Mutex::Autolock lock(mLock);
        if (mDescriptor != nullptr) {
            return *mDescriptor;
        }
    }
    Parcel request;
    Parcel reply;
    auto* const self = const_cast<BpBinder*>(this);
    if (self->transact(INTERFACE_TRANSACTION, request, &reply, 0) != OK) {
        return sNone;
    }
    auto descriptor = std::make_unique<const String16>(reply.readString16());
    Mutex::Autolock lock(mLock);
    if (mDescriptor == nullptr) {
        mDescriptor = descriptor.release();
    }
    return *mDescriptor;
}

bool BpBinder::isBinderAlive() const {
    return mAlive;
}

status_t BpBinder::pingBinder() {
    Parcel request;
    Parcel reply;
    return transact(PING_TRANSACTION, request, &reply, 0);
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel request;
    Parcel reply;
    request.writeFileDescriptor(fd);
    request.writeInt32(static_cast<int32_t>(args.size()));
    for (const String16& argument : args) {
        request.writeString16(argument);
    }
    return transact(DUMP_TRANSACTION, request, &reply, 0);
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (!mAlive) {
        if (reply != nullptr) {
            reply->freeData();
        }
        return DEAD_OBJECT;
    }
    bool targetDied = false;
    const status_t status = IPCThreadState::self()->transact(mHandle, code, data, reply, flags, &targetDied);
    // Handle 0 stands for whoever is the service manager: the next one is reached by the same proxy.
    if (targetDied && mHandle != kServiceManagerHandle) {
        mAlive = false;
    }
    return status;
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) {
        return BAD_VALUE;
    }
    // The driver takes no request for a service manager that is not there, and does not say so.
    if (mHandle == kServiceManagerHandle) {
        const status_t status = pingBinder();
        if (status != OK) {
            return status;
        }
    }
    Mutex::Autolock lock(mLock);
    if (mObituariesSent || !mAlive) {
        return DEAD_OBJECT;
    }
    IPCThreadState* const thread = IPCThreadState::self();
    if (!mHoldsHandle) {
        thread->acquireHandle(mHandle);
        mHoldsHandle = true;
    }
    if (mDeathToken == 0) {
        mDeathToken = ProcessState::self()->addDeathToken(wp<BpBinder>(this));
        thread->requestDeathNotification(mHandle, mDeathToken);
    }
    mObituaries.push_back({recipient, cookie, flags});
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    Mutex::Autolock lock(mLock);
    if (mObituariesSent) {
        return DEAD_OBJECT;
    }
    for (auto entry = mObituaries.begin(); entry != mObituaries.end(); ++entry) {
        const bool matches =
            entry->recipient == recipient || (recipient == nullptr && entry->cookie == cookie);
        if (!matches || entry->flags != flags) {
            continue;
        }
        if (outRecipient != nullptr) {
            *outRecipient = entry->recipient;
        }
        mObituaries.erase(entry);
        if (mObituaries.empty()) {
            clearDeathRequestLocked();
        }
        return OK;
    }
    return NAME_NOT_FOUND;
}

BpBinder* BpBinder::remoteBinder() {
    return this;
}

void BpBinder::sendObituary(uint64_t token) {
    std::vector<Obituary> obituaries;
    {
        Mutex::Autolock lock(mLock);
        // The same proxy serves the next service manager.
        const bool canReturn = mHandle == kServiceManagerHandle;
        mAlive = canReturn;
        if (mObituariesSent || token != mDeathToken) {
            return;
        }
        obituaries.swap(mObituaries);
        clearDeathRequestLocked();
        mObituariesSent = !canReturn;
        if (canReturn) {
            IPCThreadState::self()->releaseHandle(mHandle);
            mHoldsHandle = false;
        }
    }
    for (const Obituary& obituary : obituaries) {
        const sp<DeathRecipient> recipient = obituary.recipient.promote();
        if (recipient != nullptr) {
            recipient->binderDied(wp<IBinder>(this));
        }
    }
}

void BpBinder::clearDeathRequestLocked() {
    if (mDeathToken != 0) {
        IPCThreadState::self()->clearDeathNotification(mHandle, mDeathToken);
        mDeathToken = 0;
    }
}

}  // namespace android
