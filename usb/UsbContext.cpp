// SPDX-License-Identifier: Apache-2.0
#include "usb/UsbContext.h"

namespace usb {

using android::Mutex;

UsbContext::Use::Use(UsbContext& context) : mContext(context) {
    Mutex::Autolock lock(context.mLock);
    mUsed = context.mContext;
    mSession = context.mSession;
    if (mUsed != nullptr) {
        ++context.mUses;
    }
}

UsbContext::Use::Use(UsbContext& context, uint32_t session) : mContext(context), mSession(session) {
    Mutex::Autolock lock(context.mLock);
    if (context.mContext != nullptr && context.mSession == session) {
        mUsed = context.mContext;
        ++context.mUses;
    }
}

UsbContext::Use::~Use() {
    if (mUsed == nullptr) {
        return;
    }
    Mutex::Autolock lock(mContext.mLock);
    if (--mContext.mUses == 0) {
        mContext.mUnused.broadcast();
    }
}

void UsbContext::open(libusb_context* context) {
    Mutex::Autolock lock(mLock);
    mContext = context;
    ++mSession;
}

void UsbContext::close() {
    Mutex::Autolock lock(mLock);
    mContext = nullptr;
    while (mUses > 0) {
        mUnused.wait(mLock);
    }
}

}  // namespace usb
