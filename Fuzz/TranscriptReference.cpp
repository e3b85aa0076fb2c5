#include "TranscriptReference.h"

#include "FuzzTarget.h"

#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/uregex.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>

namespace quenda::fuzz {

namespace {

void expectSuccess(UErrorCode status, const char *what) {
    PROMISE_SHOWING(U_SUCCESS(status), QString::fromLatin1(u_errorName(status)) +
                                           QStringLiteral(" in ") + QString::fromLatin1(what));
}

// ICU documents its \s as [\t\n\f\r\p{Z}] but release 72 takes the vertical tab and NEL as well, so
// the set is written out.
#define SPACE "[\\t\\n\\f\\r\\p{Z}]"
#define SPACE_OR(MORE) "[\\t\\n\\f\\r\\p{Z}" MORE "]"
#define FILLER "(?:u+m+|u+h+|e+r+m+|e+r+|h+m+m*)"

class Replacement {
public:
    Replacement(const char *pattern, std::u16string with)
        : m_pattern(pattern),
          m_with(std::move(with)) {
        UErrorCode status = U_ZERO_ERROR;
        m_expression = uregex_openC(pattern, 0, nullptr, &status);
        expectSuccess(status, pattern);
    }
    ~Replacement() { uregex_close(m_expression); }
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;

    std::u16string in(const std::u16string &text) const {
        UErrorCode status = U_ZERO_ERROR;
        uregex_setText(m_expression, text.c_str(), int32_t(text.size()), &status);
        // A replacement here is never longer than its match, but for "" the buffer needs a unit.
        std::u16string result(text.size() + 1, u'\0');
        const int32_t length =
            uregex_replaceAll(m_expression, m_with.c_str(), int32_t(m_with.size()), result.data(),
                              int32_t(result.size()), &status);
        expectSuccess(status, m_pattern);
        result.resize(size_t(length));
        return result;
    }

private:
    const char *m_pattern;
    std::u16string m_with;
    URegularExpression *m_expression = nullptr;
};

// Removes what `inSet` has from both ends, code point by code point.
template <typename InSet>
std::u16string trimmed(std::u16string_view text, InSet inSet) {
    int32_t begin = 0;
    auto end = int32_t(text.size());
    while (begin < end) {
        int32_t next = begin;
        UChar32 c = 0;
        U16_NEXT(text.data(), next, end, c);
        if (!inSet(c))
            break;
        begin = next;
    }
    while (begin < end) {
        int32_t previous = end;
        UChar32 c = 0;
        U16_PREV(text.data(), begin, previous, c);
        if (!inSet(c))
            break;
        end = previous;
    }
    return std::u16string(text.substr(size_t(begin), size_t(end - begin)));
}

using CaseMapping = int32_t (*)(UChar *, int32_t, const UChar *, int32_t, const char *,
                                UErrorCode *);

std::u16string mapped(CaseMapping mapping, std::u16string_view text) {
    std::u16string result(text.size() * 3 + 1, u'\0'); // no character becomes more than three
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = mapping(result.data(), int32_t(result.size()), text.data(),
                                   int32_t(text.size()), "", &status);
    expectSuccess(status, "case mapping");
    result.resize(size_t(length));
    return result;
}

constexpr std::array<std::u16string_view, 26> kHallucinations{
    u"you",
    u"thank you",
    u"thank you very much",
    u"thanks",
    u"thanks for watching",
    u"thank you for watching",
    u"thanks for listening",
    u"please subscribe",
    u"see you in the next video",
    u"bye",
    u"terima kasih kerana menonton",
    u"terima kasih",
    u"terima kasih sudah menonton",
    u"ご視聴ありがとうございました",
    u"お疲れ様でした",
    u"字幕由amara.org社区提供",
    u"请不吝点赞订阅转发打赏支持明镜与点点栏目",
    u"谢谢观看",
    u"subtitles by the amara.org community",
    u"sottotitoli creati dalla comunità amara.org",
    u"sous-titres réalisés para la communauté d'amara.org",
    u"gracias por ver",
    u"obrigado por assistir",
    u"vielen dank für's zuschauen",
    u"продолжение следует",
    u"시청해주셔서 감사합니다",
};

// The first user-perceived character of the text; of one that is longer than this bound, which no
// language has, only so much is looked at.
std::u16string_view firstCharacter(std::u16string_view text) {
    constexpr size_t kLongest = 256;
    const std::u16string_view head = text.substr(0, kLongest);
    UErrorCode status = U_ZERO_ERROR;
    static UBreakIterator *const characters = ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status);
    expectSuccess(status, "break iterator");
    ubrk_setText(characters, head.data(), int32_t(head.size()), &status);
    expectSuccess(status, "break iterator's text");
    const int32_t end = ubrk_next(characters);
    return head.substr(0, end == UBRK_DONE ? 0 : size_t(end));
}

std::u16string_view firstCodePoint(std::u16string_view text) {
    int32_t end = 0;
    if (!text.empty())
        U16_FWD_1(text.data(), end, int32_t(text.size()));
    return text.substr(0, size_t(end));
}

} // namespace

std::u16string referenceCleanTranscript(std::u16string_view input) {
    static const Replacement brackets("\\[[^\\]]*\\]", u"");
    static const Replacement parentheses("\\([^)]*\\)", u"");
    static const Replacement asterisks("\\*[^*]*\\*", u"");
    static const Replacement spaces(SPACE "+", u" ");

    std::u16string text(input);
    for (const Replacement *each : {&brackets, &parentheses, &asterisks, &spaces})
        text = each->in(text);
    text = trimmed(text, [](UChar32 c) { return bool(u_isUWhiteSpace(c)); });
    const std::u16string key = trimmed(mapped(u_strToLower, text), [](UChar32 c) {
        return bool(u_ispunct(c)) || bool(u_isblank(c));
    });
    const bool dropped =
        std::find(kHallucinations.begin(), kHallucinations.end(), key) != kHallucinations.end();
    return dropped ? std::u16string() : text;
}

std::u16string referenceRemoveFillerWords(std::u16string_view input) {
    static const Replacement betweenCommas("(?i)," SPACE "*" FILLER SPACE "*,", u" ");
    static const Replacement beforeEnd("(?i)," SPACE "*" FILLER SPACE "*([.!?])", u"$1");
    static const Replacement freeStanding("(?i)(^|" SPACE_OR(",") ")" FILLER "([,.!?]|" SPACE "|$)",
                                          u"$1$2");
    static const Replacement twoSpaces(SPACE "{2,}", u" ");
    static const Replacement spacesBeforeMark(SPACE "+([,.!?])", u"$1");
    static const Replacement leading("^" SPACE_OR(",.") "+", u"");
    static const Replacement twoCommas("," SPACE "*,", u",");

    std::u16string text(input);
    for (const Replacement *each : {&betweenCommas, &beforeEnd, &freeStanding, &twoSpaces,
                                    &spacesBeforeMark, &leading, &twoCommas})
        text = each->in(text);

    const std::u16string_view letter = firstCodePoint(text);
    if (mapped(u_strToUpper, letter) != letter && mapped(u_strToLower, letter) == letter) {
        const std::u16string_view first = firstCharacter(text);
        text = mapped(u_strToUpper, first) + text.substr(first.size());
    }
    return trimmed(text, [](UChar32 c) { return bool(u_isblank(c)); });
}

bool icuKnows(char32_t c) {
    return u_charType(UChar32(c)) != U_UNASSIGNED;
}

} // namespace quenda::fuzz
