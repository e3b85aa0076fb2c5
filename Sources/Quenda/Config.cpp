#include "Quenda/Config.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QVariant>

#include <cmath>
#include <limits>
#include <type_traits>

namespace quenda {

QString rawValue(HotkeyChoice choice) {
    switch (choice) {
    case HotkeyChoice::rightOption:
        return QStringLiteral("rightOption");
    case HotkeyChoice::rightCommand:
        return QStringLiteral("rightCommand");
    case HotkeyChoice::rightControl:
        return QStringLiteral("rightControl");
    case HotkeyChoice::fnGlobe:
        return QStringLiteral("fnGlobe");
    }
    return {};
}

QString rawValue(ActivationMode mode) {
    switch (mode) {
    case ActivationMode::hold:
        return QStringLiteral("hold");
    case ActivationMode::toggle:
        return QStringLiteral("toggle");
    }
    return {};
}

QString rawValue(TranscriptionProvider provider) {
    switch (provider) {
    case TranscriptionProvider::local:
        return QStringLiteral("local");
    case TranscriptionProvider::openai:
        return QStringLiteral("openai");
    case TranscriptionProvider::groq:
        return QStringLiteral("groq");
    case TranscriptionProvider::custom:
        return QStringLiteral("custom");
    }
    return {};
}

QString title(HotkeyChoice choice) {
    switch (choice) {
    case HotkeyChoice::rightOption:
        return QCoreApplication::translate("HotkeyChoice", "Right Option (⌥)");
    case HotkeyChoice::rightCommand:
        return QCoreApplication::translate("HotkeyChoice", "Right Command (⌘)");
    case HotkeyChoice::rightControl:
        return QCoreApplication::translate("HotkeyChoice", "Right Control (⌃)");
    case HotkeyChoice::fnGlobe:
        return QCoreApplication::translate("HotkeyChoice", "Fn / Globe (🌐)");
    }
    return {};
}

QString title(ActivationMode mode) {
    switch (mode) {
    case ActivationMode::hold:
        return QCoreApplication::translate("ActivationMode", "Hold to talk");
    case ActivationMode::toggle:
        return QCoreApplication::translate("ActivationMode", "Press to start / stop");
    }
    return {};
}

QString title(TranscriptionProvider provider) {
    switch (provider) {
    case TranscriptionProvider::local:
        return QCoreApplication::translate("TranscriptionProvider", "On-device (private)");
    case TranscriptionProvider::openai:
        return QCoreApplication::translate("TranscriptionProvider", "OpenAI");
    case TranscriptionProvider::groq:
        return QCoreApplication::translate("TranscriptionProvider", "Groq");
    case TranscriptionProvider::custom:
        return QCoreApplication::translate("TranscriptionProvider", "Custom (OpenAI-compatible)");
    }
    return {};
}

QString defaultRemoteModel(TranscriptionProvider provider) {
    switch (provider) {
    case TranscriptionProvider::local:
        return {};
    case TranscriptionProvider::openai:
    case TranscriptionProvider::custom:
        return QStringLiteral("whisper-1");
    case TranscriptionProvider::groq:
        return QStringLiteral("whisper-large-v3-turbo");
    }
    return {};
}

namespace {

// The one list of the record's fields, for both directions.
template <typename Record, typename Visitor>
void visitFields(Record &record, Visitor &&visit) {
    visit(QStringLiteral("modelPath"), record.modelPath);
    visit(QStringLiteral("whisperServerPath"), record.whisperServerPath);
    visit(QStringLiteral("serverPort"), record.serverPort);
    visit(QStringLiteral("language"), record.language);
    visit(QStringLiteral("minHoldSeconds"), record.minHoldSeconds);
    visit(QStringLiteral("maxDictationSeconds"), record.maxDictationSeconds);
    visit(QStringLiteral("hotkey"), record.hotkey);
    visit(QStringLiteral("activationMode"), record.activationMode);
    visit(QStringLiteral("provider"), record.provider);
    visit(QStringLiteral("apiKeys"), record.apiKeys);
    visit(QStringLiteral("apiModelOverride"), record.apiModelOverride);
    visit(QStringLiteral("customBaseURL"), record.customBaseURL);
    visit(QStringLiteral("customVocabulary"), record.customVocabulary);
    visit(QStringLiteral("removeFillerWords"), record.removeFillerWords);
    visit(QStringLiteral("idleUnloadMinutes"), record.idleUnloadMinutes);
    visit(QStringLiteral("playSoundCues"), record.playSoundCues);
    visit(QStringLiteral("checkForUpdates"), record.checkForUpdates);
}

// JSON can spell half a surrogate pair; no text of the program carries one on.
QString wellFormed(QString text) {
    if (text.isValidUtf16())
        return text;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool pair =
            text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
        if (pair)
            ++i;
        else if (text[i].isSurrogate())
            text[i] = QChar::ReplacementCharacter;
    }
    return text;
}

QJsonValue toJson(const QString &text) {
    return wellFormed(text);
}

QJsonValue toJson(qint64 number) {
    return number;
}

QJsonValue toJson(double number) {
    return number;
}

QJsonValue toJson(bool flag) {
    return flag;
}

QJsonValue toJson(const QMap<QString, QString> &map) {
    QJsonObject object;
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        object.insert(wellFormed(entry.key()), wellFormed(entry.value()));
    return object;
}

template <typename Choice>
requires std::is_enum_v<Choice> QJsonValue toJson(Choice choice) {
    return rawValue(choice);
}

bool fromJson(const QJsonValue &json, QString &text) {
    text = wellFormed(json.toString());
    return json.isString();
}

bool fromJson(const QJsonValue &json, qint64 &number) {
    // A number that the parser could not keep as a 64-bit integer stays a double.
    const QVariant parsed = json.toVariant();
    number = parsed.toLongLong();
    return parsed.typeId() == QMetaType::LongLong;
}

bool fromJson(const QJsonValue &json, double &number) {
    number = json.toDouble();
    return json.isDouble();
}

bool fromJson(const QJsonValue &json, bool &flag) {
    flag = json.toBool();
    return json.isBool();
}

bool fromJson(const QJsonValue &json, QMap<QString, QString> &map) {
    const QJsonObject object = json.toObject();
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        if (!entry.value().isString())
            return false;
        map.insert(wellFormed(entry.key()), wellFormed(entry.value().toString()));
    }
    return json.isObject();
}

template <typename Choice, std::size_t Size>
bool choose(const QJsonValue &json, const std::array<Choice, Size> &cases, Choice &choice) {
    for (const Choice each : cases) {
        if (json.isString() && json.toString() == rawValue(each)) {
            choice = each;
            return true;
        }
    }
    return false;
}

bool fromJson(const QJsonValue &json, HotkeyChoice &choice) {
    return choose(json, kHotkeyChoices, choice);
}

bool fromJson(const QJsonValue &json, ActivationMode &mode) {
    return choose(json, kActivationModes, mode);
}

bool fromJson(const QJsonValue &json, TranscriptionProvider &provider) {
    return choose(json, kTranscriptionProviders, provider);
}

// The parser takes an integer just below the 64-bit range for the lowest of the range, so that one
// value has to stand in the text as such.
bool isSpelledOut(qint64 number, const QByteArray &json) {
    static const QRegularExpression lowest(QStringLiteral("-9223372036854775808(?![0-9.eE])"));
    return number != std::numeric_limits<qint64>::min() ||
           lowest.match(QString::fromLatin1(json)).hasMatch();
}

Error refused(const QString &reason) {
    return quendaError(0, QStringLiteral("Unreadable settings: %1").arg(reason));
}

} // namespace

Config Config::defaults() {
    Config config;
    config.modelPath = modelsDir() + QLatin1String("/ggml-large-v3-turbo.bin");
    return config;
}

QString Config::effectiveRemoteModel() const {
    return apiModelOverride.isEmpty() ? defaultRemoteModel(provider) : apiModelOverride;
}

QString Config::apiKey() const {
    return apiKeys.value(rawValue(provider));
}

QByteArray Config::encode() const {
    if (!std::isfinite(minHoldSeconds) || !std::isfinite(maxDictationSeconds))
        return {};
    QJsonObject object; // keeps its keys sorted
    visitFields(*this,
                [&](const QString &key, const auto &field) { object.insert(key, toJson(field)); });
    const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Indented);
    return json.size() <= kMaxFileBytes ? json : QByteArray();
}

Result<Config> Config::decode(const QByteArray &json) {
    QJsonParseError parsing;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parsing);
    if (parsing.error != QJsonParseError::NoError)
        return refused(parsing.errorString());
    if (!document.isObject())
        return refused(QStringLiteral("not an object"));

    const QJsonObject object = document.object();
    Config config = defaults();
    QString wrong;
    visitFields(config, [&]<typename Field>(const QString &key, Field &field) {
        const QJsonValue value = object.value(key);
        if (value.isUndefined() || value.isNull())
            return;
        Field read{};
        bool accepted = fromJson(value, read);
        if constexpr (std::is_same_v<Field, qint64>)
            accepted = accepted && isSpelledOut(read, json);
        if (accepted)
            field = std::move(read);
        else
            wrong = key;
    });
    if (!wrong.isEmpty())
        return refused(QStringLiteral("the value of \"%1\"").arg(wrong));
    return config;
}

} // namespace quenda
