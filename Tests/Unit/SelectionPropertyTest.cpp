// What other programs may put into a selection's properties, piece by piece.
#include "Platform/Linux/SelectionProperty.h"

#include <gtest/gtest.h>

namespace quenda {
namespace {

constexpr std::uint32_t kText = 31;
constexpr std::uint32_t kOther = 32;

QByteArray numbers(const std::vector<std::uint32_t> &values) {
    return {reinterpret_cast<const char *>(values.data()), qsizetype(values.size() * 4)};
}

TEST(SelectionPropertyTest, SlicesAreJoined) {
    PropertyValue value;
    EXPECT_EQ(addSlice(value, {kText, 8, "abcd", 2}, 6), SliceOutcome::More);
    EXPECT_EQ(addSlice(value, {kText, 8, "ef", 0}, 6), SliceOutcome::Whole);
    EXPECT_EQ(value.bytes, "abcdef");
    EXPECT_EQ(value.type, kText);
    EXPECT_EQ(value.format, 8);
    EXPECT_FALSE(value.tooLarge);
}

TEST(SelectionPropertyTest, AnEmptyPropertyIsWhole) {
    PropertyValue value;
    EXPECT_EQ(addSlice(value, {kText, 8, {}, 0}, 0), SliceOutcome::Whole);
    EXPECT_EQ(value.type, kText);
    EXPECT_TRUE(value.bytes.isEmpty());
}

TEST(SelectionPropertyTest, APropertyThatIsMissingOrChangesIsVoid) {
    PropertyValue none;
    EXPECT_EQ(addSlice(none, {0, 0, {}, 0}, 100), SliceOutcome::Void);
    const PropertySlice changes[] = {
        {kOther, 8, "x", 0}, {kText, 16, "xy", 0}, {kText, 8, {}, 4}, {0, 0, {}, 0}};
    for (const PropertySlice &change : changes) {
        PropertyValue value;
        EXPECT_EQ(addSlice(value, {kText, 8, "abcd", 2}, 100), SliceOutcome::More);
        EXPECT_EQ(addSlice(value, change, 100), SliceOutcome::Void);
    }
}

TEST(SelectionPropertyTest, MoreBytesThanTheLimitAreNotKept) {
    PropertyValue atOnce;
    EXPECT_EQ(addSlice(atOnce, {kText, 8, "abcd", 3}, 6), SliceOutcome::TooLarge);
    EXPECT_TRUE(atOnce.tooLarge);
    EXPECT_TRUE(atOnce.bytes.isEmpty());
    PropertyValue grown;
    EXPECT_EQ(addSlice(grown, {kText, 8, "abcd", 2}, 6), SliceOutcome::More);
    EXPECT_EQ(addSlice(grown, {kText, 8, "ef", 0xFFFFFFFF}, 6), SliceOutcome::TooLarge);
    EXPECT_TRUE(grown.tooLarge);
    EXPECT_TRUE(grown.bytes.isEmpty());
}

TEST(SelectionPropertyTest, AnAnnouncementIsOneNumberOf32Bits) {
    EXPECT_EQ(announcedBytes({kOther, 32, numbers({5}), false}), 5);
    EXPECT_EQ(announcedBytes({kOther, 32, numbers({0xFFFFFFFF, 1}), false}), 0xFFFFFFFF);
    EXPECT_EQ(announcedBytes({kOther, 8, numbers({5}), false}), 0);
    EXPECT_EQ(announcedBytes({kOther, 32, "abc", false}), 0);
    EXPECT_EQ(announcedBytes({kOther, 32, {}, false}), 0);
}

TEST(SelectionPropertyTest, ChunksAreJoinedUpToAnEmptyOne) {
    SelectionData data;
    std::uint32_t type = 0;
    EXPECT_EQ(addChunk(data, type, {kText, 16, "abcd", false}), ChunkOutcome::Added);
    EXPECT_EQ(addChunk(data, type, {kText, 16, "ef", false}), ChunkOutcome::Added);
    EXPECT_EQ(addChunk(data, type, {kOther, 8, {}, false}), ChunkOutcome::Last);
    EXPECT_EQ(data.bytes, "abcdef");
    EXPECT_EQ(data.format, 16);
    EXPECT_EQ(type, kText);
}

TEST(SelectionPropertyTest, ChunksOfAnotherKindOrTooLargeAreUnsound) {
    const PropertyValue unsound[] = {
        {kOther, 8, "x", false}, {kText, 16, "xy", false}, {kText, 8, {}, true}};
    for (const PropertyValue &chunk : unsound) {
        SelectionData data;
        std::uint32_t type = 0;
        EXPECT_EQ(addChunk(data, type, {kText, 8, "ab", false}), ChunkOutcome::Added);
        EXPECT_EQ(addChunk(data, type, chunk), ChunkOutcome::Unsound);
        EXPECT_EQ(data.bytes, "ab");
    }
}

TEST(SelectionPropertyTest, ListedTargetsAreDifferentAndBounded) {
    const QByteArray list = numbers({7, 0, 5, 7, 0xFFFFFFFF, 5, 3}) + "ab";
    EXPECT_EQ(distinctAtoms(list, 100), (std::vector<std::uint32_t>{7, 5, 0xFFFFFFFF, 3}));
    EXPECT_EQ(distinctAtoms(list, 2), (std::vector<std::uint32_t>{7, 5}));
    EXPECT_TRUE(distinctAtoms("abc", 100).empty());
    // Only so many are looked at.
    const QByteArray long_ = numbers(std::vector<std::uint32_t>(4096, 7)) + numbers({8});
    EXPECT_EQ(distinctAtoms(long_, 100), (std::vector<std::uint32_t>{7}));
}

} // namespace
} // namespace quenda
