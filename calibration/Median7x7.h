#ifndef ORVANE_CALIBRATION_MEDIAN7X7_H
#define ORVANE_CALIBRATION_MEDIAN7X7_H

namespace orvane {
namespace detail {

// The medians of the 7 x 7 windows of `count` adjacent pixels: the window of pixel j
// covers columns first + j - 3 ... first + j + 3 of the seven rows rows[0..6], which
// must exist. For values without NaN each median is the value SelectMedian gives for
// the same 49 values (the 25th smallest), found by forgetful selection on eight
// pixels at a time: no branch, no data-dependent order.
void Median7x7(const float* const rows[7], int first, int count, float* medians);

}  // namespace detail
}  // namespace orvane

#endif
