// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The contents of a request or a reply.
 */

#include <binder/IBinder.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <cstddef>
#include <cstdint>
#include <vector>

struct flat_binder_object;

namespace android {

class IPCThreadState;

/**
 * A sequence of values, objects and file descriptors, written at its end and read from its position.
 *
 * Every value takes a multiple of 4 bytes, padded with zeros, in the byte order of the machine. What arrived
 * from another process is not trusted: a read past the end yields an error and a zero value, a size is
 * checked against what is there before anything is allocated, a string without its terminator is refused, and
 * an object is taken only from where the kernel says that there is one.
 *
 * Writing appends at the position, which is the end unless setDataPosition() moved it; what stands there is
 * overwritten, and an object overwritten in part is none any more. The first failed write
 * is remembered (errorCheck()); a parcel with an error is not sent.
 *
 * One thread at a time.
 */
class Parcel {
  public:
    Parcel();
    ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const { return mData; }  ///< The contents; they stay the parcel's.
    /** Bytes in all. */
    size_t dataSize() const { return mDataSize; }
    /** Bytes from the position to the end. */
    size_t dataAvail() const { return mDataSize - mDataPos; }
    size_t dataPosition() const { return mDataPos; }  ///< In bytes from the start.
    /**
     * Moves the position; one past the end is cut to the end. Values begin at multiples of 4: elsewhere a
     * write fails with BAD_VALUE, and a String16 is not found.
     */
    void setDataPosition(size_t position) const;

    /** Replaces the contents by a copy of plain bytes, which hold no objects. */
    status_t setData(const uint8_t* buffer, size_t length);

    /**
     * Appends a copy of @p length bytes of @p parcel from @p start, objects and descriptors with their own
     * references. @return BAD_VALUE when the range is not inside or would cut an object, or when @p parcel is
     * this one
     */
    status_t appendFrom(const Parcel* parcel, size_t start, size_t length);

    /** Drops everything: objects, descriptors, a received buffer. */
    void freeData();

    /** Whether a file descriptor is among the contents. */
    bool hasFileDescriptors() const;
    /** Number of objects and descriptors. */
    size_t objectsCount() const { return mObjects.size(); }

    /** The first error of a write, or the one set. */
    status_t errorCheck() const { return mError; }
    /** Makes the parcel stand for an error, which is then sent instead of contents. */
    void setError(status_t error) { mError = error; }

    /** @name Interface token: an int32 policy word and the interface's name. */
    ///@{
    status_t writeInterfaceToken(const String16& interface);  ///< Writes a token.
    /** Reads a token. @return whether it names @p interface */
    bool enforceInterface(const String16& interface, IPCThreadState* threadState = nullptr) const;
    /** Reads a token. @return whether it names the interface of @p binder */
    bool checkInterface(IBinder* binder) const;
    ///@}

    /** @name Writing. @return OK, NO_MEMORY, BAD_VALUE for a null or oversized argument, or an earlier error
     */
    ///@{
    status_t write(const void* data, size_t length);  ///< Copies plain bytes.
    /** Room for @p length bytes, its padding zeroed; null on an error. */
    void* writeInplace(size_t length);
    status_t writeInt32(int32_t value);    ///< 4 bytes.
    status_t writeUint32(uint32_t value);  ///< 4 bytes.
    status_t writeInt64(int64_t value);    ///< 8 bytes.
    status_t writeUint64(uint64_t value);  ///< 8 bytes.
    status_t writeFloat(float value);      ///< 4 bytes.
    status_t writeDouble(double value);    ///< 8 bytes.
    status_t writeBool(bool value);        ///< 4 bytes: 0 or 1.
    /** Bytes up to and with the NUL. */
    status_t writeCString(const char* text);
    /** int32 length, bytes, NUL. */
    status_t writeString8(const String8& text);
    /** int32 length in char16_t, characters, NUL. */
    status_t writeString16(const String16& text);
    /** As writeString16(); null text is written as the length -1 alone. */
    status_t writeString16(const char16_t* text, size_t length);
    /** An object, local or remote, or null. Held until the parcel goes. */
    status_t writeStrongBinder(const sp<IBinder>& object);
    /** @param takeOwnership whether the parcel closes @p fd when it goes */
    status_t writeFileDescriptor(int fd, bool takeOwnership = false);
    /** A duplicate, which the parcel closes. @p fd stays the caller's. */
    status_t writeDupFileDescriptor(int fd);
    /** The exception code of a reply that has none: int32 0. */
    status_t writeNoException();
    ///@}

    /** @name Reading into a variable, which a failed read leaves. @return OK, NOT_ENOUGH_DATA or BAD_VALUE */
    ///@{
    status_t read(void* data, size_t length) const;  ///< Copies plain bytes.
    status_t readInt32(int32_t* value) const;        ///< 4 bytes.
    status_t readUint32(uint32_t* value) const;      ///< 4 bytes.
    status_t readInt64(int64_t* value) const;        ///< 8 bytes.
    status_t readUint64(uint64_t* value) const;      ///< 8 bytes.
    status_t readFloat(float* value) const;          ///< 4 bytes.
    status_t readDouble(double* value) const;        ///< 8 bytes.
    status_t readBool(bool* value) const;            ///< 4 bytes: not 0.
    status_t readString8(String8* text) const;       ///< As writeString8().
    /** A null string (length -1) yields UNEXPECTED_NULL. */
    status_t readString16(String16* text) const;
    /** A null object yields UNEXPECTED_NULL. */
    status_t readStrongBinder(sp<IBinder>* object) const;
    /** A null object is fine. */
    status_t readNullableStrongBinder(sp<IBinder>* object) const;
    ///@}

    /** @name Reading a value; zero, empty or null when there is none. */
    ///@{
    int32_t readInt32() const;             ///< 4 bytes.
    uint32_t readUint32() const;           ///< 4 bytes.
    int64_t readInt64() const;             ///< 8 bytes.
    uint64_t readUint64() const;           ///< 8 bytes.
    float readFloat() const;               ///< 4 bytes.
    double readDouble() const;             ///< 8 bytes.
    bool readBool() const;                 ///< 4 bytes: not 0.
    String8 readString8() const;           ///< As writeString8().
    String16 readString16() const;         ///< As writeString16().
    sp<IBinder> readStrongBinder() const;  ///< Local or remote.
    /** Inside the parcel, valid as long as it is. */
    const char* readCString() const;
    /** Inside the parcel. @param outLength the length without the NUL */
    const char* readString8Inplace(size_t* outLength) const;
    /** Inside the parcel. @param outLength the length in char16_t without the NUL */
    const char16_t* readString16Inplace(size_t* outLength) const;
    const void* readInplace(size_t length) const;  ///< Inside the parcel.
    /** The parcel's own descriptor: duplicate it to keep it. -1 or less when there is none. */
    int readFileDescriptor() const;
    /** The int32 that stands before the results of a reply; the error of the parcel if it cannot be read. */
    int32_t readExceptionCode() const;
    ///@}

  private:
    friend class IPCThreadState;

    using Release = void (*)(const uint8_t* data, size_t size, size_t objectsCount);

    /** Takes over a buffer of the driver, which @p release gives back. */
    void ipcSetDataReference(const uint8_t* data, size_t dataSize, const uint64_t* objects,
                             size_t objectsCount, Release release);
    const uint64_t* ipcObjects() const { return mObjects.data(); }

    status_t grow(size_t length);
    status_t copyReceived();
    status_t remember(status_t error);
    template <typename T>
    status_t writeAligned(T value);
    template <typename T>
    status_t readAligned(T* value) const;
    status_t writeObject(const flat_binder_object& object, bool listed);
    status_t acquireCopy(flat_binder_object* object);
    bool peekObject(flat_binder_object* object) const;
    void listObject(uint64_t at);
    void dropOverwritten(size_t length);
    void closeIfOwned(uint64_t at) const;

    uint8_t* mData = nullptr;
    size_t mDataSize = 0;
    size_t mDataCapacity = 0;
    mutable size_t mDataPos = 0;
    /** Where in the data the objects are, ascending. */
    std::vector<uint64_t> mObjects;
    /** References of the objects written. A received buffer's are the kernel's. */
    std::vector<sp<IBinder>> mHeld;
    /** Not null for a received buffer. */
    Release mRelease = nullptr;
    status_t mError = OK;
};

}  // namespace android
