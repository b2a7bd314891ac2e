// The raw reader: the fuzz bytes are a layout text, a newline, a byte that lengthens
// the file by that many 4 KiB blocks of zeros (sparse), and the file's bytes.

#include "fuzz/ScratchFile.h"
#include "fuzz/SeriesReading.h"
#include "io/RawFile.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static orvane::fuzz::ScratchFile file("input.raw");
    const std::uint8_t* const end = data + size;
    const std::uint8_t* newline = data;
    while (newline != end && *newline != '\n') ++newline;
    const std::string layoutText(data, newline);
    const std::uint8_t* body = newline == end ? end : newline + 1;
    const unsigned blocks = body == end ? 0 : *body++;
    file.Write(body, std::size_t(end - body));
    if (blocks != 0) file.Resize(std::uintmax_t(end - body) + std::uintmax_t(blocks) * 4096);

    orvane::io::RawLayout layout;
    try {
        layout = orvane::io::ParseRawLayout(layoutText);
    } catch (const std::invalid_argument&) {
        return 0;  // refused, as documented
    }
    try {
        const auto source = orvane::io::OpenRawSeries(file.Path(), layout);
        orvane::fuzz::ReadSeries(*source);
    } catch (const orvane::io::ImageFileError&) {
    }
    return 0;
}
