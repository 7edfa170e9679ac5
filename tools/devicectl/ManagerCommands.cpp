// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/Managers.h"
#include "tools/devicectl/StandardStreams.h"

namespace devicectl {

using android::IBinder;
using android::sp;

namespace {

ExitCode change(const Manager& manager, bool starts, const ServiceAccess& access,
                std::vector<ManagerAction>* done) {
    sp<IBinder> service;
    const ExitCode found = access.find(manager.service, &service);
    if (found != kOk) {
        return found;
    }
    int result = 0;
    {
        const CallLimit limit(access.answerSeconds(), manager.service);
        result = starts ? manager.startup(service) : manager.shutdown(service);
    }
    const ExitCode alive = access.confirmAlive(manager.service, service);
    if (alive != kOk) {
        return alive;
    }
    done->push_back({manager.name, manager.service, result});
    if (result != 0) {
        reportError(std::string(manager.name) + ": the service answered " + std::to_string(result) +
                    "; its log tells why");
        return kFailed;
    }
    return kOk;
}

}  // namespace

ExitCode runManagerCommand(const Options& options, const ServiceAccess& access) {
    const bool starts = options.command == Options::Command::kStart;
    ExitCode code = kOk;
    std::vector<ManagerAction> done;
    for (const Manager* const manager :
         starts ? managersToStart(options.manager) : managersToStop(options.manager)) {
        code = change(*manager, starts, access, &done);
        if (code != kOk) {
            break;
        }
    }
    if (done.empty()) {
        return code;
    }
    const ExitCode printed = print(renderActions(options.format, starts ? "start" : "stop", done));
    return code != kOk ? code : printed;
}

}  // namespace devicectl
