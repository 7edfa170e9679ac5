// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What the clients have in common that take their arguments one after the other and print JSON objects.
 */

#include <binder/ProcessState.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>

/** Prints @p object as one line. Any thread. */
inline void print(const nlohmann::json& object) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::cout << object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
}

/**
 * The whole of main(): makes a Client, which is connected() or not, and has it run() each argument, which is
 * false for a step that does not exist.
 * @param name the program's
 * @return its exit status, unless it ended before
 */
template <typename Client>
int runSteps(int argc, char** argv, const char* name, const char* usage) {
    if (argc < 2) {
        fputs(usage, stderr);
        return 2;
    }
    android::ProcessState::self()->startThreadPool();
    Client client;
    if (!client.connected()) {
        fprintf(stderr, "%s: the service is not registered\n", name);
        return 3;
    }
    for (int i = 1; i < argc; ++i) {
        if (!client.run(argv[i])) {
            fputs(usage, stderr);
            _exit(2);
        }
    }
    // The binder threads still run: no destructor of a static object may meet them.
    std::cout.flush();
    _exit(EXIT_SUCCESS);
}
