// SPDX-License-Identifier: Apache-2.0
#include "client/Worker.h"

#include <pthread.h>

namespace client {

android::status_t Worker::readyToRun() {
    pthread_setname_np(pthread_self(), "DeviceClient");
    return android::OK;
}

bool Worker::threadLoop() {
    mSession->run();
    return false;
}

}  // namespace client
