#include "calibration/HighPassMedian.h"

#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace orvane {
namespace detail {
namespace {

const char* const kNullPointer = "CalibrationTools: HighPassMedian failed due to null pointer";
const char* const kAreaOutOfImage = "CalibrationTools::HighPassMedian : Area out of image";
const char* const kWindowTooLarge =
    "CalibrationTools::HighPassMedian : Window does not fit the area";
const char* const kCannotAdd = "CalibrationTools::HighPassMedian : Not able to add new column";
const char* const kCannotSuppress =
    "CalibrationTools::HighPassMedian : Not able to suppress previous column";
const char* const kMedianTooLow = "CalibrationTools::HighPassMedian : Median value is too low";
const char* const kMedianTooHigh = "CalibrationTools::HighPassMedian : Median value is too high";

// Position p of a run of n, reflected once at each end without repeating the end:
// -1 is 1 and n is n - 2.
inline int Reflect(int p, int n) {
    return p < 0 ? -p : (p >= n ? 2 * n - p - 2 : p);
}

// A sample truncated toward zero. What has no 32-bit value (NaN, infinities, values
// beyond the range) gives the lowest integer, outside every range of levels, so the
// conversion itself is always defined.
inline std::int32_t Level(float value) {
    return (value >= -2147483648.0f && value < 2147483648.0f)
               ? static_cast<std::int32_t>(value)
               : std::numeric_limits<std::int32_t>::min();
}

[[noreturn]] void FailAtSample(int r, int c, std::int32_t v, const char* message, int line) {
    LogError("Pixel ( ", r, ", ", c, " ) iPos = ", v);
    LogAndThrow<CalibrationException>(message, __FILE__, line);
}

[[noreturn]] void FailAtPixel(int r, int c, const char* message, int line) {
    LogError("Pixel ( ", r, ", ", c, " )");
    LogAndThrow<CalibrationException>(message, __FILE__, line);
}

// Every read and write stays inside the two images: the area lies in `image`, the
// rows read lie in `source` at the row length of `image`, and the reflected window
// stays in the area.
void CheckFit(const ImageAcquisition<float>& source, const ImageAcquisition<float>& image,
              const ROI& area, int windowWidth, int windowHeight) {
    const long bottom = static_cast<long>(area.top) + area.height;
    const long right = static_cast<long>(area.left) + area.width;
    const long endOfReads = (bottom - 1) * image.GetWidth() + right;
    if (right > image.GetWidth() || bottom > image.GetHeight() ||
        endOfReads > source.GetPixelCount()) {
        LogAndThrow<CalibrationException>(kAreaOutOfImage, __FILE__, __LINE__);
    }
    // A window reaches (size - 1) / 2 back and size - 1 - (size - 1) / 2 forward.
    const bool fits = windowWidth >= 1 && windowHeight >= 1 &&
                      windowWidth - 1 - (windowWidth - 1) / 2 < area.width &&
                      windowHeight - 1 - (windowHeight - 1) / 2 < area.height &&
                      static_cast<long long>(windowWidth) * windowHeight <=
                          std::numeric_limits<std::int32_t>::max();
    if (!fits) {
        LogAndThrow<CalibrationException>(kWindowTooLarge, __FILE__, __LINE__);
    }
}

// The histogram walk of one call; Combine is any callable float(float p, float m), so
// the three fixed forms run without an indirect call per pixel.
template <typename Combine>
void RunHighPassMedian(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                       int windowWidth, int windowHeight, float slope, float offset, int levels,
                       const Combine& combine) {
    if (!source || !image || !source->GetData() || !image->GetData()) {
        LogAndThrow<CalibrationException>(kNullPointer, __FILE__, __LINE__);
    }
    const int width = area.width;
    const int height = area.height;
    if (width == 0 || height == 0) {
        return;
    }
    CheckFit(*source, *image, area, windowWidth, windowHeight);

    const long stride = image->GetWidth();
    const int hw = (windowWidth - 1) / 2;
    const int hh = (windowHeight - 1) / 2;
    const std::int32_t half = windowWidth * windowHeight / 2;

    std::vector<std::int32_t> histogram(static_cast<size_t>(std::max(levels, 0)));
    std::vector<const float*> windowRows(static_cast<size_t>(windowHeight));

    for (int r = 0; r < height; ++r) {
        std::int32_t median = -1;  // the first walk starts from level 0
        std::int32_t below = 0;
        for (int j = 0; j < windowHeight; ++j) {
            windowRows[j] =
                source->GetData() + (area.top + Reflect(r - hh + j, height)) * stride + area.left;
        }
        float* const line = image->GetData() + (area.top + r) * stride + area.left;
        const auto replace = [&](int c) {
            const float m = static_cast<float>(
                static_cast<double>(static_cast<float>(median)) / slope + offset);
            line[c] = combine(line[c], m);
        };

        // First column: the whole window, then the walk up from level 0.
        std::fill(histogram.begin(), histogram.end(), 0);
        for (int j = 0; j < windowHeight; ++j) {
            const float* const row = windowRows[j];
            for (int i = 0; i < windowWidth; ++i) {
                const std::int32_t v = Level(row[Reflect(i - hw, width)]);
                if (v < 0 || v >= levels) FailAtSample(r, 0, v, kCannotAdd, __LINE__);
                ++histogram[v];
            }
        }
        do {
            if (++median >= levels) FailAtPixel(r, 0, kMedianTooHigh, __LINE__);
            below += histogram[median];
        } while (below < half);
        replace(0);

        // Further columns: one column out and one in per window row, then the median
        // walks from where it was. With more than half the window at level 0 the walk
        // down passes level -1 and the walk up brings it back.
        for (int c = 1; c < width; ++c) {
            const int x0 = c - hw;
            const int out = Reflect(x0 - 1, width);
            const int in = Reflect(x0 + windowWidth - 1, width);
            for (int j = 0; j < windowHeight; ++j) {
                const float* const row = windowRows[j];
                std::int32_t v = Level(row[out]);
                if (v < 0 || v >= levels) FailAtSample(r, c, v, kCannotSuppress, __LINE__);
                --histogram[v];
                if (v <= median) --below;
                v = Level(row[in]);
                if (v < 0 || v >= levels) FailAtSample(r, c, v, kCannotAdd, __LINE__);
                ++histogram[v];
                if (v <= median) ++below;
            }
            while (below > half) {
                if (median < 0) FailAtPixel(r, c, kMedianTooLow, __LINE__);
                below -= histogram[median];
                --median;
            }
            while (below < half) {
                if (++median >= levels) FailAtPixel(r, c, kMedianTooHigh, __LINE__);
                below += histogram[median];
            }
            if (median < 0) FailAtPixel(r, c, kMedianTooLow, __LINE__);
            replace(c);
        }
    }
}

}  // namespace
}  // namespace detail
}  // namespace orvane

void HighPassMedian(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                    int windowWidth, int windowHeight, float slope, float offset, int levels,
                    boost::function<float(float, float)> combine) {
    if (!combine) {
        LogAndThrow<CalibrationException>(orvane::detail::kNullPointer, __FILE__, __LINE__);
    }
    orvane::detail::RunHighPassMedian(source, image, area, windowWidth, windowHeight, slope, offset,
                                      levels, combine);
}

void HighPassMedianSubtract(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                            int windowWidth, int windowHeight, float slope, float offset,
                            int levels) {
    orvane::detail::LogInfo("High Pass Median Subtract");
    orvane::detail::RunHighPassMedian(
        source, image, area, windowWidth, windowHeight, slope, offset, levels,
        [](float p, float m) { return static_cast<float>(static_cast<double>(p) - m); });
}

void HighPassMedianDivide(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                          int windowWidth, int windowHeight, float slope, float offset,
                          int levels) {
    orvane::detail::LogInfo("High Pass Median Divide");
    orvane::detail::RunHighPassMedian(
        source, image, area, windowWidth, windowHeight, slope, offset, levels,
        [](float p, float m) {
            return m == 0.0f ? 0.0f : static_cast<float>(static_cast<double>(p) / m);
        });
}

void HighPassMedianDivideLog(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                             int windowWidth, int windowHeight, float slope, float offset,
                             int levels, int scale) {
    orvane::detail::LogInfo("High Pass Median Divide Log");
    const float factor = static_cast<float>(scale);
    orvane::detail::RunHighPassMedian(
        source, image, area, windowWidth, windowHeight, slope, offset, levels,
        [factor](float p, float m) {
            // The zero test is on the pixel: m = 0 with p != 0 gives an infinite ratio.
            const float ratio = p == 0.0f ? 0.0f : static_cast<float>(static_cast<double>(p) / m);
            const float shifted = static_cast<float>(std::fabs(static_cast<double>(ratio)) + 1.0);
            const float logarithm = static_cast<float>(std::log(static_cast<double>(shifted)));
            return static_cast<float>(static_cast<double>(logarithm) * factor);
        });
}
