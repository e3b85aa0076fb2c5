#include "Quenda/Languages.h"

namespace quenda::Languages {

namespace {
constexpr Language kAll[] = {
    {u"auto", u"Auto-detect"},
    {u"en", u"English"},
    {u"zh", u"Chinese (中文)"},
    {u"ms", u"Bahasa Melayu"},
    {u"id", u"Bahasa Indonesia"},
    {u"ta", u"Tamil (தமிழ்)"},
    {u"hi", u"Hindi (हिन्दी)"},
    {u"ja", u"Japanese (日本語)"},
    {u"ko", u"Korean (한국어)"},
    {u"th", u"Thai (ไทย)"},
    {u"vi", u"Vietnamese"},
    {u"tl", u"Filipino"},
    {u"es", u"Spanish"},
    {u"fr", u"French"},
    {u"de", u"German"},
    {u"it", u"Italian"},
    {u"pt", u"Portuguese"},
    {u"nl", u"Dutch"},
    {u"ru", u"Russian"},
    {u"ar", u"Arabic (العربية)"},
    {u"tr", u"Turkish"},
    {u"pl", u"Polish"},
    {u"sv", u"Swedish"},
    {u"bn", u"Bengali (বাংলা)"},
    {u"ur", u"Urdu (اردو)"},
    {u"te", u"Telugu (తెలుగు)"},
    {u"ml", u"Malayalam (മലയാളം)"},
    {u"kn", u"Kannada (ಕನ್ನಡ)"},
    {u"pa", u"Punjabi (ਪੰਜਾਬੀ)"},
};
static_assert(std::size(kAll) == 29);
} // namespace

std::span<const Language> all() {
    return kAll;
}

} // namespace quenda::Languages
