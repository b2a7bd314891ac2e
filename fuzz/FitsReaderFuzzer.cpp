// The FITS reader on the fuzz bytes as a file: open it, read its frames.
//
// A header card whose string value lacks its closing quote (which cfitsio would
// overrun a buffer converting) is refused by the reader at open, as any other.

#include "fuzz/ScratchFile.h"
#include "fuzz/SeriesReading.h"
#include "io/FitsFile.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static orvane::fuzz::ScratchFile file("input.fits");
    file.Write(data, size);
    try {
        const auto source = orvane::io::OpenFitsSeries(file.Path());
        orvane::fuzz::ReadSeries(*source);
    } catch (const orvane::io::ImageFileError&) {
        // The file refused, as documented.
    }
    return 0;
}
