// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "FileSystemObserver"

#include "common/ObserverThread.h"

#include <log/log.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>

#include "common/Assert.h"

using android::KeyedVector;
using android::sp;
using android::status_t;
using android::String8;

namespace {

constexpr char kThreadName[] = "ObserverThread";
constexpr char kConstructor[] =
    "ObserverThread::ObserverThread(android::KeyedVector<android::String8, android::sp<ObserverNode> >&)";
constexpr int kPollMillis = 100;
/** Holds one event with the longest name at least. */
constexpr size_t kBufferSize = 512;
constexpr size_t kPathSize = 256;

}  // namespace

// inotify_init1() is inotify_init() of a descriptor that shells do not inherit.
ObserverThread::ObserverThread(KeyedVector<String8, sp<ObserverNode>>& nodes)
    : Thread(/*canCallJava=*/true), mFd(inotify_init1(IN_CLOEXEC)) {
    SERVICE_ASSERT_AT(mFd > 0, "mFd > 0", "FileSystemObserver", 49, kConstructor);
    for (size_t i = 0; i < nodes.size(); ++i) {
        const int wfd = inotify_add_watch(mFd, nodes.keyAt(i).string(), IN_CREATE | IN_DELETE);
        SERVICE_ASSERT_AT(wfd > 0, "wfd > 0", "FileSystemObserver", 56, kConstructor);
        mWatches.add(wfd, nodes.valueAt(i));
    }
}

ObserverThread::~ObserverThread() {
    for (size_t i = 0; i < mWatches.size(); ++i) {
        inotify_rm_watch(mFd, mWatches.keyAt(i));
    }
    mWatches.clear();
    close(mFd);
}

void ObserverThread::end() {
    // requestExitAndWait() refuses on the thread itself, without asking it to end.
    requestExit();
    requestExitAndWait();
}

status_t ObserverThread::readyToRun() {
    pthread_setname_np(pthread_self(), kThreadName);
    return android::OK;
}

bool ObserverThread::threadLoop() {
    pollfd waited = {mFd, POLLIN, 0};
    if (poll(&waited, 1, kPollMillis) < 0 || (waited.revents & POLLIN) == 0) {
        return true;
    }
    alignas(inotify_event) char buffer[kBufferSize];
    const ssize_t size = read(mFd, buffer, sizeof(buffer));
    if (size < static_cast<ssize_t>(sizeof(inotify_event))) {
        return true;
    }
    const size_t end = static_cast<size_t>(size);
    for (size_t at = 0; at + sizeof(inotify_event) <= end;) {
        auto* const event = reinterpret_cast<inotify_event*>(buffer + at);
        handleEvent(event);
        at += sizeof(inotify_event) + event->len;
    }
    return true;
}

void ObserverThread::handleEvent(inotify_event* event) {
    SERVICE_ASSERT_AT(event != nullptr, "event", "FileSystemObserver", 153,
                      "void ObserverThread::handleEvent(inotify_event*)");
    const ssize_t index = mWatches.indexOfKey(event->wd);
    if (index < 0) {
        return;
    }
    const sp<ObserverNode> node = mWatches.valueAt(static_cast<size_t>(index));

    // An event about the directory itself has no name.
    char path[kPathSize];
    snprintf(path, sizeof(path), "%s/%s", node->mPath.string(), event->len > 0 ? event->name : "");
    if ((event->mask & IN_CREATE) != 0) {
        ALOGI("[%s] add", path);
        if (node->mNotifier != nullptr) {
            node->mNotifier->onAdd(String8(path));
        }
    }
    if ((event->mask & IN_DELETE) != 0) {
        ALOGI("[%s] remove", path);
        if (node->mNotifier != nullptr) {
            node->mNotifier->onRemove(String8(path));
        }
    }
}
