#ifndef ORVANE_CALIBRATION_HIGHPASSMEDIAN_H
#define ORVANE_CALIBRATION_HIGHPASSMEDIAN_H

#include "image/ImageAcquisition.h"
#include "image/ROI.h"

#include <boost/function.hpp>

// Moving median over the area of `image`: every pixel p of the area becomes
// combine(p, m), m being the median level of `source` in a windowWidth x windowHeight
// window around it, scaled back as (float)(median / slope + offset), one rounding
// from double.
//
// `source` holds whole-number levels 0 .. levels - 1 as floats, read with the row
// length of `image` and truncated toward zero. The window is reflected at the borders
// of the area, not of the image, without repeating the border pixel; an even size
// reaches one further right and down. Each row keeps a histogram whose median is
// walked from the previous column's level, so it can rest on an empty level with
// exactly half the window at or below it; with a 1 x 1 window it stays at level 0,
// and a sample of level 0 after the first column fails as "too low".
//
// Rows are independent (each walk starts afresh), so the three fixed forms below
// spread them over the library's threads; HighPassMedian calls `combine` on the
// calling thread only. Pixels outside the area and all of `source` stay unchanged;
// pixels already replaced stay so after a failure. `source` and `image` must be
// different images. Failures
// (CalibrationException): missing pixels; a sample outside the levels or a median
// level outside them (each after an error line naming the pixel); and, so that every
// read stays inside the images, an area outside `image` or `source`, or a window
// under 1 x 1 or whose reflection leaves the area (it reaches
// size - 1 - (size - 1) / 2 forward, which must be less than the area's size).
void HighPassMedian(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                    int windowWidth, int windowHeight, float slope, float offset, int levels,
                    boost::function<float(float, float)> combine);

// The three forms log their info line, then run HighPassMedian with:
// p - m, rounded to float.
void HighPassMedianSubtract(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                            int windowWidth, int windowHeight, float slope, float offset,
                            int levels);
// 0 where m is 0, otherwise p / m rounded to float.
void HighPassMedianDivide(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                          int windowWidth, int windowHeight, float slope, float offset, int levels);
// r = 0 where p is 0, otherwise p / m (infinite for m = 0); then
// log(|r| + 1) * (float)scale, natural logarithm, each step rounded to float.
void HighPassMedianDivideLog(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                             int windowWidth, int windowHeight, float slope, float offset,
                             int levels, int scale);

#endif
