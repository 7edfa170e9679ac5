// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/device/FakeUevents.h"

#include <cutils/uevent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utils/Looper.h>

namespace {

int sSender = -1;
int sReceiver = -1;

}  // namespace

extern "C" int uevent_open_socket(int /*bufferSize*/, bool /*passCredentials*/) {
    int pair[2] = {-1, -1};
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair));
    sReceiver = pair[0];
    sSender = pair[1];
    return sReceiver;
}

extern "C" ssize_t uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    return TEMP_FAILURE_RETRY(recv(socket, buffer, length, 0));
}

FakeUevents::FakeUevents() : mObserver(new UeventObserver()) {}

FakeUevents::~FakeUevents() {
    mObserver.clear();
    close(sSender);
    sSender = -1;
    sReceiver = -1;
}

void FakeUevents::send(const std::string& datagram) const {
    ASSERT_EQ(static_cast<ssize_t>(datagram.size()), ::send(sSender, datagram.data(), datagram.size(), 0));
}

void FakeUevents::send(const std::string& action, const std::string& path, const std::string& subsystem,
                       const std::vector<std::string>& properties) const {
    std::string datagram = action + "@" + path + '\0' + "ACTION=" + action + '\0' + "DEVPATH=" + path + '\0';
    if (!subsystem.empty()) {
        datagram += "SUBSYSTEM=" + subsystem + '\0';
    }
    for (const std::string& property : properties) {
        datagram += property + '\0';
    }
    send(datagram);
}

void FakeUevents::pump() const {
    LooperListenser(sReceiver, android::Looper::EVENT_INPUT, mObserver.get());
}
