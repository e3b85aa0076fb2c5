#include "Quenda/ModelCatalog.h"

#include "Quenda/Config.h"
#include "Quenda/DecimalText.h"

#include <QCoreApplication>
#include <QDir>

#include <algorithm>

namespace quenda {

namespace {

WhisperModel model(const char *fileName, const char *title, const char *detail, int sizeMB) {
    const auto shown = [](const char *text) {
        return QCoreApplication::translate("quenda::WhisperModel", text);
    };
    return {QString::fromLatin1(fileName), shown(title), shown(detail), sizeMB};
}

} // namespace

const QList<WhisperModel> &WhisperModel::catalog() {
    static const QList<WhisperModel> models{
        model("ggml-large-v3-turbo.bin",
              QT_TRANSLATE_NOOP("quenda::WhisperModel", "Large v3 Turbo"),
              QT_TRANSLATE_NOOP("quenda::WhisperModel", "Best accuracy, all languages"), 1624),
        model("ggml-large-v3-turbo-q5_0.bin",
              QT_TRANSLATE_NOOP("quenda::WhisperModel", "Large v3 Turbo (compact)"),
              QT_TRANSLATE_NOOP("quenda::WhisperModel",
                                "Near-best accuracy, smaller & faster to download"),
              574),
        model(
            "ggml-small.bin", QT_TRANSLATE_NOOP("quenda::WhisperModel", "Small (Multilingual)"),
            QT_TRANSLATE_NOOP("quenda::WhisperModel", "Good accuracy in 90+ languages, very fast"),
            488),
        model("ggml-small.en.bin", QT_TRANSLATE_NOOP("quenda::WhisperModel", "Small (English)"),
              QT_TRANSLATE_NOOP("quenda::WhisperModel", "Good accuracy, very fast"), 488),
        model("ggml-base.en.bin", QT_TRANSLATE_NOOP("quenda::WhisperModel", "Base (English)"),
              QT_TRANSLATE_NOOP("quenda::WhisperModel", "Fastest, lighter accuracy"), 148),
    };
    return models;
}

const WhisperModel &WhisperModel::compact() {
    return catalog().at(1);
}

QString sizeLabel(int mb) {
    if (mb < 1000)
        return QString::number(mb) + QLatin1String(" MB");
    return decimalText(mb / 1000.0, 1) + QLatin1String(" GB");
}

QStringList extraModels() {
    const QList<WhisperModel> &known = WhisperModel::catalog();
    QStringList names =
        QDir(Config::modelsDir()).entryList(QDir::Files | QDir::Hidden, QDir::NoSort);
    names.removeIf([&](const QString &name) {
        return !name.endsWith(QLatin1String(".bin")) ||
               std::any_of(known.begin(), known.end(),
                           [&](const WhisperModel &each) { return each.fileName == name; });
    });
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace quenda
