// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <log/log.h>
#include <utils/KeyedVector.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include <cstdint>

#include "common/Assert.h"
#include "common/DumpText.h"

/**
 * The client notifiers of one service, one per client process: registered, removed, dropped when the client
 * dies, dumped.
 *
 * A traits class makes it an instance for a service:
 *
 *     struct Traits {
 *         using Manager = ...;         // the service object, derives virtually from android::RefBase
 *         using NotifierItf = ...;     // the notifier interface of the service's core
 *         using Wapper = ...;          // NotifierItf around a client's binder
 *         using Proxy = ...;           // NotifierFanOut<NotifierItf>
 *         using DeathRecipient = ...;  // NotifierDeathRecipient<Traits>
 *         static constexpr const char* kFile = ...;            // file name in assertions and log tag
 *         static constexpr const char* kAddFunction = ...;     // signature in the assertions of add()
 *         static constexpr const char* kRemoveFunction = ...;  // signature in the assertions of remove()
 *         static NotifierRegistry<Traits>& registryOf(Manager& manager);
 *     };
 *
 * Invariants: a process is in mNotifiers exactly when it is in mDeathRecipients; each wrapper in mNotifiers
 * is in the proxy's set, weakly.
 *
 * Lock order: the service's lock, then the proxy's short one. Neither is held while a client is called.
 */
template <typename Traits>
class NotifierRegistry {
  public:
    using Manager = typename Traits::Manager;
    using NotifierItf = typename Traits::NotifierItf;
    using Wapper = typename Traits::Wapper;
    using Proxy = typename Traits::Proxy;
    using DeathRecipient = typename Traits::DeathRecipient;

    /**
     * @param lock  the service's lock, which guards this registry (and may guard others); must outlive it
     * @param proxy the fan-out that the service's core notifies
     */
    NotifierRegistry(android::Mutex& lock, const android::sp<Proxy>& proxy) : mLock(lock), mProxy(proxy) {}

    /**
     * Registers @p notifier for the process @p pid. Any thread.
     *
     * Aborts the process when @p notifier is null, or when @p pid is registered already: a client that wants
     * another notifier removes its old one first.
     *
     * @return 0
     */
    int add(const android::wp<Manager>& manager, const android::sp<android::IBinder>& notifier, int32_t pid);

    /**
     * Removes the entry of the process @p pid, whichever binder it passes; the death link is taken from
     * @p notifier. Any thread.
     *
     * Aborts the process when @p notifier is null or @p pid is not registered.
     *
     * @return 0
     */
    int remove(const android::sp<android::IBinder>& notifier, int32_t pid);

    /**
     * Drops the entry of @p pid if @p recipient watches it still: a late notice of a client that was removed
     * must not cost a newer one that was given the same pid. Any thread.
     */
    void clientDied(const DeathRecipient* recipient, int32_t pid);

    /** Appends the number of entries and one line for each, in ascending order of the pids. Any thread. */
    void dump(android::String8& text) const;

  private:
    struct Entry {
        android::sp<Wapper> wapper;
        android::sp<DeathRecipient> recipient;
    };

    Entry takeLocked(uint32_t pid) REQUIRES(mLock);

    android::Mutex& mLock;
    const android::sp<Proxy> mProxy;
    /** Wrapper by pid of its client. */
    android::KeyedVector<uint32_t, android::sp<Wapper>> mNotifiers GUARDED_BY(mLock);
    /** Death recipient by pid of the client that it watches. */
    android::KeyedVector<uint32_t, android::sp<DeathRecipient>> mDeathRecipients GUARDED_BY(mLock);
};

/**
 * Watches one client of a NotifierRegistry and has its entry dropped when the client dies.
 */
template <typename Traits>
class NotifierDeathRecipient : public android::IBinder::DeathRecipient {
  public:
    using Manager = typename Traits::Manager;

    /** Aborts the process when @p manager is null. @p pid is the client's. */
    NotifierDeathRecipient(const android::wp<Manager>& manager, int32_t pid) : mManager(manager), mPid(pid) {
        SERVICE_ASSERT(manager != nullptr, "manager.get()", Traits::kFile);
    }

    /** A binder thread. */
    void binderDied(const android::wp<android::IBinder>& /*who*/) override {
        __android_log_print(ANDROID_LOG_WARN, Traits::kFile, "Application PID[%d] die", mPid);
        const android::sp<Manager> manager = mManager.promote();
        if (manager != nullptr) {
            Traits::registryOf(*manager).clientDied(static_cast<typename Traits::DeathRecipient*>(this),
                                                    mPid);
        }
    }

  protected:
    ~NotifierDeathRecipient() override = default;

  private:
    const android::wp<Manager> mManager;
    const int32_t mPid;
};

template <typename Traits>
int NotifierRegistry<Traits>::add(const android::wp<Manager>& manager,
                                  const android::sp<android::IBinder>& notifier, int32_t pid) {
    SERVICE_ASSERT_IN(notifier != nullptr, "notifier.get()", Traits::kFile, Traits::kAddFunction);
    const uint32_t key = static_cast<uint32_t>(pid);
    // What is dropped again lets go of its binder only after the lock is released.
    Entry dropped;
    android::Mutex::Autolock lock(mLock);
    const ssize_t index = mNotifiers.indexOfKey(key);
    SERVICE_ASSERT_IN(index < 0, "index < 0", Traits::kFile, Traits::kAddFunction);

    const android::sp<Wapper> wapper = new Wapper(notifier);
    mNotifiers.add(key, wapper);
    mProxy->addNotifier(android::wp<NotifierItf>(wapper));
    const android::sp<DeathRecipient> recipient = new DeathRecipient(manager, pid);
    mDeathRecipients.add(key, recipient);
    if (notifier->linkToDeath(recipient, nullptr, 0) == android::DEAD_OBJECT) {
        // Nobody will tell of this client's death any more; left here, its entry would end the service when
        // the pid is used again.
        dropped = takeLocked(key);
    }
    return 0;
}

template <typename Traits>
int NotifierRegistry<Traits>::remove(const android::sp<android::IBinder>& notifier, int32_t pid) {
    SERVICE_ASSERT_IN(notifier != nullptr, "notifier.get()", Traits::kFile, Traits::kRemoveFunction);
    const uint32_t key = static_cast<uint32_t>(pid);
    Entry removed;
    android::Mutex::Autolock lock(mLock);
    const ssize_t index = mNotifiers.indexOfKey(key);
    SERVICE_ASSERT_IN(index >= 0, "index >= 0", Traits::kFile, Traits::kRemoveFunction);

    removed = takeLocked(key);
    notifier->unlinkToDeath(removed.recipient, nullptr, 0);
    return 0;
}

template <typename Traits>
void NotifierRegistry<Traits>::clientDied(const DeathRecipient* recipient, int32_t pid) {
    const uint32_t key = static_cast<uint32_t>(pid);
    Entry removed;
    android::Mutex::Autolock lock(mLock);
    const ssize_t index = mDeathRecipients.indexOfKey(key);
    if (index >= 0 && mDeathRecipients.valueAt(static_cast<size_t>(index)).get() == recipient) {
        removed = takeLocked(key);
    }
}

template <typename Traits>
void NotifierRegistry<Traits>::dump(android::String8& text) const {
    android::Mutex::Autolock lock(mLock);
    appendDumpLine(text, "notifier size[%d]\n", static_cast<int>(mNotifiers.size()));
    for (size_t i = 0; i < mNotifiers.size(); ++i) {
        const android::sp<Wapper>& notifier = mNotifiers.valueAt(i);
        SERVICE_ASSERT(notifier != nullptr, "notifier.get()", Traits::kFile);
        appendDumpLine(text, "notifier[0x%08x] pid[%d] \n",
                       static_cast<unsigned>(reinterpret_cast<uintptr_t>(notifier.get())),
                       static_cast<int>(mNotifiers.keyAt(i)));
    }
}

template <typename Traits>
typename NotifierRegistry<Traits>::Entry NotifierRegistry<Traits>::takeLocked(uint32_t pid) {
    Entry entry{mNotifiers.valueFor(pid), mDeathRecipients.valueFor(pid)};
    mProxy->removeNotifier(android::wp<NotifierItf>(entry.wapper));
    mNotifiers.removeItem(pid);
    mDeathRecipients.removeItem(pid);
    return entry;
}
