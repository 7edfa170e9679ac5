// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <cstdint>

struct libusb_context;

namespace usb {

/**
 * The life of a libusb context that one thread opens and ends while others work with it.
 *
 * Who touches the context or one of its devices holds a Use meanwhile. The end of the context waits for the
 * uses under way and refuses new ones, so that nobody meets an ended context. A use is as long as the work
 * with libusb: never hold one while anything is called that could wait for the end of the context.
 */
class UsbContext {
  public:
    /** A stretch of work with the context. */
    class Use {
      public:
        /** Begins a use of the context as it is now. */
        explicit Use(UsbContext& context);
        /** Begins a use only if the context is still the one of an earlier use, whose session() is given. */
        Use(UsbContext& context, uint32_t session);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        /** False when there is no context to use. */
        explicit operator bool() const { return mUsed != nullptr; }
        /** The context; null when there is none to use. */
        libusb_context* get() const { return mUsed; }
        /** Tells contexts apart that follow one another. */
        uint32_t session() const { return mSession; }

      private:
        UsbContext& mContext;
        libusb_context* mUsed = nullptr;
        uint32_t mSession = 0;
    };

    /** Lets uses of @p context begin; it must not be null, and none may be open. Event thread. */
    void open(libusb_context* context);

    /** Lets no further use begin, and waits for the end of those under way. Event thread. */
    void close();

  private:
    /** Guards what follows; nothing is called with it held. */
    android::Mutex mLock;
    libusb_context* mContext GUARDED_BY(mLock) = nullptr;
    uint32_t mSession GUARDED_BY(mLock) = 0;
    uint32_t mUses GUARDED_BY(mLock) = 0;
    /** Signalled when mUses becomes 0. */
    android::Condition mUnused;
};

}  // namespace usb
