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
#include <string>
#include <vector>

using orvane::test::MakeImage;
using orvane::test::Pixels;
using Floats = std::vector<float>;

namespace {

const float kNaN = std::numeric_limits<float>::quiet_NaN();

void NaiveMeanAndSigma(const Floats& v, float& m, float& s) {
    double sum = 0.0, squares = 0.0;
    for (float x : v) sum += x;
    m = static_cast<float>(sum / v.size());
    for (float x : v) {
        const double d = static_cast<float>(x - static_cast<double>(m));
        squares += d * d;
    }
    s = static_cast<float>(std::sqrt(squares / v.size()));
}

// The rejection loop as it reads, on copies: valid only where that loop settles.
float NaiveClipped(Floats v, int factor, float tolerance, bool watchSigma) {
    float m, s;
    NaiveMeanAndSigma(v, m, s);
    for (int round = 0; round < 1000; ++round) {
        const float m0 = m, s0 = s, t = static_cast<float>(factor * static_cast<double>(s0));
        const float low = static_cast<float>(m0 - static_cast<double>(t)),
                    high = static_cast<float>(m0 + static_cast<double>(t));
        Floats kept;
        std::copy_if(v.begin(), v.end(), std::back_inserter(kept),
                     [&](float x) { return x >= low && x <= high; });
        v.swap(kept);
        NaiveMeanAndSigma(v, m, s);
        const bool moved =
            watchSigma
                ? std::fabs(static_cast<double>(s0) - s) >= static_cast<double>(s0) * tolerance
                : static_cast<float>(std::fabs(static_cast<double>(m0) - m)) >=
                      static_cast<double>(m0) * tolerance;
        if (!(moved && s > 0)) return watchSigma ? s : m;
    }
    ADD_FAILURE() << "the reference did not settle";
    return kNaN;
}

Floats NoisyWithOutliers(unsigned seed, float centre, float spread, int count) {
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(centre, spread);
    Floats v;
    for (int i = 0; i < count; ++i)
        v.push_back(i % 17 == 3 ? centre + spread * (i % 2 ? 40 : -20) : noise(random));
    return v;
}

template <typename Call>
void ExpectFailure(Call call, const std::string& message) {
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const CalibrationException& e) {
        EXPECT_NE(std::string::npos, std::string(e.what()).find("): " + message)) << e.what();
    }
}

}  // namespace

TEST(GetMinMax, WidensTheStartValuesOverTheAreaOnly) {
    const auto image = MakeImage<float>(3, 3, {-50, 50, 50, 5, kNaN, -2, 60, 9, 1});
    float min = 0, max = 0;
    GetMinMax(image, ROI(1, 1, 2, 2), min, max);  // kNaN, -2, 9, 1
    EXPECT_EQ(Floats({-2, 9}), Floats({min, max}));
    min = max = 0;
    GetMinMax(image, ROI(2, 2, 1, 1), min, max);
    EXPECT_EQ(Floats({0, 1}), Floats({min, max}));
    min = 100, max = -100;
    GetMinMax(image, ROI(1, 0, 1, 1), min, max);  // one pixel moves both ends
    GetMinMax(image, ROI(1, 1, 1, 1), min, max);  // NaN
    GetMinMax(image, ROI(0, 0, 0, 3), min, max);  // no rows
    EXPECT_EQ(Floats({5, 5}), Floats({min, max}));
    ExpectFailure([&] { GetMinMax(ImagePtr<float>(), ROI(0, 0, 1, 1), min, max); },
                  "CalibrationTools : GetMinMax failed due to null pointer");
}

TEST(Scaling, ParametersMapTheRangeOntoTheLevels) {
    float slope = 0, offset = 0;
    ComputeScalingParameters(18, 0, 17, slope, offset);
    EXPECT_EQ(Floats({1, 0}), Floats({slope, offset}));
    ComputeScalingParameters(256, 10, 20, slope, offset);
    EXPECT_EQ(Floats({25.5f, 10}), Floats({slope, offset}));
}

TEST(Scaling, QuantisationTruncatesHalfUpShiftedLevelsInTheAreaOnly) {
    const auto source = MakeImage<float>(4, 2, {99, 16.4f, 16.5f, 17, 99, -0.4f, -1.6f, kNaN});
    const auto target = orvane::test::MakeFilled<float>(4, 2, 7);
    orvane::test::LogCapture log;
    ComputeScalingQuantification(source, target, ROI(0, 1, 2, 3), 1, 0);
    EXPECT_EQ(Floats({7, 16, 17, 17, 7, 0, -1, -2147483648.0f}), Pixels(target));
    EXPECT_EQ(std::vector<std::string>({"I Scaling and Quantification - Slope = 1 Offset = 0\n"}),
              log.lines);

    // The ends of [10, 20] on 256 levels; then a shift that float would round away.
    const auto ends = MakeImage<float>(3, 1, {10, 20, 2.5f});
    ComputeScalingQuantification(ends, ends, ROI(0, 0, 1, 2), 25.5f, 10);
    ComputeScalingQuantification(ends, ends, ROI(0, 2, 1, 1), 1, 1e-9f);
    EXPECT_EQ(Floats({0, 255, 2}), Pixels(ends));
    ExpectFailure(
        [&] { ComputeScalingQuantification(source, ImagePtr<float>(), ROI(0, 0, 1, 1), 1, 0); },
        "CalibrationTools : ComputeScalingQuantification failed due to null pointer");
}

TEST(CountPositivePixels, FloatCountsAboveZeroAndBytesCountNonZero) {
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(3ul, CountPositivePixels<float>(
                       MakeImage<float>(7, 1, {0, -1, kNaN, 0.5f, inf, 1e-45f, -0.0f})));
    EXPECT_EQ(2ul,
              CountPositivePixels<unsigned char>(MakeImage<unsigned char>(2, 2, {0, 255, 1, 0})));
}

TEST(SelectMedian, GivesTheLowerMiddleOfASortedCopy) {
    Floats four = {4, 1, 3, 2}, one = {7};
    EXPECT_EQ(2.0f, SelectMedian(four.data(), 4));
    EXPECT_EQ(7.0f, SelectMedian(one.data(), 1));
    std::mt19937 random(3);
    for (int range : {1, 5, 1000}) {
        std::uniform_int_distribution<int> value(-range, range);
        for (unsigned count = 1; count <= 60; ++count) {
            Floats values(count);
            for (float& v : values) v = value(random) * 0.5f;
            Floats sorted = values;
            std::sort(sorted.begin(), sorted.end());
            EXPECT_EQ(sorted[(count - 1) / 2], SelectMedian(values.data(), count)) << count;
            std::sort(values.begin(), values.end());
            EXPECT_EQ(sorted, values);  // reordered, nothing lost
        }
    }
}

TEST(KeepInRange, KeepsTheBoundsDropsNaNAndWorksInPlace) {
    Floats v = {3, 1, kNaN, 2, 5, 2, -1, 4};
    EXPECT_EQ(4, KeepInRange(v.data(), v.data(), 8, 1, 3));
    EXPECT_EQ(Floats({3, 1, 2, 2, 5}), Floats(v.begin(), v.begin() + 5));
    Floats equal(3, -9.0f);
    EXPECT_EQ(2, KeepInRange(v.data(), equal.data(), 5, 2, 2));
    EXPECT_EQ(Floats({2, 2, -9}), equal);
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
        float m, s;
        NaiveMeanAndSigma(values, m, s);
        MeanAndSigma(values.data(), 5, mean, sigma);
        EXPECT_EQ(Floats({m, s}), Floats({mean, sigma}));
    }
}

TEST(ClippedStatistics, RejectOutliersByHand) {
    // Mean 109 and sigma 297: the band of 2 sigmas drops 1000, and sigma becomes 0.
    Floats v(9, 10.0f), w;
    v.push_back(1000);
    w = v;
    EXPECT_EQ(10.0f, ClippedMean(v.data(), 10, 2, 0.01f));
    EXPECT_EQ(0.0f, ClippedSigma(w.data(), 10, 2, 0.01f));
    Floats flat = {3, 3, 3};
    EXPECT_EQ(3.0f, ClippedMean(flat.data(), 3, 0, 0.5f));
}

TEST(ClippedStatistics, FollowTheLoopRoundForRound) {
    for (unsigned seed = 1; seed <= 4; ++seed)
        for (float tolerance : {0.0001f, 0.01f, 0.2f}) {
            Floats positive = NoisyWithOutliers(seed, 100, 5, 300),
                   any = NoisyWithOutliers(seed, seed * 20.0f - 50, 5, 300);
            const float mean = NaiveClipped(positive, 3, tolerance, false),
                        sigma = NaiveClipped(any, 2, tolerance, true);
            EXPECT_EQ(mean, ClippedMean(positive.data(), 300, 3, tolerance));
            EXPECT_EQ(sigma, ClippedSigma(any.data(), 300, 2, tolerance));
        }
}

TEST(ClippedStatistics, EndForMeansAtOrBelowZeroAndZeroTolerance) {
    // Without 100 the mean is -2 and sigma 1, and the band of 2 sigmas keeps every value.
    const Floats negative = {-1, -3, -1, -3, -1, -3, -1, -3, 100}, centred = {-1, 1, -1, 1, 50};
    Floats v = negative, w = negative;
    EXPECT_EQ(-2.0f, ClippedMean(v.data(), 9, 2, 0.01f));
    EXPECT_EQ(1.0f, ClippedSigma(w.data(), 9, 2, 0.01f));
    v = w = centred;
    EXPECT_EQ(0.0f, ClippedMean(v.data(), 5, 1, 0.0f));
    EXPECT_EQ(1.0f, ClippedSigma(w.data(), 5, 1, 0.0f));
    v = {5, 6, 7};
    EXPECT_EQ(6.0f, ClippedMean(v.data(), 3, 3, 0.0f));
}

TEST(ComputeGFAMeanAndSigma, BandThenSeparateRejectionsInEveryForm) {
    Floats values = NoisyWithOutliers(9, 200, 8, 250), band;
    values[10] = kNaN;
    values[20] = -1;
    values[30] = 900;
    std::copy_if(values.begin(), values.end(), std::back_inserter(band),
                 [](float x) { return x >= 0 && x <= 500; });
    const Floats expected = {NaiveClipped(band, 2, 0.001f, false),
                             NaiveClipped(band, 2, 0.001f, true)};

    const Floats original = values;
    Floats scratch(values.size());
    float mean = 0, sigma = 0;
    ComputeGFAMeanAndSigma(values.data(), scratch.data(), 250, 2, 0.001f, 0, 500, mean, sigma);
    EXPECT_EQ(expected, Floats({mean, sigma}));
    EXPECT_EQ(0, std::memcmp(original.data(), values.data(), values.size() * sizeof(float)));
    mean = sigma = 0;
    ComputeGFAMeanAndSigma(values.data(), 250, 2, 0.001f, 0, 500, mean, sigma);
    EXPECT_EQ(expected, Floats({mean, sigma}));

    // The values as a 25 x 10 area of a larger image full of outliers.
    const auto image = orvane::test::MakeFilled<float>(28, 12, 5000);
    for (int i = 0; i < 250; ++i) image->GetData()[(1 + i / 25) * 28 + 2 + i % 25] = values[i];
    mean = sigma = 0;
    ComputeGFAMeanAndSigma(image, ROI(1, 2, 10, 25), 2, 0.001f, 0, 500, mean, sigma);
    EXPECT_EQ(expected, Floats({mean, sigma}));
    EXPECT_THROW(ComputeGFAMeanAndSigma(image, ROI(3, 2, 10, 25), 2, 0.001f, 0, 500, mean, sigma),
                 std::out_of_range);
}

TEST(ComputeGFAMeanAndSigma, DataCentredOnZero) {
    // Mean 2.73 and sigma 8.73 at first: 30 falls out; the band around mean 0 and
    // sigma sqrt(2) then keeps every value.
    const Floats values = {-2, -1, 0, 1, 2, kNaN, 30, 2, 1, 0, -1, -2};
    const float big = std::numeric_limits<float>::max();
    float mean = 1, sigma = 1;
    ComputeGFAMeanAndSigma(values.data(), 12, 2, 0.01f, -big, big, mean, sigma);
    EXPECT_EQ(0.0f, mean);
    EXPECT_FLOAT_EQ(static_cast<float>(std::sqrt(2.0)), sigma);
}
