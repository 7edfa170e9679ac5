// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The uevent functions of <cutils/uevent.h>, for systems whose libcutils lacks them.
 *
 * Any process may send to a netlink socket, so each datagram's sender is checked before a byte of it is
 * believed. Nothing is logged here: errno tells the caller.
 */

#include <cutils/uevent.h>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// The kernel's own group; group 2 carries what the device manager daemon makes of it.
constexpr unsigned kKernelGroup = 1;

struct Sender {
    bool kernel = false;     // the netlink port is the kernel's
    bool multicast = false;  // sent to a group, not to this socket alone
    bool truncated = false;
    bool known = false;  // credentials came along
    uid_t uid = static_cast<uid_t>(-1);
};

int configure(int fd, int bufferSize, bool passCredentials) {
    // The forced form passes the system-wide limit, but is the superuser's alone.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bufferSize, sizeof(bufferSize)) != 0 &&
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof(bufferSize)) != 0) {
        return -1;
    }
    const int on = passCredentials ? 1 : 0;
    if (setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0) {
        return -1;
    }
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kKernelGroup;
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

ssize_t receive(int fd, void* buffer, size_t length, Sender* sender) {
    sockaddr_nl address = {};
    iovec data = {buffer, length};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);

    const ssize_t size = TEMP_FAILURE_RETRY(recvmsg(fd, &message, MSG_CMSG_CLOEXEC));
    if (size < 0) {
        return size;
    }
    sender->kernel = message.msg_namelen == sizeof(address) && address.nl_pid == 0;
    sender->multicast = address.nl_groups != 0;
    sender->truncated = (message.msg_flags & MSG_TRUNC) != 0;

    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_CREDENTIALS &&
        header->cmsg_len == CMSG_LEN(sizeof(ucred))) {
        ucred credentials;
        memcpy(&credentials, CMSG_DATA(header), sizeof(credentials));
        sender->known = true;
        sender->uid = credentials.uid;
    }
    return size;
}

}  // namespace

int uevent_open_socket(int buf_sz, bool passcred) {
    const int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (fd < 0) {
        return -1;
    }
    if (configure(fd, buf_sz, passcred) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

ssize_t uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    uid_t uid = static_cast<uid_t>(-1);
    return uevent_kernel_multicast_uid_recv(socket, buffer, length, &uid);
}

ssize_t uevent_kernel_multicast_uid_recv(int socket, void* buffer, size_t length, uid_t* uid) {
    return uevent_kernel_recv(socket, buffer, length, true, uid);
}

ssize_t uevent_kernel_recv(int socket, void* buffer, size_t length, bool require_group, uid_t* uid) {
    *uid = static_cast<uid_t>(-1);
    Sender sender;
    const ssize_t size = receive(socket, buffer, length, &sender);
    if (size < 0) {
        return size;
    }
    if (sender.known) {
        *uid = sender.uid;
    }
    int refusal = 0;
    if (!sender.known || sender.uid != 0 || !sender.kernel || (require_group && !sender.multicast)) {
        refusal = EIO;
    } else if (sender.truncated) {
        // Half a property is not what the kernel said.
        refusal = EMSGSIZE;
    }
    if (refusal == 0) {
        return size;
    }
    // A caller that overlooks the result must not find a stranger's text in its buffer.
    memset(buffer, 0, static_cast<size_t>(size));
    errno = refusal;
    return -1;
}
