// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>

#include <cstdint>

/**
 * @file
 * What the `onTransact` of the clients' notifiers have in common. All of it is for the thread that serves the
 * transaction alone.
 */

/** Answers a service's call with @p result alone; a caller who wants no reply gets none. */
inline android::status_t answerCall(android::Parcel* reply, int32_t result) {
    return reply != nullptr ? reply->writeInt32(result) : android::OK;
}

/**
 * Answers a service's call of @p notifier's `onEvent`.
 * @return -1 when the request is not for this interface; BAD_VALUE when the event is cut short: without a
 * call
 */
template <typename Notifier>
android::status_t answerEvent(Notifier& notifier, const android::Parcel& data, android::Parcel* reply) {
    if (!data.checkInterface(&notifier)) {
        return -1;
    }
    int32_t event = 0;
    int32_t value = 0;
    if (data.readInt32(&event) != android::OK || data.readInt32(&value) != android::OK) {
        return android::BAD_VALUE;
    }
    return answerCall(reply, notifier.onEvent(event, value));
}

/**
 * Answers a service's call of one of @p notifier's operations that take a record.
 * @param read reads the record from the request; null when that is cut short
 * @return -1 when the request is not for this interface; BAD_VALUE when the record is null: without a call
 */
template <typename Notifier, typename Record>
android::status_t answerRecord(Notifier& notifier,
                               int32_t (Notifier::*operation)(const android::sp<Record>& record),
                               android::sp<Record> (*read)(const android::Parcel& parcel),
                               const android::Parcel& data, android::Parcel* reply) {
    if (!data.checkInterface(&notifier)) {
        return -1;
    }
    const android::sp<Record> record = read(data);
    if (record == nullptr) {
        return android::BAD_VALUE;
    }
    return answerCall(reply, (notifier.*operation)(record));
}
