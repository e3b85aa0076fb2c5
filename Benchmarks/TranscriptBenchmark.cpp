// The transcript filters on ordinary text and on text made to be slow. The figure to look at is the
// complexity: every line must come out as N.
#include "Quenda/WhisperEngine.h"

#include <benchmark/benchmark.h>

#include <array>
#include <string>

using quenda::WhisperEngine;

namespace {

struct Text {
    const char *name;
    const char16_t *start;
    const char16_t *unit;
};

constexpr std::array kTexts{
    Text{"prose", u"",
         u"The meeting, um, starts at noon (laughter), and, uh, everyone brings a cake. "},
    Text{"open brackets", u"", u"["},
    Text{"open parentheses", u"", u"(*"},
    Text{"commas and spaces", u"", u", "},
    Text{"commas and fillers", u"", u",um"},
    Text{"spaces", u"x", u" "},
    Text{"wide spaces", u"x", u"\u3000"},
    Text{"hmmmm", u", h", u"m"},
    Text{"er er er", u"", u"er "},
    Text{"marks", u"a", u"\u0301"},
};

QString textOf(const Text &text, qsizetype length) {
    const QString unit = QString::fromUtf16(text.unit);
    QString made = QString::fromUtf16(text.start);
    made += unit.repeated((length - made.size()) / unit.size() + 1);
    made.truncate(length);
    return made;
}

using Filter = QString (*)(const QString &);

void run(benchmark::State &state, Filter filter, const Text &text) {
    const QString input = textOf(text, state.range(0));
    for ([[maybe_unused]] const auto &round : state)
        benchmark::DoNotOptimize(filter(input));
    state.SetComplexityN(state.range(0));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void add(const char *name, Filter filter) {
    for (const Text &text : kTexts) {
        const std::string title = std::string(name) + "/" + text.name;
        benchmark::RegisterBenchmark(title.c_str(), run, filter, text)
            ->Arg(10'000)
            ->Arg(100'000)
            ->Arg(1'000'000)
            ->Unit(benchmark::kMicrosecond)
            ->Complexity();
    }
}

} // namespace

int main(int argc, char **argv) {
    add("cleanTranscript", WhisperEngine::cleanTranscript);
    add("removeFillerWords", WhisperEngine::removeFillerWords);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
