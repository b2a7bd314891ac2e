#ifndef ORVANE_IMAGE_IMAGEBUFFER_H
#define ORVANE_IMAGE_IMAGEBUFFER_H

#include "image/BufferExpression.h"
#include "image/ImageBufferExtract.h"

// The flat view of an image's pixels: `size` elements at `data`, owned by the image.
//
// Element-wise arithmetic: `*target = expression` and `*target += expression`, with
// operands that are buffers, float scalars and other expressions, e.g.
//     *acc->GetBuffer() += *frame->GetBuffer();
//     *offset->GetBuffer() = *acc->GetBuffer() / float(n) + 0.5f;
// The rules of evaluation (smallest size, rounding per operator, integer targets)
// are those of image/BufferExpression.h. Assigning a buffer of the same type copies
// its elements; a buffer is never copied as a view.
template <typename T>
struct ImageBuffer {
    int size;
    T* data;

    ImageBuffer(T* storage, int count) : size(count), data(storage) {}
    ImageBuffer(const ImageBuffer&) = delete;

    ImageBuffer& operator=(const ImageBuffer& source) {
        orvane::detail::Evaluate(data, size, orvane::detail::MakeOperand(source));
        return *this;
    }

    template <typename X, std::enable_if_t<orvane::detail::IsBufferOrNode<X>::value, int> = 0>
    ImageBuffer& operator=(const X& expression) {
        orvane::detail::Evaluate(data, size, orvane::detail::MakeOperand(expression));
        return *this;
    }

    template <typename X, std::enable_if_t<orvane::detail::IsBufferOrNode<X>::value, int> = 0>
    ImageBuffer& operator+=(const X& expression) {
        using orvane::detail::operator+;
        return *this = *this + expression;
    }

    // Copies the rectangle row after row into the first min(size, width * height)
    // elements.
    ImageBuffer& operator=(const ImageBufferExtract<T>& extract) {
        const int n = std::min(size, extract.width * extract.height);
        const T* source = extract.buffer->data;
        for (int i = 0, row = 0; i < n; ++row) {
            const T* line = source + static_cast<long>(extract.y + row) * extract.totalWidth + extract.x;
            const int count = std::min(extract.width, n - i);
            std::copy(line, line + count, data + i);
            i += count;
        }
        return *this;
    }

    // The rectangle (x, y, width, height) of an image of totalWidth x totalHeight
    // held in this buffer. Throws std::out_of_range "extract out of buffer range"
    // unless the rectangle lies inside the image and the image inside the buffer.
    ImageBufferExtract<T> Extract(int x, int y, int width, int height, int totalWidth,
                                  int totalHeight) const {
        orvane::detail::CheckRectangle(x, y, width, height, totalWidth, totalHeight);
        if (static_cast<long>(totalWidth) * totalHeight > size) {
            throw std::out_of_range(orvane::detail::kExtractOutOfRange);
        }
        return ImageBufferExtract<T>{this, x, y, width, height, totalWidth, totalHeight};
    }
};

using orvane::detail::operator+;
using orvane::detail::operator-;
using orvane::detail::operator*;
using orvane::detail::operator/;

#endif
