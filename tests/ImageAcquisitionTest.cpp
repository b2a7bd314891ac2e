#include "TestImages.h"

#include <gtest/gtest.h>

#include <boost/property_tree/exceptions.hpp>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

using orvane::test::MakeFilled;
using orvane::test::MakeImage;
using orvane::test::Pixels;

namespace {

using u8 = unsigned char;

// Expects Extract(...) on `buffer` to refuse the rectangle with the usual text.
template <typename T>
void ExpectExtractRefused(const ImageBuffer<T>& buffer, int x, int y, int width, int height,
                          int totalWidth, int totalHeight) {
    try {
        buffer.Extract(x, y, width, height, totalWidth, totalHeight);
        ADD_FAILURE() << "Extract(" << x << ", " << y << ", " << width << ", " << height << ", "
                      << totalWidth << ", " << totalHeight << ") accepted";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ("extract out of buffer range", e.what());
    }
}

// A 4 x 3 float image whose pixel (x, y) holds 10 * y + x.
ImagePtr<float> Grid() {
    return MakeImage<float>(4, 3, {0, 1, 2, 3, 10, 11, 12, 13, 20, 21, 22, 23});
}

}  // namespace

TEST(ImageAcquisition, ConstructionSetsFieldsAndZeroFills) {
    const ImageAcquisition<u8> bytes(5, 3);
    const ImageAcquisition<unsigned short> words(7, 2);
    const ImageAcquisition<float> floats(3, 4);

    EXPECT_EQ(5, bytes.GetWidth());
    EXPECT_EQ(3, bytes.GetHeight());
    EXPECT_EQ(15, bytes.GetPixelCount());
    EXPECT_EQ(1, bytes.GetBytesPerPixel());
    EXPECT_EQ(2, words.GetBytesPerPixel());
    EXPECT_EQ(4, floats.GetBytesPerPixel());

    EXPECT_EQ(14, words.GetBuffer()->size);
    EXPECT_EQ(words.GetData(), words.GetBuffer()->data);
    EXPECT_EQ(words.GetData(), words.GetPixels().get());
    EXPECT_TRUE(std::all_of(words.GetData(), words.GetData() + 14, [](unsigned short v) { return v == 0; }));
    EXPECT_TRUE(std::all_of(floats.GetData(), floats.GetData() + 12, [](float v) { return v == 0.f; }));
    EXPECT_TRUE(floats.GetProperties().empty());
}

TEST(ImageAcquisition, ZeroWidthOrHeightIsAnEmptyImage) {
    auto noColumns = boost::make_shared<ImageAcquisition<float>>(0, 5);
    auto noRows = boost::make_shared<ImageAcquisition<unsigned short>>(7, 0);
    EXPECT_EQ(0, noColumns->GetPixelCount());
    EXPECT_EQ(0, noColumns->GetBuffer()->size);
    EXPECT_EQ(7, noRows->GetWidth());
    EXPECT_EQ(0, noRows->GetPixelCount());

    // Assigning to an empty image touches nothing.
    const auto source = MakeFilled<unsigned short>(2, 2, 3);
    *noColumns->GetBuffer() = *source->GetBuffer() + 1.0f;
    *noRows->GetBuffer() = *source->GetBuffer();
    EXPECT_TRUE(Pixels(noColumns).empty());
}

TEST(ImageAcquisitionProperties, KeysArePathsAndValuesRoundTrip) {
    auto image = MakeImage<unsigned short>(1, 1);
    image->SetProperty<std::int64_t>("image.time", 1234567890123LL);
    image->SetProperty<float>("image.temperature", 36.25f);
    image->SetProperty<unsigned>("info.quantlevels", 65536u);
    image->SetProperty<bool>("image.reference.invert", true);
    image->SetProperty<int>("image.pixelcluster.pos.x", -3);
    image->SetProperty<int>("image.pixelcluster.pos.y", 12);

    EXPECT_EQ(1234567890123LL, image->GetProperty<std::int64_t>("image.time"));
    EXPECT_EQ(36.25f, image->GetProperty<float>("image.temperature"));
    EXPECT_EQ(65536u, image->GetProperty<unsigned>("info.quantlevels"));
    EXPECT_TRUE(image->GetProperty<bool>("image.reference.invert"));
    EXPECT_EQ(-3, image->GetProperty<int>("image.pixelcluster.pos.x"));
    EXPECT_EQ(12, image->GetProperty<int>("image.pixelcluster.pos.y"));

    // "image.time" is the child "time" of the child "image", stored as text.
    const auto& tree = image->GetProperties();
    EXPECT_EQ(2u, tree.size());
    EXPECT_EQ("1234567890123", tree.get_child("image").get<std::string>("time"));
    EXPECT_EQ(-3, tree.get_child("image").get_child("pixelcluster").get<int>("pos.x"));
}

TEST(ImageAcquisitionProperties, MissingOrUnconvertibleKeyFailsAsThePropertyTreeDoes) {
    auto image = MakeImage<float>(1, 1);
    EXPECT_THROW(image->GetProperty<std::int64_t>("image.time"), boost::property_tree::ptree_bad_path);
    image->SetProperty<std::string>("image.time", "noon");
    EXPECT_THROW(image->GetProperty<std::int64_t>("image.time"), boost::property_tree::ptree_bad_data);
    EXPECT_THROW(image->GetProperty<float>("image.temperature"), boost::property_tree::ptree_error);
}

TEST(ImageAcquisitionProperties, AssigningTheTreeReplacesEveryEarlierProperty) {
    auto source = MakeImage<unsigned short>(1, 1);
    auto target = MakeImage<float>(1, 1);
    target->SetProperty<std::int64_t>("image.time", 1);
    target->SetProperty<std::string>("custom.note", "old");
    source->SetProperty<float>("image.temperature", 20.5f);
    source->SetProperty<std::string>("vendor.tag", "kept");

    target->GetProperties() = source->GetProperties();
    source->SetProperty<float>("image.temperature", 99.f);

    EXPECT_THROW(target->GetProperty<std::int64_t>("image.time"), boost::property_tree::ptree_bad_path);
    EXPECT_THROW(target->GetProperty<std::string>("custom.note"), boost::property_tree::ptree_bad_path);
    EXPECT_EQ(20.5f, target->GetProperty<float>("image.temperature"));
    EXPECT_EQ("kept", target->GetProperty<std::string>("vendor.tag"));
}

TEST(ImageBufferExtract, RectangleEndingAtTheLastRowAndColumnIsValid) {
    const auto grid = Grid();
    const ImageBuffer<float>& buffer = *grid->GetBuffer();
    auto flat = MakeFilled<float>(3, 2, -1.f);

    *flat->GetBuffer() = buffer.Extract(1, 1, 3, 2, 4, 3);
    EXPECT_EQ((std::vector<float>{11, 12, 13, 21, 22, 23}), Pixels(flat));

    *flat->GetBuffer() = buffer.Extract(3, 2, 1, 1, 4, 3);
    EXPECT_EQ(23.f, flat->GetData()[0]);

    // The same storage seen as an image of 2 x 6: row 5 is elements 10 and 11.
    *flat->GetBuffer() = buffer.Extract(0, 4, 2, 2, 2, 6);
    EXPECT_EQ((std::vector<float>{20, 21, 22, 23}), std::vector<float>(flat->GetData(), flat->GetData() + 4));
}

TEST(ImageBufferExtract, RectangleBeyondTheImageOrNegativeThrows) {
    const auto grid = Grid();
    const ImageBuffer<float>& buffer = *grid->GetBuffer();
    ExpectExtractRefused(buffer, 1, 1, 4, 2, 4, 3);  // one column too many
    ExpectExtractRefused(buffer, 1, 1, 3, 3, 4, 3);  // one row too many
    ExpectExtractRefused(buffer, 4, 0, 0, 1, 4, 3);  // x must lie inside
    ExpectExtractRefused(buffer, 0, 3, 1, 0, 4, 3);  // y must lie inside
    ExpectExtractRefused(buffer, -1, 0, 1, 1, 4, 3);
    ExpectExtractRefused(buffer, 0, -1, 1, 1, 4, 3);
    ExpectExtractRefused(buffer, 0, 0, -1, 1, 4, 3);
    ExpectExtractRefused(buffer, 0, 0, 1, -1, 4, 3);
}

TEST(ImageBufferExtract, FlatTargetTakesTheFirstMinOfBothSizes) {
    const auto grid = Grid();
    auto shorter = MakeFilled<float>(2, 2, -1.f);
    auto longer = MakeFilled<float>(4, 2, -1.f);

    *shorter->GetBuffer() = grid->GetBuffer()->Extract(0, 1, 3, 2, 4, 3);
    *longer->GetBuffer() = grid->GetBuffer()->Extract(0, 1, 3, 2, 4, 3);

    EXPECT_EQ((std::vector<float>{10, 11, 12, 20}), Pixels(shorter));
    EXPECT_EQ((std::vector<float>{10, 11, 12, 20, 21, 22, -1, -1}), Pixels(longer));
}

TEST(ImagePixelRect, FloatExtractIsWrittenTruncatedIntoTheRectangleRows) {
    const auto source = MakeImage<float>(4, 3, {0.5f, 1.9f, 2.f, 3.f,             //
                                                4.f, 255.5f, 256.f, 300.7f,       //
                                                8.f, -1.5f, 513.2f, -200.7f});
    const auto extract = source->GetBuffer()->Extract(1, 1, 3, 2, 4, 3);
    // Truncated toward zero, low 8 bits: 255, 256, 300, -1, 513, -200.
    const std::vector<u8> written{255, 0, 44, 255, 1, 56};

    struct Case {
        int x, y, width, height;
    };
    for (const Case c : {Case{1, 1, 3, 2}, Case{3, 1, 2, 3}, Case{0, 0, 2, 2}, Case{0, 3, 5, 1}}) {
        SCOPED_TRACE(::testing::Message() << "rect " << c.x << "," << c.y << " " << c.width << "x" << c.height);
        auto target = MakeFilled<u8>(5, 4, 7);
        auto rect = target->GetPixelRect(c.x, c.y, c.width, c.height);
        rect = extract;

        std::vector<u8> expected(20, 7);
        const int n = std::min(c.width * c.height, 6);
        for (int j = 0; j < n; ++j) {
            expected[static_cast<size_t>((c.y + j / c.width) * 5 + c.x + j % c.width)] = written[static_cast<size_t>(j)];
        }
        EXPECT_EQ(expected, Pixels(target));
    }
}
