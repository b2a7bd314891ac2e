#ifndef ORVANE_IO_PIXELKIND_H
#define ORVANE_IO_PIXELKIND_H

#include <cstdint>
#include <string>

namespace orvane {
namespace io {

// The pixel types an image file of ours holds.
enum class PixelKind { UInt8, UInt16, Float32 };

template <typename T>
struct PixelKindOf;
template <>
struct PixelKindOf<unsigned char> {
    static constexpr PixelKind value = PixelKind::UInt8;
};
template <>
struct PixelKindOf<unsigned short> {
    static constexpr PixelKind value = PixelKind::UInt16;
};
template <>
struct PixelKindOf<float> {
    static constexpr PixelKind value = PixelKind::Float32;
};

int BytesPerPixel(PixelKind kind);
std::string PixelKindName(PixelKind kind);  // "8-bit unsigned", "16-bit unsigned", "32-bit float"

// The size and pixel kind of the frames of a file, and how many it holds.
struct FrameShape {
    int width = 0;
    int height = 0;
    PixelKind pixel = PixelKind::UInt16;
    int frames = 0;
};

// The largest frame any reader accepts: a header that claims more is refused before
// anything is allocated for it.
constexpr int kLargestFrameSide = 65535;
constexpr std::int64_t kLargestFramePixels = std::int64_t(1) << 28;

// Throws ImageFileError naming `file` unless 1 <= width, height <= kLargestFrameSide,
// width x height <= kLargestFramePixels and frames >= 0.
void CheckFrameShape(const std::string& file, const FrameShape& shape);

std::string ShapeText(const FrameShape& shape);  // "3121 x 3121 16-bit unsigned"

}  // namespace io
}  // namespace orvane

#endif
