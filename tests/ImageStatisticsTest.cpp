#include "calibration/ImageStatistics.h"

#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <stdexcept>

using namespace orvane::test;
using Floats = std::vector<float>;

namespace {

const float kNaN = std::numeric_limits<float>::quiet_NaN(), kInf = std::numeric_limits<float>::infinity();

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

TEST(Scaling, MinMaxThenParametersThenQuantisation) {
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
}

TEST(SmallTools, CountPositiveSelectMedianAndKeepInRange) {
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

TEST(MeanAndSigma, PopulationSigmaWithSumsInDouble) {
    const Floats v = {2, 4, 4, 4, 5, 5, 7, 9}, wide = {1e8f, 1, -1e8f, 1};
    float mean = 0, sigma = 0;
    MeanAndSigma(v.data(), 8, mean, sigma);
    EXPECT_EQ(Floats({5, 2}), Floats({mean, sigma}));
    MeanAndSigma(wide.data(), 4, mean, sigma);  // a float sum would lose the ones
    EXPECT_EQ(0.5f, mean);
    EXPECT_FLOAT_EQ(static_cast<float>(std::sqrt(5e15)), sigma);
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
}

TEST(ClippedStatistics, FollowTheLoopRoundForRoundAlsoForMeansAtOrBelowZeroAndZeroTolerance) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        for (float tolerance : {0.0001f, 0.01f, 0.2f}) {
            const Floats values = NoisyWithOutliers(seed, seed * 40.0f - 50, 5, 300);
            const int factor = 2 + seed % 2;
            const Floats expected = {NaiveClipped(values, factor, tolerance, false),
                                     NaiveClipped(values, factor, tolerance, true)};
            EXPECT_EQ(expected, Clipped(values, factor, tolerance));
        }
    }
    // By hand: mean 109 and sigma 297 drop 1000 at 2 sigmas, and sigma becomes 0; without 100 the
    // mean is -2, sigma 1 and the band keeps them all; without 50 the mean is 0, sigma 1.
    EXPECT_EQ(Floats({10, 0}), Clipped({10, 10, 10, 10, 10, 10, 10, 10, 10, 1000}, 2, 0.01f));
    EXPECT_EQ(Floats({-2, 1}), Clipped({-1, -3, -1, -3, -1, -3, -1, -3, 100}, 2, 0.01f));
    EXPECT_EQ(Floats({0, 1}), Clipped({-1, 1, -1, 1, 50}, 1, 0.0f));
}

TEST(ComputeGFAMeanAndSigma, BandThenSeparateRejectionsInEveryForm) {
    Floats values = NoisyWithOutliers(9, 200, 8, 250), band, scratch(250), results(6);
    values[10] = kNaN;  // the outliers at 520 are outside the band, those at 40 inside
    std::copy_if(values.begin(), values.end(), std::back_inserter(band), [](float x) { return x >= 0 && x <= 500; });
    const float mean = NaiveClipped(band, 2, 0.001f, false), sigma = NaiveClipped(band, 2, 0.001f, true);
    // The values also as a 25 x 10 area of a larger image full of outliers.
    const auto image = MakeFilled<float>(28, 12, 5000);
    for (int i = 0; i < 250; ++i) image->GetData()[(1 + i / 25) * 28 + 2 + i % 25] = values[i];
    const Floats original = values;
    ComputeGFAMeanAndSigma(values.data(), scratch.data(), 250, 2, 0.001f, 0, 500, results[0], results[1]);
    ComputeGFAMeanAndSigma(values.data(), 250, 2, 0.001f, 0, 500, results[2], results[3]);
    ComputeGFAMeanAndSigma(image, ROI(1, 2, 10, 25), 2, 0.001f, 0, 500, results[4], results[5]);
    EXPECT_EQ(Floats({mean, sigma, mean, sigma, mean, sigma}), results);
    EXPECT_EQ(0, std::memcmp(original.data(), values.data(), values.size() * sizeof(float)));
    EXPECT_THROW(ComputeGFAMeanAndSigma(image, ROI(3, 2, 10, 25), 2, 0.001f, 0, 500, results[0], results[1]),
                 std::out_of_range);
}
