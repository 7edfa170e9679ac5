// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the bundled uevent functions believe. Not every combination can be had from a real kernel, so the
 * program is linked with recvmsg wrapped, and the test says what came.
 */

#include <cutils/uevent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>

using ::testing::Each;

namespace {

constexpr uid_t kNoUid = static_cast<uid_t>(-1);

/** A datagram as recvmsg delivers it; by default one of the kernel's. */
struct Delivery {
    std::string text = "add@/p";
    uint32_t port = 0;
    uint32_t groups = 1;
    bool address = true;
    bool credentials = true;
    int controlType = SCM_CREDENTIALS;
    uid_t uid = 0;
    int flags = 0;
    int interruptions = 0;
    int error = 0;
};

Delivery sDelivery;

void deliverCredentials(msghdr* message) {
    if (!sDelivery.credentials) {
        message->msg_controllen = 0;
        return;
    }
    cmsghdr* const header = CMSG_FIRSTHDR(message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = sDelivery.controlType;
    header->cmsg_len = CMSG_LEN(sizeof(ucred));
    const ucred credentials = {1, sDelivery.uid, 0};
    memcpy(CMSG_DATA(header), &credentials, sizeof(credentials));
}

}  // namespace

extern "C" ssize_t __wrap_recvmsg(int, msghdr* message, int) {
    if (sDelivery.interruptions-- > 0) {
        errno = EINTR;
        return -1;
    }
    if (sDelivery.error != 0) {
        errno = sDelivery.error;
        return -1;
    }
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = sDelivery.port;
    address.nl_groups = sDelivery.groups;
    memcpy(message->msg_name, &address, sizeof(address));
    message->msg_namelen = sDelivery.address ? sizeof(address) : 0;
    message->msg_flags = sDelivery.flags;
    deliverCredentials(message);
    const size_t size = std::min(sDelivery.text.size(), message->msg_iov[0].iov_len);
    memcpy(message->msg_iov[0].iov_base, sDelivery.text.data(), size);
    return static_cast<ssize_t>(size);
}

namespace {

class UeventReceiveTest : public ::testing::Test {
  protected:
    UeventReceiveTest() {
        sDelivery = Delivery();
        mBuffer.fill('#');
    }

    ssize_t receive() { return uevent_kernel_multicast_uid_recv(0, mBuffer.data(), mBuffer.size(), &mUid); }

    void expectRefused(int error, uid_t uid) {
        EXPECT_EQ(-1, receive());
        EXPECT_EQ(error, errno);
        EXPECT_EQ(uid, mUid);
        EXPECT_EQ(std::string(sDelivery.text.size(), '\0'),
                  std::string(mBuffer.data(), sDelivery.text.size()));
    }

    std::array<char, 64> mBuffer;
    uid_t mUid = 4711;
};

TEST_F(UeventReceiveTest, BelievesTheKernel) {
    EXPECT_EQ(6, receive());
    EXPECT_EQ(0U, mUid);
    EXPECT_EQ("add@/p#", std::string(mBuffer.data(), 7));
    EXPECT_EQ(6, uevent_kernel_multicast_recv(0, mBuffer.data(), mBuffer.size()));
}

TEST_F(UeventReceiveTest, HandsOnAnEmptyDatagram) {
    sDelivery.text.clear();
    EXPECT_EQ(0, receive());
}

TEST_F(UeventReceiveTest, RefusesAnotherPort) {
    sDelivery.port = 1;
    expectRefused(EIO, 0);
}

TEST_F(UeventReceiveTest, RefusesAnotherUser) {
    sDelivery.uid = 1000;
    expectRefused(EIO, 1000);
}

TEST_F(UeventReceiveTest, RefusesAnUnknownUser) {
    sDelivery.credentials = false;
    expectRefused(EIO, kNoUid);
    sDelivery.credentials = true;
    sDelivery.controlType = SCM_RIGHTS;
    expectRefused(EIO, kNoUid);
}

TEST_F(UeventReceiveTest, RefusesASenderWithoutAddress) {
    sDelivery.address = false;
    expectRefused(EIO, 0);
}

TEST_F(UeventReceiveTest, RefusesAUnicastWhereAGroupIsRequired) {
    sDelivery.groups = 0;
    expectRefused(EIO, 0);
    EXPECT_EQ(6, uevent_kernel_recv(0, mBuffer.data(), mBuffer.size(), false, &mUid));
}

TEST_F(UeventReceiveTest, RefusesWhatIsCut) {
    sDelivery.flags = MSG_TRUNC;
    expectRefused(EMSGSIZE, 0);
}

TEST_F(UeventReceiveTest, TakesNoNoticeOfInterruptions) {
    sDelivery.interruptions = 3;
    EXPECT_EQ(6, receive());
}

TEST_F(UeventReceiveTest, HandsOnAnError) {
    sDelivery.error = ENOBUFS;
    EXPECT_EQ(-1, receive());
    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_EQ(kNoUid, mUid);
    EXPECT_THAT(mBuffer, Each('#'));
}

}  // namespace
