#pragma once
// The languages offered for dictation, in the picker's order. Any thread.

#include <QString>

#include <span>

namespace quenda {

struct Language {
    const char16_t *code; ///< as stored in the settings; "auto" means automatic detection
    const char16_t *name; ///< as shown, untranslated

    QString codeText() const { return QString::fromUtf16(code); }
    QString title() const { return QString::fromUtf16(name); }
};

namespace Languages {
/// All 29 choices.
std::span<const Language> all();
} // namespace Languages

} // namespace quenda
