// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "Client"

#include "client/Session.h"

#include <log/log.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <utility>

#include "client/Worker.h"

namespace client {

using android::DEAD_OBJECT;
using android::IBinder;
using android::interface_cast;
using android::Mutex;
using android::OK;
using android::sp;
using android::status_t;
using android::wp;

namespace {

/** What a condition can be told to wait on every unit, whose clock may have 32 bits. */
constexpr nsecs_t kLongestWait = std::chrono::nanoseconds(std::chrono::hours(1)).count();

constexpr nsecs_t kNever = std::numeric_limits<nsecs_t>::max();

/** Whether a session of this process is started: the daemon takes one registration of a process. */
std::atomic<bool> sIsClaimed{false};

/** The session whose thread this is. */
thread_local const Session* sRunning = nullptr;

nsecs_t now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

/** Tells a session of one service's death. */
template <typename Access>
class Death : public IBinder::DeathRecipient {
  public:
    Death(const wp<Session>& session, uint64_t connection) : mSession(session), mConnection(connection) {}

    void binderDied(const wp<IBinder>& /*who*/) override {
        const sp<Session> session = mSession.promote();
        if (session != nullptr) {
            session->lose<Access>(mConnection);
        }
    }

  private:
    const wp<Session> mSession;
    const uint64_t mConnection;
};

}  // namespace

Session::Session(Environment environment) : mEnvironment(std::move(environment)) {}

// Here, where a Worker is known.
Session::~Session() = default;

status_t Session::start(Events events, const Options& options) {
    if (options.services == 0 || (options.services & ~Options::kAllServices) != 0 ||
        options.retryInterval < std::chrono::milliseconds(1) ||
        options.retryInterval > std::chrono::hours(24)) {
        return android::BAD_VALUE;
    }
    bool isClaimed = false;
    if (!sIsClaimed.compare_exchange_strong(isClaimed, true)) {
        ALOGE("a client of this process is started already");
        return android::ALREADY_EXISTS;
    }
    mEnvironment.startThreads();
    mEvents = std::move(events);
    mRetryInterval = std::chrono::nanoseconds(options.retryInterval).count();

    const auto isWanted = [&options](Service service) {
        return (options.services & static_cast<uint32_t>(service)) != 0;
    };
    const sp<Worker> worker = new Worker(this);
    Mutex::Autolock lock(mLock);
    viewLocked<DeviceAccess>().isWanted = isWanted(Service::kDeviceManager);
    viewLocked<VolumeAccess>().isWanted = isWanted(Service::kVolumeManager);
    viewLocked<UsbAccess>().isWanted = isWanted(Service::kUsbManager);
    const status_t status = worker->run("DeviceClient");
    if (status != OK) {
        ALOGE("no thread for the client: %d", status);
        mEvents = Events();
        sIsClaimed = false;
        return status;
    }
    mWorker = worker;
    mIsStarted = true;
    return OK;
}

void Session::stop() {
    sp<Worker> worker;
    {
        Mutex::Autolock lock(mLock);
        if (!mIsStarted) {
            return;
        }
        mIsStarted = false;
        mIsStopping = true;
        // The thread keeps the session, and the session must not keep the thread in turn.
        worker = std::move(mWorker);
        mWorker.clear();
        mChanged.broadcast();
    }
    // A call-back that ends the session cannot wait for itself; its thread ends when it returns, and touches
    // nothing of the daemon's any more.
    if (!isOnWorker()) {
        worker->join();
    }
    disconnect<DeviceAccess>();
    disconnect<VolumeAccess>();
    disconnect<UsbAccess>();
    sIsClaimed = false;
}

bool Session::isOnWorker() const {
    return sRunning == this;
}

bool Session::waitUntilConnected(nsecs_t limit) {
    const nsecs_t start = now();
    Mutex::Autolock lock(mLock);
    while (!areAllConnectedLocked()) {
        const nsecs_t passed = now() - start;
        if (passed >= limit || isOnWorker() || !mIsStarted) {
            return false;
        }
        mChanged.waitRelative(mLock, std::min(limit - passed, kLongestWait));
    }
    return true;
}

bool Session::areAllConnectedLocked() const {
    return mIsStarted && !isMissingLocked<DeviceAccess>() && !isMissingLocked<VolumeAccess>() &&
           !isMissingLocked<UsbAccess>();
}

template <typename Access>
bool Session::isMissingLocked() const {
    return viewLocked<Access>().isWanted && !viewLocked<Access>().isComplete;
}

bool Session::isConnected(Service service) const {
    Mutex::Autolock lock(mLock);
    switch (service) {
        case Service::kDeviceManager:
            return viewLocked<DeviceAccess>().isComplete;
        case Service::kVolumeManager:
            return viewLocked<VolumeAccess>().isComplete;
        case Service::kUsbManager:
            return viewLocked<UsbAccess>().isComplete;
    }
    return false;
}

template <typename Access>
int32_t Session::hear(const wp<Session>& session, uint64_t connection, bool added,
                      const sp<typename Access::Record>& record) {
    const sp<Session> hearing = session.promote();
    if (hearing == nullptr) {
        return 0;
    }
    Mutex::Autolock lock(hearing->mLock);
    View<Access>& view = hearing->viewLocked<Access>();
    if (view.connection == connection) {
        for (const auto& change : view.picture.notice(added, record)) {
            hearing->mBacklog.push(Event::change(change.added, change.record));
        }
        // A USB manager that is shut down forgets its devices without a word; the next start finds them anew,
        // under other identifiers. Also while a list is read, which may be older than that.
        view.isDoubtful |= added && Access::kService == Service::kUsbManager;
        hearing->mChanged.broadcast();
    }
    return 0;
}

template <typename Access>
int32_t Session::hearNumber(const wp<Session>& session, uint64_t connection, Event::Kind kind, int32_t number,
                            int32_t value) {
    const sp<Session> hearing = session.promote();
    if (hearing == nullptr) {
        return 0;
    }
    Event event = Event::of(kind, Access::kService);
    event.number = number;
    event.value = value;
    Mutex::Autolock lock(hearing->mLock);
    View<Access>& view = hearing->viewLocked<Access>();
    if (view.connection != connection) {
        return 0;
    }
    if (view.picture.isReading()) {
        view.early.push_back(event);
    } else {
        hearing->mBacklog.push(event);
        hearing->mChanged.broadcast();
    }
    return 0;
}

template int32_t Session::hear<DeviceAccess>(const wp<Session>&, uint64_t, bool,
                                             const sp<device::DeviceItf>&);
template int32_t Session::hear<VolumeAccess>(const wp<Session>&, uint64_t, bool,
                                             const sp<volume::VolumeItf>&);
template int32_t Session::hear<UsbAccess>(const wp<Session>&, uint64_t, bool, const sp<usb::UsbDeviceItf>&);
template int32_t Session::hearNumber<DeviceAccess>(const wp<Session>&, uint64_t, Event::Kind, int32_t,
                                                   int32_t);
template int32_t Session::hearNumber<VolumeAccess>(const wp<Session>&, uint64_t, Event::Kind, int32_t,
                                                   int32_t);
template int32_t Session::hearNumber<UsbAccess>(const wp<Session>&, uint64_t, Event::Kind, int32_t, int32_t);

template <typename Access>
void Session::lose(uint64_t connection) {
    Mutex::Autolock lock(mLock);
    View<Access>& view = viewLocked<Access>();
    if (view.connection == connection) {
        loseLocked<Access>();
        view.lookAt = now();
        mChanged.broadcast();
    }
}

template <typename Access>
void Session::loseLocked() {
    View<Access>& view = viewLocked<Access>();
    if (view.phase == Phase::kLive) {
        mBacklog.pushLoss(Access::kService);
    }
    view.picture.giveUpReading();
    view.early.clear();
    view.phase = Phase::kAbsent;
    view.connection = 0;
    view.manager.clear();
    view.isComplete = false;
    view.isDoubtful = false;
}

void Session::run() {
    sRunning = this;
    for (;;) {
        {
            Mutex::Autolock lock(mLock);
            if (mIsStopping) {
                break;
            }
        }
        connectIfDue<DeviceAccess>();
        connectIfDue<VolumeAccess>();
        connectIfDue<UsbAccess>();
        readAgainIfDoubtful<UsbAccess>();
        tellOrWait();
    }
    // What the call-backs hold goes here and not on a thread that the application does not know.
    mEvents = Events();
    sRunning = nullptr;
}

template <typename Access>
void Session::connectIfDue() {
    uint64_t connection = 0;
    std::vector<sp<typename Access::Record>> known;
    {
        Mutex::Autolock lock(mLock);
        View<Access>& view = viewLocked<Access>();
        if (!view.isWanted || view.phase != Phase::kAbsent || view.lookAt > now() || mIsStopping) {
            return;
        }
        // A daemon that keeps dying adds no more than the application hears.
        if (mBacklog.size() >= EventBacklog::kLimit) {
            return;
        }
        view.lookAt = now() + mRetryInterval;
        // Before the watch for its death, whose notice may come at once.
        view.connection = connection = ++mLastConnection;
        view.phase = Phase::kReading;
        view.picture.beginReading();
        known = view.picture.known();
    }
    connect<Access>(connection, known);

    Mutex::Autolock lock(mLock);
    if (viewLocked<Access>().connection == connection && viewLocked<Access>().phase == Phase::kReading) {
        loseLocked<Access>();
    }
}

/** Leaves the view as it was when it does not succeed. */
template <typename Access>
void Session::connect(uint64_t connection, const std::vector<sp<typename Access::Record>>& known) {
    Link<Access>& link = std::get<Link<Access>>(mLinks);
    link = Link<Access>();
    const sp<IBinder> service = mEnvironment.lookUp(Events::nameOf(Access::kService));
    if (service == nullptr) {
        return;
    }
    const sp<IBinder::DeathRecipient> death = new Death<Access>(this, connection);
    if (service->linkToDeath(death) != OK) {
        return;
    }
    link.service = service;
    link.death = death;
    link.manager = interface_cast<typename Access::Manager>(service);
    // Notices first, then the list: what comes in between is heard of twice, and not never.
    link.notifier = Access::addNotifier(link.manager, service, this, connection);
    const auto listed = Access::read(link.manager, mEnvironment, known);
    // The calls do not tell whether they failed. Any other answer, even a refusal, comes from one who lives.
    if (service->pingBinder() == DEAD_OBJECT) {
        return;
    }
    Mutex::Autolock lock(mLock);
    if (viewLocked<Access>().connection == connection) {
        viewLocked<Access>().manager = link.manager;
        becomeLiveLocked<Access>(listed);
    }
}

template <typename Access>
void Session::becomeLiveLocked(const std::vector<sp<typename Access::Record>>& listed) {
    View<Access>& view = viewLocked<Access>();
    view.phase = Phase::kLive;
    mBacklog.push(Event::of(Event::Kind::kConnected, Access::kService));
    pushReadingLocked<Access>(listed);
    mBacklog.push(Event::of(Event::Kind::kPictureComplete, Access::kService));
    pushEarlyLocked<Access>();
}

/**
 * Compares what is known with what a live service lists. What arrives meanwhile is kept by the picture, and
 * has the list read once more: by the end of the last reading nothing has come since its beginning.
 */
template <typename Access>
void Session::readAgainIfDoubtful() {
    const Link<Access>& link = std::get<Link<Access>>(mLinks);
    uint64_t connection = 0;
    std::vector<sp<typename Access::Record>> known;
    {
        Mutex::Autolock lock(mLock);
        View<Access>& view = viewLocked<Access>();
        if (view.phase != Phase::kLive || mIsStopping || !std::exchange(view.isDoubtful, false)) {
            return;
        }
        connection = view.connection;
        view.picture.beginReading();
        known = view.picture.known();
    }
    const auto listed = Access::read(link.manager, mEnvironment, known);
    const bool isDead = link.service->pingBinder() == DEAD_OBJECT;

    Mutex::Autolock lock(mLock);
    View<Access>& view = viewLocked<Access>();
    if (view.connection != connection) {
        return;
    }
    if (isDead) {
        // Its death is about to be told, and the next daemon's list is compared with what is known.
        view.picture.giveUpReading();
    } else {
        pushReadingLocked<Access>(listed);
    }
    pushEarlyLocked<Access>();
}

template <typename Access>
void Session::pushReadingLocked(const std::vector<sp<typename Access::Record>>& listed) {
    for (const auto& change : viewLocked<Access>().picture.endReading(listed)) {
        mBacklog.push(Event::change(change.added, change.record));
    }
}

template <typename Access>
void Session::pushEarlyLocked() {
    for (const Event& event : std::exchange(viewLocked<Access>().early, {})) {
        mBacklog.push(event);
    }
}

/** Takes the registration back, unless the daemon is dead. */
template <typename Access>
void Session::disconnect() {
    bool isThere = false;
    {
        Mutex::Autolock lock(mLock);
        isThere = viewLocked<Access>().connection != 0;
        // From here on nothing is heard any more.
        loseLocked<Access>();
        mBacklog.clear();
        mChanged.broadcast();
    }
    const Link<Access> link = std::exchange(std::get<Link<Access>>(mLinks), Link<Access>());
    if (isThere && link.notifier != nullptr) {
        // A proxy never reaches a dead daemon's successor: with whom it registered is whom it asks.
        Access::removeNotifier(link.manager, link.notifier);
        link.service->unlinkToDeath(link.death);
    }
}

/** Tells the oldest event; without one, waits for one, or until a service is to be looked for or read. */
void Session::tellOrWait() {
    Event event = Event::of(Event::Kind::kPictureComplete, Service::kDeviceManager);
    {
        Mutex::Autolock lock(mLock);
        if (mIsStopping) {
            return;
        }
        if (mBacklog.isEmpty()) {
            if (viewLocked<UsbAccess>().isDoubtful) {
                return;
            }
            const nsecs_t lookAt = timeToLookLocked<DeviceAccess>(
                timeToLookLocked<VolumeAccess>(timeToLookLocked<UsbAccess>(kNever)));
            if (lookAt == kNever) {
                mChanged.wait(mLock);
            } else if (lookAt > now()) {
                mChanged.waitRelative(mLock, std::clamp<nsecs_t>(lookAt - now(), 1, kLongestWait));
            }
            return;
        }
        event = mBacklog.pop();
        takeNoteLocked(event);
    }
    event.tell(mEvents);
}

template <typename Access>
nsecs_t Session::timeToLookLocked(nsecs_t earliest) const {
    const View<Access>& view = viewLocked<Access>();
    return view.isWanted && view.phase == Phase::kAbsent ? std::min(earliest, view.lookAt) : earliest;
}

/** Keeps what has been told in step with @p event, which is told next. */
void Session::takeNoteLocked(const Event& event) {
    const bool isComplete = event.kind == Event::Kind::kPictureComplete;
    const bool isChange = event.kind == Event::Kind::kAdded || event.kind == Event::Kind::kRemoved;
    if (isComplete) {
        mChanged.broadcast();
    }
    switch (event.service) {
        case Service::kDeviceManager:
            viewLocked<DeviceAccess>().isComplete |= isComplete;
            if (isChange) {
                takeNoteOfChangeLocked<DeviceAccess>(event, event.device);
            }
            break;
        case Service::kVolumeManager:
            viewLocked<VolumeAccess>().isComplete |= isComplete;
            if (isChange) {
                takeNoteOfChangeLocked<VolumeAccess>(event, event.volume);
            }
            break;
        case Service::kUsbManager:
            viewLocked<UsbAccess>().isComplete |= isComplete;
            if (isChange) {
                takeNoteOfChangeLocked<UsbAccess>(event, event.usbDevice);
            }
            break;
    }
}

template <typename Access>
void Session::takeNoteOfChangeLocked(const Event& event, const sp<typename Access::Record>& record) {
    auto& told = viewLocked<Access>().told;
    if (event.kind == Event::Kind::kAdded) {
        told.push_back(record);
    } else {
        told.erase(std::remove(told.begin(), told.end(), record), told.end());
    }
}

}  // namespace client
