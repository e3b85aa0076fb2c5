#include "Quenda/Config.h"

#include "Fakes/TestMain.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

namespace quenda {

namespace {

QJsonObject objectOf(const Config &config) {
    return QJsonDocument::fromJson(config.encode()).object();
}

bool refuses(const QByteArray &json) {
    return !Config::decode(json).ok();
}

Config decoded(const QByteArray &json) {
    const Result<Config> result = Config::decode(json);
    EXPECT_TRUE(result.ok()) << json.left(200).constData();
    return result.ok() ? result.value() : Config();
}

struct FieldChange {
    QString key;
    std::function<void(Config &)> change;
};

// One change per field, away from its default.
const std::vector<FieldChange> &fieldChanges() {
    static const std::vector<FieldChange> changes{
        {u"modelPath"_qs, [](Config &c) { c.modelPath = u"/models/ü ñ/模型.bin"_qs; }},
        {u"whisperServerPath"_qs, [](Config &c) { c.whisperServerPath = u"/bin/\"server\"\\"_qs; }},
        {u"serverPort"_qs, [](Config &c) { c.serverPort = 9223372036854775807LL; }},
        {u"language"_qs, [](Config &c) { c.language = u"de"_qs; }},
        {u"minHoldSeconds"_qs, [](Config &c) { c.minHoldSeconds = 0.1; }},
        {u"maxDictationSeconds"_qs, [](Config &c) { c.maxDictationSeconds = 1.0 / 3; }},
        {u"hotkey"_qs, [](Config &c) { c.hotkey = HotkeyChoice::fnGlobe; }},
        {u"activationMode"_qs, [](Config &c) { c.activationMode = ActivationMode::toggle; }},
        {u"provider"_qs, [](Config &c) { c.provider = TranscriptionProvider::groq; }},
        {u"apiKeys"_qs,
         [](Config &c) {
             c.apiKeys = {{u"groq"_qs, u"k1"_qs}, {u""_qs, u""_qs}};
         }},
        {u"apiModelOverride"_qs, [](Config &c) { c.apiModelOverride = u" "_qs; }},
        {u"customBaseURL"_qs, [](Config &c) { c.customBaseURL = u"http://localhost/v1"_qs; }},
        {u"customVocabulary"_qs, [](Config &c) { c.customVocabulary = u"Alvero,\n\tQMX 🎤"_qs; }},
        {u"removeFillerWords"_qs, [](Config &c) { c.removeFillerWords = true; }},
        {u"idleUnloadMinutes"_qs,
         [](Config &c) { c.idleUnloadMinutes = std::numeric_limits<qint64>::min(); }},
        {u"playSoundCues"_qs, [](Config &c) { c.playSoundCues = true; }},
        {u"checkForUpdates"_qs, [](Config &c) { c.checkForUpdates = false; }},
    };
    return changes;
}

TEST(Config, DefaultsAreTheDocumentedOnes) {
    const Config config = Config::defaults();
    EXPECT_EQ(config.modelPath,
              fakes::testHome() + u"/data/Quenda/models/ggml-large-v3-turbo.bin"_qs);
    EXPECT_EQ(config.whisperServerPath, QString());
    EXPECT_EQ(config.serverPort, 8698);
    EXPECT_EQ(config.language, u"en");
    EXPECT_EQ(config.minHoldSeconds, 0.25);
    EXPECT_EQ(config.maxDictationSeconds, 180.0);
    EXPECT_EQ(config.hotkey, HotkeyChoice::rightOption);
    EXPECT_EQ(config.activationMode, ActivationMode::hold);
    EXPECT_EQ(config.provider, TranscriptionProvider::local);
    EXPECT_TRUE(config.apiKeys.isEmpty());
    EXPECT_EQ(config.apiModelOverride, QString());
    EXPECT_EQ(config.customBaseURL, QString());
    EXPECT_EQ(config.customVocabulary, QString());
    EXPECT_FALSE(config.removeFillerWords);
    EXPECT_EQ(config.idleUnloadMinutes, 0);
    EXPECT_FALSE(config.playSoundCues);
    EXPECT_TRUE(config.checkForUpdates);
}

TEST(Config, EnumerationsHaveTheirRawValuesTitlesAndOrder) {
    QStringList rows;
    for (const HotkeyChoice choice : kHotkeyChoices)
        rows << rawValue(choice) + u" | "_qs + title(choice);
    for (const ActivationMode mode : kActivationModes)
        rows << rawValue(mode) + u" | "_qs + title(mode);
    for (const TranscriptionProvider provider : kTranscriptionProviders)
        rows << rawValue(provider) + u" | "_qs + title(provider) + u" | "_qs +
                    defaultRemoteModel(provider);
    const QStringList expected{
        u"rightOption | Right Option (⌥)"_qs,
        u"rightCommand | Right Command (⌘)"_qs,
        u"rightControl | Right Control (⌃)"_qs,
        u"fnGlobe | Fn / Globe (🌐)"_qs,
        u"hold | Hold to talk"_qs,
        u"toggle | Press to start / stop"_qs,
        u"local | On-device (private) | "_qs,
        u"openai | OpenAI | whisper-1"_qs,
        u"groq | Groq | whisper-large-v3-turbo"_qs,
        u"custom | Custom (OpenAI-compatible) | whisper-1"_qs,
    };
    EXPECT_EQ(rows, expected);
}

TEST(Config, EveryFieldAloneSurvivesARoundTrip) {
    const Config defaults = Config::defaults();
    EXPECT_EQ(decoded(defaults.encode()), defaults);
    for (const FieldChange &field : fieldChanges()) {
        Config config = defaults;
        field.change(config);
        EXPECT_NE(config, defaults) << qPrintable(field.key);
        EXPECT_EQ(decoded(config.encode()), config) << qPrintable(field.key);
    }
}

TEST(Config, EveryFieldIsCodedUnderItsOwnKeyAlone) {
    const QJsonObject defaults = objectOf(Config::defaults());
    QStringList keys;
    for (const FieldChange &field : fieldChanges()) {
        keys << field.key;
        Config config = Config::defaults();
        field.change(config);
        QJsonObject changed = objectOf(config);
        EXPECT_NE(changed.value(field.key), defaults.value(field.key)) << qPrintable(field.key);
        changed.insert(field.key, defaults.value(field.key));
        EXPECT_EQ(changed, defaults) << qPrintable(field.key);
    }
    keys.sort();
    EXPECT_EQ(keys.size(), 17);
    EXPECT_EQ(defaults.keys(), keys);
}

TEST(Config, EveryCaseOfEveryEnumerationSurvivesARoundTrip) {
    for (const HotkeyChoice hotkey : kHotkeyChoices)
        for (const ActivationMode mode : kActivationModes)
            for (const TranscriptionProvider provider : kTranscriptionProviders) {
                Config config = Config::defaults();
                config.hotkey = hotkey;
                config.activationMode = mode;
                config.provider = provider;
                EXPECT_EQ(decoded(config.encode()), config);
            }
}

TEST(Config, JsonIsPrettyPrintedSortedUtf8) {
    Config config = Config::defaults();
    config.modelPath = u"/m/ü.bin"_qs;
    config.apiKeys = {{u"openai"_qs, u"b"_qs}, {u"groq"_qs, u"a"_qs}};
    EXPECT_EQ(config.encode(), QByteArray(R"({
    "activationMode": "hold",
    "apiKeys": {
        "groq": "a",
        "openai": "b"
    },
    "apiModelOverride": "",
    "checkForUpdates": true,
    "customBaseURL": "",
    "customVocabulary": "",
    "hotkey": "rightOption",
    "idleUnloadMinutes": 0,
    "language": "en",
    "maxDictationSeconds": 180,
    "minHoldSeconds": 0.25,
    "modelPath": "/m/ü.bin",
    "playSoundCues": false,
    "provider": "local",
    "removeFillerWords": false,
    "serverPort": 8698,
    "whisperServerPath": ""
}
)"));
}

TEST(Config, AbsentAndNullKeysKeepDefaultsAndUnknownOnesAreIgnored) {
    EXPECT_EQ(decoded("{}"), Config::defaults());
    Config expected = Config::defaults();
    expected.serverPort = 9000;
    EXPECT_EQ(decoded(R"({"serverPort": 9000})"), expected);
    EXPECT_EQ(
        decoded(R"({"serverPort": 9000, "hotkey": null, "apiKeys": null, "playSoundCues": null,
                          "ServerPort": "x", "volume": [1, {"a": 2}]})"),
        expected);
}

TEST(Config, AWrongKindOfValueRefusesTheWholeRecord) {
    // What each kind of field accepts; every other kind of value is refused.
    const QHash<QString, QString> kinds{
        {u"modelPath"_qs, u"text"_qs},
        {u"whisperServerPath"_qs, u"text"_qs},
        {u"serverPort"_qs, u"integer"_qs},
        {u"language"_qs, u"text"_qs},
        {u"minHoldSeconds"_qs, u"number"_qs},
        {u"maxDictationSeconds"_qs, u"number"_qs},
        {u"hotkey"_qs, u"choice"_qs},
        {u"activationMode"_qs, u"choice"_qs},
        {u"provider"_qs, u"choice"_qs},
        {u"apiKeys"_qs, u"map"_qs},
        {u"apiModelOverride"_qs, u"text"_qs},
        {u"customBaseURL"_qs, u"text"_qs},
        {u"customVocabulary"_qs, u"text"_qs},
        {u"removeFillerWords"_qs, u"flag"_qs},
        {u"idleUnloadMinutes"_qs, u"integer"_qs},
        {u"playSoundCues"_qs, u"flag"_qs},
        {u"checkForUpdates"_qs, u"flag"_qs},
    };
    const std::vector<std::pair<QByteArray, QSet<QString>>> values{
        {R"("some text")", {u"text"_qs}},
        {R"("1")", {u"text"_qs}},
        {R"("true")", {u"text"_qs}},
        {R"("")", {u"text"_qs}},
        {"1", {u"integer"_qs, u"number"_qs}},
        {"0", {u"integer"_qs, u"number"_qs}},
        {"1.5", {u"number"_qs}},
        {"1e300", {u"number"_qs}},
        {"true", {u"flag"_qs}},
        {"false", {u"flag"_qs}},
        {"[]", {}},
        {"[1]", {}},
        {"{}", {u"map"_qs}},
        {R"({"openai": "k"})", {u"map"_qs}},
        {R"({"openai": 1})", {}},
        {R"({"openai": null})", {}},
        {R"({"groq": "k", "openai": {"a": "b"}})", {}},
    };
    for (const FieldChange &field : fieldChanges()) {
        for (const auto &[value, acceptedBy] : values) {
            const QByteArray json = "{\"" + field.key.toUtf8() + "\": " + value + "}";
            EXPECT_EQ(!refuses(json), acceptedBy.contains(kinds.value(field.key)))
                << json.constData();
        }
    }
}

TEST(Config, AnUnknownChoiceRefusesTheWholeRecord) {
    EXPECT_TRUE(refuses(R"({"hotkey": "leftOption"})"));
    EXPECT_TRUE(refuses(R"({"hotkey": "RightOption"})"));
    EXPECT_TRUE(refuses(R"({"hotkey": "hold"})"));
    EXPECT_TRUE(refuses(R"({"activationMode": "hold "})"));
    EXPECT_TRUE(refuses(R"({"provider": "azure"})"));
    EXPECT_TRUE(refuses(R"({"language": "de", "provider": 0})"));
}

TEST(Config, IntegersAreExactOrRefused) {
    const std::vector<std::pair<QByteArray, qint64>> accepted{
        {"9223372036854775807", std::numeric_limits<qint64>::max()},
        {"-9223372036854775808", std::numeric_limits<qint64>::min()},
        {"9007199254740993", 9007199254740993},
        {"-1", -1},
        {"-0", 0},
        {"5.0", 5}, // a whole number, however it is written
        {"5e0", 5},
        {"50e-1", 5},
        {"1e3", 1000},
    };
    for (const auto &[text, value] : accepted) {
        EXPECT_EQ(decoded("{\"serverPort\": " + text + "}").serverPort, value) << text.constData();
        EXPECT_EQ(decoded("{\"idleUnloadMinutes\":" + text + "}").idleUnloadMinutes, value);
    }
    for (const char *text : {"9223372036854775808", "-9223372036854775809", "9223372036854775807.0",
                             "1e19", "-1e19", "1e300", "1e400", "1.5", "-0.5", "1e-1", "0x10",
                             "NaN", "Infinity", "-9223372036854775808.5", "-9223372036854775808e0",
                             "99999999999999999999999999999999999999"}) {
        EXPECT_TRUE(refuses(QByteArray("{\"serverPort\": ") + text + "}")) << text;
        EXPECT_TRUE(refuses(QByteArray("{\"idleUnloadMinutes\": ") + text + "}")) << text;
    }
}

TEST(Config, SecondsMayBeWrittenAsAnInteger) {
    EXPECT_EQ(decoded(R"({"minHoldSeconds": 1})").minHoldSeconds, 1.0);
    EXPECT_EQ(decoded(R"({"maxDictationSeconds": 1e2})").maxDictationSeconds, 100.0);
    EXPECT_EQ(decoded(R"({"maxDictationSeconds": -0.5})").maxDictationSeconds, -0.5);
}

TEST(Config, AnInfiniteNumberIsNotEncoded) {
    for (const double number : {std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity(), std::nan("")}) {
        Config config = Config::defaults();
        config.minHoldSeconds = number;
        EXPECT_TRUE(config.encode().isEmpty());
        config = Config::defaults();
        config.maxDictationSeconds = number;
        EXPECT_TRUE(config.encode().isEmpty());
    }
}

TEST(Config, ARecordThatCouldNotBeReadBackIsNotEncoded) {
    Config config = Config::defaults();
    config.customVocabulary = QString(Config::kMaxFileBytes - 2000, u'v');
    EXPECT_EQ(decoded(config.encode()), config);
    config.customVocabulary = QString(Config::kMaxFileBytes, u'v');
    EXPECT_TRUE(config.encode().isEmpty());
}

TEST(Config, MalformedJsonIsRefused) {
    for (const QByteArray &json :
         {QByteArray(), QByteArray(" "), QByteArray("[]"), QByteArray("null"), QByteArray("7"),
          QByteArray("\"{}\""), QByteArray("{"), QByteArray("{}x"), QByteArray("{} {}"),
          QByteArray("{}\0", 3), QByteArray("{\"language\": \"de\",}"),
          QByteArray("{\"language\": \"\xff\xfe\"}"), QByteArray("{\"language\": \"d"),
          QByteArray("{'language': 'de'}"), QByteArray("{/**/}"), QByteArray("\x80\x04\x95"),
          QByteArray(100000, '['), QByteArray("{\"a\":").repeated(100000)}) {
        EXPECT_TRUE(refuses(json)) << json.left(40).constData();
    }
}

TEST(Config, AByteOrderMarkIsSkippedAndTheLastOfTwoEqualKeysCounts) {
    EXPECT_EQ(decoded("\xef\xbb\xbf{\"language\": \"de\"}").language, u"de");
    EXPECT_EQ(decoded(R"({"language": "de", "language": "fr"})").language, u"fr");
}

TEST(Config, HalfASurrogatePairBecomesAReplacementCharacter) {
    const Config config = decoded(
        R"({"modelPath": "a\ud800b", "language": "\udc00\ud83d", "customVocabulary": "\ud83c\udfa4",
            "apiKeys": {"x\udfff": "\ud800\ud800\udc00"}})");
    EXPECT_EQ(config.modelPath, u"a\uFFFDb");
    EXPECT_EQ(config.language, u"\uFFFD\uFFFD");
    EXPECT_EQ(config.customVocabulary, u"🎤");
    EXPECT_EQ(config.apiKeys.firstKey(), u"x\uFFFD");
    EXPECT_EQ(config.apiKeys.first(), u"\uFFFD\U00010000");
    EXPECT_EQ(decoded(config.encode()), config);

    Config typed = Config::defaults();
    typed.customVocabulary = QString(QChar(0xD800)) + u"QMX"_qs;
    typed.apiKeys.insert(u"groq"_qs, QString(QChar(0xDC00)));
    EXPECT_EQ(decoded(typed.encode()).customVocabulary, u"\uFFFDQMX");
    EXPECT_EQ(decoded(typed.encode()).apiKeys.value(u"groq"_qs), u"\uFFFD");
}

TEST(Config, ControlCharactersSurviveARoundTrip) {
    Config config = Config::defaults();
    for (char16_t unit = 0; unit < 0x100; ++unit)
        config.customVocabulary += QChar(unit);
    EXPECT_EQ(decoded(config.encode()), config);
}

TEST(Config, ADecodingErrorNeverNamesAValue) {
    const Result<Config> result = Config::decode(R"({"apiKeys": {"openai": ["sk-secret"]}})");
    ASSERT_FALSE(result.ok());
    EXPECT_FALSE(result.error().localizedDescription.contains(u"sk-secret"));
    EXPECT_TRUE(result.error().localizedDescription.contains(u"apiKeys"));
}

TEST(Config, TheRemoteModelIsTheOverrideUnlessEmpty) {
    Config config = Config::defaults();
    const QStringList expected{QString(), u"whisper-1"_qs, u"whisper-large-v3-turbo"_qs,
                               u"whisper-1"_qs};
    QStringList models;
    for (const TranscriptionProvider provider : kTranscriptionProviders) {
        config.provider = provider;
        models << config.effectiveRemoteModel();
    }
    EXPECT_EQ(models, expected);
    config.apiModelOverride = u" "_qs;
    EXPECT_EQ(config.effectiveRemoteModel(), u" ");
    config.provider = TranscriptionProvider::local;
    EXPECT_EQ(config.effectiveRemoteModel(), u" ");
}

TEST(Config, TheApiKeyIsThatOfTheProvider) {
    Config config = Config::defaults();
    config.apiKeys = {{u"openai"_qs, u"o"_qs}, {u"custom"_qs, u"c"_qs}};
    QStringList keys;
    for (const TranscriptionProvider provider : kTranscriptionProviders) {
        config.provider = provider;
        keys << config.apiKey();
    }
    EXPECT_EQ(keys, (QStringList{QString(), u"o"_qs, QString(), u"c"_qs}));
}

} // namespace

} // namespace quenda
