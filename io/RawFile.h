#ifndef ORVANE_IO_RAWFILE_H
#define ORVANE_IO_RAWFILE_H

// Headerless frames as a receiver dumps them: `headerBytes` bytes to skip, then frame
// after frame of width x height pixels row after row, nothing after the last. The
// frame count is what the file's length holds; a length that is not the header plus a
// whole number of frames is refused. No metadata.

#include "io/SeriesSource.h"
#include "io/SeriesWriter.h"

#include <cstdint>
#include <memory>
#include <string>

namespace orvane {
namespace io {

struct RawLayout {
    int width = 0;
    int height = 0;
    PixelKind pixel = PixelKind::UInt16;
    bool bigEndian = false;
    std::int64_t headerBytes = 0;
};

// "<width>x<height>:<type>[:<header bytes>]", type one of u8, u16le, u16be, f32le,
// f32be: e.g. "3121x3121:u16le" or "2048x2048:u16be:512". std::invalid_argument with
// the reason for any other text.
RawLayout ParseRawLayout(const std::string& text);

std::unique_ptr<SeriesSource> OpenRawSeries(const std::string& path, const RawLayout& layout);
// Frames in the host's byte order, or big-endian with WriteOptions::bigEndian.
std::unique_ptr<SeriesWriter> CreateRawWriter(const std::string& path, const WriteOptions& options);

}  // namespace io
}  // namespace orvane

#endif
