// SPDX-License-Identifier: Apache-2.0
#include "volume/MountTable.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace volume {

namespace {

/** One line: ID PARENT MAJOR:MINOR ROOT PATH OPTIONS [TAG...] - TYPE SOURCE OPTIONS. It is cut up. */
std::optional<MountIdentity> parse(char* line, const char* path) {
    std::vector<const char*> fields;
    char* rest = nullptr;
    for (char* field = strtok_r(line, " \n", &rest); field != nullptr;
         field = strtok_r(nullptr, " \n", &rest)) {
        fields.push_back(field);
    }
    if (fields.size() < 6 || strcmp(fields[4], path) != 0) {
        return std::nullopt;
    }
    MountIdentity mount;
    mount.id = static_cast<int>(strtol(fields[0], nullptr, 10));
    mount.device = fields[2];
    for (size_t i = 6; i + 2 < fields.size(); ++i) {
        if (strcmp(fields[i], "-") == 0) {
            mount.source = fields[i + 2];
            break;
        }
    }
    return mount;
}

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};

}  // namespace

std::optional<MountIdentity> mountAt(const char* path) {
    const std::unique_ptr<FILE, CloseFile> table(fopen("/proc/self/mountinfo", "re"));
    if (table == nullptr) {
        return std::nullopt;
    }
    std::optional<MountIdentity> top;
    char* line = nullptr;
    size_t size = 0;
    while (getline(&line, &size, table.get()) > 0) {
        std::optional<MountIdentity> mount = parse(line, path);
        if (mount.has_value()) {
            // Mounts in one place are listed in the order in which they were made.
            top = std::move(mount);
        }
    }
    free(line);
    return top;
}

}  // namespace volume
