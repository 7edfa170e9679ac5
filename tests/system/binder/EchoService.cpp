// SPDX-License-Identifier: Apache-2.0
#include "tests/system/binder/EchoService.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

using android::BAD_VALUE;
using android::BBinder;
using android::IBinder;
using android::IPCThreadState;
using android::Mutex;
using android::OK;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;

namespace {

/** Threads that bear a name of the pool; a sanitizer may run one of its own beside them. */
int32_t pooledThreads() {
    int32_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        count += name.rfind("Binder:", 0) == 0 ? 1 : 0;
    }
    return count;
}

status_t callBack(IBinder* self, const Parcel& data, Parcel* reply) {
    const sp<IBinder> caller = data.readStrongBinder();
    const int32_t depth = data.readInt32();
    if (caller == nullptr) {
        return BAD_VALUE;
    }
    if (depth <= 0) {
        return reply->writeInt32(0);
    }
    Parcel request;
    Parcel answer;
    request.writeStrongBinder(self);
    request.writeInt32(depth - 1);
    const status_t status = caller->transact(EchoService::kCallBack, request, &answer);
    return status == OK ? reply->writeInt32(answer.readInt32() + 1) : status;
}

status_t give(Parcel* reply) {
    reply->writeString8(String8("given"));
    reply->writeStrongBinder(new BBinder());
    reply->writeFileDescriptor(memfd_create("given", MFD_CLOEXEC), true);
    return reply->writeInt32(4711);
}

}  // namespace

status_t EchoService::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    switch (code) {
        case kEcho:
            return reply->writeInt32(data.readInt32());
        case kCallerPid:
            return reply->writeInt32(IPCThreadState::self()->getCallingPid());
        case kCallBack:
            return callBack(this, data, reply);
        case kWriteTo: {
            const int fd = data.readFileDescriptor();
            const String8 text = data.readString8();
            return reply->writeInt32(static_cast<int32_t>(write(fd, text.string(), text.size())));
        }
        case kSleep:
            ++mSleeping;
            std::this_thread::sleep_for(std::chrono::milliseconds(data.readInt32()));
            --mSleeping;
            return OK;
        case kSleeping:
            return reply->writeInt32(mSleeping);
        case kStatus:
            return data.readInt32();
        case kGive:
            return give(reply);
        case kRecord: {
            Mutex::Autolock lock(mLock);
            mRecorded.push_back(data.readInt32());
            return OK;
        }
        case kRecorded: {
            Mutex::Autolock lock(mLock);
            reply->writeInt32(static_cast<int32_t>(mRecorded.size()));
            for (const int32_t value : mRecorded) {
                reply->writeInt32(value);
            }
            return OK;
        }
        case kReplyOfSize:
            return reply->writeInplace(static_cast<size_t>(data.readInt32())) != nullptr ? OK : BAD_VALUE;
        case kKeep: {
            Mutex::Autolock lock(mLock);
            mKept.push_back(data.readStrongBinder());
            return OK;
        }
        case kForget: {
            std::vector<sp<IBinder>> dropped;
            Mutex::Autolock lock(mLock);
            dropped.swap(mKept);
            return OK;
        }
        case kThreads:
            return reply->writeInt32(pooledThreads());
        case kExit:
            _exit(0);
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

int EchoService::serve() {
    ProcessState::self()->startThreadPool();
    if (android::defaultServiceManager()->addService(String16(kName), new EchoService()) != OK) {
        return 1;
    }
    IPCThreadState::self()->joinThreadPool(true);
    return 1;
}
