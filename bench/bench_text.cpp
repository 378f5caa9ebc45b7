// Text decoding: stored bytes to UTF-16 for the character sets a site meets
// most (Latin-1, UTF-8) and a multi-byte ISO 2022 one (Japanese JIS X 0208).
#include <benchmark/benchmark.h>

#include <string>

#include "dicomdata/dicomitem.h"

namespace {

struct TextCase {
    const char* vr;
    const char16_t* characterSet;
    std::string bytes;
};

TextCase Case(int which)
{
    switch (which) {
    case 0:  // ISO_IR 100: Latin-1 person name
        return {"PN", u"ISO_IR 100", "M\xFCller^J\xFCrgen"};
    case 1:  // ISO_IR 100: a report-sized LT value
    {
        std::string text;
        while (text.size() < 4096)
            text += "Befund: kein Nachweis einer Lungenembolie. Pleuraerguss rechts, gr\xF6\xDF" "enregredient. ";
        return {"LT", u"ISO_IR 100", text};
    }
    case 2:  // ISO_IR 192: UTF-8 name with alphabetic, ideographic and phonetic groups
        return {"PN", u"ISO_IR 192",
                "Wang^XiaoDong=\xE7\x8E\x8B^\xE5\xB0\x8F\xE6\x9D\xB1=\xE3\x82\xA6\xE3\x82\xA9\xE3\x83\xB3^"
                "\xE3\x82\xB7\xE3\x83\xA7\xE3\x82\xA6\xE3\x83\x88\xE3\x83\xB3"};
    default:  // ISO 2022 IR 87: JIS X 0208 switched in and out by escape sequences
        return {"PN", u"ISO 2022 IR 87",
                "Yamada^Tarou=\x1B$B;3ED\x1B(B^\x1B$BB@O:\x1B(B=\x1B$B$d$^$@\x1B(B^\x1B$B$?$m$&\x1B(B"};
    }
}

void BM_TranslateTagValueFromDicomToUnicode(benchmark::State& state, int which)
{
    const TextCase text = Case(which);
    const std::u16string decoded = CDicomItem::TranslateTagValueFromDicomToUnicode(text.bytes, text.vr, text.characterSet);
    const size_t characters = decoded.size();
    if (characters == 0) {
        state.SkipWithError("the value decoded to nothing");
        return;
    }
    // A converter that passes escape sequences through, or leaves UTF-8 as
    // bytes, is fast for the wrong reason: say so beside the number.
    if (decoded.find(u'\x1B') != std::u16string::npos)
        state.SetLabel("escape sequences left in the text");
    else if (text.characterSet == std::u16string(u"ISO_IR 192") && characters == text.bytes.size())
        state.SetLabel("UTF-8 not decoded");
    for (auto _ : state)
        benchmark::DoNotOptimize(CDicomItem::TranslateTagValueFromDicomToUnicode(text.bytes, text.vr, text.characterSet));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.bytes.size()));
    state.counters["chars/s"] =
        benchmark::Counter(static_cast<double>(characters), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK_CAPTURE(BM_TranslateTagValueFromDicomToUnicode, latin1_pn, 0);
BENCHMARK_CAPTURE(BM_TranslateTagValueFromDicomToUnicode, latin1_lt_4k, 1);
BENCHMARK_CAPTURE(BM_TranslateTagValueFromDicomToUnicode, utf8_pn, 2);
BENCHMARK_CAPTURE(BM_TranslateTagValueFromDicomToUnicode, iso2022_japanese_pn, 3);

}  // namespace
