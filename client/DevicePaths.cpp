// SPDX-License-Identifier: Apache-2.0
#include "client/DevicePaths.h"

#include <dirent.h>
#include <stdlib.h>

#include <memory>
#include <set>

namespace client {

namespace {

/** Where the kernel links the devices of a subsystem: a class, or a bus. */
constexpr const char* kFolders[] = {"/class/block", "/bus/usb/devices", "/class/usb_device",
                                    "/bus/mmc/devices"};

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

struct Free {
    void operator()(char* text) const { free(text); }
};

/** The path without links; empty when there is none (any more). */
std::string resolved(const std::string& path) {
    const std::unique_ptr<char, Free> real(realpath(path.c_str(), nullptr));
    return real != nullptr ? real.get() : "";
}

}  // namespace

std::vector<std::string> devicePaths(const std::string& sysfs) {
    const std::string root = resolved(sysfs);
    std::vector<std::string> paths;
    if (root.empty()) {
        return paths;
    }
    for (const char* const name : kFolders) {
        const std::string folder = root + name;
        const std::unique_ptr<DIR, CloseFolder> entries(opendir(folder.c_str()));
        if (entries == nullptr) {
            continue;
        }
        while (const dirent* const entry = readdir(entries.get())) {
            if (entry->d_name[0] == '.') {
                continue;
            }
            const std::string path = resolved(folder + "/" + entry->d_name);
            if (path.compare(0, root.size(), root) == 0) {
                paths.push_back(path.substr(root.size()));
            }
        }
    }
    return paths;
}

std::vector<std::string> deepest(const std::vector<std::string>& paths) {
    std::set<std::string> above;
    for (const std::string& path : paths) {
        for (size_t end = path.rfind('/'); end != std::string::npos && end > 0;
             end = path.rfind('/', end - 1)) {
            if (!above.insert(path.substr(0, end)).second) {
                break;
            }
        }
    }
    std::set<std::string> leaves;
    for (const std::string& path : paths) {
        if (!path.empty() && above.count(path) == 0) {
            leaves.insert(path);
        }
    }
    return {leaves.begin(), leaves.end()};
}

}  // namespace client
