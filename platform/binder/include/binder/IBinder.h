// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The base of everything that can be called across processes.
 */

#include <linux/types.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <cstdint>

namespace android {

/** A transaction code of four characters, as the base transactions have. */
constexpr uint32_t packBinderChars(char c1, char c2, char c3, char c4) {
    return (static_cast<uint32_t>(c1) << 24) | (static_cast<uint32_t>(c2) << 16) |
           (static_cast<uint32_t>(c3) << 8) | static_cast<uint32_t>(c4);
}

class BBinder;
class BpBinder;
class IInterface;
class Parcel;

/**
 * An object that can be called: a local one (BBinder) or the proxy of one in another process (BpBinder).
 *
 * All operations: any thread.
 */
class IBinder : public virtual RefBase {
  public:
    enum : uint32_t {
        /** The first code that an interface may use for an operation of its own. */
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,

        // The base transactions, which every object answers.
        PING_TRANSACTION = packBinderChars('_', 'P', 'N', 'G'),
        DUMP_TRANSACTION = packBinderChars('_', 'D', 'M', 'P'),
        INTERFACE_TRANSACTION = packBinderChars('_', 'N', 'T', 'F'),

        /** transact(): return when the request is on its way; there is no reply. */
        FLAG_ONEWAY = 0x00000001,
    };

    IBinder();

    /** The object as an interface of this process, if it is local and implements @p descriptor; else null. */
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);

    /** The interface's name; empty when the object does not tell it. A proxy asks once and remembers. */
    virtual const String16& getInterfaceDescriptor() const = 0;

    /** False once a proxy has learnt that its object is gone. */
    virtual bool isBinderAlive() const = 0;

    /** One round trip that does nothing. @return OK, DEAD_OBJECT, or what hindered the call */
    virtual status_t pingBinder() = 0;

    /** Has the object write its state to @p fd. A pipe without reader ends a process that writes to it. */
    virtual status_t dump(int fd, const Vector<String16>& args) = 0;

    /**
     * Calls the operation @p code.
     *
     * @param data  the request
     * @param reply the reply, at its start; may be null, and is not touched with FLAG_ONEWAY
     * @param flags 0 or FLAG_ONEWAY
     * @return OK; the callee's error; DEAD_OBJECT when it is gone; FAILED_TRANSACTION when the kernel refused
     *         the call (too large, a broken request); UNKNOWN_TRANSACTION for a code that the callee does not
     *         know; NO_INIT without a driver
     */
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) = 0;

    /** Hears of the death of an object in another process. */
    class DeathRecipient : public virtual RefBase {
      public:
        /** The object @p who is gone. A binder thread, no lock held. */
        virtual void binderDied(const wp<IBinder>& who) = 0;

      protected:
        ~DeathRecipient() override = default;
    };

    /**
     * Has @p recipient told when the object's process ends or drops it. The recipient is held weakly. A
     * process that wants to hear must run binder threads.
     *
     * @param cookie told apart by unlinkToDeath() only
     * @param flags  0
     * @return DEAD_OBJECT when the death is known already; INVALID_OPERATION for a local object, which does
     * not outlive this process
     */
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;

    /**
     * Takes a link back: the one of @p recipient, or of @p cookie when @p recipient is null.
     *
     * A notice that is on its way already may still arrive.
     *
     * @param outRecipient if not null, the recipient that was linked
     * @return NAME_NOT_FOUND when there is no such link, DEAD_OBJECT when the notice was given,
     *         INVALID_OPERATION for a local object
     */
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) = 0;

    /** This object if it is local; else null. */
    virtual BBinder* localBinder();

    /** This object if it is the driver's proxy of a remote one; else null. */
    virtual BpBinder* remoteBinder();

  protected:
    ~IBinder() override;
};

}  // namespace android
