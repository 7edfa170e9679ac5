// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The daemon's one listener on the kernel's uevents.
 */

#include <utils/KeyedVector.h>
#include <utils/Looper.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <cstdint>

#include "common/EventLooper.h"
#include "common/UeventObserverNotifier.h"

/**
 * The looper's call-back for the uevent socket: reads one datagram, decodes it and hands it to the notifiers.
 *
 * Uevent thread. What cannot be received or decoded is logged and dropped. When the kernel had to drop
 * uevents because the socket's buffer was full, it says so by one receive error (ENOBUFS) ahead of the next
 * uevent.
 *
 * @param fd      the uevent socket
 * @param events  EVENT_ bits of android::Looper; without EVENT_INPUT nothing is read
 * @param data    the UeventObserver; aborts when null
 * @return 1, to stay registered
 */
int LooperListenser(int fd, int events, void* data);

/**
 * Reads the kernel's uevents on a thread of its own, the uevent thread, and hands each to every registered
 * notifier, one after the other. There is no filter: a notifier hears all subsystems.
 *
 * The socket is open from construction on. What arrives while the thread does not run waits in the socket's
 * buffer of 64 KiB, as far as that goes.
 */
class UeventObserver : public android::RefBase {
  public:
    /** Opens the socket; aborts when that fails. */
    UeventObserver();

    /** Starts the uevent thread ("EventLooper"); does nothing when it runs. Any thread. */
    void start();

    /**
     * Ends the uevent thread and waits for its end, so that no notifier is running any more upon return; does
     * nothing when it does not run.
     *
     * Any thread. Hold no lock that a notifier takes. From inside a notifier it only asks: the thread ends
     * when the dispatch in progress is over.
     */
    void stop();

    /**
     * Registers @p notifier, once however often it is called. Any thread, but not from inside a notifier;
     * waits for a dispatch in progress.
     */
    void registerNotifier(const android::sp<UeventObserverNotifier>& notifier);

    /**
     * Drops @p notifier; does nothing when it is not registered. Any thread, but not from inside a notifier;
     * waits for a dispatch in progress, after it the notifier is not called again.
     */
    void unregisterNotifier(const android::sp<UeventObserverNotifier>& notifier);

  protected:
    /** Ends the thread, if it runs, and closes the socket. */
    ~UeventObserver() override;

  private:
    friend int LooperListenser(int fd, int events, void* data);

    void dispatch(const android::sp<Uevent>& event);

    // Guards mNotifiers. Held while the notifiers run; taken before any lock of theirs.
    android::Mutex mLock;
    android::sp<EventLooper> mEventLooper;
    android::sp<android::Looper> mLooper;
    int mFd;
    // By the notifier's address, in full width: two objects never share a key.
    android::KeyedVector<uintptr_t, android::sp<UeventObserverNotifier>> mNotifiers GUARDED_BY(mLock);
};
