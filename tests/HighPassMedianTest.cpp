#include "TestImages.h"
#include "calibration/HighPassMedian.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

using namespace orvane::test;

namespace {

using Image = ImagePtr<float>;
using Floats = std::vector<float>;

// Whole-number levels as floats, uniform in from .. to with everything below 0 made 0.
Image RandomLevels(int width, int height, int from, int to, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> level(from, to);
    auto image = MakeFilled<float>(width, height, 0.0f);
    for (float* p = image->GetData(); p != image->GetData() + image->GetPixelCount(); ++p)
        *p = static_cast<float>(std::max(0, level(random)));
    return image;
}

// The level of each pixel of the area, row after row, from its sorted window w: the walk ends at the
// previous column's level clamped to [w[half - 1], w[half] - 1] (the levels with exactly half the window
// at or below them), or at w[half - 1] when that range is empty; the first column starts below every level.
std::vector<int> NaiveLevels(const Image& source, ROI a, int ww, int wh) {
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

void Subtract(const Image& source, const Image& image, ROI area, int ww, int wh, int levels) {
    HighPassMedianSubtract(source, image, area, ww, wh, 1.0f, 0.0f, levels);
}

}  // namespace

TEST(HighPassMedian, MatchesTheSortedWindowsInsideTheAreaAndChangesNothingElse) {
    const float slope = 0.37f, offset = -3.25f;
    const std::vector<std::pair<int, int>> windows = {{3, 3}, {5, 3}, {2, 2}, {4, 3}, {1, 4}, {6, 1}, {11, 11}, {1, 1}};
    unsigned seed = 1;
    for (const auto& w : windows) {
        for (const ROI& area : {ROI(0, 0, 17, 23), ROI(0, 0, 9, 12), ROI(8, 11, 9, 12), ROI(4, 5, 8, 10)}) {
            for (int levels : {7, 300}) {
                SCOPED_TRACE(testing::Message() << w.first << "x" << w.second << " " << levels);
                // About 60% zeros for 7 levels; a 1 x 1 window must meet no zero after column 0.
                const int from = w.first * w.second == 1 ? 1 : (levels == 7 ? -9 : 0);
                const auto source = RandomLevels(23, 17, from, levels - 1, ++seed);
                const auto image = RandomLevels(23, 17, 0, 999, ++seed);
                const auto sourceBefore = Pixels(source);
                auto expected = Pixels(image);
                HighPassMedianSubtract(source, image, area, w.first, w.second, slope, offset, levels);
                const auto medians = NaiveLevels(source, area, w.first, w.second);
                for (int r = 0, k = 0; r < area.height; ++r)
                    for (int c = 0; c < area.width; ++c, ++k)
                        expected[(area.top + r) * 23 + area.left + c] -=
                            static_cast<float>(medians[k] / double(slope) + offset);
                EXPECT_EQ(expected, Pixels(image));
                EXPECT_EQ(sourceBefore, Pixels(source));
            }
        }
    }
}

TEST(HighPassMedian, DivideTestsTheMedianAndDivideLogThePixelForZero) {
    const Floats pixels = {6.0f, -1.5f, 0.0f, 7.25f};
    const auto source = MakeFilled<float>(2, 2, 4.0f);
    for (float offset : {1.0f, -2.0f}) {  // level 4 with slope 2: m = 3, then m = 0
        const float m = 2.0f + offset;
        const auto divided = MakeImage<float>(2, 2, {6.0f, -1.5f, 0.0f, 7.25f}),
                   logged = MakeImage<float>(2, 2, {6.0f, -1.5f, 0.0f, 7.25f});
        LogCapture log;
        HighPassMedianDivide(source, divided, ROI(0, 0, 2, 2), 3, 3, 2.0f, offset, 5);
        HighPassMedianDivideLog(source, logged, ROI(0, 0, 2, 2), 3, 3, 2.0f, offset, 5, 1000);
        EXPECT_EQ(std::vector<std::string>({"I High Pass Median Divide\n", "I High Pass Median Divide Log\n"}),
                  log.lines);
        for (int i = 0; i < 4; ++i) {
            const float p = pixels[i], ratio = p == 0.0f ? 0.0f : p / m;  // infinite for m = 0
            EXPECT_EQ(m == 0.0f ? 0.0f : p / m, divided->GetData()[i]);
            EXPECT_FLOAT_EQ(static_cast<float>(std::log(std::fabs(ratio) + 1.0) * 1000), logged->GetData()[i]);
        }
    }
}

TEST(HighPassMedian, FailuresGiveTheirMessageAfterTheLineNamingThePixel) {
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
                  orvane::test::FailureText(c.call));
        EXPECT_EQ(c.lineBefore, log.lines.size() < 2 ? "" : log.lines[log.lines.size() - 2]);
    }
    EXPECT_EQ(Floats({9, 9, 9, 10, 10}), Pixels(row));
    Subtract(zeros, image, ROI(0, 0, 2, 2), 3, 1, 2);  // reaches one back and one forward
}
