#include "Platform/Linux/SelectionContents.h"

#include <algorithm>
#include <array>

namespace quenda {

namespace {

const std::array kTextTargets = {"UTF8_STRING", "text/plain;charset=utf-8", "text/plain", "STRING",
                                 "TEXT"};

bool fitsLatin1(const QString &text) {
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() <= 0xFF; });
}

} // namespace

SelectionContents plainTextContents(const QString &text) {
    const QByteArray utf8 = text.toUtf8();
    SelectionContents contents{
        {"UTF8_STRING", "UTF8_STRING", 8, utf8},
        {"text/plain;charset=utf-8", "text/plain;charset=utf-8", 8, utf8},
        {"text/plain", "text/plain", 8, utf8},
    };
    // STRING is Latin-1; text that it cannot carry is better not offered than mangled.
    if (fitsLatin1(text)) {
        const QByteArray latin1 = text.toLatin1();
        contents.push_back({"STRING", "STRING", 8, latin1});
        contents.push_back({"TEXT", "STRING", 8, latin1});
    } else {
        contents.push_back({"TEXT", "UTF8_STRING", 8, utf8});
    }
    return contents;
}

SelectionContents plainTextOf(const SelectionContents &contents) {
    SelectionContents text;
    for (const SelectionData &data : contents) {
        if (std::find(kTextTargets.begin(), kTextTargets.end(), data.target) != kTextTargets.end())
            text.push_back(data);
    }
    return text;
}

bool isPseudoTarget(const QByteArray &target) {
    static const std::array kPseudo = {"TARGETS",      "TIMESTAMP", "MULTIPLE",
                                       "SAVE_TARGETS", "DELETE",    "application/x-qt-image"};
    return target.isEmpty() || target.startsWith("INSERT_") ||
           std::find(kPseudo.begin(), kPseudo.end(), target) != kPseudo.end();
}

} // namespace quenda
