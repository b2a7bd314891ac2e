#ifndef ORVANE_TOOLS_IMAGEFILTERS_H
#define ORVANE_TOOLS_IMAGEFILTERS_H

// Image filters of float images.
//
// Common rules:
//  - `source` and `target` must be non-null and of the same width and height;
//    otherwise, and for the other bad arguments named below, a filter raises
//    std::invalid_argument before it writes anything;
//  - `source` and `target` may be the same image;
//  - each term of the morphology is one float operation, correctly rounded (the
//    same as computing in double and rounding to float at the store); the
//    average's rounding is told at ApplyAverageFilter;
//  - the target's properties are left as they are.
//
// Pixel (x, y) of an image of width W is element y * W + x.

#include "image/ImageAcquisition.h"

#include <boost/logic/tribool.hpp>

// Moving median along each row: target(x, y) is the median of the window of `size`
// samples of row y centred on x, i.e. columns x - size / 2 to x - size / 2 + size - 1
// (for an even size one more sample on the left than on the right), cut at the row
// ends, so the windows near the ends hold fewer samples. NaN samples are left out
// of the window. The median of k samples is the one of rank (k - 1) / 2 in ascending
// order (for an even k the lower middle one), -0.0 ranking below +0.0; a window
// without any sample gives NaN. `size` must be at least 1. The window is kept
// sorted: per pixel one binary search and one shift of the samples between the
// leaving and the entering one, so the cost grows at most linearly with `size`.
void ApplyMedianFilter(const ImagePtr<float>& source, int size, const ImagePtr<float>& target);

// Moving average along each row, over the same windows as ApplyMedianFilter, NaN
// samples left out: the sum of the window's samples, kept in double as a running
// sum (the entering sample added, the leaving one subtracted), divided by their
// count in double and rounded to float. While the partial sums are exact in double
// (integers, or values of few significant bits, are) this equals a fresh sum of the
// window; otherwise the double roundings carried along the row may move the result
// by an ulp. A window holding +inf gives +inf, one holding -inf gives -inf, one
// holding both or no sample gives NaN. `size` must be at least 1. The cost per
// pixel does not depend on `size`.
void ApplyAverageFilter(const ImagePtr<float>& source, int size, const ImagePtr<float>& target);

// target = 1.0 where source >= threshold, else 0.0 (NaN gives 0.0).
void ApplyThreshold(const ImagePtr<float>& source, float threshold, const ImagePtr<float>& target);

// Grey-level morphology with a non-flat structuring element b of `rows` rows of
// `columns` values (element[j * columns + i] is b(i, j)), whose origin is
// (columns / 2, rows / 2). With (dx, dy) = (i - columns / 2, j - rows / 2):
//   erosion:  target(x, y) = min over (i, j) of source(x + dx, y + dy) - b(i, j)
//   dilation: target(x, y) = max over (i, j) of source(x - dx, y - dy) + b(i, j)
// Positions outside the image and NaN terms are left out; a pixel whose terms are
// all NaN gets NaN. The origin's position is always inside the image, so no pixel
// goes without terms. An element value of the most negative float leaves its
// position out in effect (its erosion term is huge, its dilation term tiny).
// `element` must be non-null and `columns` and `rows` at least 1.
void ApplyErodeFilter(const ImagePtr<float>& source, float* const element, int columns, int rows,
                      const ImagePtr<float>& target);

// Opening: the dilation of the erosion, both with `element`. Never above source
// where no term is NaN. Needs one image of scratch per call.
void ApplyOpenFilter(const ImagePtr<float>& source, float* const element, int columns, int rows,
                     const ImagePtr<float>& target);

// Closing: the erosion of the dilation, both with `element`. Never below source
// where no term is NaN. Needs one image of scratch per call.
void ApplyCloseFilter(const ImagePtr<float>& source, float* const element, int columns, int rows,
                      const ImagePtr<float>& target);

// Copies source into target and fills each non-finite pixel (NaN, +inf, -inf) from
// a finite pixel of its row: with `side` true the nearest one on its left, with
// false the nearest one on its right, and indeterminate the nearest one on either
// side (the left one when both are as near). When the asked side has no finite
// pixel, the other side serves; a row without any finite pixel stays as it is.
void InterpolateFromSide(const ImagePtr<float>& source, const ImagePtr<float>& target,
                         boost::logic::tribool side);

// The address of pixel (x, y) of an image of row length `stride` whose first pixel
// is `data`. Raises std::invalid_argument for a null `data`, a negative y or an x
// outside [0, stride); the image's height is not known here and not checked.
float* Pixel(float* data, int stride, int x, int y);

#endif
