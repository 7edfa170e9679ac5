// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What the bundled service manager serves.
 */

#include <binder/IServiceManager.h>
#include <utils/Mutex.h>

#include <map>

/**
 * Services by name: registered, found, listed, dropped when they die.
 *
 * Any thread. A name's latest registration counts; a late notice of the one before does not touch it.
 */
class ServiceDirectory : public android::BnInterface<android::IServiceManager> {
  public:
    android::sp<android::IBinder> getService(const android::String16& name) const override;
    android::sp<android::IBinder> checkService(const android::String16& name) const override;

    /** @return BAD_VALUE for an empty name, one over kMaxNameLength characters or a null service; else OK */
    android::status_t addService(const android::String16& name, const android::sp<android::IBinder>& service,
                                 bool allowIsolated = false) override;

    android::Vector<android::String16> listServices() override;

    /** The process behind the registration @p service of @p name died. */
    void serviceDied(const android::String16& name, const android::wp<android::IBinder>& service);

    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags = 0) override;

  protected:
    ~ServiceDirectory() override = default;

  private:
    struct Entry {
        android::sp<android::IBinder> service;
        android::sp<android::IBinder::DeathRecipient> recipient;
    };

    android::status_t add(const android::Parcel& data, android::Parcel* reply);
    android::status_t list(const android::Parcel& data, android::Parcel* reply);

    /** Guards mServices; no service is called with it held. */
    mutable android::Mutex mLock;
    std::map<android::String16, Entry> mServices GUARDED_BY(mLock);
};
