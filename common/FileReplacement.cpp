// SPDX-License-Identifier: Apache-2.0
#include "common/FileReplacement.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

// What the process' umask leaves of it is the mode of a file that was not there before.
constexpr mode_t kNewFileMode = 0666;
// Until it has the former file's owner, its content is nobody else's business.
constexpr mode_t kUnfinishedMode = 0600;
constexpr mode_t kPermissions = 07777;

/** What must be known of the former file. */
struct Former {
    bool exists = false;
    struct stat status = {};
};

enum class Outcome {
    kDone,
    kFailed,
    kNotPermitted,  //!< nothing was changed; the file may still be written in place
};

bool writeAll(int fd, const std::string& content) {
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t size = TEMP_FAILURE_RETRY(write(fd, content.data() + done, content.size() - done));
        if (size < 0) {
            return false;
        }
        done += static_cast<size_t>(size);
    }
    return true;
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

/** Makes a file of a name that no other has. */
int createBeside(const std::string& path, mode_t mode, std::string* name) {
    uint64_t number = 0;
    if (getrandom(&number, sizeof(number), 0) != sizeof(number)) {
        return -1;
    }
    char suffix[32];
    snprintf(suffix, sizeof(suffix), "/.property.%016" PRIx64, number);
    *name = folderOf(path) + suffix;
    return open(name->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
}

/** The name is durable when the folder is. Some file systems cannot synchronise one and need not. */
void synchroniseFolder(const std::string& path) {
    const int fd = open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

bool isRefusal(int error) {
    return error == EACCES || error == EPERM || error == EROFS;
}

/** Gives the new file what the former one had. */
Outcome adoptOwner(int fd, const Former& former) {
    if (!former.exists) {
        return Outcome::kDone;
    }
    // The mode comes second: a change of the owner takes bits away.
    if (fchown(fd, former.status.st_uid, former.status.st_gid) != 0 ||
        fchmod(fd, former.status.st_mode & kPermissions) != 0) {
        return isRefusal(errno) ? Outcome::kNotPermitted : Outcome::kFailed;
    }
    return Outcome::kDone;
}

Outcome moveOver(const std::string& name, const std::string& path) {
    if (rename(name.c_str(), path.c_str()) != 0) {
        // Busy is a mount point; refused is another's file in a folder with the sticky bit.
        return isRefusal(errno) || errno == EBUSY ? Outcome::kNotPermitted : Outcome::kFailed;
    }
    synchroniseFolder(path);
    return Outcome::kDone;
}

/** errno is set unless it is done. */
Outcome replaceWhole(const std::string& path, const Former& former, const std::string& content) {
    std::string name;
    const int fd = createBeside(path, former.exists ? kUnfinishedMode : kNewFileMode, &name);
    if (fd < 0) {
        return isRefusal(errno) ? Outcome::kNotPermitted : Outcome::kFailed;
    }
    Outcome outcome = adoptOwner(fd, former);
    if (outcome == Outcome::kDone && (!writeAll(fd, content) || fsync(fd) != 0)) {
        outcome = Outcome::kFailed;
    }
    int error = errno;
    close(fd);
    if (outcome == Outcome::kDone) {
        outcome = moveOver(name, path);
        error = errno;
    }
    if (outcome != Outcome::kDone) {
        unlink(name.c_str());
        errno = error;
    }
    return outcome;
}

/** Takes the room that @p size bytes need before anything of the former content is touched. */
int reserve(int fd, off_t size, off_t formerSize) {
    const int error = size > formerSize ? posix_fallocate(fd, 0, size) : 0;
    if (error != 0 && ftruncate(fd, formerSize) != 0) {
        return -errno;
    }
    return -error;
}

int overwrite(int fd, const std::string& content) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        return -errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return -EINVAL;
    }
    const auto size = static_cast<off_t>(content.size());
    const int result = reserve(fd, size, status.st_size);
    if (result != 0) {
        return result;
    }
    if (!writeAll(fd, content) || ftruncate(fd, size) != 0 || fsync(fd) != 0) {
        return -errno;
    }
    return 0;
}

int writeInPlace(const std::string& path, const std::string& content) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, kNewFileMode);
    if (fd < 0) {
        return -errno;
    }
    const int result = overwrite(fd, content);
    close(fd);
    return result;
}

}  // namespace

int replaceFile(const std::string& path, const std::string& content) {
    char resolved[PATH_MAX];
    struct stat status = {};
    if (realpath(path.c_str(), resolved) == nullptr) {
        // A link to nothing: the file is made where it leads to.
        if (lstat(path.c_str(), &status) == 0) {
            return writeInPlace(path, content);
        }
        const Outcome outcome = replaceWhole(path, Former(), content);
        return outcome == Outcome::kDone ? 0 : -errno;
    }
    Former former;
    former.exists = true;
    if (stat(resolved, &former.status) != 0) {
        return -errno;
    }
    if (!S_ISREG(former.status.st_mode)) {
        return -EINVAL;
    }
    // A second name would keep the former content.
    if (former.status.st_nlink > 1) {
        return writeInPlace(resolved, content);
    }
    switch (replaceWhole(resolved, former, content)) {
        case Outcome::kDone:
            return 0;
        case Outcome::kNotPermitted:
            return writeInPlace(resolved, content);
        default:
            return -errno;
    }
}
