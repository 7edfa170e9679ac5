// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/usb/UnitAttributes.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kLimit(60);
constexpr const char* kFolders[] = {"/sys/module", "/sys/devices/platform", "/proc/usb_verify_test"};

struct Recorder {
    std::mutex lock;  // guards what follows
    std::condition_variable written;
    std::string root;
    bool active = false;
    std::vector<std::string> writes;
    std::map<std::string, int> refusals;
};

/** Never destroyed: threads may write until the very end of the process. */
Recorder& recorder() {
    static auto* const sRecorder = new Recorder();
    return *sRecorder;
}

/** The attribute behind a descriptor, empty for any other file. */
std::string attributeOf(int file, const std::string& root) {
    char target[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const ssize_t length = readlink(link.c_str(), target, sizeof(target));
    const std::string path(target, length > 0 ? static_cast<size_t>(length) : 0);
    if (path.compare(0, root.size(), root) != 0) {
        return std::string();
    }
    const std::string attribute = path.substr(root.size());
    for (const char* folder : kFolders) {
        if (attribute.compare(0, strlen(folder), folder) == 0) {
            return attribute;
        }
    }
    return std::string();
}

}  // namespace

extern "C" {

// NOLINTBEGIN(readability-identifier-naming): the linker's names
ssize_t __real_write(int file, const void* data, size_t size);

ssize_t __wrap_write(int file, const void* data, size_t size) {
    Recorder& r = recorder();
    std::unique_lock<std::mutex> hold(r.lock);
    const int errorBefore = errno;
    const std::string attribute = r.active ? attributeOf(file, r.root) : std::string();
    errno = errorBefore;
    if (attribute.empty()) {
        hold.unlock();
        return __real_write(file, data, size);
    }
    const auto refusal = r.refusals.find(attribute);
    if (refusal != r.refusals.end() && refusal->second > 0) {
        --refusal->second;
        errno = EIO;
        return -1;
    }
    const ssize_t result = __real_write(file, data, size);
    r.writes.push_back(attribute + "=" + std::string(static_cast<const char*>(data), size));
    r.written.notify_all();
    return result;
}
// NOLINTEND(readability-identifier-naming)

}  // extern "C"

std::string coverUnitFolders() {
    const auto problem = [](const std::string& step) { return step + ": " + strerror(errno); };
    for (const char* folder : {"/mnt", "/sys/module", "/sys/devices/platform"}) {
        if (mount("tmpfs", folder, "tmpfs", 0, nullptr) != 0) {
            return problem(std::string("tmpfs on ") + folder);
        }
    }
    // The kernel's folder takes no new entries: cover it, and lead every name on to the real one.
    const std::string real = "/mnt/proc";
    if (mkdir(real.c_str(), 0755) != 0 ||
        mount("/proc", real.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return problem("bind /proc to " + real);
    }
    if (mount("tmpfs", "/proc", "tmpfs", 0, nullptr) != 0) {
        return problem("tmpfs on /proc");
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(real)) {
        const std::string name = entry.path().filename();
        if (isdigit(static_cast<unsigned char>(name[0])) == 0 &&
            symlink(entry.path().c_str(), ("/proc/" + name).c_str()) != 0) {
            return problem("symlink /proc/" + name);
        }
    }
    // A leak check looks at the process by its number.
    const std::string self = std::to_string(getpid());
    if (symlink((real + "/" + self).c_str(), ("/proc/" + self).c_str()) != 0) {
        return problem("symlink /proc/" + self);
    }
    return std::string();
}

UnitAttributes::UnitAttributes(std::string root) : mRoot(std::move(root)) {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    r.root = mRoot;
    r.active = true;
    r.writes.clear();
    r.refusals.clear();
}

UnitAttributes::~UnitAttributes() {
    {
        Recorder& r = recorder();
        const std::lock_guard<std::mutex> hold(r.lock);
        r.active = false;
    }
    // What else a test bed keeps there stays.
    std::error_code ignored;
    fs::remove_all(mRoot + "/sys/module/usbcore", ignored);
    fs::remove_all(mRoot + "/sys/module/vxqa4410_bc", ignored);
    fs::remove_all(mRoot + "/proc/usb_verify_test", ignored);
    for (const char* device : {"vx4410-udc.1", "ehci-platform.1", "ehci-platform.2", "ehci-platform.3"}) {
        for (const char* attribute : {"full_spd", "ehci_port_status", "usb_role_switch"}) {
            fs::remove(mRoot + "/sys/devices/platform/" + device + "/" + attribute, ignored);
        }
    }
}

void UnitAttributes::lay(const std::string& path, const std::string& content) const {
    const fs::path file = mRoot + path;
    fs::create_directories(file.parent_path());
    const fs::path fresh = file.string() + ".new";
    std::ofstream(fresh) << content;
    fs::rename(fresh, file);
}

void UnitAttributes::layAll() const {
    for (const char* name :
         {"idProduct", "idVendor", "id_enable", "usb_logo_test_start", "apple_dev_default_mode",
          "android_default_mode", "android_aoa_description_user", "initial_descriptor_timeout"}) {
        lay(std::string("/sys/module/usbcore/parameters/") + name);
    }
    lay("/proc/usb_verify_test/specific_test_set");
    lay("/proc/usb_verify_test/hub_level_set");
    lay("/sys/module/vxqa4410_bc/bc_switch");
    lay("/sys/module/vxqa4410_bc/parameters/bc_polling_enable");
    lay("/sys/devices/platform/vx4410-udc.1/full_spd");
    for (int port = 1; port <= 3; ++port) {
        const std::string controller = "/sys/devices/platform/ehci-platform." + std::to_string(port);
        lay(controller + "/ehci_port_status", "0\n");
        lay(controller + "/usb_role_switch");
    }
}

void UnitAttributes::remove(const std::string& path) const {
    fs::remove(mRoot + path);
}

std::string UnitAttributes::read(const std::string& path) const {
    std::ostringstream content;
    content << std::ifstream(mRoot + path).rdbuf();
    return content.str();
}

std::vector<std::string> UnitAttributes::writes() {
    std::vector<std::string> names = fullWrites();
    for (std::string& write : names) {
        write.erase(0, write.rfind('/', write.find('=')) + 1);
    }
    return names;
}

std::vector<std::string> UnitAttributes::fullWrites() {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    return r.writes;
}

void UnitAttributes::forget() {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    r.writes.clear();
}

bool UnitAttributes::waitForWrites(size_t count) {
    Recorder& r = recorder();
    std::unique_lock<std::mutex> hold(r.lock);
    return r.written.wait_for(hold, kLimit, [&r, count] { return r.writes.size() >= count; });
}

void UnitAttributes::refuse(const std::string& path, int times) const {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    r.refusals[path] = times;
}

int UnitAttributes::refusalsLeft(const std::string& path) const {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    const auto refusal = r.refusals.find(path);
    return refusal != r.refusals.end() ? refusal->second : 0;
}
