// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace devicectl {

/** The operations of the command usb. */
enum class UsbOperation {
    kList,
    kPower,            ///< number: port; on
    kReset,            ///< number: port
    kRole,             ///< number: port
    kSwitch,           ///< number: Apple function
    kRoleSwitch,       ///< number: device
    kCarplay,          ///< number: device
    kAoa,              ///< number: device
    kScheme,           ///< on: the old scheme first
    kDefaultMode,      ///< number: mask; on
    kAoaDescription,   ///< text: path
    kAoaExclude,       ///< text
    kAoaTimeout,       ///< on: reset
    kIapName,          ///< text
    kEanName,          ///< text
    kEanString,        ///< text
    kAutoRole,         ///< on
    kTestPost,         ///< number: message
    kTestGetCharging,  ///< number: port
    kTestSetCharging,  ///< number: port; second: mode
    kTestHubTier,      ///< number: tier
    kTestRefuseClass,  ///< number: interface class
    kTestAcceptClass,  ///< number: interface class
    kTestGetMode,
    kTestSetMode,  ///< number: certification mode
};

/** What is asked of the USB manager; a member means something for the operations that name it above. */
struct UsbRequest {
    UsbOperation operation = UsbOperation::kList;
    const char* name = "list";  ///< of the operation on the command line; of static storage
    int number = 0;
    int second = 0;
    bool on = false;
    std::string text;  ///< without a NUL
};

}  // namespace devicectl
