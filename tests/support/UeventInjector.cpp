// SPDX-License-Identifier: Apache-2.0
#include "tests/support/UeventInjector.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

UeventInjector::~UeventInjector() {
    if (mFd >= 0) {
        close(mFd);
    }
}

int UeventInjector::open() {
    if (mFd >= 0) {
        return 0;
    }
    mFd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (mFd < 0) {
        return -errno;
    }
    // No group: this socket hears the results of its own requests only.
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    const int result = bind(mFd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    return result == 0 ? 0 : -errno;
}

int UeventInjector::send(const std::string& datagram) {
    nlmsghdr header = {};
    header.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(datagram.size()));
    header.nlmsg_type = NLMSG_MIN_TYPE;
    // The kernel silently ignores what is no request; the acknowledgement tells an error from success.
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    header.nlmsg_seq = ++mSequence;

    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    iovec parts[] = {{&header, sizeof(header)}, {const_cast<char*>(datagram.data()), datagram.size()}};
    msghdr message = {};
    message.msg_name = &kernel;
    message.msg_namelen = sizeof(kernel);
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (sendmsg(mFd, &message, 0) < 0) {
        return -errno;
    }
    return receiveResult(header.nlmsg_seq);
}

int UeventInjector::receiveResult(uint32_t sequence) {
    // The acknowledgement of a refused request carries the request too.
    alignas(nlmsghdr) char reply[NLMSG_LENGTH(sizeof(nlmsgerr)) + 2 * kMaxSize];
    for (;;) {
        const ssize_t size = TEMP_FAILURE_RETRY(recv(mFd, reply, sizeof(reply), MSG_TRUNC));
        if (size < 0) {
            return -errno;
        }
        if (static_cast<size_t>(size) < NLMSG_LENGTH(sizeof(nlmsgerr))) {
            return -EBADMSG;
        }
        nlmsghdr header;
        nlmsgerr result;
        memcpy(&header, reply, sizeof(header));
        memcpy(&result, reply + NLMSG_HDRLEN, sizeof(result));
        if (header.nlmsg_type == NLMSG_ERROR && header.nlmsg_seq == sequence) {
            return result.error;
        }
    }
}

int UeventInjector::send(const std::string& action, const std::string& path, const std::string& subsystem,
                         const std::vector<std::string>& properties) {
    return send(compose(action, path, subsystem, properties));
}

std::string UeventInjector::compose(const std::string& action, const std::string& path,
                                    const std::string& subsystem,
                                    const std::vector<std::string>& properties) {
    std::string datagram;
    const auto add = [&datagram](const std::string& token) {
        datagram += token;
        datagram += '\0';
    };
    add(action + "@" + path);
    add("ACTION=" + action);
    add("DEVPATH=" + path);
    if (!subsystem.empty()) {
        add("SUBSYSTEM=" + subsystem);
    }
    for (const std::string& property : properties) {
        add(property);
    }
    return datagram;
}
