// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/devicectl/UsbRequest.h"
#include "usb/IUsbManager.h"

namespace devicectl {

/** Has @p manager carry out @p request, any but the list. @return its answer; 0 when the call fails */
int askUsbManager(usb::IUsbManager& manager, const UsbRequest& request);

}  // namespace devicectl
