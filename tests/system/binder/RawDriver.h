// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A client that speaks with the driver itself, so that it can send what no library would.
 */

#include <linux/android/binder.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/** One more opening of the driver: to the others it is a process of its own. One thread. */
class RawDriver {
  public:
    RawDriver();
    ~RawDriver();
    RawDriver(const RawDriver&) = delete;
    RawDriver& operator=(const RawDriver&) = delete;

    /** What a transaction ended with: the BR_ command, or 0 when the driver refused it at once. */
    struct Outcome {
        uint32_t command = 0;
        std::vector<uint8_t> reply;
    };

    /** A transaction with these bytes and offsets, whatever they mean. Waits for its end. */
    Outcome transact(uint32_t handle, uint32_t code, uint32_t flags, const std::vector<uint8_t>& data,
                     const std::vector<binder_size_t>& offsets, size_t extraBuffers = 0);

    /** A handle of the service @p name; 0 when there is none. */
    uint32_t find(const std::string& name);

  private:
    template <typename T>
    void queue(uint32_t command, const T& argument);
    bool exchange(bool receive);
    void refuse();
    bool nextEnd(bool oneway, Outcome* outcome);

    int mFd;
    void* mArea;
    std::vector<uint8_t> mOut;
    std::vector<uint8_t> mIn;
};
