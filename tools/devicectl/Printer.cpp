// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Printer.h"

#include <pthread.h>

#include <thread>

#include "tools/devicectl/StandardStreams.h"

namespace devicectl {

using android::sp;

void Printer::start() {
    std::thread thread([self = sp<Printer>(this)] { self->run(); });
    pthread_setname_np(thread.native_handle(), "Printer");
    thread.detach();
}

bool Printer::waitEnd(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, limit, [this] { return mOver; });
}

bool Printer::isOver() {
    const std::lock_guard<std::mutex> lock(mLock);
    return mOver;
}

int Printer::error() {
    const std::lock_guard<std::mutex> lock(mLock);
    return mError;
}

uint64_t Printer::printed() {
    const std::lock_guard<std::mutex> lock(mLock);
    return mPrinted;
}

void Printer::run() {
    for (;;) {
        const std::optional<Event> event = mQueue->pop();
        if (!event || !write(*event)) {
            break;
        }
    }
    mQueue->close();
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mOver = true;
        mChanged.notify_all();
    }
    mEnd->post();
}

bool Printer::write(const Event& event) {
    const int error = writeAll(mFd, renderEvent(mStyle.format, event, mStyle.properties));
    const std::lock_guard<std::mutex> lock(mLock);
    mError = error;
    if (error == 0 && event.isFromDaemon()) {
        ++mPrinted;
    }
    return error == 0 && (!mStyle.count || mPrinted < *mStyle.count);
}

}  // namespace devicectl
