#include "Quenda/ModelCatalog.h"

#include "Quenda/Config.h"

#include <QDir>
#include <QFile>
#include <QLocale>

#include <gtest/gtest.h>

using namespace quenda;

TEST(ModelCatalogTest, HoldsTheFiveModelsInTheirOrder) {
    const auto model = [](const char *file, const char *title, const char *detail, int size) {
        return WhisperModel{QString::fromLatin1(file), QString::fromLatin1(title),
                            QString::fromLatin1(detail), size};
    };
    const QList<WhisperModel> expected{
        model("ggml-large-v3-turbo.bin", "Large v3 Turbo", "Best accuracy, all languages", 1624),
        model("ggml-large-v3-turbo-q5_0.bin", "Large v3 Turbo (compact)",
              "Near-best accuracy, smaller & faster to download", 574),
        model("ggml-small.bin", "Small (Multilingual)", "Good accuracy in 90+ languages, very fast",
              488),
        model("ggml-small.en.bin", "Small (English)", "Good accuracy, very fast", 488),
        model("ggml-base.en.bin", "Base (English)", "Fastest, lighter accuracy", 148),
    };
    EXPECT_EQ(WhisperModel::catalog(), expected);
    EXPECT_EQ(WhisperModel::compact(), expected[1]);
    WhisperModel other = expected[1];
    other.sizeMB = 575;
    EXPECT_FALSE(other == expected[1]);
}

TEST(ModelCatalogTest, SizesAreDecimal) {
    EXPECT_EQ(sizeLabel(148), QStringLiteral("148 MB"));
    EXPECT_EQ(sizeLabel(574), QStringLiteral("574 MB"));
    EXPECT_EQ(sizeLabel(999), QStringLiteral("999 MB"));
    EXPECT_EQ(sizeLabel(1000), QStringLiteral("1.0 GB"));
    EXPECT_EQ(sizeLabel(1624), QStringLiteral("1.6 GB"));
    EXPECT_EQ(sizeLabel(0), QStringLiteral("0 MB"));
    // As "%.1f" has it: to the nearest, and half-way to the even digit.
    EXPECT_EQ(sizeLabel(1249), QStringLiteral("1.2 GB"));
    EXPECT_EQ(sizeLabel(1250), QStringLiteral("1.2 GB"));
    EXPECT_EQ(sizeLabel(1251), QStringLiteral("1.3 GB"));
    EXPECT_EQ(sizeLabel(1750), QStringLiteral("1.8 GB"));
    EXPECT_EQ(sizeLabel(12960), QStringLiteral("13.0 GB"));
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::German));
    EXPECT_EQ(sizeLabel(1624), QStringLiteral("1.6 GB"));
    QLocale::setDefault(before);
}

TEST(ModelCatalogTest, ExtraModelsAreTheOtherBinFiles) {
    EXPECT_TRUE(extraModels().isEmpty()) << "no folder";
    QDir folder(Config::modelsDir());
    ASSERT_TRUE(folder.mkpath(QStringLiteral(".")));
    EXPECT_TRUE(extraModels().isEmpty());
    for (const char *name :
         {"zeta.bin", "my-finetune.bin", "Zulu.bin", "Alpha.bin", "notes.txt", "ggml-small.bin",
          "ggml-base.en.bin", "model.BIN", "bin", "x.bin.part", ".hidden.bin"})
        EXPECT_TRUE(QFile(folder.filePath(QLatin1String(name))).open(QIODevice::WriteOnly));
    folder.mkdir(QStringLiteral("folder.bin"));
    EXPECT_EQ(extraModels(),
              (QStringList{QStringLiteral(".hidden.bin"), QStringLiteral("Alpha.bin"),
                           QStringLiteral("Zulu.bin"), QStringLiteral("my-finetune.bin"),
                           QStringLiteral("zeta.bin")}));
}
