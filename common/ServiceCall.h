// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>

#include <cstdint>

/**
 * One synchronous request of a client proxy to a service: token, fields, transaction, exception code,
 * results.
 *
 * Neither the transaction's status nor the exception code is looked at: a request that failed leaves an empty
 * reply, and the results read from it are zeros, empty strings and null references.
 *
 * For the calling thread alone.
 */
class ServiceCall {
  public:
    /** Begins a request with the token of @p interface. */
    explicit ServiceCall(const android::String16& interface) { mRequest.writeInterfaceToken(interface); }

    ServiceCall(const ServiceCall&) = delete;
    ServiceCall& operator=(const ServiceCall&) = delete;

    /** The request, to write its fields to before send(). */
    android::Parcel& request() { return mRequest; }

    /**
     * Sends the request as the transaction @p code and waits for the reply.
     * @return the reply, at its first result
     */
    const android::Parcel& send(android::IBinder& service, uint32_t code) {
        service.transact(code, mRequest, &mReply, 0);
        mReply.readInt32();
        return mReply;
    }

  private:
    android::Parcel mRequest;
    android::Parcel mReply;
};
