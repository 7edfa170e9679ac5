// SPDX-License-Identifier: Apache-2.0
#include <binder/IServiceManager.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <chrono>
#include <future>
#include <thread>
#include <utility>
#include <vector>

#include "tools/devicectl/CallLimit.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/StandardStreams.h"

namespace devicectl {

using android::IBinder;
using android::IServiceManager;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;

namespace {

constexpr std::chrono::seconds kSilence{2};

struct Listed {
    std::string name;
    sp<IBinder> service;
    std::future<status_t> answer;
};

/** Asks on a thread of its own, which is left behind when the service does not answer. */
std::future<status_t> ping(const sp<IBinder>& service) {
    std::packaged_task<status_t()> task([service] { return service->pingBinder(); });
    std::future<status_t> answer = task.get_future();
    std::thread(std::move(task)).detach();
    return answer;
}

/** The services by name. One that went between the list and the look-up has no object. */
std::vector<Listed> listServices(unsigned answerSeconds) {
    const CallLimit limit(answerSeconds, "the service manager");
    const sp<IServiceManager> manager = android::defaultServiceManager();
    std::vector<Listed> services;
    for (const String16& name : manager->listServices()) {
        services.push_back({String8(name).string(), manager->checkService(name), {}});
    }
    return services;
}

ServiceState::Life lifeOf(const Listed& listed, std::chrono::steady_clock::time_point deadline) {
    if (listed.service == nullptr) {
        return ServiceState::Life::kDead;
    }
    if (listed.answer.wait_until(deadline) != std::future_status::ready) {
        return ServiceState::Life::kSilent;
    }
    return ServiceState::Life::kAlive;
}

}  // namespace

ExitCode runServices(const Options& options) {
    std::vector<Listed> services = listServices(options.answerSeconds);
    for (Listed& listed : services) {
        if (listed.service != nullptr) {
            listed.answer = ping(listed.service);
        }
    }
    const auto deadline = std::chrono::steady_clock::now() + kSilence;
    std::vector<ServiceState> states;
    for (Listed& listed : services) {
        ServiceState state{listed.name, lifeOf(listed, deadline)};
        if (state.life == ServiceState::Life::kAlive && listed.answer.get() == android::DEAD_OBJECT) {
            state.life = ServiceState::Life::kDead;
        }
        states.push_back(std::move(state));
    }
    return print(renderServices(options.format, states));
}

}  // namespace devicectl
