// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace usb {

/** What the unit was set up for; the values are the letters in the vendor data. */
enum CertificationMode : int {
    kModeLogo = 'M',         //!< certification with the role-switch loop of the logo test
    kModeTestDevices = 'T',  //!< certification with test devices
    kModeNormal = 'O',       //!< normal operation
    kModeUnread = 255,       //!< before the vendor data was read
};

static_assert(kModeLogo == 77 && kModeTestDevices == 84 && kModeNormal == 79, "clients know the numbers");

/** The mode that a letter of the vendor data stands for; normal operation for any other. */
constexpr CertificationMode certificationModeOf(char letter) {
    switch (letter) {
        case 'M':
        case 'm':
            return kModeLogo;
        case 'T':
        case 't':
            return kModeTestDevices;
        default:
            return kModeNormal;
    }
}

}  // namespace usb
