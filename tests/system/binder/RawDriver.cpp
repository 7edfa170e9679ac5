// SPDX-License-Identifier: Apache-2.0
#include "tests/system/binder/RawDriver.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

namespace {

constexpr size_t kAreaSize = 256UL * 1024;
constexpr uint32_t kCheckService = 2;

void append(std::vector<uint8_t>* bytes, const void* data, size_t size) {
    const auto* const raw = static_cast<const uint8_t*>(data);
    bytes->insert(bytes->end(), raw, raw + size);
}

void appendString16(std::vector<uint8_t>* bytes, const std::string& text) {
    const auto length = static_cast<int32_t>(text.size());
    append(bytes, &length, sizeof(length));
    const std::u16string wide(text.begin(), text.end());
    append(bytes, wide.c_str(), (wide.size() + 1) * sizeof(char16_t));
    bytes->resize((bytes->size() + 3) / 4 * 4);
}

binder_uintptr_t address(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

}  // namespace

RawDriver::RawDriver() : mFd(open("/dev/binder", O_RDWR | O_CLOEXEC)) {
    EXPECT_GE(mFd, 0);
    mArea = mmap(nullptr, kAreaSize, PROT_READ, MAP_PRIVATE, mFd, 0);
    EXPECT_NE(MAP_FAILED, mArea);
}

RawDriver::~RawDriver() {
    munmap(mArea, kAreaSize);
    close(mFd);
}

RawDriver::Outcome RawDriver::transact(uint32_t handle, uint32_t code, uint32_t flags,
                                       const std::vector<uint8_t>& data,
                                       const std::vector<binder_size_t>& offsets, size_t extraBuffers) {
    binder_transaction_data_sg transaction = {};
    transaction.transaction_data.target.handle = handle;
    transaction.transaction_data.code = code;
    transaction.transaction_data.flags = flags;
    transaction.transaction_data.data_size = data.size();
    transaction.transaction_data.data.ptr.buffer = address(data.data());
    transaction.transaction_data.offsets_size = offsets.size() * sizeof(binder_size_t);
    transaction.transaction_data.data.ptr.offsets = address(offsets.data());
    transaction.buffers_size = extraBuffers;
    if (extraBuffers > 0) {
        queue(BC_TRANSACTION_SG, transaction);
    } else {
        queue(BC_TRANSACTION, transaction.transaction_data);
    }
    Outcome outcome;
    while (!nextEnd((flags & TF_ONE_WAY) != 0, &outcome)) {
        if (!exchange(true)) {
            return outcome;
        }
    }
    exchange(false);
    return outcome;
}

uint32_t RawDriver::find(const std::string& name) {
    std::vector<uint8_t> request(sizeof(int32_t));
    appendString16(&request, "android.os.IServiceManager");
    appendString16(&request, name);
    const Outcome found = transact(0, kCheckService, 0, request, {});
    flat_binder_object object = {};
    if (found.reply.size() < sizeof(object)) {
        return 0;
    }
    memcpy(&object, found.reply.data(), sizeof(object));
    return object.hdr.type == BINDER_TYPE_HANDLE ? object.handle : 0;
}

template <typename T>
void RawDriver::queue(uint32_t command, const T& argument) {
    append(&mOut, &command, sizeof(command));
    append(&mOut, &argument, sizeof(argument));
}

bool RawDriver::exchange(bool receive) {
    mIn.resize(receive ? 256 : 0);
    binder_write_read exchange = {};
    exchange.write_buffer = address(mOut.data());
    exchange.write_size = mOut.size();
    exchange.read_buffer = address(mIn.data());
    exchange.read_size = mIn.size();
    const bool accepted = ioctl(mFd, BINDER_WRITE_READ, &exchange) == 0;
    mOut.clear();
    mIn.resize(exchange.read_consumed);
    return accepted;
}

/** The service calls back an object that was sent to it: it must not wait for ever for a client like this. */
void RawDriver::refuse() {
    static const int32_t sRefusal = -1;
    binder_transaction_data reply = {};
    reply.flags = TF_STATUS_CODE;
    reply.data_size = sizeof(sRefusal);
    reply.data.ptr.buffer = address(&sRefusal);
    queue(BC_REPLY, reply);
}

/** Takes what was read. References of objects that it sent are acknowledged and otherwise ignored. */
bool RawDriver::nextEnd(bool oneway, Outcome* outcome) {
    bool over = false;
    for (size_t at = 0; at + sizeof(uint32_t) <= mIn.size();) {
        uint32_t command = 0;
        memcpy(&command, &mIn[at], sizeof(command));
        const uint8_t* const argument = &mIn[at] + sizeof(command);
        at += sizeof(command) + _IOC_SIZE(command);
        if (command == BR_REPLY) {
            binder_transaction_data reply;
            memcpy(&reply, argument, sizeof(reply));
            const auto* const bytes = reinterpret_cast<const uint8_t*>(reply.data.ptr.buffer);
            outcome->reply.assign(bytes, bytes + reply.data_size);
            if (reply.offsets_size > 0) {
                flat_binder_object object;
                memcpy(&object, bytes, sizeof(object));
                // Kept beyond the buffer.
                queue(BC_ACQUIRE, object.handle);
            }
            queue(BC_FREE_BUFFER, reply.data.ptr.buffer);
        } else if (command == BR_INCREFS || command == BR_ACQUIRE) {
            binder_ptr_cookie object;
            memcpy(&object, argument, sizeof(object));
            queue(command == BR_INCREFS ? BC_INCREFS_DONE : BC_ACQUIRE_DONE, object);
        }
        if (command == BR_TRANSACTION) {
            binder_transaction_data call;
            memcpy(&call, argument, sizeof(call));
            queue(BC_FREE_BUFFER, call.data.ptr.buffer);
            refuse();
        }
        if (command == BR_REPLY || command == BR_DEAD_REPLY || command == BR_FAILED_REPLY ||
            (command == BR_TRANSACTION_COMPLETE && oneway)) {
            outcome->command = command;
            over = true;
        }
    }
    mIn.clear();
    return over;
}
