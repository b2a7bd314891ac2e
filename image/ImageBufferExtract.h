#ifndef ORVANE_IMAGE_IMAGEBUFFEREXTRACT_H
#define ORVANE_IMAGE_IMAGEBUFFEREXTRACT_H

#include <stdexcept>

template <typename T>
struct ImageBuffer;

// A rectangle of a buffer: element i, counted row after row inside the rectangle,
// is element (y + i / width) * totalWidth + x + i % width of the buffer.
// Made by ImageBuffer<T>::Extract, which checks it.
template <typename T>
struct ImageBufferExtract {
    const ImageBuffer<T>* buffer;
    int x;
    int y;
    int width;
    int height;
    int totalWidth;
    int totalHeight;
};

namespace orvane {
namespace detail {

inline const char* const kExtractOutOfRange = "extract out of buffer range";

// A rectangle is inside an image of totalWidth x totalHeight when x < totalWidth,
// y < totalHeight, x + width <= totalWidth and y + height <= totalHeight (and no
// value is negative).
inline void CheckRectangle(int x, int y, int width, int height, int totalWidth, int totalHeight) {
    if (x < 0 || y < 0 || width < 0 || height < 0 || x >= totalWidth || y >= totalHeight ||
        width > totalWidth - x || height > totalHeight - y) {
        throw std::out_of_range(kExtractOutOfRange);
    }
}

}  // namespace detail
}  // namespace orvane

#endif
