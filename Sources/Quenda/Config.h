#pragma once
// The settings record: a plain value, compared field by field, coded as one JSON object whose keys
// are the field names. ConfigStore owns the current one. Any thread.

#include "Platform/Error.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <array>

namespace quenda {

enum class HotkeyChoice { rightOption, rightCommand, rightControl, fnGlobe };
enum class ActivationMode { hold, toggle };
enum class TranscriptionProvider { local, openai, groq, custom };

/// All cases in the order of every picker that shows them.
inline constexpr std::array kHotkeyChoices{HotkeyChoice::rightOption, HotkeyChoice::rightCommand,
                                           HotkeyChoice::rightControl, HotkeyChoice::fnGlobe};
inline constexpr std::array kActivationModes{ActivationMode::hold, ActivationMode::toggle};
inline constexpr std::array kTranscriptionProviders{
    TranscriptionProvider::local, TranscriptionProvider::openai, TranscriptionProvider::groq,
    TranscriptionProvider::custom};

/// The text that stands for a case in the settings file, and its identity in lists.
QString rawValue(HotkeyChoice choice);
QString rawValue(ActivationMode mode);
QString rawValue(TranscriptionProvider provider);

/// The text that the user reads.
QString title(HotkeyChoice choice);
QString title(ActivationMode mode);
QString title(TranscriptionProvider provider);

/// The model asked for where the user has not named one; empty for `local`.
QString defaultRemoteModel(TranscriptionProvider provider);

struct Config {
    QString modelPath;         ///< absolute path of the local speech model
    QString whisperServerPath; ///< empty: none chosen
    qint64 serverPort = 8698;  ///< TCP port on 127.0.0.1
    QString language = QStringLiteral("en");
    double minHoldSeconds = 0.25;
    double maxDictationSeconds = 180.0;
    HotkeyChoice hotkey = HotkeyChoice::rightOption;
    ActivationMode activationMode = ActivationMode::hold;
    TranscriptionProvider provider = TranscriptionProvider::local;
    QMap<QString, QString> apiKeys; ///< by the provider's raw value; secret
    QString apiModelOverride;       ///< empty: the provider's default
    QString customBaseURL;
    QString customVocabulary;
    bool removeFillerWords = false;
    qint64 idleUnloadMinutes = 0; ///< below 1: never
    bool playSoundCues = false;
    bool checkForUpdates = true;

    bool operator==(const Config &) const = default;

    /// A fresh record; `modelPath` names the default model in modelsDir().
    static Config defaults();

    /// The model name sent to a cloud provider: `apiModelOverride` as it stands unless empty.
    QString effectiveRemoteModel() const;
    /// The key stored for `provider`; empty where there is none. Secret.
    QString apiKey() const;

    /// One JSON object with all 17 keys, sorted, pretty-printed, UTF-8. Empty where the record
    /// cannot be written as JSON that reads back: a number that is infinite or none, or more than
    /// kMaxFileBytes. Half a surrogate pair is written as U+FFFD.
    QByteArray encode() const;
    /// Absent or null keys keep their defaults and unknown ones are ignored; one value of the
    /// wrong kind refuses the whole record. An integer may be written as 5.0 or 5e0. Of a key that
    /// occurs twice the last one counts. Half a surrogate pair is read as U+FFFD.
    static Result<Config> decode(const QByteArray &json);

    static QString dataFolder(); ///< the folder "Quenda" of the application-support folder
    static QString configURL();  ///< the settings file
    static QString modelsDir();  ///< the models folder; asking does not create it

    /// The settings file is a regular file of at most this size, a thousand times what it needs;
    /// any other is treated like one that cannot be read.
    static constexpr qint64 kMaxFileBytes = 4 * 1024 * 1024;

    /// The record in the settings file, which may be reached through a symbolic link.
    static Result<Config> load();

    /// Moves the data folder of the product's former name to the present one, once.
    static void migrateLegacyDataIfNeeded();
    /// Writes this record to the settings file, in place and readable by the owner only; a
    /// symbolic link that the user put there is followed. Errors are swallowed, and a record that
    /// encode() refuses leaves the file as it is.
    void save() const;
};

} // namespace quenda
