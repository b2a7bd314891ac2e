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
using u8 = unsigned char;

TEST(ImageAcquisition, ConstructionSetsFieldsAndZeroFillsAlsoWhenEmpty) {
    const ImageAcquisition<u8> bytes(5, 3);
    const ImageAcquisition<unsigned short> words(7, 2);
    const ImageAcquisition<float> floats(3, 4);
    EXPECT_EQ((std::vector<int>{5, 3, 15, 1, 2, 4}), (std::vector<int>{bytes.GetWidth(), bytes.GetHeight(),
              bytes.GetPixelCount(), bytes.GetBytesPerPixel(), words.GetBytesPerPixel(), floats.GetBytesPerPixel()}));
    EXPECT_EQ(14, words.GetBuffer()->size);
    EXPECT_EQ(words.GetData(), words.GetBuffer()->data);
    EXPECT_EQ(words.GetData(), words.GetPixels().get());
    EXPECT_TRUE(std::all_of(words.GetData(), words.GetData() + 14, [](unsigned short v) { return v == 0; }));
    EXPECT_TRUE(std::all_of(floats.GetData(), floats.GetData() + 12, [](float v) { return v == 0.f; }));
    EXPECT_TRUE(floats.GetProperties().empty());

    // Zero width or height is an empty image, and assigning to it touches nothing.
    auto noColumns = boost::make_shared<ImageAcquisition<float>>(0, 5);
    auto noRows = boost::make_shared<ImageAcquisition<unsigned short>>(7, 0);
    EXPECT_EQ((std::vector<int>{0, 0, 7, 0}), (std::vector<int>{noColumns->GetPixelCount(),
              noColumns->GetBuffer()->size, noRows->GetWidth(), noRows->GetPixelCount()}));
    const auto source = MakeFilled<unsigned short>(2, 2, 3);
    *noColumns->GetBuffer() = *source->GetBuffer() + 1.0f;
    *noRows->GetBuffer() = *source->GetBuffer();
    EXPECT_TRUE(Pixels(noColumns).empty());
}

TEST(ImageAcquisition, PropertyKeysArePathsAndFailuresAreThePropertyTreesOwn) {
    auto image = MakeImage<unsigned short>(1, 1);
    image->SetProperty<std::int64_t>("image.time", 1234567890123LL);
    image->SetProperty<float>("image.temperature", 36.25f);
    image->SetProperty<bool>("image.reference.invert", true);
    image->SetProperty<int>("image.pixelcluster.pos.x", -3);
    image->SetProperty<std::string>("vendor.tag", "kept");
    EXPECT_EQ(1234567890123LL, image->GetProperty<std::int64_t>("image.time"));
    EXPECT_EQ(36.25f, image->GetProperty<float>("image.temperature"));
    EXPECT_TRUE(image->GetProperty<bool>("image.reference.invert"));
    // "image.time" is the child "time" of the child "image", stored as text.
    const auto& tree = image->GetProperties();
    EXPECT_EQ(2u, tree.size());
    EXPECT_EQ("1234567890123", tree.get_child("image").get<std::string>("time"));
    EXPECT_EQ(-3, tree.get_child("image").get_child("pixelcluster").get<int>("pos.x"));

    // Assigning the tree replaces every earlier property.
    auto target = MakeImage<float>(1, 1);
    target->SetProperty<std::string>("custom.note", "noon");
    EXPECT_THROW(target->GetProperty<std::int64_t>("custom.note"), boost::property_tree::ptree_bad_data);
    target->GetProperties() = image->GetProperties();
    image->SetProperty<float>("image.temperature", 99.f);
    EXPECT_THROW(target->GetProperty<std::string>("custom.note"), boost::property_tree::ptree_bad_path);
    EXPECT_EQ(36.25f, target->GetProperty<float>("image.temperature"));
    EXPECT_EQ("kept", target->GetProperty<std::string>("vendor.tag"));
}

TEST(ImageBufferExtract, RectanglesInsideAreReadRowAfterRowOthersAreRefused) {
    // Pixel (x, y) holds 10 * y + x.
    const auto grid = MakeImage<float>(4, 3, {0, 1, 2, 3, 10, 11, 12, 13, 20, 21, 22, 23});
    const ImageBuffer<float>& buffer = *grid->GetBuffer();
    auto flat = MakeFilled<float>(3, 2, -1.f);
    *flat->GetBuffer() = buffer.Extract(1, 1, 3, 2, 4, 3);  // ends at the last row and column
    EXPECT_EQ((std::vector<float>{11, 12, 13, 21, 22, 23}), Pixels(flat));
    *flat->GetBuffer() = buffer.Extract(3, 2, 1, 1, 4, 3);
    EXPECT_EQ(23.f, flat->GetData()[0]);
    // The same storage seen as an image of 2 x 6: row 5 is elements 10 and 11.
    *flat->GetBuffer() = buffer.Extract(0, 4, 2, 2, 2, 6);
    EXPECT_EQ((std::vector<float>{20, 21, 22, 23}), std::vector<float>(flat->GetData(), flat->GetData() + 4));
    // A flat target takes the first min of both sizes.
    auto shorter = MakeFilled<float>(2, 2, -1.f), longer = MakeFilled<float>(4, 2, -1.f);
    *shorter->GetBuffer() = buffer.Extract(0, 1, 3, 2, 4, 3);
    *longer->GetBuffer() = buffer.Extract(0, 1, 3, 2, 4, 3);
    EXPECT_EQ((std::vector<float>{10, 11, 12, 20}), Pixels(shorter));
    EXPECT_EQ((std::vector<float>{10, 11, 12, 20, 21, 22, -1, -1}), Pixels(longer));

    // One column or row too many, x or y on the edge, each value negative.
    const int refused[][4] = {{1, 1, 4, 2}, {1, 1, 3, 3}, {4, 0, 0, 1}, {0, 3, 1, 0},
                              {-1, 0, 1, 1}, {0, -1, 1, 1}, {0, 0, -1, 1}, {0, 0, 1, -1}};
    EXPECT_THROW(buffer.Extract(0, 0, 1, 1, 4, 4), std::out_of_range);  // an image larger than the buffer
    for (const auto& r : refused) {
        try {
            buffer.Extract(r[0], r[1], r[2], r[3], 4, 3);
            ADD_FAILURE() << "accepted " << r[0] << ", " << r[1] << ", " << r[2] << ", " << r[3];
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ("extract out of buffer range", e.what());
        }
    }
}

TEST(ImagePixelRect, FloatExtractIsWrittenTruncatedIntoTheRectangleRows) {
    const auto source = MakeImage<float>(4, 3, {0.5f, 1.9f, 2.f, 3.f,             //
                                                4.f, 255.5f, 256.f, 300.7f,       //
                                                8.f, -1.5f, 513.2f, -200.7f});
    const auto extract = source->GetBuffer()->Extract(1, 1, 3, 2, 4, 3);
    // Truncated toward zero, low 8 bits: 255, 256, 300, -1, 513, -200.
    const std::vector<u8> written{255, 0, 44, 255, 1, 56};
    const int rects[][4] = {{1, 1, 3, 2}, {3, 1, 2, 3}, {0, 0, 2, 2}, {0, 3, 5, 1}};
    for (const auto& c : rects) {
        SCOPED_TRACE(::testing::Message() << "rect " << c[0] << "," << c[1] << " " << c[2] << "x" << c[3]);
        auto target = MakeFilled<u8>(5, 4, 7);
        auto rect = target->GetPixelRect(c[0], c[1], c[2], c[3]);
        rect = extract;
        std::vector<u8> expected(20, 7);
        for (int j = 0; j < std::min(c[2] * c[3], 6); ++j)
            expected[static_cast<size_t>((c[1] + j / c[2]) * 5 + c[0] + j % c[2])] = written[static_cast<size_t>(j)];
        EXPECT_EQ(expected, Pixels(target));
    }
}
