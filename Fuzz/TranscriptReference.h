#pragma once
// The two text filters of the engine as their definition says them: one regular expression after
// the other, run by ICU. Slow and wholly apart from the scanners that the program uses.

#include <string>
#include <string_view>

namespace quenda::fuzz {

std::u16string referenceCleanTranscript(std::u16string_view text);
std::u16string referenceRemoveFillerWords(std::u16string_view text);

/// Whether ICU's tables have the character; it and Qt know different versions of Unicode.
bool icuKnows(char32_t c);

} // namespace quenda::fuzz
