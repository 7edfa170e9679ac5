// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The service that the driver's tests call, in a process of its own.
 */

#include <binder/Binder.h>
#include <utils/Mutex.h>

#include <atomic>
#include <vector>

class EchoService : public android::BBinder {
  public:
    enum Code : uint32_t {
        kEcho = android::IBinder::FIRST_CALL_TRANSACTION,  ///< int32 -> the same int32
        kCallerPid,    ///< -> int32: the caller's pid as the driver tells it
        kCallBack,     ///< object, int32 depth -> int32: how deep the calls to and fro went
        kWriteTo,      ///< descriptor, String8 -> writes the text there
        kSleep,        ///< int32 milliseconds -> after them
        kRecord,       ///< int32 -> remembered, in order of arrival
        kRecorded,     ///< -> int32 count, int32 each
        kReplyOfSize,  ///< int32 bytes -> that many
        kKeep,         ///< object -> held until kForget
        kForget,       ///< -> lets go of everything kept
        kThreads,      ///< -> int32: threads of the pool
        kExit,         ///< ends the process in the middle of the call
        kSleeping,     ///< -> int32: calls that sleep at this moment
        kStatus,       ///< int32 -> nothing: the call itself ends with that status
        kGive,         ///< -> String8, a new object, a new descriptor, int32 4711
    };

    static constexpr const char* kName = "test.echo";

    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;

    /** Registers the service and serves it for ever. */
    static int serve();

  private:
    std::atomic<int32_t> mSleeping{0};
    /** Guards the members below. */
    android::Mutex mLock;
    std::vector<int32_t> mRecorded GUARDED_BY(mLock);
    std::vector<android::sp<android::IBinder>> mKept GUARDED_BY(mLock);
};
