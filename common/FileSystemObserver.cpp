// SPDX-License-Identifier: Apache-2.0
#include "common/FileSystemObserver.h"

#include <utils/KeyedVector.h>
#include <utils/Mutex.h>

#include "common/Assert.h"
#include "common/ObserverNode.h"
#include "common/ObserverThread.h"

using android::KeyedVector;
using android::Mutex;
using android::sp;
using android::String8;

/** What an observer holds. */
struct FileSystemObserverState {
    /** Guards mNodes and mThread; never held while a thread is waited for or a notifier runs. */
    Mutex mLock;
    KeyedVector<String8, sp<ObserverNode>> mNodes GUARDED_BY(mLock);
    sp<ObserverThread> mThread GUARDED_BY(mLock);
};

FileSystemObserver::FileSystemObserver() : mState(std::make_unique<FileSystemObserverState>()) {
    SERVICE_ASSERT_AT(mState, "observer", "FileSystemObserver", 203,
                      "FileSystemObserver::FileSystemObserver()");
}

FileSystemObserver::~FileSystemObserver() {
    SERVICE_ASSERT_IN(mState, "observer", "FileSystemObserver",
                      "virtual FileSystemObserver::~FileSystemObserver()");
    endThread();
}

void FileSystemObserver::add(const String8& path, const sp<FileSystemObserverNotifier>& notifier) {
    SERVICE_ASSERT_AT(mState, "observer", "FileSystemObserver", 227,
                      "void FileSystemObserver::add(const android::String8&, "
                      "const android::sp<FileSystemObserverNotifier>&)");
    const sp<ObserverNode> node = new ObserverNode(path, notifier);
    Mutex::Autolock lock(mState->mLock);
    mState->mNodes.add(path, node);
}

void FileSystemObserver::remove(const String8& path) {
    SERVICE_ASSERT_AT(mState, "observer", "FileSystemObserver", 240,
                      "void FileSystemObserver::remove(const android::String8&)");
    Mutex::Autolock lock(mState->mLock);
    mState->mNodes.removeItem(path);
}

void FileSystemObserver::start() {
    SERVICE_ASSERT_AT(mState, "observer", "FileSystemObserver", 251, "void FileSystemObserver::start()");
    endThread();
    Mutex::Autolock lock(mState->mLock);
    if (mState->mThread != nullptr) {
        // Another start() came first.
        return;
    }
    mState->mThread = new ObserverThread(mState->mNodes);
    mState->mThread->run("ObserverThread", 0, 0);
}

void FileSystemObserver::stop() {
    SERVICE_ASSERT_AT(mState, "observer", "FileSystemObserver", 261, "void FileSystemObserver::stop()");
    endThread();
}

void FileSystemObserver::endThread() {
    sp<ObserverThread> thread;
    {
        Mutex::Autolock lock(mState->mLock);
        thread = mState->mThread;
        mState->mThread.clear();
    }
    if (thread != nullptr) {
        thread->end();
    }
}
