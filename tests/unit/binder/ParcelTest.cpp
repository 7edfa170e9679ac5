// SPDX-License-Identifier: Apache-2.0
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

using android::BAD_TYPE;
using android::BAD_VALUE;
using android::BBinder;
using android::IBinder;
using android::NOT_ENOUGH_DATA;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::UNEXPECTED_NULL;
using android::wp;

namespace {

std::vector<uint8_t> bytesOf(const Parcel& parcel) {
    return {parcel.data(), parcel.data() + parcel.dataSize()};
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

/** A parcel whose bytes came from elsewhere, with no objects listed. */
void fill(Parcel& parcel, const std::vector<uint8_t>& bytes) {
    ASSERT_EQ(OK, parcel.setData(bytes.data(), bytes.size()));
}

void appendInt32(std::vector<uint8_t>& bytes, int32_t value) {
    const auto* const raw = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), raw, raw + sizeof(value));
}

}  // namespace

TEST(ParcelTest, ReadsBackNumbers) {
    Parcel parcel;
    parcel.writeInt32(INT32_MIN);
    parcel.writeUint32(UINT32_MAX);
    parcel.writeInt64(INT64_MIN);
    parcel.writeUint64(UINT64_MAX);
    parcel.writeFloat(-1.5F);
    parcel.writeDouble(std::numeric_limits<double>::denorm_min());
    parcel.writeBool(true);
    parcel.writeBool(false);
    EXPECT_EQ(OK, parcel.errorCheck());
    EXPECT_EQ(4U + 4 + 8 + 8 + 4 + 8 + 4 + 4, parcel.dataSize());
    parcel.setDataPosition(0);
    EXPECT_EQ(INT32_MIN, parcel.readInt32());
    EXPECT_EQ(UINT32_MAX, parcel.readUint32());
    EXPECT_EQ(INT64_MIN, parcel.readInt64());
    EXPECT_EQ(UINT64_MAX, parcel.readUint64());
    EXPECT_EQ(-1.5F, parcel.readFloat());
    EXPECT_EQ(std::numeric_limits<double>::denorm_min(), parcel.readDouble());
    EXPECT_TRUE(parcel.readBool());
    EXPECT_FALSE(parcel.readBool());
    EXPECT_EQ(0U, parcel.dataAvail());
}

TEST(ParcelTest, ReadsBackTextOfEveryLength) {
    for (size_t length = 0; length < 70; ++length) {
        const std::string text(length, 'x');
        Parcel parcel;
        parcel.writeString8(String8(text.c_str()));
        parcel.writeString16(String16(text.c_str()));
        parcel.writeCString(text.c_str());
        parcel.writeInt32(4711);
        EXPECT_EQ(0U, parcel.dataSize() % 4);
        parcel.setDataPosition(0);
        EXPECT_EQ(String8(text.c_str()), parcel.readString8());
        EXPECT_EQ(String16(text.c_str()), parcel.readString16());
        EXPECT_STREQ(text.c_str(), parcel.readCString());
        EXPECT_EQ(4711, parcel.readInt32());
    }
}

TEST(ParcelTest, KeepsBytesThatAreNoText) {
    Parcel parcel;
    const String8 text("a\0\xff\x01", 4);
    parcel.writeString8(text);
    parcel.setDataPosition(0);
    const String8 back = parcel.readString8();
    ASSERT_EQ(4U, back.size());
    EXPECT_EQ(0, memcmp(text.string(), back.string(), 4));
}

TEST(ParcelTest, WritesTheWireFormat) {
    Parcel parcel;
    parcel.writeString8(String8("abcd"));
    parcel.writeString16(String16("ab"));
    parcel.writeCString("xyz");
    std::vector<uint8_t> expected;
    appendInt32(expected, 4);
    for (const char c : {'a', 'b', 'c', 'd', '\0', '\0', '\0', '\0'}) {
        expected.push_back(static_cast<uint8_t>(c));
    }
    appendInt32(expected, 2);
    for (const char c : {'a', '\0', 'b', '\0', '\0', '\0', '\0', '\0'}) {
        expected.push_back(static_cast<uint8_t>(c));
    }
    for (const char c : {'x', 'y', 'z', '\0'}) {
        expected.push_back(static_cast<uint8_t>(c));
    }
    EXPECT_EQ(expected, bytesOf(parcel));
}

TEST(ParcelTest, PadsWithZerosAfterOldContents) {
    Parcel parcel;
    for (int i = 0; i < 8; ++i) {
        parcel.writeInt32(-1);
    }
    parcel.setDataPosition(0);
    parcel.write("a", 1);
    EXPECT_EQ((std::vector<uint8_t>{'a', 0, 0, 0, 0xff, 0xff, 0xff, 0xff}),
              std::vector<uint8_t>(parcel.data(), parcel.data() + 8));
    EXPECT_EQ(32U, parcel.dataSize());
}

TEST(ParcelTest, TokenIsAPolicyWordAndAName) {
    Parcel parcel;
    parcel.writeInterfaceToken(String16("a.b"));
    parcel.setDataPosition(0);
    parcel.readInt32();
    EXPECT_EQ(String16("a.b"), parcel.readString16());
    EXPECT_EQ(0U, parcel.dataAvail());
    for (const char* other : {"a.b", "a.c", "a", "a.bb", ""}) {
        parcel.setDataPosition(0);
        EXPECT_EQ(strcmp(other, "a.b") == 0, parcel.enforceInterface(String16(other))) << other;
    }
    const Parcel empty;
    EXPECT_FALSE(empty.enforceInterface(String16("a.b")));
    EXPECT_FALSE(empty.enforceInterface(String16()));
}

TEST(ParcelTest, ReadsPastTheEndAreZeroAndAnError) {
    const Parcel empty;
    EXPECT_EQ(0, empty.readInt32());
    EXPECT_EQ(0, empty.readInt64());
    EXPECT_EQ(0.0, empty.readDouble());
    EXPECT_FALSE(empty.readBool());
    EXPECT_EQ(nullptr, empty.readCString());
    EXPECT_EQ(String8(), empty.readString8());
    EXPECT_EQ(String16(), empty.readString16());
    EXPECT_EQ(nullptr, empty.readStrongBinder());
    EXPECT_LT(empty.readFileDescriptor(), 0);
    EXPECT_EQ(nullptr, empty.readInplace(1));
    int32_t number = 7;
    EXPECT_EQ(NOT_ENOUGH_DATA, empty.readInt32(&number));
    EXPECT_EQ(7, number);
    String8 text("kept");
    EXPECT_EQ(NOT_ENOUGH_DATA, empty.readString8(&text));
    EXPECT_EQ(String8("kept"), text);
    String16 wide("kept");
    EXPECT_EQ(NOT_ENOUGH_DATA, empty.readString16(&wide));
    EXPECT_EQ(String16("kept"), wide);
    sp<IBinder> object;
    EXPECT_EQ(NOT_ENOUGH_DATA, empty.readStrongBinder(&object));
    EXPECT_EQ(NOT_ENOUGH_DATA, empty.readExceptionCode());
}

TEST(ParcelTest, RefusesHostileLengths) {
    for (const int32_t length : {-2, INT32_MIN, 5, 100, 0x10000000, INT32_MAX - 1, INT32_MAX}) {
        std::vector<uint8_t> bytes;
        appendInt32(bytes, length);
        bytes.insert(bytes.end(), {'a', 0, 'b', 0});
        Parcel parcel;
        fill(parcel, bytes);
        String8 text;
        EXPECT_EQ(BAD_VALUE, parcel.readString8(&text)) << length;
        EXPECT_EQ(0U, parcel.dataPosition());
        String16 wide;
        EXPECT_EQ(BAD_VALUE, parcel.readString16(&wide)) << length;
        EXPECT_EQ(0U, parcel.dataPosition());
    }
}

TEST(ParcelTest, RefusesTextWithoutItsEnd) {
    std::vector<uint8_t> bytes;
    appendInt32(bytes, 3);
    bytes.insert(bytes.end(), {'a', 'b', 'c', 'd'});
    Parcel parcel;
    fill(parcel, bytes);
    String8 text;
    EXPECT_EQ(BAD_VALUE, parcel.readString8(&text));
    std::vector<uint8_t> wideBytes;
    appendInt32(wideBytes, 1);
    wideBytes.insert(wideBytes.end(), {'a', 0, 'b', 0});
    Parcel wideParcel;
    fill(wideParcel, wideBytes);
    String16 wide;
    EXPECT_EQ(BAD_VALUE, wideParcel.readString16(&wide));
    Parcel plain;
    fill(plain, {'a', 'b', 'c', 'd'});
    EXPECT_EQ(nullptr, plain.readCString());
    EXPECT_EQ(0U, plain.dataPosition());
}

TEST(ParcelTest, NullTextIsAnErrorOfItsOwn) {
    Parcel parcel;
    parcel.writeString16(nullptr, 0);
    parcel.setDataPosition(0);
    String16 text("kept");
    EXPECT_EQ(UNEXPECTED_NULL, parcel.readString16(&text));
    EXPECT_EQ(0U, parcel.dataAvail());
    parcel.setDataPosition(0);
    EXPECT_EQ(String16(), parcel.readString16());
}

TEST(ParcelTest, RefusesImpossibleWrites) {
    Parcel text;
    EXPECT_EQ(BAD_VALUE, text.writeCString(nullptr));
    Parcel bytes;
    EXPECT_EQ(BAD_VALUE, bytes.write(nullptr, 1));
    Parcel large;
    EXPECT_EQ(nullptr, large.writeInplace(SIZE_MAX));
    EXPECT_EQ(nullptr, large.writeInplace(SIZE_MAX - 2));
    EXPECT_EQ(BAD_VALUE, large.errorCheck());
    // The first error stays, and nothing is written behind it.
    EXPECT_EQ(BAD_VALUE, large.writeInt32(1));
    EXPECT_EQ(0U, large.dataSize());
    Parcel wide;
    EXPECT_EQ(BAD_VALUE, wide.writeString16(u"", SIZE_MAX / 2));
}

TEST(ParcelTest, PositionStaysInside) {
    Parcel parcel;
    parcel.writeInt32(1);
    parcel.setDataPosition(1000);
    EXPECT_EQ(4U, parcel.dataPosition());
    EXPECT_EQ(0U, parcel.dataAvail());
}

TEST(ParcelTest, HoldsObjectsUntilItGoes) {
    wp<IBinder> weak;
    {
        Parcel parcel;
        {
            const sp<IBinder> object = new BBinder();
            weak = object;
            EXPECT_EQ(OK, parcel.writeStrongBinder(object));
            EXPECT_EQ(OK, parcel.writeStrongBinder(nullptr));
        }
        EXPECT_EQ(1U, parcel.objectsCount());
        parcel.setDataPosition(0);
        EXPECT_EQ(weak.promote(), parcel.readStrongBinder());
        sp<IBinder> none = new BBinder();
        EXPECT_EQ(OK, parcel.readNullableStrongBinder(&none));
        EXPECT_EQ(nullptr, none);
        EXPECT_EQ(0U, parcel.dataAvail());
    }
    EXPECT_EQ(nullptr, weak.promote());
}

TEST(ParcelTest, NullObjectIsAnErrorWhereOneIsNeeded) {
    Parcel parcel;
    parcel.writeStrongBinder(nullptr);
    parcel.setDataPosition(0);
    sp<IBinder> object;
    EXPECT_EQ(UNEXPECTED_NULL, parcel.readStrongBinder(&object));
}

TEST(ParcelTest, ObjectsCannotBeForgedFromPlainBytes) {
    const sp<IBinder> object = new BBinder();
    Parcel real;
    real.writeStrongBinder(object);
    Parcel handle;
    flat_binder_object flat = {};
    flat.hdr.type = BINDER_TYPE_HANDLE;
    flat.handle = 1;
    handle.write(&flat, sizeof(flat));
    Parcel descriptor;
    flat.hdr.type = BINDER_TYPE_FD;
    flat.handle = 0;
    descriptor.write(&flat, sizeof(flat));
    for (const Parcel* source : {&real, &handle, &descriptor}) {
        Parcel forged;
        fill(forged, bytesOf(*source));
        sp<IBinder> found;
        EXPECT_EQ(BAD_TYPE, forged.readNullableStrongBinder(&found));
        EXPECT_EQ(nullptr, found);
        EXPECT_LT(forged.readFileDescriptor(), 0);
        EXPECT_EQ(0U, forged.dataPosition());
    }
}

TEST(ParcelTest, AnObjectIsOnlyWhereItBegins) {
    Parcel parcel;
    parcel.writeInt32(0);
    parcel.writeStrongBinder(new BBinder());
    parcel.writeInt64(0);
    for (size_t position = 0; position < parcel.dataSize(); position += 4) {
        parcel.setDataPosition(position);
        EXPECT_EQ(position == 4, parcel.readStrongBinder() != nullptr) << position;
    }
}

TEST(ParcelTest, AnObjectOfAnotherKindStaysUnread) {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const sp<IBinder> object = new BBinder();
    Parcel parcel;
    parcel.writeStrongBinder(object);
    parcel.writeFileDescriptor(fd, true);
    parcel.setDataPosition(0);
    EXPECT_EQ(BAD_TYPE, parcel.readFileDescriptor());
    EXPECT_EQ(object, parcel.readStrongBinder());
    sp<IBinder> none;
    EXPECT_EQ(BAD_TYPE, parcel.readNullableStrongBinder(&none));
    EXPECT_EQ(fd, parcel.readFileDescriptor());
}

// Contents from elsewhere may end anywhere; what is written there would not be aligned.
TEST(ParcelTest, NoValueBeginsAtAnOddPosition) {
    Parcel parcel;
    fill(parcel, {1, 0, 0, 0, 'a', 0, 0, 0, 0, 0, 0});
    parcel.setDataPosition(1);
    EXPECT_EQ(String16(), parcel.readString16());
    EXPECT_EQ(1U, parcel.dataPosition());
    parcel.setDataPosition(parcel.dataSize());
    EXPECT_EQ(BAD_VALUE, parcel.writeString16(String16("b")));
    EXPECT_EQ(11U, parcel.dataSize());
}

TEST(ParcelTest, DescriptorsAreClosedWhenTheyAreItsOwn) {
    const int lent = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int given = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int duplicate = -1;
    {
        Parcel parcel;
        EXPECT_EQ(OK, parcel.writeFileDescriptor(lent));
        EXPECT_EQ(OK, parcel.writeFileDescriptor(given, true));
        EXPECT_EQ(OK, parcel.writeDupFileDescriptor(lent));
        EXPECT_TRUE(parcel.hasFileDescriptors());
        parcel.setDataPosition(0);
        EXPECT_EQ(lent, parcel.readFileDescriptor());
        EXPECT_EQ(given, parcel.readFileDescriptor());
        duplicate = parcel.readFileDescriptor();
        EXPECT_NE(lent, duplicate);
        EXPECT_TRUE(isOpen(duplicate));
    }
    EXPECT_TRUE(isOpen(lent));
    EXPECT_FALSE(isOpen(given));
    EXPECT_FALSE(isOpen(duplicate));
    close(lent);
    Parcel bad;
    EXPECT_LT(bad.writeDupFileDescriptor(-1), 0);
}

TEST(ParcelTest, AppendsWithReferencesOfItsOwn) {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    wp<IBinder> weak;
    Parcel copy;
    copy.writeInt32(1);
    {
        const sp<IBinder> object = new BBinder();
        weak = object;
        Parcel source;
        source.writeString8(String8("before"));
        source.writeStrongBinder(object);
        source.writeFileDescriptor(fd, true);
        EXPECT_EQ(OK, copy.appendFrom(&source, 0, source.dataSize()));
    }
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(2U, copy.objectsCount());
    copy.setDataPosition(4);
    EXPECT_EQ(String8("before"), copy.readString8());
    EXPECT_EQ(weak.promote(), copy.readStrongBinder());
    EXPECT_NE(nullptr, weak.promote());
    EXPECT_TRUE(isOpen(copy.readFileDescriptor()));
    copy.freeData();
    EXPECT_EQ(nullptr, weak.promote());
}

TEST(ParcelTest, AppendsNoPartOfAnObject) {
    Parcel source;
    source.writeInt32(1);
    source.writeStrongBinder(new BBinder());
    source.writeInt32(2);
    Parcel copy;
    EXPECT_EQ(BAD_VALUE, copy.appendFrom(&source, 0, 8));
    EXPECT_EQ(BAD_VALUE, copy.appendFrom(&source, 8, 8));
    EXPECT_EQ(BAD_VALUE, copy.appendFrom(&source, 0, source.dataSize() + 4));
    EXPECT_EQ(BAD_VALUE, copy.appendFrom(&source, source.dataSize() + 4, 4));
    EXPECT_EQ(BAD_VALUE, copy.appendFrom(&source, 4, SIZE_MAX));
    EXPECT_EQ(0U, copy.dataSize());
    EXPECT_EQ(OK, copy.appendFrom(&source, 4, sizeof(flat_binder_object)));
    EXPECT_EQ(1U, copy.objectsCount());
}

TEST(ParcelTest, AppendsNothingOfItself) {
    Parcel parcel;
    parcel.writeInt32(1);
    EXPECT_EQ(BAD_VALUE, parcel.appendFrom(&parcel, 0, 4));
    EXPECT_EQ(4U, parcel.dataSize());
}

// What was once an object's place would make one of whatever is written there.
TEST(ParcelTest, OverwrittenObjectsAreNoneAnyMore) {
    const int given = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const sp<IBinder> first = new BBinder();
    const sp<IBinder> last = new BBinder();
    Parcel parcel;
    parcel.writeStrongBinder(first);
    parcel.writeFileDescriptor(given, true);
    parcel.writeStrongBinder(last);
    ASSERT_EQ(3U, parcel.objectsCount());
    parcel.setDataPosition(2 * sizeof(flat_binder_object) - 4);
    parcel.writeInt32(1);
    EXPECT_EQ(2U, parcel.objectsCount());
    EXPECT_FALSE(isOpen(given));
    EXPECT_EQ(last, parcel.readStrongBinder());
    parcel.setDataPosition(sizeof(flat_binder_object));
    EXPECT_LT(parcel.readFileDescriptor(), 0);
    // In the middle again: the list stays in order.
    parcel.writeStrongBinder(last);
    EXPECT_EQ(3U, parcel.objectsCount());
    parcel.setDataPosition(0);
    EXPECT_EQ(first, parcel.readStrongBinder());
    EXPECT_EQ(last, parcel.readStrongBinder());
    EXPECT_EQ(last, parcel.readStrongBinder());
    parcel.setDataPosition(0);
    parcel.writeInt32(0);
    parcel.setDataPosition(0);
    EXPECT_EQ(nullptr, parcel.readStrongBinder());
}

TEST(ParcelTest, EveryWriteLeavesAMultipleOfFourAndZeros) {
    std::mt19937 random(4);
    for (int round = 0; round < 500; ++round) {
        Parcel parcel;
        // Old contents where the padding will be.
        const std::vector<uint8_t> old(256, 0xff);
        fill(parcel, old);
        const std::string text(random() % 40, 'x');
        size_t used = 0;
        switch (random() % 4) {
            case 0:
                parcel.write(text.data(), text.size());
                used = text.size();
                break;
            case 1:
                parcel.writeCString(text.c_str());
                used = text.size() + 1;
                break;
            case 2:
                parcel.writeString8(String8(text.c_str()));
                used = 4 + text.size() + 1;
                break;
            default:
                parcel.writeString16(String16(text.c_str()));
                used = 4 + 2 * (text.size() + 1);
                break;
        }
        ASSERT_EQ((used + 3) / 4 * 4, parcel.dataPosition());
        for (size_t at = used; at < parcel.dataPosition(); ++at) {
            EXPECT_EQ(0, parcel.data()[at]);
        }
        ASSERT_EQ(old.size(), parcel.dataSize());
    }
}

// A message cut anywhere reads as the values that are whole before the cut, and not one more.
TEST(ParcelTest, TruncatedAtEveryByte) {
    struct Value {
        std::function<void(Parcel&)> write;
        std::function<bool(const Parcel&)> readsBack;
    };
    const std::vector<Value> values = {
        {[](Parcel& p) { p.writeInterfaceToken(String16("a.b")); },
         [](const Parcel& p) { return p.enforceInterface(String16("a.b")); }},
        {[](Parcel& p) { p.writeString8(String8("text")); },
         [](const Parcel& p) { return p.readString8() == String8("text"); }},
        {[](Parcel& p) { p.writeCString("word"); },
         [](const Parcel& p) {
             const char* const word = p.readCString();
             return word != nullptr && strcmp(word, "word") == 0;
         }},
        {[](Parcel& p) { p.writeInt64(-1); }, [](const Parcel& p) { return p.readInt64() == -1; }},
        {[](Parcel& p) { p.writeDouble(1.5); }, [](const Parcel& p) { return p.readDouble() == 1.5; }},
        {[](Parcel& p) { p.writeString16(String16("wide")); },
         [](const Parcel& p) { return p.readString16() == String16("wide"); }},
        {[](Parcel& p) { p.writeInt32(-1); }, [](const Parcel& p) { return p.readInt32() == -1; }},
    };
    Parcel whole;
    std::vector<size_t> ends;
    for (const Value& value : values) {
        value.write(whole);
        ends.push_back(whole.dataSize());
    }
    const std::vector<uint8_t> bytes = bytesOf(whole);
    for (size_t size = 0; size <= bytes.size(); ++size) {
        Parcel cut;
        fill(cut, {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)});
        size_t good = 0;
        while (good < values.size() && values[good].readsBack(cut)) {
            ++good;
        }
        const auto complete = std::upper_bound(ends.begin(), ends.end(), size) - ends.begin();
        EXPECT_EQ(static_cast<size_t>(complete), good) << size;
        EXPECT_LE(cut.dataPosition(), size);
    }
}

TEST(ParcelTest, RefusesObjectsThatNobodyCouldCall) {
    class Stranger : public IBinder {
      public:
        const String16& getInterfaceDescriptor() const override { return mName; }
        bool isBinderAlive() const override { return true; }
        status_t pingBinder() override { return OK; }
        status_t dump(int, const android::Vector<String16>&) override { return OK; }
        status_t transact(uint32_t, const Parcel&, Parcel*, uint32_t) override { return OK; }
        status_t linkToDeath(const sp<DeathRecipient>&, void*, uint32_t) override { return OK; }
        status_t unlinkToDeath(const wp<DeathRecipient>&, void*, uint32_t, wp<DeathRecipient>*) override {
            return OK;
        }

      private:
        String16 mName;
    };
    Parcel parcel;
    EXPECT_EQ(BAD_TYPE, parcel.writeStrongBinder(new Stranger()));
    EXPECT_EQ(BAD_TYPE, parcel.errorCheck());
}

// Whatever the bytes, reads in any order stay inside and end.
TEST(ParcelTest, ReadsOfNoiseStayInside) {
    std::mt19937 random(4711);
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> bytes(random() % 64);
        for (uint8_t& byte : bytes) {
            // Small numbers make believable lengths.
            byte = static_cast<uint8_t>(random() % 3 == 0 ? random() : random() % 4);
        }
        Parcel parcel;
        fill(parcel, bytes);
        for (int step = 0; step < 20; ++step) {
            size_t length = 0;
            switch (random() % 9) {
                case 0:
                    parcel.readInt32();
                    break;
                case 1:
                    parcel.readInt64();
                    break;
                case 2:
                    EXPECT_LE(parcel.readString8().size(), bytes.size());
                    break;
                case 3:
                    EXPECT_LE(parcel.readString16().size(), bytes.size());
                    break;
                case 4:
                    parcel.readCString();
                    break;
                case 5:
                    parcel.readString16Inplace(&length);
                    break;
                case 6:
                    parcel.readInplace(random() % 80);
                    break;
                case 7:
                    EXPECT_LT(parcel.readFileDescriptor(), 0);
                    break;
                default:
                    EXPECT_EQ(nullptr, parcel.readStrongBinder());
                    break;
            }
            EXPECT_LE(parcel.dataPosition(), parcel.dataSize());
        }
    }
}
