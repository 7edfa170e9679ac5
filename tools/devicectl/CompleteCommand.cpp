// SPDX-License-Identifier: Apache-2.0
#include <binder/IServiceManager.h>
#include <bindercheck/BinderCheck.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <future>
#include <thread>
#include <utility>

#include "client/Lists.h"
#include "tools/devicectl/Commands.h"
#include "tools/devicectl/Completion.h"
#include "tools/devicectl/RenderParts.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/VolumeOperations.h"

namespace devicectl {

using android::defaultServiceManager;
using android::IBinder;
using android::interface_cast;
using android::sp;
using android::String16;
using android::String8;
using usb::IUsbManager;
using usb::UsbDeviceItf;
using volume::IVolumeManager;
using volume::VolumeItf;

namespace {

using Words = std::vector<std::string>;

/** Somebody waits with a finger on the tabulator. */
constexpr std::chrono::seconds kPatience{2};

sp<IBinder> lookUp(const char* name) {
    return defaultServiceManager()->checkService(String16(name));
}

Words serviceNames() {
    Words names;
    for (const String16& name : defaultServiceManager()->listServices()) {
        names.emplace_back(String8(name).string());
    }
    return names;
}

Volumes volumes() {
    const sp<IBinder> service = lookUp(IVolumeManager::kServiceName);
    return service != nullptr ? listVolumes(*interface_cast<IVolumeManager>(service)) : Volumes();
}

Words volumeNames() {
    Words names;
    for (const sp<VolumeItf>& volume : volumes()) {
        names.push_back(toString(volume->getName()));
        if (isKnown(volume->getLabel())) {
            names.push_back(toString(volume->getLabel()));
        }
    }
    return names;
}

Words nodeNames() {
    Words names;
    for (const sp<VolumeItf>& volume : volumes()) {
        const std::string disk = toString(volume->getMbrPath());
        names.push_back(disk.substr(disk.rfind('/') + 1));
        names.push_back(toString(volume->getName()));
    }
    return names;
}

Words usbWords(LiveKind kind) {
    Words words;
    const sp<IBinder> service = lookUp(IUsbManager::kServiceName);
    if (service == nullptr) {
        return words;
    }
    for (const sp<UsbDeviceItf>& device : client::Lists::usbDevices(*interface_cast<IUsbManager>(service))) {
        words.push_back(kind == LiveKind::kUsbIds ? std::to_string(device->getId()) : usbNumber(*device));
    }
    return words;
}

Words askDaemon(LiveKind kind) {
    if (!bindercheck::serviceManagerProblem().isEmpty()) {
        return {};
    }
    switch (kind) {
        case LiveKind::kNone:
            return {};
        case LiveKind::kServices:
            return serviceNames();
        case LiveKind::kVolumes:
            return volumeNames();
        case LiveKind::kNodes:
            return nodeNames();
        case LiveKind::kUsbNumbers:
        case LiveKind::kUsbIds:
            break;
    }
    return usbWords(kind);
}

/** Asks on a thread of its own, which is left behind when there is no answer: the rest is completed all the
 * same. */
Words askShortly(LiveKind kind) {
    std::packaged_task<Words()> task([kind] { return askDaemon(kind); });
    std::future<Words> answer = task.get_future();
    std::thread(std::move(task)).detach();
    return answer.wait_for(kPatience) == std::future_status::ready ? answer.get() : Words();
}

}  // namespace

ExitCode runComplete(const Words& arguments) {
    Words candidates;
    if (arguments.size() == 3 && arguments[0] == "bash") {
        candidates = bashReplies(arguments[1], arguments[2], askShortly);
    } else if (arguments.size() >= 2 && arguments[0] == "words") {
        candidates =
            candidatesFor({arguments.begin() + 1, arguments.end() - 1}, arguments.back(), askShortly);
    } else {
        return kUsage;
    }
    std::string text;
    for (const std::string& candidate : candidates) {
        text += candidate + "\n";
    }
    return print(text);
}

}  // namespace devicectl
