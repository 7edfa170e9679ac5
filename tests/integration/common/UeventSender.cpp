// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/common/UeventSender.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

UeventSender::UeventSender() : mFd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT)) {}

UeventSender::~UeventSender() {
    close(mFd);
}

int UeventSender::unicast(int receiver, const std::string& datagram) {
    sockaddr_nl address = {};
    socklen_t size = sizeof(address);
    if (getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return -errno;
    }
    return send(datagram, address.nl_pid, 0, 0);
}

int UeventSender::send(const std::string& datagram, uint32_t port, uint32_t groups, uid_t uid) {
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    address.nl_groups = groups;
    iovec data = {const_cast<char*>(datagram.data()), datagram.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);

    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_CREDENTIALS;
    header->cmsg_len = CMSG_LEN(sizeof(ucred));
    const ucred credentials = {getpid(), uid, 0};
    memcpy(CMSG_DATA(header), &credentials, sizeof(credentials));
    return sendmsg(mFd, &message, 0) < 0 ? -errno : 0;
}
