// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What is news of two views of one thing that changes: notices, and a list.
 */
#include "client/Picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/RefBase.h>

#include <string>

using android::sp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct Thing : public android::RefBase {
    Thing(std::string thingName, int thingVersion) : name(std::move(thingName)), version(thingVersion) {}
    const std::string name;
    const int version;
};

struct ThingTraits {
    using Record = Thing;
    using Key = std::string;
    static Key keyOf(const Thing& thing) { return thing.name; }
    static bool isSame(const Thing& one, const Thing& other) { return one.version == other.version; }
};

using Picture = client::Picture<ThingTraits>;

sp<Thing> thing(const std::string& name, int version = 1) {
    return new Thing(name, version);
}

/** Each change as "+nameVERSION" or "-nameVERSION". */
std::vector<std::string> textOf(const Picture::Changes& changes) {
    std::vector<std::string> texts;
    for (const Picture::Change& change : changes) {
        texts.push_back((change.added ? "+" : "-") + change.record->name +
                        std::to_string(change.record->version));
    }
    return texts;
}

std::vector<std::string> read(Picture& picture, const std::vector<sp<Thing>>& listed) {
    picture.beginReading();
    return textOf(picture.endReading(listed));
}

}  // namespace

TEST(PictureTest, ANoticeIsNewsOnce) {
    Picture picture;
    EXPECT_THAT(textOf(picture.notice(true, thing("a"))), ElementsAre("+a1"));
    EXPECT_THAT(textOf(picture.notice(true, thing("a"))), IsEmpty());
    EXPECT_THAT(textOf(picture.notice(false, thing("a"))), ElementsAre("-a1"));
    EXPECT_THAT(textOf(picture.notice(false, thing("a"))), IsEmpty());
}

TEST(PictureTest, WhatGoesIsTheRecordThatCame) {
    Picture picture;
    const sp<Thing> came = thing("a");
    picture.notice(true, came);
    const Picture::Changes changes = picture.notice(false, thing("a", 7));
    ASSERT_EQ(1U, changes.size());
    EXPECT_EQ(came, changes[0].record);
}

TEST(PictureTest, AnotherThingInTheSamePlaceReplacesTheFirst) {
    Picture picture;
    picture.notice(true, thing("a"));
    EXPECT_THAT(textOf(picture.notice(true, thing("a", 2))), ElementsAre("-a1", "+a2"));
}

TEST(PictureTest, AListTellsWhatWentThenWhatCame) {
    Picture picture;
    picture.notice(true, thing("a"));
    picture.notice(true, thing("b"));
    EXPECT_THAT(read(picture, {thing("d"), thing("b"), thing("c")}), ElementsAre("-a1", "+d1", "+c1"));
    EXPECT_THAT(read(picture, {}), ElementsAre("-b1", "-c1", "-d1"));
}

TEST(PictureTest, AListKeepsTheRecordOfWhatStayed) {
    Picture picture;
    const sp<Thing> came = thing("a");
    picture.notice(true, came);
    EXPECT_THAT(read(picture, {thing("a")}), IsEmpty());
    EXPECT_THAT(picture.known(), ElementsAre(came));
    EXPECT_THAT(read(picture, {thing("a", 2)}), ElementsAre("-a1", "+a2"));
}

TEST(PictureTest, AListThatNamesAThingTwiceTellsItOnce) {
    Picture picture;
    EXPECT_THAT(read(picture, {thing("a"), thing("a", 2)}), ElementsAre("+a1"));
}

TEST(PictureTest, ANoticeWhileTheListIsReadIsKept) {
    Picture picture;
    picture.beginReading();
    EXPECT_THAT(textOf(picture.notice(true, thing("a"))), IsEmpty());
    EXPECT_THAT(textOf(picture.notice(true, thing("b"))), IsEmpty());
    // Listed and noticed; noticed after the list; listed only.
    EXPECT_THAT(textOf(picture.endReading({thing("a"), thing("c")})), ElementsAre("+a1", "+c1", "+b1"));
}

TEST(PictureTest, TheLastNoticeOutweighsTheList) {
    Picture picture;
    picture.beginReading();
    picture.notice(false, thing("a"));
    picture.notice(true, thing("b"));
    picture.notice(false, thing("b"));
    EXPECT_THAT(textOf(picture.endReading({thing("a"), thing("b")})), IsEmpty());
}

TEST(PictureTest, WhatWasReplacedWhileTheListWasReadIsToldOnce) {
    Picture picture;
    picture.beginReading();
    picture.notice(false, thing("a"));
    picture.notice(true, thing("a", 2));
    EXPECT_THAT(textOf(picture.endReading({thing("a", 2)})), ElementsAre("+a2"));
    // Late notices of a list that was ahead of them.
    EXPECT_THAT(textOf(picture.notice(true, thing("a", 2))), IsEmpty());
}

/** Once the record of the list was told, and stood for good: no further notice speaks of the thing. */
TEST(PictureTest, WhatTookOverAKeyAfterItWasListedIsToldAsItIs) {
    Picture picture;
    picture.beginReading();
    picture.notice(false, thing("a"));
    picture.notice(true, thing("a", 2));
    EXPECT_THAT(textOf(picture.endReading({thing("a")})), ElementsAre("+a2"));

    picture.beginReading();
    picture.notice(false, thing("a", 2));
    picture.notice(true, thing("a", 3));
    EXPECT_THAT(textOf(picture.endReading({thing("a", 2)})), ElementsAre("-a2", "+a3"));
}

TEST(PictureTest, AKnownThingThatWentAndCameBackIsToldBothWays) {
    Picture picture;
    picture.notice(true, thing("a"));
    picture.beginReading();
    picture.notice(false, thing("a"));
    picture.notice(true, thing("a"));
    EXPECT_THAT(textOf(picture.endReading({thing("a")})), ElementsAre("-a1", "+a1"));
}

TEST(PictureTest, AListThatIsGivenUpChangesNothing) {
    Picture picture;
    picture.notice(true, thing("a"));
    picture.beginReading();
    picture.notice(false, thing("a"));
    picture.notice(true, thing("b"));
    picture.giveUpReading();
    EXPECT_EQ(1U, picture.known().size());
    EXPECT_THAT(read(picture, {thing("a")}), IsEmpty());
}
