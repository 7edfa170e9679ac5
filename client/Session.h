// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <utils/Condition.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <cstdint>
#include <tuple>
#include <vector>

#include "client/Client.h"
#include "client/DeviceAccess.h"
#include "client/Environment.h"
#include "client/Event.h"
#include "client/EventBacklog.h"
#include "client/UsbAccess.h"
#include "client/View.h"
#include "client/VolumeAccess.h"

namespace client {

class Worker;

/**
 * What is behind a Client. It outlives the Client for as long as a notice is on its way, or the call-back
 * that destroyed the Client runs.
 *
 * Notices come on binder threads and only change what is known and what waits to be told; one thread, the
 * Worker's, looks for the services, registers, reads their lists and calls the application. No lock is held
 * while the daemon or the application is called.
 */
class Session : public android::RefBase {
  public:
    explicit Session(Environment environment);

    /** @copydoc Client::start() */
    android::status_t start(Events events, const Options& options);

    /** Ends what start() began; see Client::~Client(). Of no effect when nothing was begun. */
    void stop();

    /** @copydoc Client::waitUntilConnected() */
    bool waitUntilConnected(nsecs_t limit);

    bool isConnected(Service service) const;

    /** What has been told of a service. Any thread. */
    template <typename Access>
    std::vector<android::sp<typename Access::Record>> told() const {
        android::Mutex::Autolock lock(mLock);
        return viewLocked<Access>().told;
    }

    /** A service's interface; null while it is not connected. Any thread. */
    template <typename Access>
    android::sp<typename Access::Manager> manager() const {
        android::Mutex::Autolock lock(mLock);
        return viewLocked<Access>().manager;
    }

    /**
     * A notifier of @p connection heard that @p record came or went. Any thread.
     * @return 0, for the daemon
     */
    template <typename Access>
    static int32_t hear(const android::wp<Session>& session, uint64_t connection, bool added,
                        const android::sp<typename Access::Record>& record);

    /** A notifier of @p connection heard a numbered event. Any thread. @return 0, for the daemon */
    template <typename Access>
    static int32_t hearNumber(const android::wp<Session>& session, uint64_t connection, Event::Kind kind,
                              int32_t number, int32_t value);

    /** The daemon of @p connection died. Any thread. */
    template <typename Access>
    void lose(uint64_t connection);

    /** The thread's work, until the session is stopped. */
    void run();

  protected:
    ~Session() override;

  private:
    template <typename Access>
    View<Access>& viewLocked() REQUIRES(mLock) {
        return std::get<View<Access>>(mViews);
    }
    template <typename Access>
    const View<Access>& viewLocked() const REQUIRES(mLock) {
        return std::get<View<Access>>(mViews);
    }

    bool isOnWorker() const;
    bool areAllConnectedLocked() const REQUIRES(mLock);
    template <typename Access>
    bool isMissingLocked() const REQUIRES(mLock);

    template <typename Access>
    void connectIfDue();
    template <typename Access>
    void connect(uint64_t connection, const std::vector<android::sp<typename Access::Record>>& known);
    template <typename Access>
    void becomeLiveLocked(const std::vector<android::sp<typename Access::Record>>& listed) REQUIRES(mLock);
    template <typename Access>
    void readAgainIfDoubtful();
    template <typename Access>
    void pushReadingLocked(const std::vector<android::sp<typename Access::Record>>& listed) REQUIRES(mLock);
    template <typename Access>
    void pushEarlyLocked() REQUIRES(mLock);
    template <typename Access>
    void loseLocked() REQUIRES(mLock);
    template <typename Access>
    void disconnect();

    void tellOrWait();
    void takeNoteLocked(const Event& event) REQUIRES(mLock);
    template <typename Access>
    void takeNoteOfChangeLocked(const Event& event, const android::sp<typename Access::Record>& record)
        REQUIRES(mLock);
    template <typename Access>
    nsecs_t timeToLookLocked(nsecs_t earliest) const REQUIRES(mLock);

    const Environment mEnvironment;
    /** Set before the thread starts and cleared by it at its end; else read by it alone. */
    Events mEvents;
    nsecs_t mRetryInterval = 0;
    std::tuple<Link<DeviceAccess>, Link<VolumeAccess>, Link<UsbAccess>> mLinks;

    /** Guards the members below. Held for moments only. */
    mutable android::Mutex mLock;
    /** Broadcast when anything below changed that someone may wait for. */
    android::Condition mChanged;
    android::sp<Worker> mWorker GUARDED_BY(mLock);
    bool mIsStarted GUARDED_BY(mLock) = false;
    bool mIsStopping GUARDED_BY(mLock) = false;
    uint64_t mLastConnection GUARDED_BY(mLock) = 0;
    std::tuple<View<DeviceAccess>, View<VolumeAccess>, View<UsbAccess>> mViews GUARDED_BY(mLock);
    EventBacklog mBacklog GUARDED_BY(mLock);
};

}  // namespace client
