// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/usb_manager/AttributeBed.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

constexpr std::chrono::seconds kLimit(60);

constexpr const char* kParameters = "/sys/module/usbcore/parameters/";
/** What the commands write to, and where they are. */
constexpr const char* kCommandFolder = "/sys/class/commands";

const char* const kLaidFolders[] = {"/sys/module", "/sys/class", "/sys/bus/platform/devices",
                                    "/sys/devices/platform", "/proc/sys/net/ipv6"};

}  // namespace

const std::vector<std::string>& AttributeBed::all() {
    static const auto* const sAll = [] {
        auto* const paths = new std::vector<std::string>{
            "/sys/class/android_usb/android0/enable",
            "/sys/class/android_usb/android0/functions",
            "/proc/sys/net/ipv6/conf/apple_usb0/optimistic_dad",
            "/proc/sys/net/ipv6/neigh/apple_usb0/retrans_time",
            "/sys/module/aoa/parameters/aoa_write_timeout_reset_ctrl",
            "/sys/module/aoa/parameters/aoa_device_name",
            "/sys/module/g_android/parameters/iap_name",
            "/sys/module/g_android/parameters/ean_name",
            "/sys/module/g_android/parameters/ean_string_name",
            "/sys/module/vx_usb_host/parameters/kernel_auto_role_switch",
            "/sys/devices/platform/vx4410-udc.1/full_spd",
        };
        for (const char* name :
             {"apple_role", "platform_host_mode_apple_function", "old_scheme_first", "use_both_schemes",
              "apple_dev_default_mode", "android_default_mode", "android_interface_check",
              "not_run_aoa_serial_number", "android_aoa_description_user", "aoa_manufacturer", "aoa_model",
              "aoa_description", "aoa_version", "aoa_url", "aoa_serial", "aoa_mode"}) {
            paths->push_back(std::string(kParameters) + name);
        }
        for (const char* port : {"1", "2", "3"}) {
            paths->push_back(std::string("/sys/bus/platform/devices/ehci-platform.") + port +
                             "/usb_power_set");
        }
        return paths;
    }();
    return *sAll;
}

AttributeBed::AttributeBed() {
    const char* const path = getenv("PATH");
    mPathBefore = path != nullptr ? path : "";
    for (const char* folder : kLaidFolders) {
        lay(folder);
    }
    mInotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (mInotify < 0) {
        mProblem = std::string("inotify: ") + strerror(errno);
    }
    for (const std::string& attribute : all()) {
        make(attribute);
    }
    for (const char* command : {"ifconfig", "insmod"}) {
        makeCommand(command);
    }
    setenv("PATH", (std::string(kCommandFolder) + "/bin:" + mPathBefore).c_str(), 1);
}

AttributeBed::~AttributeBed() {
    setenv("PATH", mPathBefore.c_str(), 1);
    for (const auto& [watch, attribute] : mAttributes) {
        close(attribute.fd);
    }
    close(mInotify);
    for (const std::string& folder : mLaid) {
        umount2(folder.c_str(), MNT_DETACH);
    }
}

void AttributeBed::lay(const std::string& folder) {
    if (mount("tmpfs", folder.c_str(), "tmpfs", 0, "mode=755") != 0) {
        mProblem = "tmpfs on " + folder + ": " + strerror(errno) + " (root is needed)";
        return;
    }
    mLaid.push_back(folder);
}

void AttributeBed::make(const std::string& path) {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    // Open for reading all the time, so that no writer waits for a reader.
    const int fd = mkfifo(path.c_str(), 0644) == 0 ? open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC) : -1;
    // The opening keeps two closings apart, which the kernel would make one.
    const int watch = fd >= 0 ? inotify_add_watch(mInotify, path.c_str(), IN_OPEN | IN_CLOSE_WRITE) : -1;
    if (watch < 0) {
        mProblem = path + ": " + strerror(errno);
        return;
    }
    mAttributes[watch] = {path, fd};
}

void AttributeBed::makeCommand(const std::string& name) {
    const std::string arguments = std::string(kCommandFolder) + "/" + name;
    make(arguments);
    const std::filesystem::path script = std::string(kCommandFolder) + "/bin/" + name;
    std::filesystem::create_directories(script.parent_path());
    std::ofstream(script) << "#!/bin/sh\necho \"" << name << " $*\" > " << arguments << "\n";
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
}

void AttributeBed::readEvents() {
    alignas(inotify_event) char buffer[4096];
    for (ssize_t size = read(mInotify, buffer, sizeof(buffer)); size > 0;
         size = read(mInotify, buffer, sizeof(buffer))) {
        for (const char* at = buffer; at < buffer + size;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(at);
            if ((event->mask & IN_OPEN) != 0) {
                mOpened.insert(event->wd);
            }
            if ((event->mask & IN_CLOSE_WRITE) != 0) {
                mClosed.push_back(event->wd);
            }
            at += sizeof(inotify_event) + event->len;
        }
    }
}

std::string AttributeBed::contents(int watch) {
    std::string text;
    char buffer[4096];
    for (ssize_t size = read(mAttributes[watch].fd, buffer, sizeof(buffer)); size > 0;
         size = read(mAttributes[watch].fd, buffer, sizeof(buffer))) {
        text.append(buffer, static_cast<size_t>(size));
    }
    return text;
}

std::vector<std::string> AttributeBed::take() {
    readEvents();
    std::vector<int> closed;
    closed.swap(mClosed);
    mOpened.clear();
    std::map<int, std::string> texts;
    std::map<int, ptrdiff_t> left;
    for (const int watch : closed) {
        ++left[watch];
    }
    for (const auto& [watch, attribute] : mAttributes) {
        texts[watch] = contents(watch);
    }
    std::vector<std::string> writes;
    for (const int watch : closed) {
        // Each write but the last ends with its line; the last is what remains.
        std::string& text = texts[watch];
        const size_t end = --left[watch] == 0 ? text.size() : text.find('\n') + 1;
        const std::string value = text.substr(0, end);
        text.erase(0, end);
        const std::string& path = mAttributes[watch].path;
        const bool isCommand = path.rfind(kCommandFolder, 0) == 0;
        writes.push_back(isCommand ? value.substr(0, value.find('\n')) : path + "=" + value);
    }
    for (const auto& [watch, text] : texts) {
        if (!text.empty()) {
            writes.push_back("left in " + mAttributes[watch].path + ": " + text);
        }
    }
    return writes;
}

bool AttributeBed::waitForWrites(size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    readEvents();
    while (mClosed.size() < count) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        pollfd events = {mInotify, POLLIN, 0};
        poll(&events, 1, 1000);
        readEvents();
    }
    return true;
}

void AttributeBed::block(const std::string& path) {
    const int fd = descriptorOf(path);
    const std::string block(4096, '\0');
    for (ssize_t size = write(fd, block.data(), block.size()); size > 0;
         size = write(fd, block.data(), block.size())) {
        mBlocked += static_cast<size_t>(size);
    }
}

bool AttributeBed::waitForOpen(const std::string& path) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    while (true) {
        readEvents();
        for (const int watch : mOpened) {
            if (mAttributes[watch].path == path) {
                return true;
            }
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        pollfd events = {mInotify, POLLIN, 0};
        poll(&events, 1, 1000);
    }
}

void AttributeBed::release(const std::string& path) {
    const int fd = descriptorOf(path);
    // Not a byte more: the writer goes on as soon as there is room.
    char buffer[4096];
    while (mBlocked > 0) {
        const ssize_t size = read(fd, buffer, std::min(sizeof(buffer), mBlocked));
        if (size <= 0) {
            return;
        }
        mBlocked -= static_cast<size_t>(size);
    }
}

int AttributeBed::descriptorOf(const std::string& path) const {
    for (const auto& [watch, attribute] : mAttributes) {
        if (attribute.path == path) {
            return attribute.fd;
        }
    }
    return -1;
}

void AttributeBed::put(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << content;
}
