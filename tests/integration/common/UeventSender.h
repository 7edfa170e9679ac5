// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A user's socket in the kernel's netlink family: what must not be believed.
 */

#include <sys/types.h>

#include <cstdint>
#include <string>

/** Sends datagrams that look like the kernel's, from a socket of this process. */
class UeventSender {
  public:
    UeventSender();
    ~UeventSender();
    UeventSender(const UeventSender&) = delete;
    UeventSender& operator=(const UeventSender&) = delete;

    /** To all listeners. @return 0 or a negative errno */
    int multicast(const std::string& datagram) { return send(datagram, 0, 1, 0); }

    /** To all listeners, with @p uid in the credentials. @return 0 or a negative errno */
    int multicastAs(uid_t uid, const std::string& datagram) { return send(datagram, 0, 1, uid); }

    /** To the socket @p receiver alone. @return 0 or a negative errno */
    int unicast(int receiver, const std::string& datagram);

  private:
    int send(const std::string& datagram, uint32_t port, uint32_t groups, uid_t uid);

    int mFd;
};
