#include "Quenda/AboutView.h"

#include "Fakes/FakePlatform.h"
#include "Fakes/TestMain.h"
#include "Fakes/WidgetSearch.h"

#include <QLabel>

#include <gtest/gtest.h>

using namespace quenda;
using fakes::reads;

namespace {

TEST(AboutViewTest, ShowsVersionAndBuild) {
    fakes::FakePlatform fake;
    const AboutView view(*fake.bundle, *fake.workspace);
    EXPECT_EQ(view.width(), 340);
    EXPECT_TRUE(reads(view, QStringLiteral("Version 1.4.0 (57)")));
    EXPECT_TRUE(reads(view, QStringLiteral("Fast, private dictation for your Mac.\nHold a key, "
                                           "speak, and your words appear —\nno audio leaves your "
                                           "machine.")));
    EXPECT_TRUE(reads(view, QStringLiteral("Made by <b>the Quenda team</b>")));
}

TEST(AboutViewTest, MissingVersionAndBuildHaveStandIns) {
    fakes::FakePlatform fake;
    fake.bundle->versionText.reset();
    fake.bundle->buildText.reset();
    const AboutView view(*fake.bundle, *fake.workspace);
    EXPECT_TRUE(reads(view, QStringLiteral("Version dev (–)")));
}

TEST(AboutViewTest, LinkOpensTheEnginesProjectPage) {
    fakes::FakePlatform fake;
    const AboutView view(*fake.bundle, *fake.workspace);
    QLabel *thanks = nullptr;
    for (QLabel *label : view.findChildren<QLabel *>()) {
        if (label->text().startsWith(QStringLiteral("Speech recognition powered by")))
            thanks = label;
    }
    ASSERT_TRUE(thanks);
    EXPECT_TRUE(thanks->text().endsWith(QStringLiteral("whisper.cpp</a> and OpenAI Whisper")));
    Q_EMIT thanks->linkActivated(QStringLiteral("https://github.com/ggerganov/whisper.cpp"));
    EXPECT_EQ(fake.workspace->opened,
              QList<QUrl>{QUrl(QStringLiteral("https://github.com/ggerganov/whisper.cpp"))});
    EXPECT_TRUE(thanks->text().contains(fake.workspace->opened.first().toString()));
}

} // namespace
