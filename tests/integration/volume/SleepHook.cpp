// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/volume/SleepHook.h"

#include <unistd.h>

#include <mutex>

namespace {

std::mutex sLock;  // guards sInstead
std::function<void()>* sInstead = nullptr;

}  // namespace

SleepHook::SleepHook(std::function<void()> instead) {
    const std::lock_guard<std::mutex> hold(sLock);
    sInstead = new std::function<void()>(std::move(instead));
}

SleepHook::~SleepHook() {
    const std::lock_guard<std::mutex> hold(sLock);
    delete sInstead;
    sInstead = nullptr;
}

extern "C" {

int __real_usleep(useconds_t micros);

int __wrap_usleep(useconds_t micros) {
    {
        const std::lock_guard<std::mutex> hold(sLock);
        if (sInstead != nullptr) {
            (*sInstead)();
            return 0;
        }
    }
    return __real_usleep(micros);
}

}  // extern "C"
