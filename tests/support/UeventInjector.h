// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Arbitrary uevents from the kernel itself.
 */

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/**
 * Makes the kernel multicast uevents of any content inside this process's network namespace,
 * indistinguishable from its own: it appends the sequence number and sends them from port 0 as uid 0.
 * Superuser only, in the user namespace that owns the network namespace.
 *
 * Everything returns 0 or a negative errno. One thread at a time.
 */
class UeventInjector {
  public:
    /** What the kernel takes at most, its "SEQNUM=..." included. */
    static constexpr size_t kMaxSize = 2048;

    UeventInjector() = default;
    ~UeventInjector();
    UeventInjector(const UeventInjector&) = delete;
    UeventInjector& operator=(const UeventInjector&) = delete;

    /** Opens the socket; the calling thread's network namespace at this moment is the one that hears. */
    int open();

    /**
     * Has the kernel send one datagram and waits until it has.
     *
     * @param datagram  header and properties without SEQNUM, each with its NUL
     * @return -EINVAL when it is too long
     */
    int send(const std::string& datagram);

    /**
     * As send(), from parts: `action@path`, ACTION, DEVPATH and SUBSYSTEM, then @p properties ("KEY=value")
     * in order. An empty @p subsystem is left out.
     */
    int send(const std::string& action, const std::string& path, const std::string& subsystem,
             const std::vector<std::string>& properties = {});

    /** What send() from parts hands to the kernel. */
    static std::string compose(const std::string& action, const std::string& path,
                               const std::string& subsystem, const std::vector<std::string>& properties = {});

  private:
    int receiveResult(uint32_t sequence);

    int mFd = -1;
    uint32_t mSequence = 0;
};
