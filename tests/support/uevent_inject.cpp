// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The command uevent-inject: makes the kernel send uevents, any number at any rate.
 */

#include <getopt.h>
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/UeventInjector.h"

namespace {

using Clock = std::chrono::steady_clock;

/** Uevents that are sent at once, at the most, to catch up with the rate. */
constexpr int kMostBehind = 20;

constexpr char kUsage[] =
    "usage: uevent-inject [OPTION...] [KEY=VALUE...]\n"
    "\n"
    "Makes the kernel send uevents in the network namespace of this process. Needs root.\n"
    "In PATH, SUBSYSTEM and each VALUE, {n} stands for the number of the uevent.\n"
    "\n"
    "  -a, --action=WORD        add, remove, change, ... (default: add)\n"
    "  -p, --path=PATH          device path, from / on (default: /devices/virtual/inject/{n})\n"
    "  -s, --subsystem=NAME     default: block; empty for none\n"
    "  -t, --toggle             add and remove by turns, two uevents for each number\n"
    "  -c, --count=COUNT        uevents to send (default: 1)\n"
    "  -f, --first=NUMBER       number of the first one (default: 0)\n"
    "  -r, --rate=PER_SECOND    default: as fast as it goes\n"
    "  -q, --quiet              no summary on standard output\n"
    "  -h, --help               this text\n"
    "\n"
    "Exit status: 0 sent, 64 wrong use, 71 the kernel refused.\n";

struct Options {
    std::string action = "add";
    std::string path = "/devices/virtual/inject/{n}";
    std::string subsystem = "block";
    std::vector<std::string> properties;
    bool toggle = false;
    bool quiet = false;
    uint64_t count = 1;
    uint64_t first = 0;
    double rate = 0;
};

bool parseNumber(const char* text, uint64_t* number) {
    char* end = nullptr;
    errno = 0;
    *number = strtoull(text, &end, 10);
    return errno == 0 && end != text && *end == '\0' && *text != '-';
}

bool parseRate(const char* text, double* rate) {
    char* end = nullptr;
    *rate = strtod(text, &end);
    return end != text && *end == '\0' && *rate > 0;
}

int refuseUse(const char* option, const char* value) {
    fprintf(stderr, "uevent-inject: bad value \"%s\" for --%s\n", value, option);
    return EX_USAGE;
}

/** Returns -1 to go on, else the exit status. */
int parse(int argc, char** argv, Options* options) {
    static const option kOptions[] = {
        {"action", required_argument, nullptr, 'a'},
        {"path", required_argument, nullptr, 'p'},
        {"subsystem", required_argument, nullptr, 's'},
        {"toggle", no_argument, nullptr, 't'},
        {"count", required_argument, nullptr, 'c'},
        {"first", required_argument, nullptr, 'f'},
        {"rate", required_argument, nullptr, 'r'},
        {"quiet", no_argument, nullptr, 'q'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    for (;;) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread.
        const int letter = getopt_long(argc, argv, "a:p:s:tc:f:r:qh", kOptions, nullptr);
        switch (letter) {
            case -1:
                options->properties.assign(argv + optind, argv + argc);
                return -1;
            case 'a':
                options->action = optarg;
                break;
            case 'p':
                options->path = optarg;
                break;
            case 's':
                options->subsystem = optarg;
                break;
            case 't':
                options->toggle = true;
                break;
            case 'c':
                if (!parseNumber(optarg, &options->count)) {
                    return refuseUse("count", optarg);
                }
                break;
            case 'f':
                if (!parseNumber(optarg, &options->first)) {
                    return refuseUse("first", optarg);
                }
                break;
            case 'r':
                if (!parseRate(optarg, &options->rate)) {
                    return refuseUse("rate", optarg);
                }
                break;
            case 'q':
                options->quiet = true;
                break;
            case 'h':
                fputs(kUsage, stdout);
                return EX_OK;
            default:
                fputs("Try 'uevent-inject --help'.\n", stderr);
                return EX_USAGE;
        }
    }
}

std::string expand(std::string text, uint64_t number) {
    static const std::string kMark = "{n}";
    const std::string digits = std::to_string(number);
    for (size_t at = text.find(kMark); at != std::string::npos; at = text.find(kMark, at + digits.size())) {
        text.replace(at, kMark.size(), digits);
    }
    return text;
}

int sendOne(UeventInjector* injector, const Options& options, uint64_t index) {
    const uint64_t number = options.first + (options.toggle ? index / 2 : index);
    const std::string action = !options.toggle ? options.action : index % 2 == 0 ? "add" : "remove";
    std::vector<std::string> properties;
    properties.reserve(options.properties.size());
    for (const std::string& property : options.properties) {
        properties.push_back(expand(property, number));
    }
    return injector->send(action, expand(options.path, number), expand(options.subsystem, number),
                          properties);
}

int sendAll(UeventInjector* injector, const Options& options) {
    const Clock::time_point start = Clock::now();
    const auto interval = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(options.rate > 0 ? 1 / options.rate : 0));
    auto due = start;
    for (uint64_t i = 0; i < options.count; ++i) {
        if (options.rate > 0) {
            // What a stalled machine is behind by is not made up for in one burst: no reader could take it,
            // and the summary tells the rate that came of it.
            due = std::max(due, Clock::now() - kMostBehind * interval);
            std::this_thread::sleep_until(due);
            due += interval;
        }
        const int result = sendOne(injector, options, i);
        if (result != 0) {
            fprintf(stderr, "uevent-inject: the kernel refused uevent %llu: %s\n",
                    static_cast<unsigned long long>(i), strerror(-result));
            return EX_OSERR;
        }
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (!options.quiet) {
        printf("%llu uevents in %.3f s, %.0f per second\n", static_cast<unsigned long long>(options.count),
               seconds, seconds > 0 ? static_cast<double>(options.count) / seconds : 0.0);
    }
    return EX_OK;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const int status = parse(argc, argv, &options);
    if (status >= 0) {
        return status;
    }
    UeventInjector injector;
    const int result = injector.open();
    if (result != 0) {
        fprintf(stderr, "uevent-inject: no uevent socket: %s\n", strerror(-result));
        return EX_OSERR;
    }
    return sendAll(&injector, options);
}
