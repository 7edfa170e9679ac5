// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/EventQueue.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace devicectl {

using android::sp;

namespace {

Event numbered(int32_t code) {
    Event event;
    event.code = code;
    return event;
}

TEST(EventQueue, KeepsTheOrder) {
    const sp<EventQueue> queue = new EventQueue();
    for (int32_t i = 0; i < 1000; ++i) {
        queue->push(numbered(i));
    }
    for (int32_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(queue->pop()->code, i);
    }
}

TEST(EventQueue, CloseLeavesWhatIsQueuedAndRefusesMore) {
    const sp<EventQueue> queue = new EventQueue();
    queue->push(numbered(1));
    queue->close();
    queue->push(numbered(2));
    EXPECT_EQ(queue->pop()->code, 1);
    EXPECT_FALSE(queue->pop().has_value());
    EXPECT_FALSE(queue->pop().has_value());
}

TEST(EventQueue, CloseEndsAWait) {
    const sp<EventQueue> queue = new EventQueue();
    bool ended = false;
    std::thread reader([&] { ended = !queue->pop().has_value(); });
    queue->close();
    reader.join();
    EXPECT_TRUE(ended);
}

TEST(EventQueue, LosesNothingOfSeveralWriters) {
    constexpr int32_t kWriters = 4;
    constexpr int32_t kEach = 5000;
    const sp<EventQueue> queue = new EventQueue();
    std::vector<std::thread> writers;
    writers.reserve(kWriters);
    for (int32_t writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([queue, writer] {
            for (int32_t i = 0; i < kEach; ++i) {
                queue->push(numbered(writer * kEach + i));
            }
        });
    }
    std::vector<int32_t> next(kWriters, 0);
    for (int32_t i = 0; i < kWriters * kEach; ++i) {
        const int32_t code = queue->pop()->code;
        ASSERT_EQ(code % kEach, next[static_cast<size_t>(code / kEach)]++) << "out of its writer's order";
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    queue->close();
    EXPECT_FALSE(queue->pop().has_value());
}

}  // namespace

}  // namespace devicectl
