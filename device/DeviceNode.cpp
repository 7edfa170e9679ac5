// SPDX-License-Identifier: Apache-2.0
#include "device/DeviceNode.h"

#include <cstring>

namespace device {

using android::String8;

bool DeviceNode::isAncestorOf(const String8& path) const {
    const String8& own = mDevice->getPath();
    return path.size() > own.size() && strncmp(own.string(), path.string(), own.size()) == 0;
}

bool DeviceNode::isSamePath(const String8& path) const {
    const String8& own = mDevice->getPath();
    return own.size() == path.size() && own == path;
}

bool DeviceNode::match(const String8& subsystem, const String8& devName) const {
    return mDevice->getSubsystem() == subsystem && mDevice->getParam(String8("DEVNAME")) == devName;
}

}  // namespace device
