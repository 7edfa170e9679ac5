// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The uevent functions of <cutils/uevent.h> on the kernel's own socket.
 */

#include <cutils/uevent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "tests/integration/common/UeventSender.h"
#include "tests/support/UeventInjector.h"

using ::testing::StartsWith;

namespace {

constexpr int kBufferSize = 65536;
constexpr int kWaitMillis = 10000;
constexpr uid_t kNoUid = static_cast<uid_t>(-1);
// The machine's own uevents come through as well: this path is the test's.
constexpr char kPath[] = "/devices/virtual/uevent-socket-test";

class UeventSocketTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mFd = uevent_open_socket(kBufferSize, true);
        ASSERT_GE(mFd, 0) << strerror(errno);
        ASSERT_EQ(0, mInjector.open());
    }

    ~UeventSocketTest() override { close(mFd); }

    bool waitForInput() const {
        pollfd poll = {mFd, POLLIN, 0};
        return ::poll(&poll, 1, kWaitMillis) == 1;
    }

    /** The next datagram that the kernel sent about the test's path; what it refuses counts as refused. */
    std::string receiveOwn() {
        while (waitForInput()) {
            const ssize_t size = uevent_kernel_multicast_recv(mFd, mBuffer, sizeof(mBuffer));
            if (size < 0) {
                ++mRefused;
                mError = errno;
                continue;
            }
            std::string datagram(mBuffer, static_cast<size_t>(size));
            if (datagram.find(kPath) != std::string::npos) {
                return datagram;
            }
        }
        return std::string();
    }

    int injectMarker() { return mInjector.send("change", kPath, "test"); }

    int mFd = -1;
    UeventInjector mInjector;
    char mBuffer[kBufferSize];
    int mRefused = 0;
    int mError = 0;
};

std::string forged() {
    return UeventInjector::compose("add", kPath, "block", {"SEQNUM=1"});
}

TEST_F(UeventSocketTest, IsClosedOnExecAndHasTheAskedBuffer) {
    EXPECT_EQ(FD_CLOEXEC, fcntl(mFd, F_GETFD));
    int size = 0;
    socklen_t length = sizeof(size);
    ASSERT_EQ(0, getsockopt(mFd, SOL_SOCKET, SO_RCVBUF, &size, &length));
    // The kernel doubles it for its own use.
    EXPECT_EQ(2 * kBufferSize, size);
}

TEST_F(UeventSocketTest, TellsWhyItCannotOpen) {
    rlimit before;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const int fd = uevent_open_socket(kBufferSize, true);
    const int error = errno;
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(-1, fd);
    EXPECT_EQ(EMFILE, error);
}

TEST_F(UeventSocketTest, SeveralListenersInOneProcessAllHear) {
    const int first = mFd;
    const int second = uevent_open_socket(kBufferSize, true);
    ASSERT_GE(second, 0) << strerror(errno);
    ASSERT_EQ(0, injectMarker());
    EXPECT_THAT(receiveOwn(), StartsWith("change@"));
    mFd = second;
    EXPECT_THAT(receiveOwn(), StartsWith("change@"));
    close(first);
}

TEST_F(UeventSocketTest, ReceivesWhatTheKernelSends) {
    ASSERT_EQ(0, mInjector.send("add", kPath, "usb", {"DEVTYPE=usb_device"}));
    const std::string datagram = receiveOwn();
    const std::string expected = UeventInjector::compose("add", kPath, "usb", {"DEVTYPE=usb_device"});
    ASSERT_GT(datagram.size(), expected.size());
    EXPECT_EQ(expected, datagram.substr(0, expected.size()));
    EXPECT_THAT(datagram.substr(expected.size()), StartsWith("SEQNUM="));
    EXPECT_EQ('\0', datagram.back());
    EXPECT_EQ(0, mRefused);
}

TEST_F(UeventSocketTest, RefusesAUsersMulticast) {
    UeventSender sender;
    ASSERT_EQ(0, sender.multicast(forged()));
    ASSERT_EQ(0, injectMarker());
    EXPECT_THAT(receiveOwn(), StartsWith("change@"));
    EXPECT_EQ(1, mRefused);
    EXPECT_EQ(EIO, mError);
}

TEST_F(UeventSocketTest, RefusesAnotherUsersCredentials) {
    UeventSender sender;
    ASSERT_EQ(0, sender.multicastAs(1000, forged()));
    ASSERT_TRUE(waitForInput());
    uid_t uid = 0;
    ssize_t size = 0;
    do {
        size = uevent_kernel_multicast_uid_recv(mFd, mBuffer, sizeof(mBuffer), &uid);
    } while (size >= 0 && waitForInput());
    EXPECT_EQ(-1, size);
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(1000U, uid);
}

TEST_F(UeventSocketTest, RefusesAUsersUnicast) {
    UeventSender sender;
    ASSERT_EQ(0, sender.unicast(mFd, forged()));
    ASSERT_EQ(0, injectMarker());
    EXPECT_THAT(receiveOwn(), StartsWith("change@"));
    EXPECT_EQ(1, mRefused);
    EXPECT_EQ(EIO, mError);
}

TEST_F(UeventSocketTest, RefusesAnEmptyDatagramOfAUser) {
    UeventSender sender;
    // Newer kernels do not even send it.
    const int result = sender.multicast(std::string());
    ASSERT_TRUE(result == 0 || result == -ENODATA) << result;
    ASSERT_EQ(0, injectMarker());
    EXPECT_THAT(receiveOwn(), StartsWith("change@"));
    EXPECT_EQ(result == 0 ? 1 : 0, mRefused);
}

TEST_F(UeventSocketTest, LeavesNothingOfWhatItRefuses) {
    UeventSender sender;
    memset(mBuffer, '#', sizeof(mBuffer));
    const std::string datagram = forged();
    ASSERT_EQ(0, sender.multicast(datagram));
    ASSERT_TRUE(waitForInput());
    while (uevent_kernel_multicast_recv(mFd, mBuffer, sizeof(mBuffer)) >= 0) {
        memset(mBuffer, '#', sizeof(mBuffer));
    }
    EXPECT_TRUE(std::all_of(mBuffer, mBuffer + datagram.size(), [](char byte) { return byte == '\0'; }));
}

/** The kernel's answer to a request is from the kernel, but to one socket: not for those who ask for a group.
 */
TEST_F(UeventSocketTest, RefusesTheKernelsUnicastUnlessAsked) {
    const auto request = [this] {
        nlmsghdr header = {};
        header.nlmsg_len = NLMSG_LENGTH(0);
        header.nlmsg_type = NLMSG_MIN_TYPE - 1;
        header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
        sockaddr_nl kernel = {};
        kernel.nl_family = AF_NETLINK;
        return sendto(mFd, &header, sizeof(header), 0, reinterpret_cast<const sockaddr*>(&kernel),
                      sizeof(kernel)) == static_cast<ssize_t>(sizeof(header));
    };
    ASSERT_TRUE(request());
    ASSERT_EQ(0, injectMarker());
    EXPECT_THAT(receiveOwn(), StartsWith("change@"));
    EXPECT_EQ(1, mRefused);
    EXPECT_EQ(EIO, mError);

    ASSERT_TRUE(request());
    uid_t uid = kNoUid;
    ASSERT_TRUE(waitForInput());
    EXPECT_GT(uevent_kernel_recv(mFd, mBuffer, sizeof(mBuffer), false, &uid), 0);
    EXPECT_EQ(0U, uid);
}

TEST_F(UeventSocketTest, RefusesEverythingWithoutCredentials) {
    const int fd = uevent_open_socket(kBufferSize, false);
    ASSERT_GE(fd, 0) << strerror(errno);
    ASSERT_EQ(0, injectMarker());
    uid_t uid = 0;
    EXPECT_EQ(-1, uevent_kernel_multicast_uid_recv(fd, mBuffer, sizeof(mBuffer), &uid));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(kNoUid, uid);
    close(fd);
}

TEST_F(UeventSocketTest, RefusesWhatDoesNotFit) {
    ASSERT_EQ(0, injectMarker());
    ASSERT_TRUE(waitForInput());
    EXPECT_EQ(-1, uevent_kernel_multicast_recv(mFd, mBuffer, 16));
    EXPECT_EQ(EMSGSIZE, errno);
    ASSERT_EQ(0, injectMarker());
    EXPECT_THAT(receiveOwn(), StartsWith("change@"));
}

TEST_F(UeventSocketTest, OverrunIsOneError) {
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(0, injectMarker());
    }
    EXPECT_EQ(-1, uevent_kernel_multicast_recv(mFd, mBuffer, sizeof(mBuffer)));
    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_THAT(receiveOwn(), StartsWith("change@"));
    EXPECT_EQ(0, mRefused);
}

}  // namespace
