// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A service under clients that send what no library would.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <iterator>
#include <random>

#include "tests/system/binder/DriverFixture.h"
#include "tests/system/binder/EchoService.h"
#include "tests/system/binder/RawDriver.h"

namespace {

/** The codes that look at what they get and neither sleep nor end the service. */
constexpr std::array<uint32_t, 5> kCodes = {EchoService::kEcho, EchoService::kCallBack, EchoService::kWriteTo,
                                            EchoService::kRecord, android::IBinder::DUMP_TRANSACTION};

class HostileTest : public DriverTest {
  protected:
    void SetUp() override {
        DriverTest::SetUp();
        mHandle = mRaw.find(EchoService::kName);
        ASSERT_NE(0U, mHandle);
    }

    static std::vector<uint8_t> bytesOf(const flat_binder_object& object) {
        const auto* const raw = reinterpret_cast<const uint8_t*>(&object);
        return {raw, raw + sizeof(object)};
    }

    /** The service runs, answers, and holds no more than before. */
    void expectUnharmed(size_t descriptors, const DriverCounts& counts) {
        expectEcho();
        EXPECT_TRUE(waitUntil([&] { return descriptorsOf(mServer->pid()) == descriptors; }));
        EXPECT_TRUE(waitUntil([&] {
            const DriverCounts now = countsOf(mServer->pid());
            // Each of its threads may hold one small buffer until it calls or serves again.
            return now.references == counts.references && now.buffers <= counts.buffers + now.threads;
        }));
    }

    RawDriver mRaw;
    uint32_t mHandle = 0;
};

}  // namespace

TEST_F(HostileTest, TakesNoPlainBytesForAnObject) {
    const size_t descriptors = descriptorsOf(mServer->pid());
    const DriverCounts counts = countsOf(mServer->pid());
    for (const uint32_t type : {BINDER_TYPE_BINDER, BINDER_TYPE_HANDLE, BINDER_TYPE_FD}) {
        flat_binder_object forged = {};
        forged.hdr.type = type;
        forged.binder = 0x4141414141414141;
        forged.cookie = 0x4141414141414141;
        for (const uint32_t code : kCodes) {
            EXPECT_EQ(static_cast<uint32_t>(BR_REPLY),
                      mRaw.transact(mHandle, code, 0, bytesOf(forged), {}).command);
        }
    }
    expectUnharmed(descriptors, counts);
}

// Types that the library does not read, but the driver passes on.
TEST_F(HostileTest, TakesNoObjectsOfOtherKinds) {
    const size_t descriptors = descriptorsOf(mServer->pid());
    const DriverCounts counts = countsOf(mServer->pid());
    flat_binder_object weak = {};
    weak.hdr.type = BINDER_TYPE_WEAK_BINDER;
    weak.binder = 0x1000;
    weak.cookie = 0x2000;
    for (const uint32_t code : kCodes) {
        EXPECT_EQ(static_cast<uint32_t>(BR_REPLY),
                  mRaw.transact(mHandle, code, 0, bytesOf(weak), {0}).command);
    }
    // A memory block, and an array of descriptors inside it.
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const std::array<uint32_t, 2> passed = {static_cast<uint32_t>(fd), static_cast<uint32_t>(fd)};
    struct Objects {
        // The driver finds no place to mend in an object at offset 0.
        uint64_t before;
        binder_buffer_object block;
        binder_fd_array_object array;
    };
    Objects objects = {};
    objects.block.hdr.type = BINDER_TYPE_PTR;
    objects.block.buffer = reinterpret_cast<uintptr_t>(passed.data());
    objects.block.length = sizeof(passed);
    objects.array.hdr.type = BINDER_TYPE_FDA;
    objects.array.num_fds = passed.size();
    const auto* const raw = reinterpret_cast<const uint8_t*>(&objects);
    for (int round = 0; round < 50; ++round) {
        for (const uint32_t code : kCodes) {
            EXPECT_EQ(static_cast<uint32_t>(BR_REPLY),
                      mRaw.transact(mHandle, code, TF_ACCEPT_FDS, {raw, raw + sizeof(objects)},
                                    {offsetof(Objects, block), offsetof(Objects, array)}, sizeof(passed))
                          .command);
        }
    }
    close(fd);
    expectUnharmed(descriptors, counts);
}

// Descriptors that nobody asked for do not pile up.
TEST_F(HostileTest, ClosesDescriptorsItDidNotExpect) {
    const size_t descriptors = descriptorsOf(mServer->pid());
    const DriverCounts counts = countsOf(mServer->pid());
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    flat_binder_object object = {};
    object.hdr.type = BINDER_TYPE_FD;
    object.handle = static_cast<uint32_t>(fd);
    std::vector<uint8_t> data;
    std::vector<binder_size_t> offsets;
    for (int i = 0; i < 20; ++i) {
        offsets.push_back(data.size());
        const std::vector<uint8_t> one = bytesOf(object);
        data.insert(data.end(), one.begin(), one.end());
    }
    for (int round = 0; round < 100; ++round) {
        const uint32_t flags = round % 2 == 0 ? 0 : TF_ONE_WAY;
        // A full receive area refuses some of the oneway ones, which is fine.
        mRaw.transact(mHandle, EchoService::kEcho, flags, data, offsets);
        mRaw.transact(mHandle, EchoService::kRecord, flags, data, offsets);
    }
    close(fd);
    expectUnharmed(descriptors, counts);
}

TEST_F(HostileTest, SurvivesNoiseInBytesAndOffsets) {
    const size_t descriptors = descriptorsOf(mServer->pid());
    const DriverCounts counts = countsOf(mServer->pid());
    constexpr std::array<uint32_t, 8> kTypes = {
        BINDER_TYPE_BINDER, BINDER_TYPE_WEAK_BINDER, BINDER_TYPE_HANDLE, BINDER_TYPE_WEAK_HANDLE,
        BINDER_TYPE_FD,     BINDER_TYPE_FDA,         BINDER_TYPE_PTR,    0x12345678};
    std::mt19937 random(8);
    int served = 0;
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> data(random() % 160);
        for (uint8_t& byte : data) {
            byte = static_cast<uint8_t>(random() % 3 == 0 ? random() : random() % 4);
        }
        std::vector<binder_size_t> offsets;
        for (size_t at = 0; at + sizeof(flat_binder_object) <= data.size() && random() % 3 != 0;
             at += sizeof(flat_binder_object)) {
            const uint32_t type = kTypes[random() % kTypes.size()];
            memcpy(&data[at], &type, sizeof(type));
            // Now and then beside the object, or far outside.
            offsets.push_back(random() % 8 == 0 ? random() % 300 : at);
        }
        const uint32_t flags = random() % 2 == 0 ? TF_ACCEPT_FDS : TF_STATUS_CODE;
        served += mRaw.transact(mHandle, kCodes[random() % kCodes.size()], flags, data, offsets,
                                random() % 4 == 0 ? 64 : 0)
                              .command == BR_REPLY
                      ? 1
                      : 0;
    }
    // Enough of the noise passed the driver to mean something.
    EXPECT_GT(served, 300);
    expectUnharmed(descriptors, counts);
}

TEST_F(HostileTest, ServiceManagerSurvivesNoise) {
    std::mt19937 random(9);
    for (int round = 0; round < 1000; ++round) {
        std::vector<uint8_t> data(random() % 120);
        for (uint8_t& byte : data) {
            byte = static_cast<uint8_t>(random() % 3 == 0 ? random() : random() % 4);
        }
        mRaw.transact(0, random() % 6, 0, data, {});
    }
    EXPECT_EQ(mHandle, mRaw.find(EchoService::kName));
    EXPECT_EQ(0U, mRaw.find("test.none"));
}
