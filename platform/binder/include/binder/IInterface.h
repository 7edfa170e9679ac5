// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Interfaces: one class for both sides of a call, its native side (BnInterface) and its proxy (BpInterface).
 *
 *     class IThing : public android::IInterface {
 *       public:
 *         DECLARE_META_INTERFACE(Thing)
 *         virtual int32_t doIt(int32_t how) = 0;
 *     };
 *     IMPLEMENT_META_INTERFACE(Thing, "example.Thing")      // in one .cpp, with BpThing known
 *
 *     class BpThing : public android::BpInterface<IThing> { ... };
 *     class BnThing : public android::BnInterface<IThing> { ... };
 *
 *     sp<IThing> thing = android::interface_cast<IThing>(binder);
 */

#include <binder/Binder.h>

namespace android {

/** The base of every interface. */
class IInterface : public virtual RefBase {
  public:
    IInterface();

    /** The object behind an interface: itself on the native side, the remote one behind a proxy. */
    static sp<IBinder> asBinder(const IInterface* interface);
    static sp<IBinder> asBinder(const sp<IInterface>& interface);  ///< Likewise.

  protected:
    ~IInterface() override;
    virtual IBinder* onAsBinder() = 0;  ///< What asBinder() returns.
};

/** @p object as the interface INTERFACE: the local object itself, or a new proxy; null for null. */
template <typename INTERFACE>
sp<INTERFACE> interface_cast(const sp<IBinder>& object) {
    return INTERFACE::asInterface(object);
}

/** The native side of INTERFACE: derive from it, implement the operations and onTransact(). */
template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
  public:
    sp<IInterface> queryLocalInterface(const String16& descriptor) override {  ///< This object, if its own.
        return descriptor == INTERFACE::descriptor ? sp<IInterface>(this) : nullptr;
    }
    /** INTERFACE's. */
    const String16& getInterfaceDescriptor() const override { return INTERFACE::getInterfaceDescriptor(); }

  protected:
    IBinder* onAsBinder() override { return this; }  ///< This object.
};

/** The proxy of INTERFACE: derive from it and implement the operations as transactions on remote(). */
template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
  public:
    explicit BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}  ///< @param remote not null

  protected:
    IBinder* onAsBinder() override { return remote(); }  ///< The remote one.
};

}  // namespace android

/** In the class I<INTERFACE>: its descriptor and its conversion from a binder. */
#define DECLARE_META_INTERFACE(INTERFACE)                                                            \
    /** Never destroyed: calls may still arrive while the process exits. */                          \
    static const ::android::String16& descriptor;                                                    \
    static ::android::sp<I##INTERFACE> asInterface(const ::android::sp<::android::IBinder>& object); \
    virtual const ::android::String16& getInterfaceDescriptor() const;                               \
    I##INTERFACE();                                                                                  \
    ~I##INTERFACE() override;

/** In one .cpp, in the namespace of I<INTERFACE>, where Bp<INTERFACE> is known. */
#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                                                            \
    const ::android::String16& I##INTERFACE::descriptor = *new ::android::String16(NAME);                    \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const {                                \
        return descriptor;                                                                                   \
    }                                                                                                        \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(const ::android::sp<::android::IBinder>& object) { \
        if (object == nullptr) {                                                                             \
            return nullptr;                                                                                  \
        }                                                                                                    \
        const ::android::sp<::android::IInterface> local = object->queryLocalInterface(descriptor);          \
        if (local != nullptr) {                                                                              \
            return static_cast<I##INTERFACE*>(local.get());                                                  \
        }                                                                                                    \
        return new Bp##INTERFACE(object);                                                                    \
    }                                                                                                        \
    I##INTERFACE::I##INTERFACE() {}                                                                          \
    I##INTERFACE::~I##INTERFACE() {}
