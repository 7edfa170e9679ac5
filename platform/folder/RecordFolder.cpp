// SPDX-License-Identifier: Apache-2.0
#include "platform/folder/RecordFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace platform {

namespace {

// Followed by the writer's process id, a dot and a number.
constexpr char kUnfinishedPrefix[] = ".new.";
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;

class Descriptor {
  public:
    explicit Descriptor(int fd) : mFd(fd) {}
    ~Descriptor() {
        if (mFd >= 0) {
            ::close(mFd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return mFd; }

  private:
    const int mFd;
};

bool isRecordName(const std::string& name) {
    if (name.empty() || name.size() > RecordFolder::kMaxName || name[0] == '.') {
        return false;
    }
    for (const char character : name) {
        const auto code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7f || character == '/') {
            return false;
        }
    }
    return true;
}

/** Makes @p path and what is missing above it. */
int makeFolders(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), kFolderMode) == 0) {
            // Readers are other users: what the process' umask took away is given back to a folder made here.
            chmod(part.c_str(), kFolderMode);
        } else if (errno != EEXIST) {
            return -errno;
        }
        if (end == std::string::npos) {
            return 0;
        }
    }
}

/** Removes what processes left behind that died while they wrote. */
void removeUnfinished(int folder) {
    // An open file description of its own: it has a position.
    const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const entries = copy >= 0 ? fdopendir(copy) : nullptr;
    if (entries == nullptr) {
        if (copy >= 0) {
            ::close(copy);
        }
        return;
    }
    constexpr size_t kPrefixLength = sizeof(kUnfinishedPrefix) - 1;
    while (const dirent* const entry = readdir(entries)) {
        if (strncmp(entry->d_name, kUnfinishedPrefix, kPrefixLength) != 0) {
            continue;
        }
        const long pid = strtol(entry->d_name + kPrefixLength, nullptr, 10);
        if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
            unlinkat(folder, entry->d_name, 0);
        }
    }
    closedir(entries);
}

int writeAll(int fd, const std::string& content) {
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t size = TEMP_FAILURE_RETRY(::write(fd, content.data() + done, content.size() - done));
        if (size < 0) {
            return -errno;
        }
        done += static_cast<size_t>(size);
    }
    return 0;
}

/** Makes a file that no other writer has. Returns its descriptor and writes its name. */
int createUnfinished(int folder, char* name, size_t size) {
    static std::atomic<unsigned> sNumber{0};
    for (;;) {
        snprintf(name, size, "%s%d.%u", kUnfinishedPrefix, static_cast<int>(getpid()), sNumber++);
        const int fd = openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
        // What exists already was left by a former process with the same id, or is another library's.
        if (fd >= 0 || errno != EEXIST) {
            return fd >= 0 ? fd : -errno;
        }
    }
}

int fillUnfinished(int fd, const std::string& content, bool synchronise) {
    if (fchmod(fd, kFileMode) != 0) {
        return -errno;
    }
    const int result = writeAll(fd, content);
    if (result != 0 || !synchronise) {
        return result;
    }
    return fsync(fd) == 0 ? 0 : -errno;
}

}  // namespace

RecordFolder::RecordFolder(std::string path, Keep keep) : mPath(std::move(path)), mKeep(keep) {}

/** The folder's descriptor or a negative errno. */
int RecordFolder::open(bool create) const {
    if (mPath.empty() || mPath[0] != '/') {
        return -EINVAL;
    }
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    int fd = ::open(mPath.c_str(), kFlags);
    if (fd < 0 && errno == ENOENT && create) {
        const int result = makeFolders(mPath);
        if (result != 0) {
            return result;
        }
        fd = ::open(mPath.c_str(), kFlags);
    }
    return fd >= 0 ? fd : -errno;
}

int RecordFolder::replace(const std::string& name, const std::string& content) const {
    if (!isRecordName(name)) {
        return -EINVAL;
    }
    const Descriptor folder(open(true));
    if (folder.get() < 0) {
        return folder.get();
    }
    static std::atomic<bool> sCleaned{false};
    if (!sCleaned.exchange(true)) {
        removeUnfinished(folder.get());
    }

    // Two numbers of ten digits, a sign and a dot.
    char unfinished[sizeof(kUnfinishedPrefix) + 24];
    const Descriptor file(createUnfinished(folder.get(), unfinished, sizeof(unfinished)));
    if (file.get() < 0) {
        return file.get();
    }
    const bool forGood = mKeep == Keep::kForGood;
    int result = fillUnfinished(file.get(), content, forGood);
    if (result == 0 && renameat(folder.get(), unfinished, folder.get(), name.c_str()) != 0) {
        result = -errno;
    }
    if (result != 0) {
        unlinkat(folder.get(), unfinished, 0);
        return result;
    }
    // Some file systems cannot synchronise a folder and need not: EINVAL.
    if (forGood && fsync(folder.get()) != 0 && errno != EINVAL) {
        return -errno;
    }
    return 0;
}

int RecordFolder::remove(const std::string& name) const {
    if (!isRecordName(name)) {
        return -EINVAL;
    }
    const Descriptor folder(open(false));
    if (folder.get() < 0) {
        return folder.get();
    }
    return unlinkat(folder.get(), name.c_str(), 0) == 0 ? 0 : -errno;
}

int RecordFolder::read(const std::string& name, std::string* content, size_t limit) const {
    if (!isRecordName(name)) {
        return -EINVAL;
    }
    const Descriptor folder(open(false));
    if (folder.get() < 0) {
        // A link to a file system that is not mounted is no proof that nothing was ever written.
        struct stat status = {};
        const bool brokenLink = folder.get() == -ENOENT && lstat(mPath.c_str(), &status) == 0;
        return brokenLink ? -ENOTDIR : folder.get();
    }
    // Without O_NONBLOCK a FIFO in the record's place would wait for a writer.
    constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const Descriptor file(openat(folder.get(), name.c_str(), kFlags));
    if (file.get() < 0) {
        return -errno;
    }
    struct stat status = {};
    if (fstat(file.get(), &status) != 0) {
        return -errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? -EISDIR : -EINVAL;
    }
    std::string text(limit, '\0');
    size_t done = 0;
    while (done < limit) {
        const ssize_t size = TEMP_FAILURE_RETRY(::read(file.get(), &text[done], limit - done));
        if (size < 0) {
            return -errno;
        }
        if (size == 0) {
            break;
        }
        done += static_cast<size_t>(size);
    }
    text.resize(done);
    content->swap(text);
    return 0;
}

}  // namespace platform
