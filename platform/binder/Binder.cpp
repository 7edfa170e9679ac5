// SPDX-License-Identifier: Apache-2.0
#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <unistd.h>

namespace android {

IBinder::IBinder() = default;
IBinder::~IBinder() = default;

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}

BBinder* IBinder::localBinder() {
    return nullptr;
}

BpBinder* IBinder::remoteBinder() {
    return nullptr;
}

BBinder::BBinder() = default;
BBinder::~BBinder() = default;

const String16& BBinder::getInterfaceDescriptor() const {
    static const String16& sNone = *new String16();
    return sNone;
}

bool BBinder::isBinderAlive() const {
    return true;
}

status_t BBinder::pingBinder() {
    return OK;
}

status_t BBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
    return OK;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    const status_t status = onTransact(code, data, reply, flags);
    if (reply != nullptr) {
        reply->setDataPosition(0);
    }
    return status;
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& /*recipient*/, void* /*cookie*/, uint32_t /*flags*/) {
    return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>& /*recipient*/, void* /*cookie*/, uint32_t /*flags*/,
                                wp<DeathRecipient>* /*outRecipient*/) {
    return INVALID_OPERATION;
}

BBinder* BBinder::localBinder() {
    return this;
}

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t /*flags*/) {
    switch (code) {
        case PING_TRANSACTION:
            return reply != nullptr ? reply->writeInt32(pingBinder()) : OK;
        case INTERFACE_TRANSACTION:
            return reply != nullptr ? reply->writeString16(getInterfaceDescriptor()) : OK;
        case DUMP_TRANSACTION:
            return dumpFromRequest(*this, data);
        default:
            return UNKNOWN_TRANSACTION;
    }
}

status_t BBinder::dumpFromRequest(BBinder& object, const Parcel& data) {
    const int fd = data.readFileDescriptor();
    if (fd < 0) {
        return BAD_TYPE;
    }
    int32_t count = 0;
    status_t status = data.readInt32(&count);
    Vector<String16> args;
    for (; status == OK && count > 0; --count) {
        String16 argument;
        status = data.readString16(&argument);
        args.add(argument);
    }
    return status == OK ? object.dump(fd, args) : status;
}

IInterface::IInterface() = default;
IInterface::~IInterface() = default;

sp<IBinder> IInterface::asBinder(const IInterface* interface) {
    return interface != nullptr ? const_cast<IInterface*>(interface)->onAsBinder() : nullptr;
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& interface) {
    return asBinder(interface.get());
}

}  // namespace android
