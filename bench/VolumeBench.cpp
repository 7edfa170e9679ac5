// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * How long a partition takes from the kernel's uevent to its mount, on the virtual head unit.
 *
 *     bench-volume daemon   watches the daemon: when the mount is there, when this client is told
 *     bench-volume limit    does nothing but open, probe and mount, the daemon's volume manager being stopped
 *
 * Prints one JSON object for each partition that comes, in microseconds from its uevent, and one when it is
 * gone; whoever plugs reads them. Ends with its standard input.
 */
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <blkid/blkid.h>
#include <cutils/uevent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "volume/BnVolumeManagerNotifier.h"
#include "volume/IVolumeManager.h"

namespace {

using android::sp;
using android::String16;
using Clock = std::chrono::steady_clock;

constexpr const char* kMountPoint = "/run/bench-volume";
constexpr unsigned long kMountFlags = MS_NOSUID | MS_NODEV | MS_DIRSYNC | MS_NOATIME | MS_NODIRATIME;
constexpr useconds_t kOpenStepMicros = 500;

[[noreturn]] void fail(const std::string& what) {
    fprintf(stderr, "bench-volume: %s: %s\n", what.c_str(), strerror(errno));
    exit(EXIT_FAILURE);
}

void tell(const nlohmann::json& object) {
    puts(object.dump().c_str());
    fflush(stdout);
}

double microseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

/** What one uevent says of a partition; empty for every other uevent. */
struct PartitionEvent {
    std::string action;
    std::string name;
};

std::optional<PartitionEvent> receivePartitionEvent(int fd) {
    static std::array<char, 65536> buffer;
    const ssize_t length = uevent_kernel_multicast_recv(fd, buffer.data(), buffer.size() - 1);
    if (length <= 0) {
        return std::nullopt;
    }
    buffer[static_cast<size_t>(length)] = '\0';
    PartitionEvent event;
    bool isPartition = false;
    for (const char* text = buffer.data(); text < buffer.data() + length; text += strlen(text) + 1) {
        const std::string property(text);
        isPartition = isPartition || property == "DEVTYPE=partition";
        if (property.rfind("ACTION=", 0) == 0) {
            event.action = property.substr(7);
        } else if (property.rfind("DEVNAME=", 0) == 0) {
            event.name = property.substr(8);
        }
    }
    return isPartition ? std::optional(event) : std::nullopt;
}

bool isMounted(const std::string& path) {
    std::ifstream mounts("/proc/self/mounts");
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(" " + path + " ") != std::string::npos) {
            return true;
        }
    }
    return false;
}

/** One partition from its uevent until both times are known. Any thread. */
class Measurement {
  public:
    void begin(const std::string& name, Clock::time_point now) {
        const std::lock_guard<std::mutex> lock(mLock);
        mName = name;
        mBegin = now;
        tellIfComplete();
    }

    /** Looks whether the awaited mount is there. */
    void lookForMount() {
        const auto now = Clock::now();
        const std::lock_guard<std::mutex> lock(mLock);
        if (!mName.empty() && !mMounted && isMounted("/mnt/" + mName)) {
            mMounted = now;
            tellIfComplete();
        }
    }

    /** The client was told; which may overtake the uevent in this process. */
    void told(Clock::time_point now) {
        const std::lock_guard<std::mutex> lock(mLock);
        mTold = now;
        tellIfComplete();
    }

  private:
    void tellIfComplete() {
        if (mName.empty() || !mMounted || !mTold) {
            return;
        }
        tell({{"name", mName},
              {"mounted", microseconds(*mMounted - mBegin)},
              {"told", microseconds(*mTold - mBegin)}});
        mName.clear();
        mMounted.reset();
        mTold.reset();
    }

    std::mutex mLock;
    std::string mName;
    Clock::time_point mBegin;
    std::optional<Clock::time_point> mMounted;
    std::optional<Clock::time_point> mTold;
};

class TimingNotifier : public volume::VolumeManagerNotifierItf {
  public:
    explicit TimingNotifier(Measurement& measurement) : mMeasurement(measurement) {}

    int32_t onVolumeAdded(const sp<volume::VolumeItf>& /*volume*/) override {
        mMeasurement.told(Clock::now());
        return 0;
    }
    int32_t onVolumeRemoved(const sp<volume::VolumeItf>& volume) override {
        tell({{"gone", volume->getName().string()}});
        return 0;
    }
    int32_t onEvent(int32_t /*event*/, int32_t /*value*/) override { return 0; }

  private:
    Measurement& mMeasurement;
};

/** Opens a disk that the kernel may still be about to make ready. */
int openWhenReady(const std::string& path) {
    for (;;) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0 || (errno != ENXIO && errno != ENOENT)) {
            return fd;
        }
        usleep(kOpenStepMicros);
    }
}

/** The file system's type, probed as the daemon probes. */
std::string probe(int fd) {
    const blkid_probe pr = blkid_new_probe();
    if (pr == nullptr || blkid_probe_set_device(pr, fd, 0, 0) != 0) {
        fail("probe");
    }
    blkid_probe_enable_partitions(pr, 1);
    blkid_probe_set_partitions_flags(pr, BLKID_PARTS_ENTRY_DETAILS);
    blkid_probe_enable_superblocks(pr, 1);
    blkid_probe_set_superblocks_flags(pr, BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE |
                                              BLKID_SUBLKS_USAGE | BLKID_SUBLKS_MAGIC);
    const char* type = nullptr;
    if (blkid_do_safeprobe(pr) != 0 || blkid_probe_lookup_value(pr, "TYPE", &type, nullptr) != 0) {
        fail("no file system");
    }
    std::string result(type);
    blkid_free_probe(pr);
    return result;
}

/** Nothing but the work itself, from the first open that succeeds. */
void measureLimit(const std::string& name, Clock::time_point uevent) {
    const std::string path = "/dev/" + name;
    const int fd = openWhenReady(path);
    const auto opened = Clock::now();
    if (fd < 0) {
        fail(path);
    }
    const std::string type = probe(fd);
    close(fd);
    const auto probed = Clock::now();
    mkdir(kMountPoint, 0755);
    if (mount(path.c_str(), kMountPoint, type.c_str(), kMountFlags, nullptr) != 0) {
        fail("mount");
    }
    const auto mounted = Clock::now();
    umount2(kMountPoint, MNT_DETACH);
    tell({{"name", name},
          {"openable", microseconds(opened - uevent)},
          {"probe", microseconds(probed - opened)},
          {"mount", microseconds(mounted - probed)},
          {"whole", microseconds(mounted - uevent)}});
}

int openUevents() {
    const int fd = uevent_open_socket(64 * 1024, true);
    if (fd < 0) {
        fail("uevent socket");
    }
    return fd;
}

/** @return whether there is anything to read on standard input: its end */
bool inputEnded(const pollfd& input) {
    return input.revents != 0;
}

void runLimit() {
    std::array<pollfd, 2> sources{{{openUevents(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    tell({{"ready", true}});
    while (poll(sources.data(), sources.size(), -1) >= 0 && !inputEnded(sources[1])) {
        const auto event = receivePartitionEvent(sources[0].fd);
        if (event && event->action == "add") {
            measureLimit(event->name, Clock::now());
        } else if (event && event->action == "remove") {
            tell({{"gone", event->name}});
        }
    }
}

void runDaemon() {
    const sp<android::IBinder> service =
        android::defaultServiceManager()->checkService(String16(volume::IVolumeManager::kServiceName));
    if (service == nullptr) {
        fail("the service \"VolumeManager\" is not registered");
    }
    android::ProcessState::self()->startThreadPool();
    Measurement measurement;
    const sp<volume::BnVolumeManagerNotifier> notifier =
        new volume::BnVolumeManagerNotifier(new TimingNotifier(measurement));
    const sp<volume::IVolumeManager> manager = android::interface_cast<volume::IVolumeManager>(service);
    manager->addNotifier(notifier);

    const int mounts = open("/proc/self/mounts", O_RDONLY | O_CLOEXEC);
    std::array<pollfd, 3> sources{
        {{openUevents(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}, {mounts, POLLPRI | POLLERR, 0}}};
    tell({{"ready", true}});
    while (poll(sources.data(), sources.size(), -1) >= 0 && !inputEnded(sources[1])) {
        if (sources[0].revents != 0) {
            const auto now = Clock::now();
            const auto event = receivePartitionEvent(sources[0].fd);
            if (event && event->action == "add") {
                measurement.begin(event->name, now);
            }
        }
        measurement.lookForMount();
    }
    manager->removeNotifier(notifier);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc == 2 ? argv[1] : "";
    if (mode == "limit") {
        runLimit();
    } else if (mode == "daemon") {
        runDaemon();
    } else {
        fputs("usage: bench-volume daemon|limit\n", stderr);
        return 2;
    }
    // The binder threads still run: no destructor of a static object may meet them.
    _exit(EXIT_SUCCESS);
}
