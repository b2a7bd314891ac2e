#ifndef ORVANE_IMAGE_IMAGEPIXELRECT_H
#define ORVANE_IMAGE_IMAGEPIXELRECT_H

#include "image/BufferExpression.h"
#include "image/ImageBufferExtract.h"

#include <algorithm>

// A rectangle of an image as a target of writing: `width` columns from (x, y) of an
// image of totalWidth x totalHeight whose first pixel is `data`; `count` pixels.
// Made by ImageAcquisition<T>::GetPixelRect, which checks it.
template <typename T>
struct ImagePixelRect {
    int x;
    int y;
    int width;
    int totalWidth;
    int totalHeight;
    int count;
    T* data;

    // Writes min(count, extract width x height) pixels of the extract, row after row
    // of this rectangle. Each value is truncated toward zero and its low bits stored.
    template <typename S>
    ImagePixelRect& operator=(const ImageBufferExtract<S>& extract) {
        const int n = std::min(count, extract.width * extract.height);
        const S* source = extract.buffer->data;
        int sourceRow = extract.y, sourceColumn = extract.x;
        T* target = data + static_cast<long>(y) * totalWidth + x;
        int column = 0;
        for (int i = 0; i < n; ++i) {
            target[column] = orvane::detail::Store<T>(
                source[static_cast<long>(sourceRow) * extract.totalWidth + sourceColumn]);
            if (++column == width) {
                column = 0;
                target += totalWidth;
            }
            if (++sourceColumn == extract.x + extract.width) {
                sourceColumn = extract.x;
                ++sourceRow;
            }
        }
        return *this;
    }
};

#endif
