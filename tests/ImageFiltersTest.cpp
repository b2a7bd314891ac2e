#include "TestImages.h"

#include "calibration/HighPassMedian.h"
#include "calibration/ImageStatistics.h"
#include "tools/ImageFilters.h"
#include "tools/Parallel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <random>
#include <stdexcept>

using namespace orvane::test;
using Floats = std::vector<float>;

namespace {

ImagePtr<float> Image(int width, int height, const std::vector<float>& pixels) {
    return MakeImageOf<float>(width, height, [&](int x, int y) { return pixels.at(size_t(y * width + x)); });
}

ImagePtr<float> Row(const std::vector<float>& pixels) { return Image(static_cast<int>(pixels.size()), 1, pixels); }

// filter(source, arguments..., target) into a fresh target; its pixels.
template <typename Filter, typename... Arguments>
std::vector<float> Filtered(Filter filter, const ImagePtr<float>& source, Arguments... arguments) {
    const auto target = MakeImage<float>(source->GetWidth(), source->GetHeight());
    filter(source, arguments..., target);
    return Pixels(target);
}

// Equal bit for bit, sign of zero included; any NaN equals any NaN.
void ExpectSamePixels(const std::vector<float>& expected, const std::vector<float>& actual) {
    ASSERT_EQ(expected.size(), actual.size());
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_TRUE(std::isnan(expected[i]) ? std::isnan(actual[i]) : !std::memcmp(&expected[i], &actual[i], 4))
            << "pixel " << i << ": " << expected[i] << " expected, " << actual[i] << " found";
}

// Moving windows along each row, each window gathered and reduced afresh.
template <typename Statistic>
std::vector<float> PlainMoving(const ImagePtr<float>& image, int size, Statistic statistic) {
    std::vector<float> result;
    const std::vector<float> pixels = Pixels(image);
    const int w = image->GetWidth();
    for (int y = 0; y < image->GetHeight(); ++y) {
        const std::vector<float> row(pixels.begin() + y * w, pixels.begin() + (y + 1) * w);
        for (int x = 0; x < w; ++x) {
            std::vector<float> samples = WindowSamples(row, x, size);
            result.push_back(samples.empty() ? kNaN : statistic(samples));
        }
    }
    return result;
}

// Erosion (sign 1) or dilation (sign -1) term by term, positions outside skipped.
std::vector<float> PlainMorphology(const std::vector<float>& pixels, int w, int h,
                                   const std::vector<float>& element, int columns, int rows, int sign) {
    std::vector<float> result;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            float best = kNaN;
            for (int j = 0; j < rows; ++j) {
                for (int i = 0; i < columns; ++i) {
                    const int sx = x + sign * (i - columns / 2), sy = y + sign * (j - rows / 2);
                    if (sx < 0 || sy < 0 || sx >= w || sy >= h) continue;
                    const float f = pixels[static_cast<size_t>(sy * w + sx)];
                    const float b = element[static_cast<size_t>(j * columns + i)];
                    const float v = sign > 0 ? f - b : f + b;
                    if (std::isnan(best) || (sign > 0 ? v < best : v > best)) best = v;
                }
            }
            result.push_back(best);
        }
    }
    return result;
}

// Whole-number levels as floats, uniform in from .. to with everything below 0 made 0.
ImagePtr<float> RandomLevels(int width, int height, int from, int to, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> level(from, to);
    return MakeImageOf<float>(width, height, [&](int, int) { return std::max(0, level(random)); });
}

// The level of each pixel of the area, row after row, from its sorted window w: the walk ends at the
// previous column's level clamped to [w[half - 1], w[half] - 1] (the levels with exactly half the window
// at or below them), or at w[half - 1] when that range is empty; the first column starts below every level.
std::vector<int> NaiveLevels(const ImagePtr<float>& source, ROI a, int ww, int wh) {
    const auto reflect = [](int p, int n) { return p < 0 ? -p : (p >= n ? 2 * n - p - 2 : p); };
    const int half = ww * wh / 2;
    std::vector<int> result;
    for (int r = 0; r < a.height; ++r) {
        for (int c = 0, previous = -1; c < a.width; ++c) {
            std::vector<int> w;
            for (int y = r - (wh - 1) / 2; y < r - (wh - 1) / 2 + wh; ++y)
                for (int x = c - (ww - 1) / 2; x < c - (ww - 1) / 2 + ww; ++x)
                    w.push_back(static_cast<int>(source->GetData()[(a.top + reflect(y, a.height)) * source->GetWidth() +
                                                                   a.left + reflect(x, a.width)]));
            std::sort(w.begin(), w.end());
            const int low = half == 0 ? 0 : w[half - 1];
            previous = std::clamp(previous, low, std::max(low, w[half] - 1));
            result.push_back(previous);
        }
    }
    return result;
}

void Subtract(const ImagePtr<float>& source, const ImagePtr<float>& image, ROI area, int ww, int wh, int levels) {
    HighPassMedianSubtract(source, image, area, ww, wh, 1.0f, 0.0f, levels);
}

Floats NaiveMeanAndSigma(const Floats& v) {
    double sum = 0.0, squares = 0.0;
    for (float x : v) sum += x;
    const float m = static_cast<float>(sum / v.size());
    const auto d = [m](float x) -> double { return static_cast<float>(x - static_cast<double>(m)); };
    for (float x : v) squares += d(x) * d(x);
    return {m, static_cast<float>(std::sqrt(squares / v.size()))};
}

// The rejection loop as it reads, on copies.
float NaiveClipped(Floats v, int factor, float tolerance, bool watchSigma) {
    for (Floats ms = NaiveMeanAndSigma(v);;) {
        const float m0 = ms[0], s0 = ms[1], t = static_cast<float>(factor * double(s0));
        const float low = static_cast<float>(m0 - double(t));
        const float high = static_cast<float>(m0 + double(t));
        const size_t count = v.size();
        v.erase(std::remove_if(v.begin(), v.end(), [&](float x) { return x < low || x > high; }), v.end());
        if (v.size() == count) return watchSigma ? s0 : m0;  // the next rounds would repeat it
        ms = NaiveMeanAndSigma(v);
        const double change = watchSigma ? std::fabs(double(s0) - ms[1])
                                         : static_cast<float>(std::fabs(double(m0) - ms[0]));
        if (!(change >= double(watchSigma ? s0 : m0) * tolerance && ms[1] > 0)) return ms[watchSigma];
    }
}

Floats NoisyWithOutliers(unsigned seed, float centre, float spread, int count) {
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(centre, spread);
    Floats v;
    for (int i = 0; i < count; ++i)
        v.push_back(i % 17 == 3 ? centre + spread * (i % 2 ? 40 : -20) : noise(random));
    return v;
}

// ClippedMean and ClippedSigma, each on its own copy.
Floats Clipped(Floats v, int factor, float tolerance) {
    Floats w = v;
    const int n = static_cast<int>(v.size());
    return {ClippedMean(v.data(), n, factor, tolerance), ClippedSigma(w.data(), n, factor, tolerance)};
}

}  // namespace

TEST(ImageFilters, MedianAverageAndThresholdOnSpecialValuesAndPlainWindowsOnRandomRows) {
    // A window without any number gives NaN; -0.0 ranks below +0.0.
    ExpectSamePixels({3, 3, 3, kNaN}, Filtered(ApplyMedianFilter, Row({kNaN, 3, kNaN, kNaN}), 3));
    ExpectSamePixels({-0.0f, 0.0f, 0.0f}, Filtered(ApplyMedianFilter, Row({-0.0f, 0.0f, 0.0f}), 3));
    ExpectSamePixels({kInf, kInf, kInf, -kInf, -kInf}, Filtered(ApplyAverageFilter, Row({1, kInf, 1, 1, -kInf}), 3));
    ExpectSamePixels({kInf, kNaN, -kInf}, Filtered(ApplyAverageFilter, Row({kInf, -kInf, 2}), 2));
    ExpectSamePixels({3, 3, kNaN}, Filtered(ApplyAverageFilter, Row({3, kNaN, kNaN}), 2));
    ExpectSamePixels({0, 1, 1, 0, 0, 1}, Filtered(ApplyThreshold, Row({59.99f, 60, 60.01f, kNaN, -kInf, kInf}), 60.0f));

    std::mt19937 random(7);
    std::uniform_int_distribution<int> value(-40, 40);
    std::vector<float> pixels;
    for (int i = 0; i < 97 * 3; ++i) {
        const int v = value(random);
        pixels.push_back(v == 40 ? kNaN : static_cast<float>(v) / 4.0f);
    }
    const auto image = Image(97, 3, pixels);
    const auto median = [](std::vector<float>& s) {
        std::sort(s.begin(), s.end());
        return s[(s.size() - 1) / 2];
    };
    const auto mean = [](std::vector<float>& s) {
        double sum = 0.0;
        for (float v : s) sum += v;
        return static_cast<float>(sum / static_cast<double>(s.size()));
    };
    for (int size : {1, 2, 5, 8, 81, 96, 97, 500}) {
        SCOPED_TRACE(size);
        ExpectSamePixels(PlainMoving(image, size, median), Filtered(ApplyMedianFilter, image, size));
        ExpectSamePixels(PlainMoving(image, size, mean), Filtered(ApplyAverageFilter, image, size));
        const auto inPlace = Image(97, 3, pixels);
        ApplyMedianFilter(inPlace, size, inPlace);
        ExpectSamePixels(PlainMoving(image, size, median), Pixels(inPlace));
    }
}

TEST(ImageFilters, ErosionOpeningAndClosingMatchTermByTermAroundTheElementOrigin) {
    // Origin (columns / 2, rows / 2): for an element [0 5] the term of 5 is the pixel
    // itself, the term of 0 its left neighbour.
    float pair[2] = {0, 5};
    ExpectSamePixels({5, 10, 20}, Filtered(ApplyErodeFilter, Row({10, 20, 30}), pair, 2, 1));
    // The most negative float leaves the pixel itself out: its two neighbours count.
    float neighbours[3] = {0, std::numeric_limits<float>::lowest(), 0};
    ExpectSamePixels({0, 1, 0, 0, 1}, Filtered(ApplyErodeFilter, Row({1, 0, 1, 1, 0}), neighbours, 3, 1));

    std::vector<float> shape;
    for (int row = 0; row < 4; ++row) shape.insert(shape.end(), {0, 0, 200, 0, 0, 200, 0});
    std::mt19937 random(3);
    std::uniform_real_distribution<float> value(-500.0f, 500.0f);
    std::vector<float> pixels(23 * 11);
    for (float& p : pixels) p = value(random);
    const auto image = Image(23, 11, pixels);
    const auto eroded = PlainMorphology(pixels, 23, 11, shape, 7, 4, 1);
    const auto dilated = PlainMorphology(pixels, 23, 11, shape, 7, 4, -1);
    ExpectSamePixels(eroded, Filtered(ApplyErodeFilter, image, shape.data(), 7, 4));
    ExpectSamePixels(PlainMorphology(eroded, 23, 11, shape, 7, 4, -1), Filtered(ApplyOpenFilter, image, shape.data(), 7, 4));
    ExpectSamePixels(PlainMorphology(dilated, 23, 11, shape, 7, 4, 1), Filtered(ApplyCloseFilter, image, shape.data(), 7, 4));
    ApplyErodeFilter(image, shape.data(), 7, 4, image);
    ExpectSamePixels(eroded, Pixels(image));
}

TEST(ImageFilters, InterpolateFromSideFillsFromTheNearestFiniteSideAndBadArgumentsAreRefused) {
    std::vector<float> pixels = {kNaN, 1, kNaN, kNaN, kNaN, 5, kInf};
    pixels.insert(pixels.end(), 7, kNaN);
    const auto image = Image(7, 2, pixels);
    const auto expectFilled = [&](boost::logic::tribool side, std::vector<float> row) {
        auto target = MakeImage<float>(7, 2);
        InterpolateFromSide(image, target, side);
        row.insert(row.end(), 7, kNaN);  // a row without any finite pixel stays so
        ExpectSamePixels(row, Pixels(target));
    };
    // A tie (x = 3) goes to the left; an end without a finite pixel takes the other side.
    expectFilled(boost::logic::indeterminate, {1, 1, 1, 1, 5, 5, 5});
    expectFilled(true, {1, 1, 1, 1, 1, 5, 5});
    expectFilled(false, {1, 1, 5, 5, 5, 5, 5});
    ExpectSamePixels(pixels, Pixels(image));

    float data[12] = {};
    EXPECT_EQ(data + 2 * 4 + 3, Pixel(data, 4, 3, 2));
    EXPECT_THROW(Pixel(data, 4, 4, 0), std::invalid_argument);
    EXPECT_THROW(Pixel(data, 4, 0, -1), std::invalid_argument);
    EXPECT_THROW(Pixel(nullptr, 4, 0, 0), std::invalid_argument);

    const auto source = Row({1, 2, 3});
    const auto narrow = Row({7, 7});
    float element[3] = {0, 0, 0};
    EXPECT_THROW(ApplyMedianFilter(source, 3, narrow), std::invalid_argument);
    EXPECT_THROW(ApplyAverageFilter(source, 3, ImagePtr<float>()), std::invalid_argument);
    EXPECT_THROW(ApplyThreshold(source, 1.0f, narrow), std::invalid_argument);
    EXPECT_THROW(ApplyOpenFilter(source, element, 3, 1, narrow), std::invalid_argument);
    EXPECT_THROW(InterpolateFromSide(source, narrow, true), std::invalid_argument);
    EXPECT_EQ(std::vector<float>({7, 7}), Pixels(narrow));
    EXPECT_THROW(Filtered(ApplyMedianFilter, source, 0), std::invalid_argument);
    EXPECT_THROW(Filtered(ApplyErodeFilter, source, static_cast<float*>(nullptr), 3, 1), std::invalid_argument);
    EXPECT_THROW(Filtered(ApplyCloseFilter, source, element, 0, 1), std::invalid_argument);
}

TEST(ImageStatistics, ScalingThenCountPositiveSelectMedianAndKeepInRange) {
    const auto image = MakeImage<float>(3, 3, {-50, 50, 50, 5, kNaN, -2, 60, 9, 1});
    float min = 0, max = 0;
    GetMinMax(image, ROI(1, 1, 2, 2), min, max);  // kNaN, -2, 9, 1
    EXPECT_EQ(Floats({-2, 9}), Floats({min, max}));
    min = 100, max = -100;
    GetMinMax(image, ROI(1, 0, 1, 1), min, max);  // one pixel moves both ends
    GetMinMax(image, ROI(1, 1, 1, 1), min, max);  // NaN
    GetMinMax(image, ROI(0, 0, 0, 3), min, max);  // no rows
    EXPECT_EQ(Floats({5, 5}), Floats({min, max}));
    EXPECT_EQ("CalibrationTools : GetMinMax failed due to null pointer",
              FailureText([&] { GetMinMax({}, ROI(), min, max); }));

    // The parameters map [min, max] onto the levels.
    float slope = 0, offset = 0;
    ComputeScalingParameters(256, 10, 20, slope, offset);
    EXPECT_EQ(Floats({25.5f, 10}), Floats({slope, offset}));
    ComputeScalingParameters(256, 3, 3, slope, offset);
    EXPECT_EQ(Floats({kInf, 3}), Floats({slope, offset}));

    // Quantisation truncates levels shifted by half up, in the area only.
    const auto source = MakeImage<float>(4, 2, {99, 16.4f, 16.5f, 17, 99, -0.4f, -1.6f, kNaN});
    const auto target = MakeFilled<float>(4, 2, 7);
    LogCapture log;
    ComputeScalingQuantification(source, target, ROI(0, 1, 2, 3), 1, 0);
    EXPECT_EQ(Floats({7, 16, 17, 17, 7, 0, -1, -2147483648.0f}), Pixels(target));
    EXPECT_EQ(std::vector<std::string>({"I Scaling and Quantification - Slope = 1 Offset = 0\n"}), log.lines);
    // The ends of [10, 20] on 256 levels; then a shift that float would round away.
    const auto ends = MakeImage<float>(3, 1, {10, 20, 2.5f});
    ComputeScalingQuantification(ends, ends, ROI(0, 0, 1, 2), 25.5f, 10);
    ComputeScalingQuantification(ends, ends, ROI(0, 2, 1, 1), 1, 1e-9f);
    EXPECT_EQ(Floats({0, 255, 2}), Pixels(ends));
    EXPECT_EQ("CalibrationTools : ComputeScalingQuantification failed due to null pointer",
              FailureText([&] { ComputeScalingQuantification(source, {}, ROI(), 1, 0); }));

    // Floats count above zero, bytes count non-zero.
    EXPECT_EQ(3ul, CountPositivePixels(MakeImage<float>(7, 1, {0, -1, kNaN, 0.5f, kInf, 1e-45f, -0.0f})));
    EXPECT_EQ(2ul, CountPositivePixels(MakeImage<unsigned char>(2, 2, {0, 255, 1, 0})));
    // KeepInRange keeps the bounds, drops NaN and works in place; the rest stays as it was.
    Floats v = {3, 1, kNaN, 2, 5, 2, -1, 4};
    EXPECT_EQ(4, KeepInRange(v.data(), v.data(), 8, 1, 3));
    EXPECT_EQ(Floats({3, 1, 2, 2, 5}), Floats(v.begin(), v.begin() + 5));
    // SelectMedian gives the lower middle of a sorted copy and loses nothing.
    std::mt19937 random(3);
    for (int range : {1, 5, 1000}) {
        std::uniform_int_distribution<int> value(-range, range);
        for (unsigned count = 1; count <= 60; ++count) {
            Floats values(count);
            for (float& x : values) x = value(random) * 0.5f;
            Floats sorted = values;
            std::sort(sorted.begin(), sorted.end());
            EXPECT_EQ(sorted[(count - 1) / 2], SelectMedian(values.data(), count)) << count;
            EXPECT_TRUE(std::is_permutation(values.begin(), values.end(), sorted.begin()));
        }
    }
}

TEST(MeanAndSigma, PopulationSigmaWithSumsInDoubleClippedRejectionRoundsAndTheBandBeforeThem) {
    const Floats v = {2, 4};
    float mean = 0, sigma = 0;
    MeanAndSigma(v.data(), 0, mean, sigma);
    EXPECT_TRUE(std::isnan(mean) && std::isnan(sigma));
    std::mt19937 random(5);
    std::exponential_distribution<float> spread(0.1f);
    for (int round = 0; round < 200; ++round) {  // deviations of all scales, each rounded to float
        Floats values(5);
        for (float& x : values) x = std::exp(spread(random));
        MeanAndSigma(values.data(), 5, mean, sigma);
        EXPECT_EQ(NaiveMeanAndSigma(values), Floats({mean, sigma}));
    }

    // The clipped ones follow the loop round for round, also for means at or below zero and zero tolerance.
    for (unsigned seed = 1; seed <= 4; ++seed) {
        for (float tolerance : {0.0001f, 0.01f, 0.2f}) {
            for (int factor : {1, 2, 3}) {
                const Floats values = NoisyWithOutliers(seed, seed * 40.0f - 50, 5, 300);
                const Floats expected = {NaiveClipped(values, factor, tolerance, false),
                                         NaiveClipped(values, factor, tolerance, true)};
                EXPECT_EQ(expected, Clipped(values, factor, tolerance));
                // Run as one rejection, whichever stops first; scratch ends as ClippedSigma leaves it.
                Floats scratch(values.size()), alone = values, results(2);
                ComputeGFAMeanAndSigma(values.data(), scratch.data(), 300, factor, tolerance, -1e9f, 1e9f,
                                       results[0], results[1]);
                EXPECT_EQ(expected, results);
                ClippedSigma(alone.data(), 300, factor, tolerance);
                EXPECT_EQ(alone, scratch);
            }
        }
    }
    // By hand: mean 109 and sigma 297 drop 1000 at 2 sigmas, and sigma becomes 0; without 100 the
    // mean is -2, sigma 1 and the band keeps them all; without 50 the mean is 0, sigma 1.
    EXPECT_EQ(Floats({10, 0}), Clipped({10, 10, 10, 10, 10, 10, 10, 10, 10, 1000}, 2, 0.01f));
    EXPECT_EQ(Floats({-2, 1}), Clipped({-1, -3, -1, -3, -1, -3, -1, -3, 100}, 2, 0.01f));
    EXPECT_EQ(Floats({0, 1}), Clipped({-1, 1, -1, 1, 50}, 1, 0.0f));

    // ComputeGFAMeanAndSigma: the band, then separate rejections, in every form.
    Floats values = NoisyWithOutliers(9, 200, 8, 250), band, scratch(250), results(6);
    values[10] = kNaN;  // the outliers at 520 are outside the band, those at 40 inside
    std::copy_if(values.begin(), values.end(), std::back_inserter(band), [](float x) { return x >= 0 && x <= 500; });
    const float bandMean = NaiveClipped(band, 2, 0.001f, false), bandSigma = NaiveClipped(band, 2, 0.001f, true);
    // The values also as a 25 x 10 area of a larger image full of outliers.
    const auto image = MakeFilled<float>(28, 12, 5000);
    for (int i = 0; i < 250; ++i) image->GetData()[(1 + i / 25) * 28 + 2 + i % 25] = values[i];
    const Floats original = values;
    ComputeGFAMeanAndSigma(values.data(), scratch.data(), 250, 2, 0.001f, 0, 500, results[0], results[1]);
    ComputeGFAMeanAndSigma(values.data(), 250, 2, 0.001f, 0, 500, results[2], results[3]);
    ComputeGFAMeanAndSigma(image, ROI(1, 2, 10, 25), 2, 0.001f, 0, 500, results[4], results[5]);
    EXPECT_EQ(Floats({bandMean, bandSigma, bandMean, bandSigma, bandMean, bandSigma}), results);
    EXPECT_EQ(0, std::memcmp(original.data(), values.data(), values.size() * sizeof(float)));
    EXPECT_THROW(ComputeGFAMeanAndSigma(image, ROI(3, 2, 10, 25), 2, 0.001f, 0, 500, results[0], results[1]),
                 std::out_of_range);
}

TEST(HighPassMedian, SubtractMatchesTheSortedWindowsDivideTestsTheMedianAndFailuresFollowTheLineNamingThePixel) {
    const float slope = 0.37f, offset = -3.25f;
    const std::vector<std::pair<int, int>> windows = {{3, 3}, {5, 3}, {2, 2}, {4, 3}, {1, 4}, {6, 1}, {11, 11}, {1, 1}};
    unsigned seed = 1;
    for (const auto& w : windows) {
        for (const ROI& area : {ROI(0, 0, 17, 23), ROI(0, 0, 9, 12), ROI(8, 11, 9, 12), ROI(4, 5, 8, 10)}) {
            for (int levels : {7, 300, 70000}) {
                SCOPED_TRACE(testing::Message() << w.first << "x" << w.second << " " << levels);
                // About 60% zeros for 7 levels; a 1 x 1 window must meet no zero after column 0.
                const int from = w.first * w.second == 1 ? 1 : (levels == 7 ? -9 : 0);
                const auto source = RandomLevels(23, 17, from, levels - 1, ++seed);
                const auto pixels = Pixels(RandomLevels(23, 17, 0, 999, ++seed));
                const auto sourceBefore = Pixels(source);
                auto expected = pixels;
                const auto medians = NaiveLevels(source, area, w.first, w.second);
                for (int r = 0, k = 0; r < area.height; ++r)
                    for (int c = 0; c < area.width; ++c, ++k)
                        expected[(area.top + r) * 23 + area.left + c] -=
                            static_cast<float>(medians[k] / double(slope) + offset);
                for (int threads : {1, 2, 7}) {  // rows go to threads in pieces of 16
                    orvane::SetThreadCount(threads);
                    const auto image = Image(23, 17, pixels);
                    HighPassMedianSubtract(source, image, area, w.first, w.second, slope, offset, levels);
                    EXPECT_EQ(expected, Pixels(image));
                    EXPECT_EQ(sourceBefore, Pixels(source));
                }
                orvane::SetThreadCount(0);
            }
        }
    }

    // Divide tests the median and DivideLog the pixel for zero.
    const Floats pixels = {6.0f, -1.5f, 0.0f, 7.25f};
    const auto source = MakeFilled<float>(2, 2, 4.0f);
    for (float shift : {1.0f, -2.0f}) {  // level 4 with slope 2: m = 3, then m = 0
        const float m = 2.0f + shift;
        const auto divided = Image(2, 2, pixels), logged = Image(2, 2, pixels);
        LogCapture log;
        HighPassMedianDivide(source, divided, ROI(0, 0, 2, 2), 3, 3, 2.0f, shift, 5);
        HighPassMedianDivideLog(source, logged, ROI(0, 0, 2, 2), 3, 3, 2.0f, shift, 5, 1000);
        EXPECT_EQ(std::vector<std::string>({"I High Pass Median Divide\n", "I High Pass Median Divide Log\n"}),
                  log.lines);
        for (int i = 0; i < 4; ++i) {
            const float p = pixels[i], ratio = p == 0.0f ? 0.0f : p / m;  // infinite for m = 0
            EXPECT_EQ(m == 0.0f ? 0.0f : p / m, divided->GetData()[i]);
            EXPECT_FLOAT_EQ(static_cast<float>(std::log(std::fabs(ratio) + 1.0) * 1000), logged->GetData()[i]);
        }
    }

    const std::string prefix = "CalibrationTools::HighPassMedian : ", add = "Not able to add new column";
    const std::string info = "I High Pass Median Subtract\n";
    const auto zeros = MakeFilled<float>(4, 4, 0.0f), image = MakeFilled<float>(4, 4, 0.0f);
    const auto row = MakeFilled<float>(5, 1, 10.0f), same = MakeFilled<float>(4, 1, 2.0f);
    const auto minus = [](float p, float m) { return p - m; };
    const auto negative = [](float, float) { return -1.0f; };
    const ROI all(0, 0, 4, 4);
    // -0.5 truncates to level 0; -1 is below the levels.
    Subtract(MakeImage<float>(3, 3, {1, 1, 1, 1, -0.5f}), MakeFilled<float>(3, 3, 0.0f), ROI(0, 0, 3, 3), 3, 3, 2);
    const struct {
        std::function<void()> call;
        std::string message, lineBefore;
    } cases[] = {
        {[&] { HighPassMedian({}, image, all, 3, 3, 1, 0, 4, minus); }, "", ""},
        {[&] { HighPassMedian(image, {}, all, 3, 3, 1, 0, 4, minus); }, "", ""},
        {[&] { HighPassMedian(zeros, image, all, 3, 3, 1, 0, 4, {}); }, "", ""},
        {[&] { Subtract(zeros, image, ROI(1, 0, 4, 4), 3, 3, 2); }, "Area out of image", info},
        {[&] { Subtract(MakeFilled<float>(4, 3, 0.0f), image, all, 3, 3, 2); }, "Area out of image", info},
        {[&] { Subtract(zeros, image, ROI(0, 0, 2, 2), 4, 1, 2); }, "Window does not fit the area", info},
        {[&] { Subtract(zeros, image, all, 0, 3, 2); }, "Window does not fit the area", info},
        {[&] { Subtract(MakeImage<float>(4, 4, {1, 1, 1, 1, 1, -1}), image, all, 3, 3, 2); }, add,
         "E Pixel ( 0, 0 ) iPos = -1\n"},
        // One level past 65535 is no 16-bit level either.
        {[&] { Subtract(MakeImage<float>(4, 4, {1, 1, 1, 1, 65537}), image, all, 3, 3, 65536); }, add,
         "E Pixel ( 0, 0 ) iPos = 65537\n"},
        // Level 5 of 5 comes in at column 3: the pixels before it stay replaced.
        {[&] { Subtract(MakeImage<float>(5, 1, {1, 1, 1, 1, 5}), row, ROI(0, 0, 1, 5), 3, 1, 5); }, add,
         "E Pixel ( 0, 3 ) iPos = 5\n"},
        // Source and image are one: the pixel written at column 0 leaves the window at
        // column 2 with a level that was never added.
        {[&] { HighPassMedian(same, same, ROI(0, 0, 1, 4), 3, 1, 1, 0, 3, negative); },
         "Not able to suppress previous column", "E Pixel ( 0, 2 ) iPos = -1\n"},
        {[&] { Subtract(MakeImage<float>(2, 1, {2, 0}), image, ROI(0, 0, 1, 2), 1, 1, 3); },
         "Median value is too low", "E Pixel ( 0, 1 )\n"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        EXPECT_EQ(c.message.empty() ? "CalibrationTools: HighPassMedian failed due to null pointer"
                                    : prefix + c.message,
                  FailureText(c.call));
        EXPECT_EQ(c.lineBefore, log.lines.size() < 2 ? "" : log.lines[log.lines.size() - 2]);
    }
    EXPECT_EQ(Floats({9, 9, 9, 10, 10}), Pixels(row));
    Subtract(zeros, image, ROI(0, 0, 2, 2), 3, 1, 2);  // reaches one back and one forward
}

