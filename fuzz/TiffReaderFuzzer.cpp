// The TIFF reader on the fuzz bytes as a file: open it, read its frames.

#include "fuzz/ScratchFile.h"
#include "fuzz/SeriesReading.h"
#include "io/TiffFile.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static orvane::fuzz::ScratchFile file("input.tif");
    file.Write(data, size);
    try {
        const auto source = orvane::io::OpenTiffSeries(file.Path());
        orvane::fuzz::ReadSeries(*source);
    } catch (const orvane::io::ImageFileError&) {
        // The file refused, as documented.
    }
    return 0;
}
