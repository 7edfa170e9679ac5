// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A uevent observer whose socket the test holds: this file's functions take the place of the platform's.
 */

#include <string>
#include <vector>

#include "common/UeventObserver.h"

/** One at a time. */
class FakeUevents {
  public:
    FakeUevents();
    ~FakeUevents();
    FakeUevents(const FakeUevents&) = delete;
    FakeUevents& operator=(const FakeUevents&) = delete;

    const android::sp<UeventObserver>& observer() const { return mObserver; }

    /** Sends a datagram to the observer, which reads it when its thread runs. */
    void send(const std::string& datagram) const;

    /** As above, from parts; an empty subsystem is left out. */
    void send(const std::string& action, const std::string& path, const std::string& subsystem,
              const std::vector<std::string>& properties = {}) const;

    /** Has the observer read one datagram on the calling thread, which plays the uevent thread. */
    void pump() const;

  private:
    android::sp<UeventObserver> mObserver;
};
