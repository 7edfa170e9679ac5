// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The volume manager on real disks, in namespaces and folders of the test's own.
 */

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/integration/volume/LoopDisk.h"
#include "tests/support/UeventInjector.h"
#include "tests/unit/support/LogCapture.h"
#include "volume/VolumeManagerImpl.h"

/** Remembers each call as "added NAME MOUNT_PATH ACCESS_PATH" or "removed NAME". Any thread. */
class CallRecorder : public volume::VolumeManagerNotifierItf {
  public:
    int32_t onVolumeAdded(const android::sp<volume::VolumeItf>& volume) override;
    int32_t onVolumeRemoved(const android::sp<volume::VolumeItf>& volume) override;
    int32_t onEvent(int32_t event, int32_t value) override;

    std::vector<std::string> calls() const;
    /** The record that came with a call, by its place among the calls. */
    android::sp<volume::VolumeItf> volume(size_t call) const;
    /** Waits until @p count calls came. @return false when half a minute passed first */
    bool waitFor(size_t count) const;

    /** Runs inside each call, before it is remembered. Set before the first call. */
    std::function<void()> mInside;

  private:
    int32_t note(const std::string& call, const android::sp<volume::VolumeItf>& volume);

    mutable std::mutex mLock;  // guards the two below
    mutable std::condition_variable mChanged;
    std::vector<std::string> mCalls;
    std::vector<android::sp<volume::VolumeItf>> mVolumes;
};

/**
 * A started manager. At its end every test has taken its disks out, and nothing may be left: no mount, no
 * directory, no link, no thread, no descriptor.
 */
class VolumeFixture : public ::testing::Test {
  protected:
    static constexpr const char* kTag = "VolumeDetector";
    static constexpr const char* kUuid = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

    VolumeFixture();
    void SetUp() override;
    void TearDown() override;

    /** Makes the node "/dev/NAME" of a disk. */
    static void plug(const std::string& name, dev_t number);
    static void unplug(const std::string& name);

    /** A disk that is one ext4 file system, on "/dev/NAME" from now on. */
    LoopDisk& plugExt4(const std::string& name, const std::string& label = "MUSIC",
                       const std::string& uuid = kUuid);

    /** Waits for the notifier's next call and compares it and all before it. */
    void expectCalls(const std::vector<std::string>& calls) const;

    /** The options of the mount at @p path, such as "rw,nosuid"; empty when nothing is mounted there. */
    static std::string mountOptions(const std::string& path);
    static std::vector<std::string> entriesOf(const std::string& folder);

    bool waitForLine(int priority, const std::string& text) const;
    size_t countLines(const std::string& text) const;

    /** What tests leave on purpose. */
    static void removeEntry(const std::string& path);

    LogCapture mLog;
    TemporaryFolder mFolder;
    android::sp<UeventObserver> mUevents;
    android::sp<volume::VolumeManagerImpl> mManager;
    android::sp<CallRecorder> mRecorder = new CallRecorder();
    std::map<std::string, std::unique_ptr<LoopDisk>> mDisks;

  private:
    size_t mDescriptors = 0;
};
