// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "servicemanager"

#include "platform/binder/servicemanager/ServiceDirectory.h"

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <log/log.h>
#include <utils/String8.h>

#include <iterator>
#include <utility>

using android::BAD_VALUE;
using android::IBinder;
using android::IPCThreadState;
using android::Mutex;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::Vector;
using android::wp;

namespace {

/** Tells the directory of one service's death. */
class ServiceDeath : public IBinder::DeathRecipient {
  public:
    ServiceDeath(const wp<ServiceDirectory>& directory, const String16& name)
        : mDirectory(directory), mName(name) {}

    void binderDied(const wp<IBinder>& who) override {
        const sp<ServiceDirectory> directory = mDirectory.promote();
        if (directory != nullptr) {
            directory->serviceDied(mName, who);
        }
    }

  private:
    const wp<ServiceDirectory> mDirectory;
    const String16 mName;
};

}  // namespace

sp<IBinder> ServiceDirectory::getService(const String16& name) const {
    return checkService(name);
}

sp<IBinder> ServiceDirectory::checkService(const String16& name) const {
    Mutex::Autolock lock(mLock);
    const auto entry = mServices.find(name);
    return entry != mServices.end() ? entry->second.service : nullptr;
}

status_t ServiceDirectory::addService(const String16& name, const sp<IBinder>& service,
                                      bool /*allowIsolated*/) {
    const char* refusal = nullptr;
    if (name.size() == 0) {
        refusal = "the name is empty";
    } else if (name.size() > kMaxNameLength) {
        refusal = "the name is over 127 characters";
    } else if (service == nullptr) {
        refusal = "there is no object";
    }
    if (refusal != nullptr) {
        ALOGE("service of process %d refused: %s", IPCThreadState::self()->getCallingPid(), refusal);
        return BAD_VALUE;
    }
    Entry entry{service, new ServiceDeath(this, name)};
    // Before it can be found: a service that is dead already is not listed at all.
    if (service->linkToDeath(entry.recipient) == android::DEAD_OBJECT) {
        ALOGE("service %s of process %d refused: it is dead", String8(name).string(),
              IPCThreadState::self()->getCallingPid());
        return android::DEAD_OBJECT;
    }
    {
        Mutex::Autolock lock(mLock);
        std::swap(mServices[name], entry);
    }
    if (entry.service != nullptr) {
        entry.service->unlinkToDeath(entry.recipient);
    }
    return OK;
}

Vector<String16> ServiceDirectory::listServices() {
    Vector<String16> names;
    Mutex::Autolock lock(mLock);
    for (const auto& entry : mServices) {
        names.add(entry.first);
    }
    return names;
}

void ServiceDirectory::serviceDied(const String16& name, const wp<IBinder>& service) {
    Entry dropped;
    Mutex::Autolock lock(mLock);
    const auto entry = mServices.find(name);
    if (entry != mServices.end() && service == entry->second.service) {
        ALOGI("service %s died", String8(name).string());
        dropped = std::move(entry->second);
        mServices.erase(entry);
    }
}

status_t ServiceDirectory::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    if (code < GET_SERVICE_TRANSACTION || code > LIST_SERVICES_TRANSACTION || reply == nullptr) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    if (!data.checkInterface(this)) {
        return android::PERMISSION_DENIED;
    }
    switch (code) {
        case ADD_SERVICE_TRANSACTION:
            return add(data, reply);
        case LIST_SERVICES_TRANSACTION:
            return list(data, reply);
        default: {
            String16 name;
            const status_t status = data.readString16(&name);
            return status == OK ? reply->writeStrongBinder(checkService(name)) : status;
        }
    }
}

status_t ServiceDirectory::add(const Parcel& data, Parcel* reply) {
    String16 name;
    sp<IBinder> service;
    int32_t allowIsolated = 0;
    if (data.readString16(&name) != OK || data.readNullableStrongBinder(&service) != OK ||
        data.readInt32(&allowIsolated) != OK) {
        ALOGE("service of process %d refused: the request is broken",
              IPCThreadState::self()->getCallingPid());
        return BAD_VALUE;
    }
    const status_t status = addService(name, service, allowIsolated != 0);
    return status == OK ? reply->writeNoException() : status;
}

status_t ServiceDirectory::list(const Parcel& data, Parcel* reply) {
    int32_t index = 0;
    if (data.readInt32(&index) != OK || index < 0) {
        return BAD_VALUE;
    }
    Mutex::Autolock lock(mLock);
    if (static_cast<size_t>(index) >= mServices.size()) {
        return android::NAME_NOT_FOUND;
    }
    return reply->writeString16(std::next(mServices.begin(), index)->first);
}
