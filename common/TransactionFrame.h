// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>

#include <cstdint>

/**
 * @file
 * What the services' `onTransact` have in common, and what their clients' notifiers' have. All of it is for
 * the thread that serves the transaction alone.
 */

/**
 * Answers a request to @p service. Every reply begins with an int32 0, also those of the base class's
 * transactions and those to a caller who wants none.
 * @param isOwn whether the request's code is one of the service's interface
 * @param inherited answers a request of another code into the parcel it is given; returns the status
 * @param dispatch the same for the service's own requests, which follow the interface's token in @p data
 * @return -1 when the request is not for this interface, else what the one that answered returned
 */
template <typename Inherited, typename Dispatch>
android::status_t answerRequest(android::IBinder* service, bool isOwn, const android::Parcel& data,
                                android::Parcel* reply, Inherited inherited, Dispatch dispatch) {
    android::Parcel unused;
    android::Parcel& answer = reply != nullptr ? *reply : unused;
    answer.writeInt32(0);
    if (!isOwn) {
        return inherited(answer);
    }
    if (!data.checkInterface(service)) {
        return -1;
    }
    return dispatch(answer);
}

/** Answers a service's call with @p result alone; a caller who wants no reply gets none. */
inline android::status_t answerCall(android::Parcel* reply, int32_t result) {
    return reply != nullptr ? reply->writeInt32(result) : android::OK;
}

/**
 * Answers a service's call of @p notifier's `onEvent`.
 * @return BAD_VALUE, without a call, when the event is cut short
 */
template <typename Notifier>
android::status_t answerEvent(Notifier& notifier, const android::Parcel& data, android::Parcel* reply) {
    int32_t event = 0;
    int32_t value = 0;
    if (data.readInt32(&event) != android::OK || data.readInt32(&value) != android::OK) {
        return android::BAD_VALUE;
    }
    return answerCall(reply, notifier.onEvent(event, value));
}

/**
 * Answers a service's call of one of @p notifier's operations that take a record.
 * @param record what was read from the request
 * @return BAD_VALUE, without a call, when it is null
 */
template <typename Notifier, typename Record>
android::status_t answerRecord(Notifier& notifier,
                               int32_t (Notifier::*operation)(const android::sp<Record>& record),
                               const android::sp<Record>& record, android::Parcel* reply) {
    if (record == nullptr) {
        return android::BAD_VALUE;
    }
    return answerCall(reply, (notifier.*operation)(record));
}
