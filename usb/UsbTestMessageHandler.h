// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Looper.h>

#include <cstdint>
#include <string>

#include "usb/AttributeFile.h"
#include "usb/UsbTestImpl.h"
#include "usb/UsbTestWait.h"

namespace usb {

/** What a client can have the host ports do, as the codes of UsbTest::postTestMessage(). */
enum UsbTestMessage : uint32_t {
    kTestNothing = 0,
    kTestOff = 1,
    kTestJ = 2,
    kTestK = 3,
    kTestSe0Nak = 4,
    kTestPacket = 5,
    kTestForceEnable = 6,
    kTestSuspendResume = 7,
    kTestSingleStep = 8,
    kTestUndefined = 9,  //!< this and all above
};

/**
 * Puts the host ports into the electrical test modes.
 *
 * Each message waits until the host stack's attributes are there, and for as long as they refuse a value; all
 * of it ends at once when the owner is stopped.
 */
class UsbTestMessageHandler : public android::MessageHandler {
  public:
    /**
     * @param test  not null
     * @param mode  kModeLogo or kModeTestDevices; in the former the port of two roles is made ready too
     */
    UsbTestMessageHandler(const android::sp<UsbTestImpl>& test, int mode);

    /** "UsbTestQueue". */
    void handleMessage(const android::Message& message) override;

  protected:
    ~UsbTestMessageHandler() override = default;

  private:
    /** The test mode that a message asks for. */
    struct Identity {
        const char* vendor;
        const char* product;
        const char* enable;
        const char* start;
    };

    static const Identity* identityOf(uint32_t code);

    bool openWhenThere(const UsbTestWait::Span& span, AttributeFile* file, const char* path);
    bool writeUntilTaken(const UsbTestWait::Span& span, AttributeFile* file, const std::string& value);
    bool readWhenThere(const UsbTestWait::Span& span, const char* path, std::string* word);
    void makeRoleSwitchReady();
    void watchForcedEnable(const UsbTestWait::Span& span);
    void reportDisconnected();

    const android::sp<UsbTestImpl> mTest;
    const int mMode;
};

}  // namespace usb
