// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "Parcel"

#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <linux/android/binder.h>
#include <log/log.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

#include "platform/binder/DriverOrder.h"

namespace android {

namespace {

constexpr size_t kAlignment = 4;
constexpr size_t kMaxSize = INT32_MAX;
constexpr size_t kFirstCapacity = 128;
/** What a caller without a policy of its own asks of the callee's checks. */
constexpr int32_t kPolicyWord = 0x40 << 16;
constexpr uint32_t kObjectFlags = 0x7f | FLAT_BINDER_FLAG_ACCEPTS_FDS;
constexpr binder_uintptr_t kOwnedDescriptor = 1;

constexpr size_t padded(size_t length) {
    return (length + (kAlignment - 1)) & ~(kAlignment - 1);
}

flat_binder_object objectAt(const uint8_t* data) {
    flat_binder_object object;
    memcpy(&object, data, sizeof(object));
    return object;
}

BBinder* localOf(const flat_binder_object& object) {
    return reinterpret_cast<BBinder*>(static_cast<uintptr_t>(object.cookie));
}

}  // namespace

Parcel::Parcel() = default;

Parcel::~Parcel() {
    freeData();
}

void Parcel::setDataPosition(size_t position) const {
    mDataPos = std::min(position, mDataSize);
}

status_t Parcel::setData(const uint8_t* buffer, size_t length) {
    freeData();
    if (length > kMaxSize || (buffer == nullptr && length > 0)) {
        return remember(BAD_VALUE);
    }
    const status_t status = grow(length);
    if (status != OK) {
        return status;
    }
    if (length > 0) {
        memcpy(mData, buffer, length);
    }
    mDataSize = length;
    mDataPos = 0;
    return OK;
}

status_t Parcel::appendFrom(const Parcel* parcel, size_t start, size_t length) {
    if (length == 0) {
        return OK;
    }
    if (parcel == this) {
        return BAD_VALUE;
    }
    if (start > parcel->mDataSize || length > parcel->mDataSize - start || start % kAlignment != 0) {
        return BAD_VALUE;
    }
    const size_t end = start + length;
    const auto first = std::lower_bound(parcel->mObjects.begin(), parcel->mObjects.end(), start);
    const auto last = std::lower_bound(first, parcel->mObjects.end(), end);
    const bool cutAtStart =
        first != parcel->mObjects.begin() && *(first - 1) + sizeof(flat_binder_object) > start;
    const bool cutAtEnd = first != last && *(last - 1) + sizeof(flat_binder_object) > end;
    if (cutAtStart || cutAtEnd) {
        return BAD_VALUE;
    }
    const std::vector<uint64_t> offsets(first, last);
    const size_t base = mDataPos;
    status_t status = write(parcel->mData + start, length);
    for (size_t i = 0; status == OK && i < offsets.size(); ++i) {
        flat_binder_object object = objectAt(parcel->mData + offsets[i]);
        status = acquireCopy(&object);
        if (status == OK) {
            const uint64_t at = base + (offsets[i] - start);
            // Differs from the original where a descriptor was duplicated.
            memcpy(mData + at, &object, sizeof(object));
            listObject(at);
        }
    }
    return status;
}

/** Takes a reference of this parcel's own on @p object, or its own duplicate of a descriptor. */
status_t Parcel::acquireCopy(flat_binder_object* object) {
    switch (object->hdr.type) {
        case BINDER_TYPE_BINDER:
            mHeld.emplace_back(localOf(*object));
            return OK;
        case BINDER_TYPE_HANDLE:
            mHeld.push_back(
                ProcessState::self()->getStrongProxyForHandle(static_cast<int32_t>(object->handle)));
            return OK;
        case BINDER_TYPE_FD: {
            const int duplicate = fcntl(static_cast<int>(object->handle), F_DUPFD_CLOEXEC, 0);
            if (duplicate < 0) {
                return remember(-errno);
            }
            object->handle = static_cast<uint32_t>(duplicate);
            object->cookie = kOwnedDescriptor;
            return OK;
        }
        default:
            return remember(BAD_TYPE);
    }
}

void Parcel::freeData() {
    for (const uint64_t at : mObjects) {
        closeIfOwned(at);
    }
    if (mRelease != nullptr) {
        mRelease(mData, mDataSize, mObjects.size());
    } else {
        free(mData);
    }
    mData = nullptr;
    mDataSize = 0;
    mDataCapacity = 0;
    mDataPos = 0;
    mObjects.clear();
    mRelease = nullptr;
    mError = OK;
    // Last: what goes may call back to whoever uses this parcel.
    const std::vector<sp<IBinder>> held = std::exchange(mHeld, {});
}

void Parcel::closeIfOwned(uint64_t at) const {
    const flat_binder_object object = objectAt(mData + at);
    const bool owned = mRelease != nullptr || object.cookie == kOwnedDescriptor;
    if (object.hdr.type == BINDER_TYPE_FD && owned) {
        close(static_cast<int>(object.handle));
    }
}

void Parcel::listObject(uint64_t at) {
    mObjects.insert(std::upper_bound(mObjects.begin(), mObjects.end(), at), at);
}

/** Objects that @p length bytes at the position will overwrite, in whole or in part, are none any more. */
void Parcel::dropOverwritten(size_t length) {
    const auto isBehind = [](uint64_t at, size_t position) {
        return at + sizeof(flat_binder_object) <= position;
    };
    const auto first = std::lower_bound(mObjects.begin(), mObjects.end(), mDataPos, isBehind);
    const auto last = std::lower_bound(first, mObjects.end(), mDataPos + length);
    std::for_each(first, last, [this](uint64_t at) { closeIfOwned(at); });
    mObjects.erase(first, last);
}

bool Parcel::hasFileDescriptors() const {
    return std::any_of(mObjects.begin(), mObjects.end(),
                       [this](uint64_t at) { return objectAt(mData + at).hdr.type == BINDER_TYPE_FD; });
}

void Parcel::ipcSetDataReference(const uint8_t* data, size_t dataSize, const uint64_t* objects,
                                 size_t objectsCount, Release release) {
    freeData();
    // Never written through: the first write copies.
    mData = const_cast<uint8_t*>(data);
    mDataSize = dataSize;
    mDataCapacity = dataSize;
    mObjects.assign(objects, objects + objectsCount);
    mRelease = release;
}

status_t Parcel::remember(status_t error) {
    if (mError == OK) {
        mError = error;
    }
    return error;
}

/** Makes room for @p length bytes at the position, in memory of the parcel's own. */
status_t Parcel::grow(size_t length) {
    if (mError != OK) {
        return mError;
    }
    if (length > kMaxSize || mDataPos > kMaxSize - length) {
        return remember(BAD_VALUE);
    }
    if (mRelease != nullptr) {
        const status_t status = copyReceived();
        if (status != OK) {
            return status;
        }
    }
    const size_t needed = mDataPos + length;
    if (needed <= mDataCapacity) {
        return OK;
    }
    const size_t capacity = std::max({needed, mDataCapacity + mDataCapacity / 2, kFirstCapacity});
    auto* const data = static_cast<uint8_t*>(realloc(mData, capacity));
    if (data == nullptr) {
        return remember(NO_MEMORY);
    }
    mData = data;
    mDataCapacity = capacity;
    return OK;
}

/** Turns a received buffer into contents of the parcel's own. */
status_t Parcel::copyReceived() {
    Parcel copy;
    const status_t status = copy.appendFrom(this, 0, mDataSize);
    if (status != OK) {
        return remember(status);
    }
    const size_t position = mDataPos;
    freeData();
    std::swap(mData, copy.mData);
    std::swap(mDataSize, copy.mDataSize);
    std::swap(mDataCapacity, copy.mDataCapacity);
    std::swap(mObjects, copy.mObjects);
    std::swap(mHeld, copy.mHeld);
    mDataPos = position;
    return OK;
}

void* Parcel::writeInplace(size_t length) {
    if (length > kMaxSize || mDataPos % kAlignment != 0) {
        remember(BAD_VALUE);
        return nullptr;
    }
    const size_t size = padded(length);
    if (grow(size) != OK) {
        return nullptr;
    }
    uint8_t* const place = mData + mDataPos;
    if (size > 0) {
        dropOverwritten(size);
        memset(place + size - kAlignment, 0, kAlignment);
    }
    mDataPos += size;
    mDataSize = std::max(mDataSize, mDataPos);
    return place;
}

status_t Parcel::write(const void* data, size_t length) {
    if (data == nullptr && length > 0) {
        return remember(BAD_VALUE);
    }
    void* const place = writeInplace(length);
    if (place == nullptr) {
        return mError;
    }
    if (length > 0) {
        memcpy(place, data, length);
    }
    return OK;
}

template <typename T>
status_t Parcel::writeAligned(T value) {
    static_assert(std::is_trivially_copyable_v<T> && sizeof(T) % kAlignment == 0);
    return write(&value, sizeof(value));
}

status_t Parcel::writeInt32(int32_t value) {
    return writeAligned(value);
}

status_t Parcel::writeUint32(uint32_t value) {
    return writeAligned(value);
}

status_t Parcel::writeInt64(int64_t value) {
    return writeAligned(value);
}

status_t Parcel::writeUint64(uint64_t value) {
    return writeAligned(value);
}

status_t Parcel::writeFloat(float value) {
    return writeAligned(value);
}

status_t Parcel::writeDouble(double value) {
    return writeAligned(value);
}

status_t Parcel::writeBool(bool value) {
    return writeInt32(value ? 1 : 0);
}

status_t Parcel::writeCString(const char* text) {
    return text != nullptr ? write(text, strlen(text) + 1) : remember(BAD_VALUE);
}

status_t Parcel::writeString8(const String8& text) {
    const status_t status = writeInt32(static_cast<int32_t>(text.size()));
    return status == OK ? write(text.string(), text.size() + 1) : status;
}

status_t Parcel::writeString16(const String16& text) {
    return writeString16(text.string(), text.size());
}

status_t Parcel::writeString16(const char16_t* text, size_t length) {
    if (text == nullptr) {
        return writeInt32(-1);
    }
    if (length > kMaxSize / sizeof(char16_t) - 1) {
        return remember(BAD_VALUE);
    }
    const status_t status = writeInt32(static_cast<int32_t>(length));
    if (status != OK) {
        return status;
    }
    auto* const place = static_cast<char16_t*>(writeInplace((length + 1) * sizeof(char16_t)));
    if (place == nullptr) {
        return mError;
    }
    memcpy(place, text, length * sizeof(char16_t));
    place[length] = 0;
    return OK;
}

status_t Parcel::writeObject(const flat_binder_object& object, bool listed) {
    const size_t at = mDataPos;
    const status_t status = write(&object, sizeof(object));
    if (status == OK && listed) {
        listObject(at);
    }
    return status;
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& object) {
    flat_binder_object flat = {};
    flat.hdr.type = BINDER_TYPE_BINDER;
    flat.flags = kObjectFlags;
    if (object == nullptr) {
        return writeObject(flat, false);
    }
    if (BBinder* const local = object->localBinder()) {
        flat.binder = reinterpret_cast<uintptr_t>(local->getWeakRefs());
        flat.cookie = reinterpret_cast<uintptr_t>(local);
        comesBeforeDriver(local);
    } else if (BpBinder* const remote = object->remoteBinder()) {
        flat.hdr.type = BINDER_TYPE_HANDLE;
        flat.handle = static_cast<uint32_t>(remote->handle());
    } else {
        // Neither an object of this process nor one that the driver knows: nobody could call it.
        return remember(BAD_TYPE);
    }
    const status_t status = writeObject(flat, true);
    if (status == OK) {
        mHeld.push_back(object);
    }
    return status;
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
    flat_binder_object flat = {};
    flat.hdr.type = BINDER_TYPE_FD;
    flat.flags = kObjectFlags;
    flat.handle = static_cast<uint32_t>(fd);
    flat.cookie = takeOwnership ? kOwnedDescriptor : 0;
    const status_t status = writeObject(flat, true);
    if (status != OK && takeOwnership) {
        close(fd);
    }
    return status;
}

status_t Parcel::writeDupFileDescriptor(int fd) {
    const int duplicate = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    return duplicate >= 0 ? writeFileDescriptor(duplicate, true) : remember(-errno);
}

status_t Parcel::writeNoException() {
    return writeInt32(0);
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    const status_t status = writeInt32(kPolicyWord);
    return status == OK ? writeString16(interface) : status;
}

bool Parcel::enforceInterface(const String16& interface, IPCThreadState* /*threadState*/) const {
    int32_t policy = 0;
    size_t length = 0;
    if (readInt32(&policy) != OK) {
        return false;
    }
    const char16_t* const name = readString16Inplace(&length);
    return name != nullptr && length == interface.size() &&
           memcmp(name, interface.string(), length * sizeof(char16_t)) == 0;
}

bool Parcel::checkInterface(IBinder* binder) const {
    return enforceInterface(binder->getInterfaceDescriptor());
}

const void* Parcel::readInplace(size_t length) const {
    if (length > kMaxSize || padded(length) > dataAvail()) {
        return nullptr;
    }
    const uint8_t* const place = mData + mDataPos;
    mDataPos += padded(length);
    return place;
}

status_t Parcel::read(void* data, size_t length) const {
    const void* const place = readInplace(length);
    if (place == nullptr && length > 0) {
        return NOT_ENOUGH_DATA;
    }
    if (length > 0) {
        memcpy(data, place, length);
    }
    return OK;
}

template <typename T>
status_t Parcel::readAligned(T* value) const {
    static_assert(std::is_trivially_copyable_v<T> && sizeof(T) % kAlignment == 0);
    return read(value, sizeof(*value));
}

status_t Parcel::readInt32(int32_t* value) const {
    return readAligned(value);
}

status_t Parcel::readUint32(uint32_t* value) const {
    return readAligned(value);
}

status_t Parcel::readInt64(int64_t* value) const {
    return readAligned(value);
}

status_t Parcel::readUint64(uint64_t* value) const {
    return readAligned(value);
}

status_t Parcel::readFloat(float* value) const {
    return readAligned(value);
}

status_t Parcel::readDouble(double* value) const {
    return readAligned(value);
}

status_t Parcel::readBool(bool* value) const {
    int32_t number = 0;
    const status_t status = readInt32(&number);
    if (status == OK) {
        *value = number != 0;
    }
    return status;
}

int32_t Parcel::readInt32() const {
    int32_t value = 0;
    readInt32(&value);
    return value;
}

uint32_t Parcel::readUint32() const {
    uint32_t value = 0;
    readUint32(&value);
    return value;
}

int64_t Parcel::readInt64() const {
    int64_t value = 0;
    readInt64(&value);
    return value;
}

uint64_t Parcel::readUint64() const {
    uint64_t value = 0;
    readUint64(&value);
    return value;
}

float Parcel::readFloat() const {
    float value = 0;
    readFloat(&value);
    return value;
}

double Parcel::readDouble() const {
    double value = 0;
    readDouble(&value);
    return value;
}

bool Parcel::readBool() const {
    return readInt32() != 0;
}

const char* Parcel::readCString() const {
    const size_t available = dataAvail();
    const auto* const text = reinterpret_cast<const char*>(mData + mDataPos);
    const size_t length = available > 0 ? strnlen(text, available) : 0;
    if (length == available || padded(length + 1) > available) {
        return nullptr;
    }
    mDataPos += padded(length + 1);
    return text;
}

const char* Parcel::readString8Inplace(size_t* outLength) const {
    *outLength = 0;
    const size_t start = mDataPos;
    int32_t length = 0;
    if (readInt32(&length) == OK && length >= 0) {
        const auto size = static_cast<size_t>(length);
        const auto* const text = static_cast<const char*>(readInplace(size + 1));
        if (text != nullptr && text[size] == '\0') {
            *outLength = size;
            return text;
        }
    }
    mDataPos = start;
    return nullptr;
}

status_t Parcel::readString8(String8* text) const {
    size_t length = 0;
    const char* const place = readString8Inplace(&length);
    if (place == nullptr) {
        return dataAvail() < sizeof(int32_t) ? NOT_ENOUGH_DATA : BAD_VALUE;
    }
    return text->setTo(place, length);
}

String8 Parcel::readString8() const {
    String8 text;
    readString8(&text);
    return text;
}

const char16_t* Parcel::readString16Inplace(size_t* outLength) const {
    *outLength = 0;
    const size_t start = mDataPos;
    int32_t length = 0;
    if (start % kAlignment == 0 && readInt32(&length) == OK && length >= 0) {
        const auto size = static_cast<size_t>(length);
        const size_t bytes =
            size < kMaxSize / sizeof(char16_t) ? (size + 1) * sizeof(char16_t) : kMaxSize + 1;
        const auto* const text = static_cast<const char16_t*>(readInplace(bytes));
        if (text != nullptr && text[size] == 0) {
            *outLength = size;
            return text;
        }
    }
    mDataPos = start;
    return nullptr;
}

status_t Parcel::readString16(String16* text) const {
    size_t length = 0;
    const char16_t* const place = readString16Inplace(&length);
    if (place != nullptr) {
        return text->setTo(place, length);
    }
    if (dataAvail() < sizeof(int32_t)) {
        return NOT_ENOUGH_DATA;
    }
    int32_t written = 0;
    memcpy(&written, mData + mDataPos, sizeof(written));
    if (written != -1) {
        return BAD_VALUE;
    }
    mDataPos += sizeof(written);
    return UNEXPECTED_NULL;
}

String16 Parcel::readString16() const {
    String16 text;
    readString16(&text);
    return text;
}

/** The object at the position, if there is one; null objects are not listed. Leaves the position. */
bool Parcel::peekObject(flat_binder_object* object) const {
    if (dataAvail() < sizeof(*object)) {
        return false;
    }
    *object = objectAt(mData + mDataPos);
    const bool isNull = object->hdr.type == BINDER_TYPE_BINDER && object->binder == 0 && object->cookie == 0;
    return isNull || std::binary_search(mObjects.begin(), mObjects.end(), static_cast<uint64_t>(mDataPos));
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* object) const {
    flat_binder_object flat = {};
    if (!peekObject(&flat)) {
        return dataAvail() < sizeof(flat) ? NOT_ENOUGH_DATA : BAD_TYPE;
    }
    switch (flat.hdr.type) {
        case BINDER_TYPE_BINDER:
            *object = localOf(flat);
            break;
        case BINDER_TYPE_HANDLE:
            *object = ProcessState::self()->getStrongProxyForHandle(static_cast<int32_t>(flat.handle));
            break;
        default:
            return BAD_TYPE;
    }
    mDataPos += sizeof(flat);
    return OK;
}

status_t Parcel::readStrongBinder(sp<IBinder>* object) const {
    const status_t status = readNullableStrongBinder(object);
    return status == OK && *object == nullptr ? static_cast<status_t>(UNEXPECTED_NULL) : status;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> object;
    readNullableStrongBinder(&object);
    return object;
}

int Parcel::readFileDescriptor() const {
    flat_binder_object flat = {};
    if (!peekObject(&flat) || flat.hdr.type != BINDER_TYPE_FD) {
        return BAD_TYPE;
    }
    mDataPos += sizeof(flat);
    return static_cast<int>(flat.handle);
}

int32_t Parcel::readExceptionCode() const {
    int32_t code = 0;
    const status_t status = readInt32(&code);
    return status == OK ? code : status;
}

}  // namespace android
