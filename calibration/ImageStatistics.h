#ifndef ORVANE_CALIBRATION_IMAGESTATISTICS_H
#define ORVANE_CALIBRATION_IMAGESTATISTICS_H

#include "image/ImageAcquisition.h"
#include "image/ROI.h"

// The statistics shared by the calibrations. Floating steps compute in double and
// round to float wherever a value is stored; conversions to integers truncate toward
// zero. Apart from the two null-pointer failures named below (CalibrationException),
// nothing here checks its input: an area must lie inside its image, and an array
// must hold `count` values.

// Widens min and max over the pixels of the area, row after row: a pixel above max
// becomes max, and (independently) a pixel below min becomes min. The caller's values
// take part; NaN pixels and an empty area change nothing. Fails "null pointer"
// without an image or pixels.
void GetMinMax(const ImagePtr<float>& image, ROI area, float& min, float& max);

// slope = (float)((levels - 1) / (max - min)), computed in double; offset = min.
// max equal to min gives an infinite slope.
void ComputeScalingParameters(int levels, float min, float max, float& slope, float& offset);

// Logs "Scaling and Quantification - Slope = <slope> Offset = <offset>", then for each
// pixel x of the area stores into the same place of target the float of
// (int32)((x - offset) * slope + 0.5), computed in double and truncated toward zero,
// so that a pixel below offset by less than half a level still gives 0. What has no
// 32-bit value (NaN, infinities, beyond the range) stores -2147483648, below every
// level. target is addressed with the row length of source; its pixels outside the
// area keep their values. Fails "null pointer" when an image or its pixels are
// missing.
void ComputeScalingQuantification(const ImagePtr<float>& source, const ImagePtr<float>& target,
                                  ROI area, float slope, float offset);

// The number of pixels above 0: for float, NaN does not count; for unsigned char,
// every pixel that is not 0. Instantiated for float and unsigned char.
template <typename T>
unsigned long CountPositivePixels(const ImagePtr<T>& image);

// The value that a sort in ascending order would put at index (count - 1) / 2 (the
// lower middle for an even count), found by quick selection in place around a
// median-of-three pivot; `values` ends in an unspecified order. Allocates nothing.
// A count of 0 gives NaN. With NaN values the result is unspecified, but no read
// leaves the array.
float SelectMedian(float* values, unsigned count);

// Copies, in index order, each value v with low <= v <= high to the next place of
// target and returns how many; NaN is dropped. target may be source.
int KeepInRange(const float* source, float* target, unsigned count, float low, float high);

// mean = (float)(sum / count), the sum in double in index order; sigma =
// (float)sqrt(sum of d * d / count) with d = (float)(value - mean), the squares summed
// in double in index order. Population sigma. A count of 0 gives NaN for both.
void MeanAndSigma(const float* values, int count, float& mean, float& sigma);

// Iterative rejection around the mean: with m0 the last mean and s its sigma, keep in
// place the values in [(float)(m0 - t), (float)(m0 + t)], t = (float)(sigmaFactor * s),
// and take mean and sigma again, while |m0 - m| rounded to float is at least
// m0 * tolerance (exact product) and sigma stays above 0. Gives the last mean.
// The rejection also ends as soon as a round keeps every value: the next rounds could
// only repeat it, which is what makes the loop end for a mean <= 0 (where the relative
// test always holds) or a tolerance of 0. `values` is reordered and shortened.
float ClippedMean(float* values, int count, int sigmaFactor, float tolerance);

// As ClippedMean, but the band is centred on the last mean with t from the last sigma
// s0, and the rejection goes on while |s0 - s| (in double) is at least s0 * tolerance
// and sigma stays above 0. Gives the last sigma. `values` is reordered and shortened.
float ClippedSigma(float* values, int count, int sigmaFactor, float tolerance);

// Robust mean and sigma: ClippedMean and ClippedSigma of the values inside [low, high]
// (NaN dropped), each as if run on its own copy of them in scratch (count floats);
// scratch ends as ClippedSigma leaves it. The two rejections share their rounds until
// one stops, so they run as one. `values` is not changed.
void ComputeGFAMeanAndSigma(const float* values, float* scratch, unsigned count, int sigmaFactor,
                            float tolerance, float low, float high, float& mean, float& sigma);

// The same with a scratch array of its own, allocated once per call.
void ComputeGFAMeanAndSigma(const float* values, unsigned count, int sigmaFactor, float tolerance,
                            float low, float high, float& mean, float& sigma);

// The same over the pixels of an area, taken row after row into an image of the
// area's size; an area reaching outside the image throws std::out_of_range.
void ComputeGFAMeanAndSigma(const ImagePtr<float>& image, ROI area, int sigmaFactor,
                            float tolerance, float low, float high, float& mean, float& sigma);

#endif
