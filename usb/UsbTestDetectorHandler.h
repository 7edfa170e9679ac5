// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/UsbDetectorHandlerItf.h"
#include "usb/UsbTestImpl.h"

namespace usb {

/**
 * Hands every hot-plug event to the checker.
 */
class UsbTestDetectorHandler : public UsbDetectorHandlerItf {
  public:
    /** @param test  asserted not to be null */
    explicit UsbTestDetectorHandler(const android::sp<UsbTestImpl>& test);

    /** Asserts both pointers. May take as long as UsbTID::doAction(). @return 0 */
    int onAttach(void* ctx, void* dev) override;

    /** Asserts both pointers. @return 0 */
    int onDetach(void* ctx, void* dev) override;

  protected:
    ~UsbTestDetectorHandler() override = default;

  private:
    void check(const char* action, void* ctx, void* dev);

    const android::sp<UsbTestImpl> mTest;
};

}  // namespace usb
