// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/support/LogCapture.h"

#include <android/log.h>
#include <dlfcn.h>

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <ostream>

namespace {

constexpr size_t kLineSize = 1024;

struct Recorder {
    std::mutex lock;  // guards lines
    std::condition_variable added;
    std::map<const LogCapture*, std::vector<LogLine>> lines;
};

/** Never destroyed: threads may log until the very end of the process. */
Recorder& recorder() {
    static auto* const sRecorder = new Recorder();
    return *sRecorder;
}

template <typename FUNCTION>
FUNCTION realFunction(const char* name) {
    void* const function = dlsym(RTLD_NEXT, name);
    if (function == nullptr) {
        fprintf(stderr, "LogCapture: no %s behind this program\n", name);
        abort();
    }
    return reinterpret_cast<FUNCTION>(function);
}

/** Set while the real log runs, whose functions may call one another through the replaced names. */
thread_local bool sForwarding = false;

class Forwarding {
  public:
    Forwarding() : mBefore(sForwarding) { sForwarding = true; }
    ~Forwarding() { sForwarding = mBefore; }

  private:
    const bool mBefore;
};

void record(int priority, const char* tag, const char* text) {
    if (sForwarding) {
        return;
    }
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    for (auto& [capture, lines] : r.lines) {
        lines.push_back({priority, tag != nullptr ? tag : "", std::string(text).substr(0, kLineSize - 1)});
    }
    r.added.notify_all();
}

int write(int priority, const char* tag, const char* text) {
    record(priority, tag, text);
    static const auto sReal = realFunction<int (*)(int, const char*, const char*)>("__android_log_write");
    const Forwarding forwarding;
    return sReal(priority, tag, text);
}

int writeBuffer(int buffer, int priority, const char* tag, const char* text) {
    record(priority, tag, text);
    static const auto sReal =
        realFunction<int (*)(int, int, const char*, const char*)>("__android_log_buf_write");
    const Forwarding forwarding;
    return sReal(buffer, priority, tag, text);
}

}  // namespace

// The functions of liblog under their own names. The program's definitions come first in the dynamic linker's
// order, for its shared libraries too.
extern "C" {

int __android_log_write(int priority, const char* tag, const char* text) {
    return write(priority, tag, text);
}

int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments) {
    char text[kLineSize];
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller's
    vsnprintf(text, sizeof(text), format, arguments);
    return write(priority, tag, text);
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = __android_log_vprint(priority, tag, format, arguments);
    va_end(arguments);
    return result;
}

int __android_log_buf_write(int buffer, int priority, const char* tag, const char* text) {
    return writeBuffer(buffer, priority, tag, text);
}

__attribute__((format(printf, 4, 5))) int __android_log_buf_print(int buffer, int priority, const char* tag,
                                                                  const char* format, ...) {
    char text[kLineSize];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started on the line before
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return writeBuffer(buffer, priority, tag, text);
}

}  // extern "C"

bool LogLine::operator==(const LogLine& other) const {
    return priority == other.priority && tag == other.tag && text == other.text;
}

std::ostream& operator<<(std::ostream& stream, const LogLine& line) {
    return stream << line.priority << " " << line.tag << ": \"" << line.text << "\"";
}

LogCapture::LogCapture() {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    r.lines[this];
}

LogCapture::~LogCapture() {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    r.lines.erase(this);
}

std::vector<LogLine> LogCapture::take() {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    std::vector<LogLine> lines;
    lines.swap(r.lines[this]);
    return lines;
}

std::vector<LogLine> LogCapture::take(const std::string& tag) {
    std::vector<LogLine> lines = take();
    lines.erase(
        std::remove_if(lines.begin(), lines.end(), [&tag](const LogLine& line) { return line.tag != tag; }),
        lines.end());
    return lines;
}

size_t LogCapture::count(const Predicate& matches) const {
    Recorder& r = recorder();
    const std::lock_guard<std::mutex> hold(r.lock);
    const std::vector<LogLine>& lines = r.lines[this];
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), matches));
}

bool LogCapture::waitFor(const Predicate& matches, std::chrono::milliseconds limit) const {
    Recorder& r = recorder();
    std::unique_lock<std::mutex> hold(r.lock);
    return r.added.wait_for(hold, limit, [this, &r, &matches] {
        const std::vector<LogLine>& lines = r.lines[this];
        return std::any_of(lines.begin(), lines.end(), matches);
    });
}

bool LogCapture::waitFor(const LogLine& line, std::chrono::milliseconds limit) const {
    return waitFor([&line](const LogLine& candidate) { return candidate == line; }, limit);
}
