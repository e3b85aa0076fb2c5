#include "Quenda/AboutView.h"

#include "Platform/Desktop.h"
#include "Quenda/LinkLabel.h"
#include "Quenda/ProductSite.h"
#include "Quenda/Symbols.h"

#include <QFrame>
#include <QLabel>
#include <QUrl>
#include <QVBoxLayout>

namespace quenda {

namespace {

constexpr int kIconSize = 80;

void addLabel(QVBoxLayout &column, QLabel *label, double relativeSize, bool bold = false) {
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * relativeSize);
    font.setBold(bold);
    label->setFont(font);
    column.addWidget(label);
}

QLabel *addLine(QVBoxLayout &column, const QString &text, double relativeSize, bool bold = false) {
    auto *label = new QLabel(text);
    addLabel(column, label, relativeSize, bold);
    return label;
}

constexpr double kTitle = 1.7;
constexpr double kCallout = 1.0;
constexpr double kCaption = 0.85;

} // namespace

QString AboutView::version(const Bundle &bundle) {
    return bundle.shortVersion().value_or(QStringLiteral("dev"));
}

QString AboutView::build(const Bundle &bundle) {
    return bundle.version().value_or(QStringLiteral("–"));
}

AboutView::AboutView(const Bundle &bundle, Workspace &workspace, QWidget *parent)
    : QWidget(parent) {
    setFixedWidth(kWidth);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(24, 24, 24, 20);
    column->setSpacing(8);

    auto *icon = new QLabel;
    icon->setPixmap(applicationIcon().pixmap(QSize(kIconSize, kIconSize), devicePixelRatioF()));
    icon->setAlignment(Qt::AlignCenter);
    icon->setAccessibleName(tr("Quenda"));
    column->addWidget(icon);
    addLine(*column, tr("Quenda"), kTitle, true);
    QLabel *versionLine =
        addLine(*column, tr("Version %1 (%2)").arg(version(bundle), build(bundle)), kCallout);
    versionLine->setTextFormat(Qt::PlainText);
    versionLine->setTextInteractionFlags(Qt::TextSelectableByMouse);
    addLine(*column,
            tr("Fast, private dictation for your Mac.\nHold a key, speak, and your words appear "
               "—\nno audio leaves your machine."),
            kCallout);

    auto *divider = new QFrame;
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    column->addWidget(divider);

    const QString thanksText = tr("Speech recognition powered by %1 and OpenAI Whisper");
    auto *thanks = new LinkLabel(
        thanksText.arg(QStringLiteral("<a href=\"%1\">whisper.cpp</a>").arg(kEngineProjectUrl)),
        kEngineProjectUrl);
    thanks->setAccessibleName(thanksText.arg(QStringLiteral("whisper.cpp")));
    addLabel(*column, thanks, kCallout);
    connect(thanks, &QLabel::linkActivated, this,
            [&workspace](const QString &link) { workspace.open(QUrl(link)); });

    QLabel *credit = addLine(*column, tr("Made by %1").arg(tr("<b>the Quenda team</b>")), kCaption);
    credit->setTextFormat(Qt::RichText);
    addLine(*column, tr("© 2026 the Quenda team. All rights reserved."), kCaption)
        ->setForegroundRole(QPalette::PlaceholderText);
}

} // namespace quenda
