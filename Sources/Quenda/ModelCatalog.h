#pragma once
// The speech models that the program offers, and those that a user put beside them. Plain values;
// any thread.

#include <QList>
#include <QString>
#include <QStringList>

namespace quenda {

struct WhisperModel {
    QString fileName; ///< in the models folder and at the end of the download address; identity
    QString title;
    QString detail; ///< one line
    int sizeMB = 0; ///< approximate, in units of 1,000,000 bytes

    bool operator==(const WhisperModel &) const = default;

    /// The five models on offer, in the order of display.
    static const QList<WhisperModel> &catalog();
    /// The one that a new user is offered first.
    static const WhisperModel &compact();
};

/// "574 MB", "1.6 GB": decimal units, the same in every language.
QString sizeLabel(int mb);

/// The names of the `.bin` files in the models folder that are not in the catalog, in ascending
/// order; none where the folder cannot be read.
QStringList extraModels();

} // namespace quenda
