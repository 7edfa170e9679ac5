// SPDX-License-Identifier: Apache-2.0
#include "usb/AttributeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

namespace usb {

namespace {

/** The longest value that is read; the words of attributes are shorter by far. */
constexpr size_t kReadSize = 64;

int openAgain(const char* path, int flags) {
    int file;
    do {
        file = ::open(path, flags | O_CLOEXEC);
    } while (file < 0 && errno == EINTR);
    return file;
}

bool isBlank(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

AttributeFile::~AttributeFile() {
    close();
}

bool AttributeFile::open(const char* path) {
    close();
    mFile = openAgain(path, O_WRONLY | O_TRUNC);
    return mFile >= 0;
}

bool AttributeFile::write(const std::string& value) {
    // A value that was refused may have moved the position.
    lseek(mFile, 0, SEEK_SET);
    ssize_t written;
    do {
        written = ::write(mFile, value.data(), value.size());
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(value.size());
}

void AttributeFile::close() {
    if (mFile >= 0) {
        ::close(mFile);
        mFile = -1;
    }
}

bool AttributeFile::put(const char* path, const std::string& value) {
    AttributeFile file;
    return file.open(path) && file.write(value);
}

bool AttributeFile::readWord(const char* path, std::string* word) {
    word->clear();
    const int file = openAgain(path, O_RDONLY);
    if (file < 0) {
        return false;
    }
    char text[kReadSize];
    ssize_t size;
    do {
        size = ::read(file, text, sizeof(text));
    } while (size < 0 && errno == EINTR);
    ::close(file);
    if (size > 0) {
        const char* const begin = std::find_if_not(text, text + size, isBlank);
        word->assign(begin, std::find_if(begin, static_cast<const char*>(text + size), isBlank));
    }
    return true;
}

}  // namespace usb
