#include "TestImages.h"
#include "calibration/HighPassMedian.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

using orvane::test::LogCapture;
using orvane::test::MakeFilled;
using orvane::test::MakeImage;
using orvane::test::Pixels;

namespace {

using Image = ImagePtr<float>;

// Whole-number levels as floats: about zeroShare of them 0, the rest in low .. levels - 1.
Image RandomLevels(int width, int height, int levels, double zeroShare, int low, unsigned seed) {
    std::mt19937 random(seed);
    std::bernoulli_distribution zero(zeroShare);
    std::uniform_int_distribution<int> level(low, levels - 1);
    auto image = MakeFilled<float>(width, height, 0.0f);
    for (int i = 0; i < image->GetPixelCount(); ++i) {
        image->GetData()[i] = zero(random) ? 0.0f : static_cast<float>(level(random));
    }
    return image;
}

// The level of each pixel of the area, row after row: every window gathered with the
// reflection and counted afresh, the median walked from the previous column's level.
std::vector<int> NaiveLevels(const Image& source, ROI a, int ww, int wh, int levels) {
    const auto reflect = [](int p, int n) { return p < 0 ? -p : (p >= n ? 2 * n - p - 2 : p); };
    const int hw = (ww - 1) / 2, hh = (wh - 1) / 2, half = ww * wh / 2;
    std::vector<int> result;
    for (int r = 0; r < a.height; ++r) {
        int median = 0;
        for (int c = 0; c < a.width; ++c) {
            std::vector<int> window;
            for (int y = r - hh; y < r - hh + wh; ++y) {
                for (int x = c - hw; x < c - hw + ww; ++x) {
                    const int i = (a.top + reflect(y, a.height)) * source->GetWidth() + a.left +
                                  reflect(x, a.width);
                    window.push_back(static_cast<int>(source->GetData()[i]));
                }
            }
            std::vector<int> histogram(levels);
            for (int v : window) ++histogram.at(v);
            int below = 0;
            if (c == 0) {
                for (median = 0; (below += histogram.at(median)) < half; ++median) {}
            } else {
                for (int l = 0; l <= median; ++l) below += histogram.at(l);
                while (below > half) below -= histogram.at(median--);
                while (below < half) below += histogram.at(++median);
            }
            // The sample of rank half, or an empty level with exactly half at or below it.
            std::sort(window.begin(), window.end());
            const long atOrBelow =
                std::upper_bound(window.begin(), window.end(), median) - window.begin();
            EXPECT_TRUE(half == 0 || median == window[half - 1] ||
                        (atOrBelow == half && histogram.at(median) == 0));
            result.push_back(median);
        }
    }
    return result;
}

void Subtract(const Image& source, const Image& image, ROI area, int ww, int wh, int levels) {
    HighPassMedianSubtract(source, image, area, ww, wh, 1.0f, 0.0f, levels);
}

// Runs `call`, which must fail with `message`; gives the lines logged meanwhile.
template <typename Call>
std::vector<std::string> ExpectFailure(Call call, const std::string& message) {
    LogCapture capture;
    try {
        call();
        ADD_FAILURE() << "no failure, expected " << message;
    } catch (const CalibrationException& e) {
        const std::string text = e.what(), ending = "): " + message;
        EXPECT_EQ(text.size() - ending.size(), text.rfind(ending)) << text;
    }
    return capture.lines;
}

const std::string kCannotAdd = "CalibrationTools::HighPassMedian : Not able to add new column";

}  // namespace

TEST(HighPassMedian, MatchesAPerPixelWalkInsideTheAreaAndChangesNothingElse) {
    const float slope = 0.37f, offset = -3.25f;
    unsigned seed = 1;
    for (const auto& w : std::vector<std::pair<int, int>>{
             {3, 3}, {5, 3}, {2, 2}, {4, 3}, {1, 4}, {6, 1}, {11, 11}, {1, 1}}) {
        for (const ROI& area :
             {ROI(0, 0, 17, 23), ROI(0, 0, 9, 12), ROI(8, 11, 9, 12), ROI(4, 5, 8, 10)}) {
            for (int levels : {7, 300}) {
                SCOPED_TRACE(testing::Message() << w.first << "x" << w.second << " at " << area.top
                                                << "," << area.left << " " << levels);
                // Mostly zeros for few levels; a 1 x 1 window must meet no zero after column 0.
                const int low = w.first * w.second == 1 ? 1 : 0;
                const auto source =
                    RandomLevels(23, 17, levels, levels < 10 && low == 0 ? 0.6 : 0.0, low, ++seed);
                const auto image = RandomLevels(23, 17, 1000, 0.0, 0, ++seed);
                const auto sourceBefore = Pixels(source);
                auto expected = Pixels(image);

                HighPassMedianSubtract(source, image, area, w.first, w.second, slope, offset,
                                       levels);

                const auto medians = NaiveLevels(source, area, w.first, w.second, levels);
                for (int r = 0, k = 0; r < area.height; ++r) {
                    for (int c = 0; c < area.width; ++c, ++k) {
                        const float m = static_cast<float>(medians[k] / double(slope) + offset);
                        expected[(area.top + r) * 23 + area.left + c] -= m;
                    }
                }
                EXPECT_EQ(expected, Pixels(image));
                EXPECT_EQ(sourceBefore, Pixels(source));
            }
        }
    }
}

TEST(HighPassMedian, WindowIsReflectedAtTheAreaAndEvenSizesReachDownward) {
    // Down a single column every pixel is the first of its row, so its level is the
    // sample of rank 2 of the window 1 x 5 (the lowest of 1 x 2).
    const auto column = MakeImage<float>(1, 7, {0, 9, 9, 4, 9, 9, 0});
    auto result = MakeFilled<float>(1, 7, 0.0f);
    Subtract(column, result, ROI(0, 0, 7, 1), 1, 5, 10);
    EXPECT_EQ(std::vector<float>({-9, -4, -4, -9, -4, -4, -9}), Pixels(result));
    result = MakeFilled<float>(1, 3, 0.0f);
    Subtract(MakeImage<float>(1, 3, {5, 8, 3}), result, ROI(0, 0, 3, 1), 1, 2, 10);
    EXPECT_EQ(std::vector<float>({-5, -3, -3}), Pixels(result));

    // Across a row: the first window of the area holds area columns 2, 1, 0, 1, 2.
    const auto row = MakeImage<float>(9, 1, {5, 0, 9, 9, 4, 9, 9, 0, 5});
    const auto image = MakeFilled<float>(9, 1, 1.0f);
    Subtract(row, image, ROI(0, 1, 1, 7), 5, 1, 10);
    EXPECT_EQ(-8.0f, image->GetData()[1]);
    EXPECT_EQ(1.0f, image->GetData()[0]);
    EXPECT_EQ(1.0f, image->GetData()[8]);
}

TEST(HighPassMedian, ConstantSourceGivesItsLevelAlsoWhenAllZero) {
    for (float level : {0.0f, 3.0f}) {
        for (const auto& w : std::vector<std::pair<int, int>>{{3, 3}, {4, 2}, {11, 9}}) {
            const auto image = RandomLevels(12, 9, 100, 0.0, 0, 7);
            auto expected = Pixels(image);
            for (float& p : expected) p -= level + 0.5f;
            LogCapture capture;
            HighPassMedianSubtract(MakeFilled<float>(12, 9, level), image, ROI(0, 0, 9, 12),
                                   w.first, w.second, 1.0f, 0.5f, 4);
            EXPECT_EQ(expected, Pixels(image));
            EXPECT_EQ(std::vector<std::string>({"I High Pass Median Subtract\n"}), capture.lines);
        }
    }
}

// A source of level 4 with slope 2 gives m = 3 for offset 1 and m = 0 for offset -2.
TEST(HighPassMedianForms, DivideGivesZeroWhereTheMedianIsZero) {
    const auto source = MakeFilled<float>(2, 2, 4.0f);
    const auto image = MakeImage<float>(2, 2, {6.0f, -1.5f, 0.0f, 7.25f});
    LogCapture capture;
    HighPassMedianDivide(source, image, ROI(0, 0, 2, 2), 3, 3, 2.0f, 1.0f, 5);
    EXPECT_EQ(std::vector<float>({6.0f / 3, -1.5f / 3, 0.0f, 7.25f / 3}), Pixels(image));
    EXPECT_EQ(std::vector<std::string>({"I High Pass Median Divide\n"}), capture.lines);
    HighPassMedianDivide(source, image, ROI(0, 0, 2, 2), 3, 3, 2.0f, -2.0f, 5);
    EXPECT_EQ(std::vector<float>(4, 0.0f), Pixels(image));
}

TEST(HighPassMedianForms, DivideLogTestsThePixelForZero) {
    const std::vector<float> pixels = {6.0f, -1.5f, 0.0f, 7.25f};
    const auto source = MakeFilled<float>(2, 2, 4.0f);
    auto image = MakeImage<float>(2, 2, {6.0f, -1.5f, 0.0f, 7.25f});
    LogCapture capture;
    HighPassMedianDivideLog(source, image, ROI(0, 0, 2, 2), 3, 3, 2.0f, 1.0f, 5, 1000);
    for (int i = 0; i < 4; ++i) {
        EXPECT_FLOAT_EQ(static_cast<float>(std::log(std::fabs(pixels[i] / 3.0) + 1) * 1000),
                        image->GetData()[i]);
    }
    EXPECT_EQ(std::vector<std::string>({"I High Pass Median Divide Log\n"}), capture.lines);
    image = MakeImage<float>(2, 2, {6.0f, -1.5f, 0.0f, 7.25f});
    HighPassMedianDivideLog(source, image, ROI(0, 0, 2, 2), 3, 3, 2.0f, -2.0f, 5, 1000);
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(std::vector<float>({inf, inf, 0.0f, inf}), Pixels(image));
}

TEST(HighPassMedianFailures, MissingPixelsOrFunction) {
    const std::string message = "CalibrationTools: HighPassMedian failed due to null pointer";
    const auto image = MakeFilled<float>(3, 3, 0.0f);
    const auto minus = [](float p, float m) { return p - m; };
    const ROI all(0, 0, 3, 3);
    EXPECT_EQ(1u,
              ExpectFailure([&] { HighPassMedian({}, image, all, 3, 3, 1, 0, 4, minus); }, message)
                  .size());
    ExpectFailure([&] { HighPassMedian(image, {}, all, 3, 3, 1, 0, 4, minus); }, message);
    ExpectFailure(
        [&] { HighPassMedian(MakeFilled<float>(3, 3, 0.0f), image, all, 3, 3, 1, 0, 4, {}); },
        message);
}

TEST(HighPassMedianFailures, SampleOutsideTheLevelsCannotBeAdded) {
    // In the first window: -0.5 truncates to level 0, -1.0 does not.
    auto image = MakeFilled<float>(3, 3, 0.0f);
    auto source = MakeImage<float>(3, 3, {1, 1, 1, 1, -0.5f, 1, 1, 1, 1});
    Subtract(source, image, ROI(0, 0, 3, 3), 3, 3, 2);
    source->GetData()[4] = -1.0f;
    auto lines =
        ExpectFailure([&] { Subtract(source, image, ROI(0, 0, 3, 3), 3, 3, 2); }, kCannotAdd);
    EXPECT_EQ("E Pixel ( 0, 0 ) iPos = -1\n", lines.at(1));

    // Coming in at column 3: the pixels before it are already replaced.
    image = MakeFilled<float>(5, 1, 10.0f);
    source = MakeImage<float>(5, 1, {1, 1, 1, 1, 7});
    lines = ExpectFailure([&] { Subtract(source, image, ROI(0, 0, 1, 5), 3, 1, 5); }, kCannotAdd);
    EXPECT_EQ("E Pixel ( 0, 3 ) iPos = 7\n", lines.at(1));
    EXPECT_EQ(std::vector<float>({9, 9, 9, 10, 10}), Pixels(image));
}

TEST(HighPassMedianFailures, OutgoingSampleChangedDuringTheCall) {
    // Source and image are one: the pixel written at column 0 leaves the window at
    // column 2 with a level that was never added.
    const auto image = MakeFilled<float>(4, 1, 2.0f);
    const auto lines = ExpectFailure(
        [&] {
            HighPassMedian(image, image, ROI(0, 0, 1, 4), 3, 1, 1, 0, 3,
                           [](float, float) { return -1.0f; });
        },
        "CalibrationTools::HighPassMedian : Not able to suppress previous column");
    EXPECT_EQ("E Pixel ( 0, 2 ) iPos = -1\n", lines.at(0));
}

TEST(HighPassMedianFailures, OneByOneWindowOnLevelZeroAfterTheFirstColumn) {
    const auto source = MakeImage<float>(2, 1, {2, 0});
    const auto lines = ExpectFailure(
        [&] { Subtract(source, MakeFilled<float>(2, 1, 0.0f), ROI(0, 0, 1, 2), 1, 1, 3); },
        "CalibrationTools::HighPassMedian : Median value is too low");
    EXPECT_EQ("E Pixel ( 0, 1 )\n", lines.at(1));
}

TEST(HighPassMedianFailures, AreaOrWindowThatLeavesTheImages) {
    const auto source = MakeFilled<float>(4, 4, 0.0f), image = MakeFilled<float>(4, 4, 0.0f);
    const auto narrow = MakeFilled<float>(4, 3, 0.0f);
    const std::string area = "CalibrationTools::HighPassMedian : Area out of image";
    const std::string window = "CalibrationTools::HighPassMedian : Window does not fit the area";
    ExpectFailure([&] { Subtract(source, image, ROI(1, 0, 4, 4), 3, 3, 2); }, area);
    ExpectFailure([&] { Subtract(narrow, image, ROI(0, 0, 4, 4), 3, 3, 2); }, area);
    ExpectFailure([&] { Subtract(source, image, ROI(0, 0, 2, 2), 4, 1, 2); }, window);
    ExpectFailure([&] { Subtract(source, image, ROI(0, 0, 4, 4), 0, 3, 2); }, window);
    Subtract(source, image, ROI(0, 0, 2, 2), 3, 1, 2);  // reaches one back and one forward
}
