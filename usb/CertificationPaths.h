// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The kernel's attributes that the certification mode reads and writes.
 */

namespace usb::path {

// Identity that the host stack hands to its test-mode code, and the switches of the logo test.
constexpr char kIdProduct[] = "/sys/module/usbcore/parameters/idProduct";
constexpr char kIdVendor[] = "/sys/module/usbcore/parameters/idVendor";
constexpr char kIdEnable[] = "/sys/module/usbcore/parameters/id_enable";
constexpr char kLogoTestStart[] = "/sys/module/usbcore/parameters/usb_logo_test_start";

// How the host stack treats phones and slow devices.
constexpr char kAppleDefaultMode[] = "/sys/module/usbcore/parameters/apple_dev_default_mode";
constexpr char kAndroidDefaultMode[] = "/sys/module/usbcore/parameters/android_default_mode";
constexpr char kAoaDescriptionUser[] = "/sys/module/usbcore/parameters/android_aoa_description_user";
constexpr char kInitialDescriptorTimeout[] = "/sys/module/usbcore/parameters/initial_descriptor_timeout";

// The host stack's own checks.
constexpr char kSpecificTestSet[] = "/proc/usb_verify_test/specific_test_set";
constexpr char kHubLevelSet[] = "/proc/usb_verify_test/hub_level_set";

// Battery charging of the ports.
constexpr char kChargingSwitch[] = "/sys/module/vxqa4410_bc/bc_switch";
constexpr char kChargingPolling[] = "/sys/module/vxqa4410_bc/parameters/bc_polling_enable";

// The gadget side of the port that can change its role, and its role by the bus's number.
constexpr char kGadgetFullSpeed[] = "/sys/devices/platform/vx4410-udc.1/full_spd";
constexpr char kRoleSwitchFormat[] = "/sys/devices/platform/ehci-platform.%d/usb_role_switch";

// What is plugged into the host ports.
constexpr char kPort1Status[] = "/sys/devices/platform/ehci-platform.1/ehci_port_status";
constexpr char kPort2Status[] = "/sys/devices/platform/ehci-platform.2/ehci_port_status";
constexpr char kPort3Status[] = "/sys/devices/platform/ehci-platform.3/ehci_port_status";

}  // namespace usb::path
