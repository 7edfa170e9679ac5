// SPDX-License-Identifier: Apache-2.0
#include <binder/ProcessState.h>
#include <bindercheck/BinderCheck.h>
#include <unistd.h>

#include "tools/devicectl/Commands.h"
#include "tools/devicectl/StandardStreams.h"
#include "tools/devicectl/WatchSource.h"
#include "tools/devicectl/Watcher.h"

namespace devicectl {

using android::sp;

ExitCode runWatch(const Options& options) {
    if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) {
        reportError("watch needs a terminal; for programs there are monitor --json and status --json");
        return kUsage;
    }
    const android::String8 driver = bindercheck::driverProblem();
    if (!driver.isEmpty()) {
        reportError(driver.string());
        return kNoDriver;
    }
    // Before any thread, so that all have its signals blocked.
    const sp<WakeUp> news = new WakeUp();
    Watcher watcher(options.format, news, STDIN_FILENO, STDOUT_FILENO);
    if (!watcher.isComplete()) {
        reportError("no file descriptor left for the picture: close some or raise the limit");
        return kFailed;
    }
    android::ProcessState::self()->startThreadPool();
    const sp<WatchSource> source = new WatchSource(news);
    source->start();
    return watcher.run(source);
}

}  // namespace devicectl
