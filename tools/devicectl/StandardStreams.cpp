// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/StandardStreams.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "tools/devicectl/Text.h"

namespace devicectl {

void reserveStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // What nobody can read must not look written; a complaint that nobody can read is none.
        const int mode = stream == STDERR_FILENO ? O_WRONLY : O_RDONLY;
        if (fcntl(stream, F_GETFD) == -1 && open("/dev/null", mode | O_CLOEXEC) < 0) {
            return;
        }
    }
}

int writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN) {
            // Someone who shares the terminal or pipe made it non-blocking.
            pollfd ready{fd, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

ExitCode print(std::string_view text) {
    const int error = writeAll(STDOUT_FILENO, text);
    if (error == 0) {
        return kOk;
    }
    reportOutputError(error);
    return kFailed;
}

void reportError(std::string_view text) {
    // One write, so that the line stays whole beside those of other programs.
    writeAll(STDERR_FILENO, "devicectl: " + escapeLine(text) + "\n");
}

void reportOutputError(int error) {
    if (error != EPIPE) {
        reportError("cannot write to standard output: " + std::generic_category().message(error));
    }
}

}  // namespace devicectl
