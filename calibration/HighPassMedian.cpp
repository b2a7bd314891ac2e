#include "calibration/HighPassMedian.h"

#include "image/PixelStorage.h"
#include "interfaces/CalibrationException.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "tools/Parallel.h"

#include <algorithm>
#include <atomic>
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

// The levels of the area's pixels, row after row, when every one lies in
// 0 .. levels - 1; otherwise none.
template <typename Stored>
PixelArray<Stored> AreaLevels(const ImageAcquisition<float>& source, const ROI& area, long stride,
                             int levels) {
    PixelArray<Stored> result = AllocatePixels<Stored>(static_cast<size_t>(area.width) * area.height);
    std::atomic<bool> valid{true};
    orvane::ParallelFor(area.height, 64, [&](int firstRow, int endRow) {
        bool rowsValid = true;
        for (int r = firstRow; r < endRow; ++r) {
            const float* const row = source.GetData() + (area.top + r) * stride + area.left;
            Stored* const out = result.get() + static_cast<size_t>(r) * area.width;
            for (int c = 0; c < area.width; ++c) {
                const std::int32_t v = Level(row[c]);
                rowsValid &= v >= 0 && v < levels;
                out[c] = static_cast<Stored>(v);
            }
        }
        if (!rowsValid) valid = false;
    });
    if (!valid) result.reset();
    return result;
}

// The histogram walk of RunHighPassMedian on levels known to be valid, with a window
// of at least two pixels: no failure can occur (a walk down stops at level -1 at the
// latest, where nothing is at or below, and a walk up at levels - 1, where all is),
// so rows run without checks, and on every core: each row starts its walk afresh.
template <typename Stored, typename Count, typename Combine>
void RunValidRows(const Stored* levelsOfArea, const ImagePtr<float>& image, ROI area,
                  int windowWidth, int windowHeight, float slope, float offset, int levels,
                  const Combine& combine, bool parallel) {
    const int width = area.width;
    const int height = area.height;
    const long stride = image->GetWidth();
    const int hw = (windowWidth - 1) / 2;
    const int hh = (windowHeight - 1) / 2;
    const std::int32_t half = windowWidth * windowHeight / 2;
    const auto rows = [&](int firstRow, int endRow) {
        std::vector<Count> histogram(static_cast<size_t>(levels));
        std::vector<const Stored*> windowRows(static_cast<size_t>(windowHeight));
        for (int r = firstRow; r < endRow; ++r) {
            for (int j = 0; j < windowHeight; ++j) {
                windowRows[j] = levelsOfArea + static_cast<size_t>(Reflect(r - hh + j, height)) * width;
            }
            float* const line = image->GetData() + (area.top + r) * stride + area.left;
            for (const Stored* row : windowRows) {
                for (int i = 0; i < windowWidth; ++i) {
                    ++histogram[row[Reflect(i - hw, width)]];
                }
            }
            std::int32_t median = -1;
            std::int32_t below = 0;
            for (int c = 0; c < width; ++c) {
                if (c > 0) {
                    const int x0 = c - hw;
                    const int out = Reflect(x0 - 1, width);
                    const int in = Reflect(x0 + windowWidth - 1, width);
                    for (const Stored* row : windowRows) {
                        const std::int32_t vOut = row[out];
                        const std::int32_t vIn = row[in];
                        --histogram[vOut];
                        ++histogram[vIn];
                        below += (vIn <= median) - (vOut <= median);
                    }
                    while (below > half) {
                        below -= histogram[median];
                        --median;
                    }
                }
                while (below < half) {
                    below += histogram[++median];
                }
                const float m = static_cast<float>(
                    static_cast<double>(static_cast<float>(median)) / slope + offset);
                line[c] = combine(line[c], m);
            }
            // Empty the histogram for the next row: the last window leaves it.
            const int x0 = width - 1 - hw;
            for (const Stored* row : windowRows) {
                for (int i = 0; i < windowWidth; ++i) {
                    --histogram[row[Reflect(x0 + i, width)]];
                }
            }
        }
    };
    if (parallel) {
        orvane::ParallelFor(height, 16, rows);
    } else {
        rows(0, height);
    }
}

// The checked walk below, or, when every level is valid, the window holds at least
// two pixels and the images do not overlap, the same walk without checks on compact
// levels. Gives false when the checked walk must run.
template <typename Combine>
bool RunWithoutFailure(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                       int windowWidth, int windowHeight, float slope, float offset, int levels,
                       const Combine& combine, bool parallel) {
    // Writes into the source would change later windows: that stays with the checked walk.
    const float* const from = source->GetData();
    const float* const to = image->GetData();
    const bool overlap = from < to + image->GetPixelCount() && to < from + source->GetPixelCount();
    if (static_cast<long long>(windowWidth) * windowHeight < 2 || levels <= 0 || overlap) {
        return false;
    }
    const long stride = image->GetWidth();
    const bool smallWindow = windowWidth * windowHeight <= std::numeric_limits<std::uint16_t>::max();
    if (levels <= 65536) {
        const auto compact = AreaLevels<std::uint16_t>(*source, area, stride, levels);
        if (!compact) return false;
        if (smallWindow) {
            RunValidRows<std::uint16_t, std::uint16_t>(compact.get(), image, area, windowWidth, windowHeight, slope,
                                                       offset, levels, combine, parallel);
        } else {
            RunValidRows<std::uint16_t, std::int32_t>(compact.get(), image, area, windowWidth, windowHeight, slope,
                                                      offset, levels, combine, parallel);
        }
        return true;
    }
    const auto wide = AreaLevels<std::int32_t>(*source, area, stride, levels);
    if (!wide) return false;
    RunValidRows<std::int32_t, std::int32_t>(wide.get(), image, area, windowWidth, windowHeight, slope, offset,
                                             levels, combine, parallel);
    return true;
}

// The histogram walk of one call; Combine is any callable float(float p, float m), so
// the three fixed forms run without an indirect call per pixel.
template <typename Combine>
void RunHighPassMedian(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                       int windowWidth, int windowHeight, float slope, float offset, int levels,
                       const Combine& combine, bool parallel) {
    if (!source || !image || !source->GetData() || !image->GetData()) {
        LogAndThrow<CalibrationException>(kNullPointer, __FILE__, __LINE__);
    }
    const int width = area.width;
    const int height = area.height;
    if (width == 0 || height == 0) {
        return;
    }
    CheckFit(*source, *image, area, windowWidth, windowHeight);
    if (RunWithoutFailure(source, image, area, windowWidth, windowHeight, slope, offset, levels, combine,
                          parallel)) {
        return;
    }

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
                                      levels, combine, false);
}

void HighPassMedianSubtract(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                            int windowWidth, int windowHeight, float slope, float offset,
                            int levels) {
    orvane::detail::LogInfo("High Pass Median Subtract");
    orvane::detail::RunHighPassMedian(
        source, image, area, windowWidth, windowHeight, slope, offset, levels,
        [](float p, float m) { return static_cast<float>(static_cast<double>(p) - m); }, true);
}

void HighPassMedianDivide(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area,
                          int windowWidth, int windowHeight, float slope, float offset,
                          int levels) {
    orvane::detail::LogInfo("High Pass Median Divide");
    orvane::detail::RunHighPassMedian(
        source, image, area, windowWidth, windowHeight, slope, offset, levels,
        [](float p, float m) {
            return m == 0.0f ? 0.0f : static_cast<float>(static_cast<double>(p) / m);
        },
        true);
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
        },
        true);
}
