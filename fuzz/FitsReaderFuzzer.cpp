// The FITS reader on the fuzz bytes as a file: open it, read its frames.
//
// Inputs with a header card whose string value lacks its closing quote are skipped:
// cfitsio (4.2) overflows a buffer of its own when it converts such a value to a
// number (a TIMEnnnn keyword of ours, read as an integer, is enough). Such a card is
// no FITS; the reader relies on cfitsio for it.

#include "fuzz/ScratchFile.h"
#include "fuzz/SeriesReading.h"
#include "io/FitsFile.h"

#include <cstddef>
#include <cstdint>

namespace {

constexpr std::size_t kCard = 80;

// Whether a card "KEYWORD = '..." has no closing quote ('' inside a string is a quote).
bool HasUnterminatedString(const std::uint8_t* card) {
    if (card[8] != '=' || card[9] != ' ') return false;
    std::size_t at = 10;
    while (at < kCard && card[at] == ' ') ++at;
    if (at == kCard || card[at] != '\'') return false;
    for (++at; at < kCard; ++at) {
        if (card[at] != '\'') continue;
        if (at + 1 < kCard && card[at + 1] == '\'') {
            ++at;
            continue;
        }
        return false;
    }
    return true;
}

bool AnyUnterminatedString(const std::uint8_t* data, std::size_t size) {
    for (std::size_t at = 0; at + kCard <= size; at += kCard) {
        if (HasUnterminatedString(data + at)) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static orvane::fuzz::ScratchFile file("input.fits");
    if (AnyUnterminatedString(data, size)) return 0;
    file.Write(data, size);
    try {
        const auto source = orvane::io::OpenFitsSeries(file.Path());
        orvane::fuzz::ReadSeries(*source);
    } catch (const orvane::io::ImageFileError&) {
        // The file refused, as documented.
    }
    return 0;
}
