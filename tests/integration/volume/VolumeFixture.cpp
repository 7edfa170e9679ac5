// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/volume/VolumeFixture.h"

#include <android/log.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/PrivateNamespaces.h"
#include "tests/unit/common/ThreadProbe.h"

using android::sp;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using volume::VolumeItf;
using volume::VolumeManagerImpl;

namespace {

using namespace std::chrono_literals;
constexpr auto kLimit = 30s;

size_t countDescriptors() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        // The test's own view of the folder is one of them each time.
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

std::string text(const android::String8& string) {
    return string.string();
}

/** Own folders in namespaces of the test's own; making them needs root. */
class VolumeEnvironment : public ::testing::Environment {
  public:
    void SetUp() override {
        // Made before there are threads: all empty strings of libutils are one object.
        const android::String8 first;
        ASSERT_EQ("", enterPrivateNamespaces()) << "(root is needed)";
        for (const char* folder : {"/dev", "/mnt", "/media"}) {
            ASSERT_EQ(0, mount("tmpfs", folder, "tmpfs", 0, "mode=755")) << folder;
        }
        ASSERT_EQ(0, mknod("/dev/null", S_IFCHR | 0666, makedev(1, 3)));
        ASSERT_EQ(0, mknod("/dev/urandom", S_IFCHR | 0666, makedev(1, 9)));
    }
};

}  // namespace

int32_t CallRecorder::onVolumeAdded(const sp<VolumeItf>& volume) {
    return note("added " + text(volume->getName()) + " " + text(volume->getMountPath()) + " " +
                    text(volume->getAccessPath()),
                volume);
}

int32_t CallRecorder::onVolumeRemoved(const sp<VolumeItf>& volume) {
    return note("removed " + text(volume->getName()), volume);
}

int32_t CallRecorder::onEvent(int32_t event, int32_t value) {
    return note("event " + std::to_string(event) + " " + std::to_string(value), nullptr);
}

int32_t CallRecorder::note(const std::string& call, const sp<VolumeItf>& volume) {
    if (mInside) {
        mInside();
    }
    const std::lock_guard<std::mutex> hold(mLock);
    mCalls.push_back(call);
    mVolumes.push_back(volume);
    mChanged.notify_all();
    return 0;
}

std::vector<std::string> CallRecorder::calls() const {
    const std::lock_guard<std::mutex> hold(mLock);
    return mCalls;
}

sp<VolumeItf> CallRecorder::volume(size_t call) const {
    const std::lock_guard<std::mutex> hold(mLock);
    return mVolumes.at(call);
}

bool CallRecorder::waitFor(size_t count) const {
    std::unique_lock<std::mutex> hold(mLock);
    return mChanged.wait_for(hold, kLimit, [&] { return mCalls.size() >= count; });
}

VolumeFixture::VolumeFixture() : mDescriptors(countDescriptors()) {
    mUevents = new UeventObserver();
    mManager = new VolumeManagerImpl(mUevents);
}

void VolumeFixture::SetUp() {
    mManager->setNotifier(mRecorder);
    mManager->startup();
}

void VolumeFixture::TearDown() {
    mManager->shutdown();
    mUevents->stop();
    mManager.clear();
    mUevents.clear();
    mDisks.clear();
    for (const std::string& name : entriesOf("/dev")) {
        EXPECT_TRUE(name == "null" || name == "urandom" || name == "loop-control")
            << "left in /dev: " << name;
    }
    EXPECT_THAT(entriesOf("/mnt"), IsEmpty());
    EXPECT_THAT(entriesOf("/media"), IsEmpty());
    std::string line;
    for (std::ifstream table("/proc/self/mountinfo"); std::getline(table, line);) {
        // The machine's own mounts below /mnt are hidden, not gone.
        EXPECT_EQ(std::string::npos, line.find(" /mnt/sd")) << line;
        EXPECT_EQ(std::string::npos, line.find(" /mnt/mmcblk")) << line;
    }
    for (const char* thread : {"ObserverThread", "EventLooper", "VolumeDetectorQ", "VolumeManagerQu"}) {
        EXPECT_TRUE(eventually([&] { return countThreads(thread) == 0; })) << thread;
    }
    EXPECT_TRUE(eventually([this] { return countDescriptors() == mDescriptors; }))
        << countDescriptors() << " descriptors, were " << mDescriptors;
}

void VolumeFixture::plug(const std::string& name, dev_t number) {
    ASSERT_EQ(0, mknod(("/dev/" + name).c_str(), S_IFBLK | 0600, number)) << name;
}

void VolumeFixture::unplug(const std::string& name) {
    ASSERT_EQ(0, unlink(("/dev/" + name).c_str())) << name;
}

LoopDisk& VolumeFixture::plugExt4(const std::string& name, const std::string& label,
                                  const std::string& uuid) {
    const std::string image = mFolder / name;
    makeExt4(image, label, uuid);
    std::unique_ptr<LoopDisk>& disk = mDisks[name];
    disk = std::make_unique<LoopDisk>(image);
    plug(name, disk->number());
    return *disk;
}

void VolumeFixture::expectCalls(const std::vector<std::string>& calls) const {
    EXPECT_TRUE(mRecorder->waitFor(calls.size()));
    EXPECT_THAT(mRecorder->calls(), ElementsAreArray(calls));
}

std::string VolumeFixture::mountOptions(const std::string& path) {
    std::string found;
    std::string line;
    for (std::ifstream table("/proc/self/mountinfo"); std::getline(table, line);) {
        std::istringstream fields(line);
        std::string skipped;
        std::string point;
        std::string options;
        fields >> skipped >> skipped >> skipped >> skipped >> point >> options;
        if (point == path) {
            found = options;
        }
    }
    return found;
}

std::vector<std::string> VolumeFixture::entriesOf(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool VolumeFixture::waitForLine(int priority, const std::string& text) const {
    return mLog.waitFor(LogLine{priority, kTag, text}, kLimit);
}

size_t VolumeFixture::countLines(const std::string& text) const {
    return mLog.count([&](const LogLine& line) { return line.tag == kTag && line.text == text; });
}

void VolumeFixture::removeEntry(const std::string& path) {
    ASSERT_EQ(0, remove(path.c_str())) << path;
}

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new VolumeEnvironment());
    return RUN_ALL_TESTS();
}
