// SPDX-License-Identifier: Apache-2.0
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/MemoryFile.h"
#include "tools/devicectl/StandardStreams.h"

namespace devicectl {

using android::IBinder;
using android::sp;
using android::status_t;
using android::String16;
using android::Vector;

namespace {

ExitCode failMemory(int error) {
    reportError("no memory for the dump: " + std::generic_category().message(error));
    return kFailed;
}

}  // namespace

ExitCode runDump(const Options& options, const ServiceAccess& access) {
    sp<IBinder> service;
    const ExitCode found = access.find(options.service, &service);
    if (found != kOk) {
        return found;
    }
    const MemoryFile file;
    if (file.fd() < 0) {
        return failMemory(errno);
    }
    Vector<String16> arguments;
    for (const std::string& argument : options.arguments) {
        arguments.add(String16(argument.data(), argument.size()));
    }
    status_t status = android::OK;
    {
        const CallLimit limit(access.answerSeconds(), options.service);
        status = service->dump(file.fd(), arguments);
    }
    if (status != android::OK) {
        const ExitCode alive = access.confirmAlive(options.service, service);
        if (alive != kOk) {
            return alive;
        }
        reportError("service " + options.service + " refused the dump with status " + std::to_string(status));
        return kFailed;
    }
    std::string text;
    const int error = file.read(&text);
    return error != 0 ? failMemory(error)
                      : print(renderDump(options.format, options.service, options.arguments, text));
}

}  // namespace devicectl
