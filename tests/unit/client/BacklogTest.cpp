// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Events that wait for an application which is busy.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>

#include "client/EventBacklog.h"
#include "tests/unit/client/FakeDaemon.h"

using client::Event;
using client::EventBacklog;
using client::Service;
using Kind = client::Event::Kind;

namespace {

Event numbered(int32_t number) {
    Event event = Event::of(Kind::kNumbered, Service::kUsbManager);
    event.number = number;
    return event;
}

std::vector<Event> drain(EventBacklog& backlog) {
    std::vector<Event> events;
    while (!backlog.isEmpty()) {
        events.push_back(backlog.pop());
    }
    return events;
}

size_t count(const std::vector<Event>& events, Kind kind) {
    return static_cast<size_t>(std::count_if(events.begin(), events.end(),
                                             [kind](const Event& event) { return event.kind == kind; }));
}

}  // namespace

TEST(BacklogTest, KeepsTheOrderAndEverythingBelowItsLimit) {
    EventBacklog backlog;
    const auto volume = makeVolume("sda1");
    for (int i = 0; i < 100; ++i) {
        backlog.push(Event::change(true, volume));
        backlog.push(Event::change(false, volume));
    }
    const std::vector<Event> events = drain(backlog);
    ASSERT_EQ(200U, events.size());
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(i % 2 == 0 ? Kind::kAdded : Kind::kRemoved, events[i].kind) << i;
    }
}

TEST(BacklogTest, IsBoundedWhateverComesAndGoes) {
    EventBacklog backlog;
    const auto known = makeVolume("known");
    backlog.push(Event::change(true, known));
    for (int i = 0; i < 10000; ++i) {
        const auto volume = makeVolume("sda" + std::to_string(i));
        backlog.push(Event::change(true, volume));
        backlog.push(Event::change(false, volume));
        ASSERT_LE(backlog.size(), EventBacklog::kLimit + 1);
    }
    const auto last = makeVolume("last");
    backlog.push(Event::change(true, last));

    const std::vector<Event> events = drain(backlog);
    // What is left out is whole: as many went as came, but for the two that are still there.
    EXPECT_EQ(count(events, Kind::kAdded), count(events, Kind::kRemoved) + 2);
    EXPECT_EQ(known, events.front().volume);
    EXPECT_EQ(last, events.back().volume);
}

TEST(BacklogTest, ADepartureThatWasToldAboutBeforeStays) {
    EventBacklog backlog;
    for (size_t i = 0; i < EventBacklog::kLimit; ++i) {
        backlog.push(numbered(0));
    }
    const auto told = makeVolume("told");
    backlog.push(Event::change(false, told));
    const std::vector<Event> events = drain(backlog);
    EXPECT_EQ(Kind::kRemoved, events.back().kind);
    EXPECT_EQ(told, events.back().volume);
}

TEST(BacklogTest, TheOldestNumberedEventGivesWay) {
    EventBacklog backlog;
    for (int32_t i = 0; i < 1000; ++i) {
        backlog.push(numbered(i));
    }
    EXPECT_EQ(1000 - EventBacklog::kLimit, backlog.lostCount());
    const std::vector<Event> events = drain(backlog);
    ASSERT_EQ(EventBacklog::kLimit, events.size());
    EXPECT_EQ(1000 - static_cast<int32_t>(EventBacklog::kLimit), events.front().number);
    EXPECT_EQ(999, events.back().number);
}

TEST(BacklogTest, AConnectionThatWasLostUntoldIsNotTold) {
    EventBacklog backlog;
    backlog.push(Event::of(Kind::kConnected, Service::kDeviceManager));
    backlog.push(Event::of(Kind::kConnected, Service::kUsbManager));
    backlog.push(Event::of(Kind::kPictureComplete, Service::kDeviceManager));
    backlog.push(Event::of(Kind::kPictureComplete, Service::kUsbManager));
    backlog.pushLoss(Service::kDeviceManager);

    const std::vector<Event> events = drain(backlog);
    ASSERT_EQ(2U, events.size());
    for (const Event& event : events) {
        EXPECT_EQ(Service::kUsbManager, event.service);
    }
}

TEST(BacklogTest, WhatWasHeardOfAConnectionStaysBetweenItsBeginningAndItsEnd) {
    const auto device = makeDevice("/devices/a");
    Event event = Event::of(Kind::kNumbered, Service::kDeviceManager);
    event.number = 7;
    for (const Event& heard : {Event::change(true, device), Event::change(false, device), event}) {
        EventBacklog backlog;
        backlog.push(Event::of(Kind::kConnected, Service::kDeviceManager));
        backlog.push(Event::of(Kind::kPictureComplete, Service::kDeviceManager));
        backlog.push(heard);
        // Of another service, which changes nothing.
        backlog.push(Event::of(Kind::kConnected, Service::kUsbManager));
        backlog.pushLoss(Service::kDeviceManager);

        const std::vector<Event> events = drain(backlog);
        ASSERT_EQ(4U, events.size());
        EXPECT_EQ(Kind::kConnected, events[0].kind);
        EXPECT_EQ(heard.kind, events[1].kind);
        EXPECT_EQ(heard.device, events[1].device);
        EXPECT_EQ(Service::kUsbManager, events[2].service);
        EXPECT_EQ(Kind::kDisconnected, events[3].kind);
        EXPECT_EQ(Service::kDeviceManager, events[3].service);
    }
}

TEST(BacklogTest, AConnectionThatWasToldIsLostAloud) {
    EventBacklog backlog;
    backlog.push(Event::of(Kind::kPictureComplete, Service::kDeviceManager));
    backlog.pushLoss(Service::kDeviceManager);
    const std::vector<Event> events = drain(backlog);
    ASSERT_EQ(1U, events.size());
    EXPECT_EQ(Kind::kDisconnected, events[0].kind);
    EXPECT_EQ(Service::kDeviceManager, events[0].service);
}
