// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>

#include <cstdint>

/**
 * One synchronous call of a service to a client's notifier: token, fields, transaction, the result alone.
 *
 * The transaction's status is not looked at: the result of a call that failed is 0.
 *
 * For the calling thread alone.
 */
class NotifierCall {
  public:
    /** Begins a call with the token of @p interface. */
    explicit NotifierCall(const android::String16& interface) { mRequest.writeInterfaceToken(interface); }

    NotifierCall(const NotifierCall&) = delete;
    NotifierCall& operator=(const NotifierCall&) = delete;

    /** The request, to write its fields to before send(). */
    android::Parcel& request() { return mRequest; }

    /** Sends a call of `onEvent`, which is the transaction @p code. @return its result */
    int32_t sendEvent(android::IBinder& client, uint32_t code, int32_t event, int32_t value) {
        mRequest.writeInt32(event);
        mRequest.writeInt32(value);
        return send(client, code);
    }

    /** Sends the request as the transaction @p code, waits for the reply and returns its result. */
    int32_t send(android::IBinder& client, uint32_t code) {
        android::Parcel reply;
        client.transact(code, mRequest, &reply, 0);
        return reply.readInt32();
    }

  private:
    android::Parcel mRequest;
};
