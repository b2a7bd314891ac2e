#include "calibration/ImageStatistics.h"

#include "image/PixelStorage.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace orvane {
namespace detail {
namespace {

// First pixel of row `row` of the area, in an image of row length `width`.
inline std::ptrdiff_t AreaRowStart(const ROI& area, int width, int row) {
    return static_cast<std::ptrdiff_t>(area.top + row) * width + area.left;
}

// A level truncated toward zero through 32 bits; what has no 32-bit value gives the
// lowest 32-bit integer, as a hardware conversion does, below every range of levels.
inline float QuantisedLevel(double q) {
    const bool inRange = q > -2147483649.0 && q < 2147483648.0;
    return static_cast<float>(inRange ? static_cast<std::int32_t>(q)
                                      : std::numeric_limits<std::int32_t>::min());
}

}  // namespace
}  // namespace detail
}  // namespace orvane

void GetMinMax(const ImagePtr<float>& image, ROI area, float& min, float& max) {
    if (!image || !image->GetData()) {
        LogAndThrow<CalibrationException>("CalibrationTools : GetMinMax failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    const float* pixels = image->GetData();
    const int width = image->GetWidth();
    float low = min;
    float high = max;
    for (int row = 0; row < area.height; ++row) {
        const float* line = pixels + orvane::detail::AreaRowStart(area, width, row);
        for (int column = 0; column < area.width; ++column) {
            const float v = line[column];
            if (v > high) high = v;
            if (v < low) low = v;
        }
    }
    min = low;
    max = high;
}

void ComputeScalingParameters(int levels, float min, float max, float& slope, float& offset) {
    slope = static_cast<float>(static_cast<double>(levels - 1) /
                               (static_cast<double>(max) - static_cast<double>(min)));
    offset = min;
}

void ComputeScalingQuantification(const ImagePtr<float>& source, const ImagePtr<float>& target,
                                  ROI area, float slope, float offset) {
    orvane::detail::LogInfo("Scaling and Quantification - Slope = ", slope, " Offset = ", offset);
    if (!source || !target || !source->GetData() || !target->GetData()) {
        LogAndThrow<CalibrationException>(
            "CalibrationTools : ComputeScalingQuantification failed due to null pointer", __FILE__,
            __LINE__);
    }
    const float* from = source->GetData();
    float* to = target->GetData();
    const int width = source->GetWidth();
    const double o = offset;
    const double s = slope;
    for (int row = 0; row < area.height; ++row) {
        const std::ptrdiff_t start = orvane::detail::AreaRowStart(area, width, row);
        const float* in = from + start;
        float* out = to + start;
        for (int column = 0; column < area.width; ++column) {
            out[column] =
                orvane::detail::QuantisedLevel((static_cast<double>(in[column]) - o) * s + 0.5);
        }
    }
}

template <typename T>
unsigned long CountPositivePixels(const ImagePtr<T>& image) {
    const T* pixels = image->GetData();
    return static_cast<unsigned long>(
        std::count_if(pixels, pixels + image->GetPixelCount(), [](T v) { return v > T(0); }));
}

template unsigned long CountPositivePixels<float>(const ImagePtr<float>&);
template unsigned long CountPositivePixels<unsigned char>(const ImagePtr<unsigned char>&);

// Hoare partition around the median of the first, middle and last value of
// [lo, hi]. Every scan stops at a value for which its comparison is false: the
// rightward one at the last value (ordered against the pivot) or at any value it
// swapped before, the leftward one at the pivot parked at lo + 1, so no scan leaves
// [lo, hi] whatever the comparisons answer (also for NaN).
float SelectMedian(float* values, unsigned count) {
    if (count == 0) {
        return std::numeric_limits<float>::quiet_NaN();
    }
    float* const v = values;
    const std::size_t k = (count - 1) / 2;
    std::size_t lo = 0;
    std::size_t hi = count - 1;
    while (lo + 1 < hi && lo <= k && k <= hi) {
        const std::size_t mid = lo + (hi - lo) / 2;
        if (v[mid] < v[lo]) std::swap(v[mid], v[lo]);
        if (v[hi] < v[lo]) std::swap(v[hi], v[lo]);
        if (v[hi] < v[mid]) std::swap(v[hi], v[mid]);
        const float pivot = v[mid];
        std::swap(v[mid], v[lo + 1]);
        std::size_t i = lo + 1;
        std::size_t j = hi;
        for (;;) {
            do ++i; while (v[i] < pivot);
            do --j; while (pivot < v[j]);
            if (j < i) break;
            std::swap(v[i], v[j]);
        }
        v[lo + 1] = v[j];
        v[j] = pivot;
        // The pivot is in its place at j; what is left of it is not above it, what
        // is right of it not below it.
        if (j >= k) hi = j - 1;
        if (j <= k) lo = i;
    }
    if (lo + 1 == hi && v[hi] < v[lo]) {
        std::swap(v[lo], v[hi]);
    }
    return v[k];
}

int KeepInRange(const float* source, float* target, unsigned count, float low, float high) {
    unsigned kept = 0;
    for (unsigned i = 0; i < count; ++i) {
        const float v = source[i];
        if (low <= v && v <= high) {
            target[kept++] = v;
        }
    }
    return static_cast<int>(kept);
}

namespace {

// The sum in double, in index order, of the values in [low, high] (NaN dropped), each
// copied to the next place of target as it is taken; gives how many. target may be
// source. Keeping and summing in one pass gives the sum a later pass would.
int KeepInRangeAndSum(const float* source, float* target, unsigned count, float low, float high,
                      double& sum) {
    unsigned kept = 0;
    double s = 0.0;
    for (unsigned i = 0; i < count; ++i) {
        const float v = source[i];
        if (low <= v && v <= high) {
            target[kept++] = v;
            s += v;
        }
    }
    sum = s;
    return static_cast<int>(kept);
}

// sigma from the mean m and the values, as MeanAndSigma gives it.
float SigmaAround(const float* values, int count, float m) {
    double squares = 0.0;
    for (int i = 0; i < count; ++i) {
        const double d = static_cast<float>(static_cast<double>(values[i]) - m);
        squares += d * d;
    }
    return static_cast<float>(std::sqrt(squares / count));
}

// One rejection whose rounds ClippedMean and ClippedSigma share: both keep the values
// within sigmaFactor sigmas of the mean and take mean and sigma again; they differ
// only in when they stop. Each goes on while its watched quantity moved by at least
// `tolerance` of itself and sigma > 0 (the mean's change is rounded to float before
// the test, the sigma's is not). A round that keeps every value ends both: every
// later round would be the same. `values` holds `count` values whose sum in double,
// in index order, is `sum`; they are shortened in place as the sigma's rejection
// alone would leave them (the mean's, when only the mean is asked for). Rounds of the
// mean after the sigma has stopped run on a copy.
void ClipIteratively(float* values, int count, double sum, int sigmaFactor, float tolerance,
                     float* mean, float* sigma) {
    float m = static_cast<float>(sum / count);
    float s = SigmaAround(values, count, m);
    bool meanRuns = mean != nullptr;
    bool sigmaRuns = sigma != nullptr;
    std::vector<float> copy;
    while (meanRuns || sigmaRuns) {
        if (sigma != nullptr && !sigmaRuns && copy.empty()) {
            copy.assign(values, values + count);
            values = copy.data();
        }
        const float t = static_cast<float>(static_cast<double>(sigmaFactor) * s);
        const float low = static_cast<float>(static_cast<double>(m) - t);
        const float high = static_cast<float>(static_cast<double>(m) + t);
        const int kept = KeepInRangeAndSum(values, values, static_cast<unsigned>(count), low, high, sum);
        if (kept == count) {
            if (meanRuns) *mean = m;
            if (sigmaRuns) *sigma = s;
            return;
        }
        count = kept;
        const float previousMean = m;
        const float previousSigma = s;
        m = static_cast<float>(sum / count);
        s = SigmaAround(values, count, m);
        if (meanRuns) {
            const double change = static_cast<float>(
                std::fabs(static_cast<double>(previousMean) - static_cast<double>(m)));
            if (!(change >= static_cast<double>(previousMean) * tolerance && s > 0.0f)) {
                *mean = m;
                meanRuns = false;
            }
        }
        if (sigmaRuns) {
            const double change = std::fabs(static_cast<double>(previousSigma) - static_cast<double>(s));
            if (!(change >= static_cast<double>(previousSigma) * tolerance && s > 0.0f)) {
                *sigma = s;
                sigmaRuns = false;
            }
        }
    }
}

double Sum(const float* values, int count) {
    double sum = 0.0;
    for (int i = 0; i < count; ++i) {
        sum += values[i];
    }
    return sum;
}

}  // namespace

void MeanAndSigma(const float* values, int count, float& mean, float& sigma) {
    mean = static_cast<float>(Sum(values, count) / count);
    sigma = SigmaAround(values, count, mean);
}

float ClippedMean(float* values, int count, int sigmaFactor, float tolerance) {
    float mean;
    ClipIteratively(values, count, Sum(values, count), sigmaFactor, tolerance, &mean, nullptr);
    return mean;
}

float ClippedSigma(float* values, int count, int sigmaFactor, float tolerance) {
    float sigma;
    ClipIteratively(values, count, Sum(values, count), sigmaFactor, tolerance, nullptr, &sigma);
    return sigma;
}

// Both rejections start from the same kept values, so they run as one.
void ComputeGFAMeanAndSigma(const float* values, float* scratch, unsigned count, int sigmaFactor,
                            float tolerance, float low, float high, float& mean, float& sigma) {
    double sum;
    const int kept = KeepInRangeAndSum(values, scratch, count, low, high, sum);
    ClipIteratively(scratch, kept, sum, sigmaFactor, tolerance, &mean, &sigma);
}

void ComputeGFAMeanAndSigma(const float* values, unsigned count, int sigmaFactor, float tolerance,
                            float low, float high, float& mean, float& sigma) {
    const auto scratch = orvane::detail::AllocatePixels<float>(count);
    ComputeGFAMeanAndSigma(values, scratch.get(), count, sigmaFactor, tolerance, low, high, mean,
                           sigma);
}

void ComputeGFAMeanAndSigma(const ImagePtr<float>& image, ROI area, int sigmaFactor,
                            float tolerance, float low, float high, float& mean, float& sigma) {
    const auto extract = image->GetBuffer()->Extract(area.left, area.top, area.width, area.height,
                                                      image->GetWidth(), image->GetHeight());
    const unsigned count = static_cast<unsigned>(area.width) * static_cast<unsigned>(area.height);
    const auto pixels = orvane::detail::AllocatePixels<float>(count);
    ImageBuffer<float>(pixels.get(), static_cast<int>(count)) = extract;
    ComputeGFAMeanAndSigma(pixels.get(), count, sigmaFactor, tolerance, low, high, mean, sigma);
}
