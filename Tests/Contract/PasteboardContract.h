#pragma once
// What every pasteboard keeps to, whatever the platform. A World names a backend:
//   Pasteboard &pasteboard();
//   QString textType();      // the type under which it gives plain text as UTF-8
//   QString pictureType(); QString dataType();   // two types that nobody converts
//   void settle();           // lets answers that are under way arrive

#include "Platform/Pasteboard.h"

#include <gtest/gtest.h>

#include <optional>

namespace quenda::contract {

template <typename World>
class PasteboardContract : public testing::Test {
protected:
    PasteboardItems read() {
        std::optional<PasteboardItems> read;
        world.pasteboard().readItems([&](const PasteboardItems &items) {
            EXPECT_FALSE(read) << "answered twice";
            read = items;
        });
        world.settle();
        EXPECT_TRUE(read) << "never answered";
        return read.value_or(PasteboardItems{});
    }
    static std::optional<QByteArray> bytesOf(const PasteboardItems &items, const QString &type) {
        for (const PasteboardItem &item : items) {
            for (const auto &[name, bytes] : item.types) {
                if (name == type)
                    return bytes;
            }
        }
        return std::nullopt;
    }

    World world;
};
TYPED_TEST_SUITE_P(PasteboardContract);

TYPED_TEST_P(PasteboardContract, TextComesBack) {
    const QString text = QString::fromUtf8("Grüße, 世界 👋");
    ASSERT_TRUE(this->world.pasteboard().setString(text));
    EXPECT_EQ(this->bytesOf(this->read(), this->world.textType()), text.toUtf8());
}

TYPED_TEST_P(PasteboardContract, ClearLeavesNothing) {
    this->world.pasteboard().setString(QStringLiteral("text"));
    this->world.pasteboard().clear();
    EXPECT_FALSE(this->bytesOf(this->read(), this->world.textType()));
}

TYPED_TEST_P(PasteboardContract, EveryWriteIsAChange) {
    Pasteboard &pasteboard = this->world.pasteboard();
    std::int64_t before = pasteboard.changeCount();
    pasteboard.setString(QStringLiteral("one"));
    EXPECT_NE(pasteboard.changeCount(), before);
    before = pasteboard.changeCount();
    pasteboard.setString(QStringLiteral("one"));
    EXPECT_NE(pasteboard.changeCount(), before);
    before = pasteboard.changeCount();
    pasteboard.clear();
    EXPECT_NE(pasteboard.changeCount(), before);
}

TYPED_TEST_P(PasteboardContract, ReadingIsNoChange) {
    this->world.pasteboard().setString(QStringLiteral("one"));
    const std::int64_t before = this->world.pasteboard().changeCount();
    this->read();
    EXPECT_EQ(this->world.pasteboard().changeCount(), before);
}

TYPED_TEST_P(PasteboardContract, ItemsKeepTheirTypesOrderAndBytes) {
    QByteArray picture;
    for (int value = 0; value < 256; ++value)
        picture.append(char(value));
    const PasteboardItems written{PasteboardItem{{
        {this->world.pictureType(), picture},
        {this->world.dataType(), QByteArray("with\0zero", 9)},
    }}};
    ASSERT_TRUE(this->world.pasteboard().writeItems(written));
    const PasteboardItems read = this->read();
    EXPECT_EQ(this->bytesOf(read, this->world.pictureType()), picture);
    EXPECT_EQ(this->bytesOf(read, this->world.dataType()), QByteArray("with\0zero", 9));
    ASSERT_EQ(read.size(), 1U);
    ASSERT_GE(read[0].types.size(), 2U);
    EXPECT_EQ(read[0].types[0].first, this->world.pictureType());
    EXPECT_EQ(read[0].types[1].first, this->world.dataType());
}

TYPED_TEST_P(PasteboardContract, WhatWasReadCanBeWrittenBack) {
    this->world.pasteboard().setString(QStringLiteral("before"));
    const PasteboardItems saved = this->read();
    this->world.pasteboard().setString(QStringLiteral("between"));
    ASSERT_TRUE(this->world.pasteboard().writeItems(saved));
    EXPECT_EQ(this->bytesOf(this->read(), this->world.textType()), QByteArray("before"));
}

REGISTER_TYPED_TEST_SUITE_P(PasteboardContract, TextComesBack, ClearLeavesNothing,
                            EveryWriteIsAChange, ReadingIsNoChange,
                            ItemsKeepTheirTypesOrderAndBytes, WhatWasReadCanBeWrittenBack);

} // namespace quenda::contract
