#include "io/PixelKind.h"

#include "io/ImageFileError.h"

namespace orvane {
namespace io {

int BytesPerPixel(PixelKind kind) {
    switch (kind) {
        case PixelKind::UInt8: return 1;
        case PixelKind::UInt16: return 2;
        case PixelKind::Float32: return 4;
    }
    return 0;
}

std::string PixelKindName(PixelKind kind) {
    switch (kind) {
        case PixelKind::UInt8: return "8-bit unsigned";
        case PixelKind::UInt16: return "16-bit unsigned";
        case PixelKind::Float32: return "32-bit float";
    }
    return "unknown";
}

void CheckFrameShape(const std::string& file, const FrameShape& shape) {
    const bool sides = shape.width >= 1 && shape.height >= 1 && shape.width <= kLargestFrameSide &&
                       shape.height <= kLargestFrameSide;
    if (!sides || std::int64_t(shape.width) * shape.height > kLargestFramePixels) {
        throw ImageFileError(file, "frames of " + std::to_string(shape.width) + " x " + std::to_string(shape.height) +
                                       " pixels are beyond what is read (at most " +
                                       std::to_string(kLargestFrameSide) + " a side and " +
                                       std::to_string(kLargestFramePixels) + " pixels)");
    }
    if (shape.frames < 0) throw ImageFileError(file, "claims " + std::to_string(shape.frames) + " frames");
}

std::string ShapeText(const FrameShape& shape) {
    return std::to_string(shape.width) + " x " + std::to_string(shape.height) + " " + PixelKindName(shape.pixel);
}

}  // namespace io
}  // namespace orvane
