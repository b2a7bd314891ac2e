#include "TestImages.h"

#include "tools/ImageFilters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>

using orvane::test::MakeImage;
using orvane::test::Pixels;
using orvane::test::WindowSamples;

namespace {

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

ImagePtr<float> Image(int width, int height, const std::vector<float>& pixels) {
    auto image = MakeImage<float>(width, height);
    std::copy(pixels.begin(), pixels.end(), image->GetData());
    return image;
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

}  // namespace

TEST(ImageFilters, MedianAverageAndThresholdOnSpecialValues) {
    // A window without any number gives NaN; -0.0 ranks below +0.0.
    ExpectSamePixels({3, 3, 3, kNaN}, Filtered(ApplyMedianFilter, Row({kNaN, 3, kNaN, kNaN}), 3));
    ExpectSamePixels({-0.0f, 0.0f, 0.0f}, Filtered(ApplyMedianFilter, Row({-0.0f, 0.0f, 0.0f}), 3));
    ExpectSamePixels({kInf, kInf, kInf, -kInf, -kInf}, Filtered(ApplyAverageFilter, Row({1, kInf, 1, 1, -kInf}), 3));
    ExpectSamePixels({kInf, kNaN, -kInf}, Filtered(ApplyAverageFilter, Row({kInf, -kInf, 2}), 2));
    ExpectSamePixels({3, 3, kNaN}, Filtered(ApplyAverageFilter, Row({3, kNaN, kNaN}), 2));
    ExpectSamePixels({0, 1, 1, 0, 0, 1}, Filtered(ApplyThreshold, Row({59.99f, 60, 60.01f, kNaN, -kInf, kInf}), 60.0f));
}

TEST(ImageFilters, MedianAndAverageMatchPlainWindowsOnRandomRows) {
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
    // itself, the term of 0 its left (or upper) neighbour.
    float pair[2] = {0, 5};
    ExpectSamePixels({5, 10, 20}, Filtered(ApplyErodeFilter, Row({10, 20, 30}), pair, 2, 1));
    ExpectSamePixels({5, 10, 20}, Filtered(ApplyErodeFilter, Image(1, 3, {10, 20, 30}), pair, 1, 2));
    ExpectSamePixels({10, 20, 25}, Filtered(ApplyOpenFilter, Row({10, 20, 30}), pair, 2, 1));
    ExpectSamePixels({15, 20, 30}, Filtered(ApplyCloseFilter, Row({10, 20, 30}), pair, 2, 1));
    // The most negative float leaves the pixel itself out: its two neighbours count.
    float neighbours[3] = {0, std::numeric_limits<float>::lowest(), 0};
    ExpectSamePixels({0, 1, 0, 0, 1}, Filtered(ApplyErodeFilter, Row({1, 0, 1, 1, 0}), neighbours, 3, 1));

    std::vector<float> shape;
    for (int row = 0; row < 4; ++row) shape.insert(shape.end(), {0, 0, 200, 0, 200, 0, 0});
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

TEST(ImageFilters, InterpolateFromSideFillsFromTheNearestFiniteSide) {
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
}

TEST(ImageFilters, PixelAndBadArguments) {
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
