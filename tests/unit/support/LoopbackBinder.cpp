// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/support/LoopbackBinder.h"

#include <binder/IPCThreadState.h>

#include <algorithm>
#include <utility>

using android::DEAD_OBJECT;
using android::IPCThreadState;
using android::Mutex;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::Vector;
using android::wp;

CallingAs::CallingAs(pid_t pid, uid_t uid) : mOuter(IPCThreadState::self()->clearCallingIdentity()) {
    IPCThreadState::self()->restoreCallingIdentity(
        static_cast<int64_t>((static_cast<uint64_t>(uid) << 32) | static_cast<uint32_t>(pid)));
}

CallingAs::~CallingAs() {
    IPCThreadState::self()->restoreCallingIdentity(mOuter);
}

void LoopbackBinder::die() {
    std::vector<Link> links;
    {
        Mutex::Autolock lock(mLock);
        mAlive = false;
        links.swap(mLinks);
    }
    for (const Link& link : links) {
        const sp<DeathRecipient> recipient = link.recipient.promote();
        if (recipient != nullptr) {
            recipient->binderDied(wp<IBinder>(this));
        }
    }
}

size_t LoopbackBinder::linkCount() const {
    Mutex::Autolock lock(mLock);
    return mLinks.size();
}

bool LoopbackBinder::isBinderAlive() const {
    Mutex::Autolock lock(mLock);
    return mAlive;
}

status_t LoopbackBinder::pingBinder() {
    Parcel request;
    Parcel reply;
    return transact(PING_TRANSACTION, request, &reply);
}

status_t LoopbackBinder::dump(int fd, const Vector<String16>& args) {
    Parcel request;
    Parcel reply;
    request.writeFileDescriptor(fd);
    request.writeInt32(static_cast<int32_t>(args.size()));
    for (const String16& argument : args) {
        request.writeString16(argument);
    }
    return transact(DUMP_TRANSACTION, request, &reply);
}

status_t LoopbackBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (!isBinderAlive()) {
        return DEAD_OBJECT;
    }
    if (data.errorCheck() != OK) {
        return data.errorCheck();
    }
    Parcel request;
    request.appendFrom(&data, 0, data.dataSize());
    request.setDataPosition(0);
    if (mRequestHook) {
        mRequestHook(code, request);
        request.setDataPosition(0);
    }
    Parcel answer;
    status_t status = OK;
    {
        const CallingAs caller(mPid, mUid);
        status = mTarget->transact(code, request, &answer, flags);
    }
    if (mReplyHook) {
        mReplyHook(&status, &answer);
    }
    if ((flags & FLAG_ONEWAY) != 0) {
        return OK;
    }
    // An error travels alone.
    if (status == OK && reply != nullptr) {
        reply->freeData();
        reply->appendFrom(&answer, 0, answer.dataSize());
        reply->setDataPosition(0);
    }
    return status;
}

status_t LoopbackBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    Mutex::Autolock lock(mLock);
    if (!mAlive) {
        return DEAD_OBJECT;
    }
    mLinks.push_back({recipient, cookie, flags});
    return OK;
}

status_t LoopbackBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                       wp<DeathRecipient>* outRecipient) {
    Mutex::Autolock lock(mLock);
    const auto link = std::find_if(mLinks.begin(), mLinks.end(), [&](const Link& candidate) {
        return candidate.recipient == recipient && candidate.cookie == cookie && candidate.flags == flags;
    });
    if (link == mLinks.end()) {
        return mAlive ? static_cast<status_t>(android::NAME_NOT_FOUND) : static_cast<status_t>(DEAD_OBJECT);
    }
    if (outRecipient != nullptr) {
        *outRecipient = link->recipient;
    }
    mLinks.erase(link);
    return OK;
}
