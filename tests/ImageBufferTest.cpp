#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

using namespace orvane::test;

namespace {

using u8 = unsigned char;
using u16 = unsigned short;

// What a floating operator yields: its double result rounded to float.
float Op(double value) { return static_cast<float>(value); }

// What an integer target keeps of the outermost double: truncation toward zero,
// then the low bits.
template <typename T>
T Truncated(double value) {
    return static_cast<T>(static_cast<std::int64_t>(value));
}

// The element-by-element image of `fn(i)` for i in [0, n).
template <typename T, typename Fn>
std::vector<T> Each(int n, Fn fn) {
    std::vector<T> out;
    for (int i = 0; i < n; ++i) out.push_back(static_cast<T>(fn(i)));
    return out;
}

// The collector registry is shared by the whole process: every Pools test
// uses image formats of its own, and starts with every pool emptied, so that no test,
// nor a repeat of it, sees another's pool.
template <typename T>
boost::shared_ptr<ImageCollection<T>> Open(int width, int height) {
    return ImageCollectorRegistry::Instance().GetCollection<T>(width, height, false);
}

template <typename T>
const std::vector<ImagePtr<T>>& PoolOf(const boost::shared_ptr<ImageCollection<T>>& collection) {
    return collection->GetCollector()->GetPool();
}

template <typename T>
const std::vector<ImagePtr<T>>& InUseOf(const boost::shared_ptr<ImageCollection<T>>& collection) {
    return collection->GetCollector()->GetInUse();
}

template <typename T>
long Registered(int width, int height) {
    const auto& all = ImageCollectorRegistry::Instance().GetCollectors();
    return std::count_if(all.begin(), all.end(), [&](const ImageCollectorBase* c) {
        return c->GetWidth() == width && c->GetHeight() == height && c->GetPixelType() == typeid(T);
    });
}

using Shorts = std::vector<ImagePtr<unsigned short>>;

class Pools : public ::testing::Test {
    void SetUp() override {
        for (ImageCollectorBase* collector : ImageCollectorRegistry::Instance().GetCollectors()) collector->Clear();
    }
};

}  // namespace

TEST(ImageBufferCopy, CopiesWidenOnlyTheSmallestSizeIsProcessedAndExtractsReadRectanglesInside) {
    const auto raw = MakeImage<u16>(3, 2, {0, 1, 2, 40000, 65535, 7});
    auto wide = MakeFilled<float>(3, 2, -1.f);
    *wide->GetBuffer() = *raw->GetBuffer();
    EXPECT_EQ(Each<float>(6, [&](int i) { return static_cast<float>(raw->GetData()[i]); }), Pixels(wide));

    const auto large = MakeImage<float>(5, 2, {10, 11, 12, 13, 14, 15, 16, 17, 18, 19});
    auto target10 = MakeFilled<float>(5, 2, -1.f), target6 = MakeFilled<float>(3, 2, -1.f);
    auto raw10 = MakeFilled<u16>(5, 2, 99);
    *target10->GetBuffer() = *large->GetBuffer() + *raw->GetBuffer();
    *target6->GetBuffer() = *large->GetBuffer() / 2.0f;
    *raw10->GetBuffer() = *raw->GetBuffer();
    EXPECT_EQ((std::vector<float>{10, 12, 14, 40013, 65549, 22, -1, -1, -1, -1}), Pixels(target10));
    EXPECT_EQ((std::vector<float>{5, 5.5f, 6, 6.5f, 7, 7.5f}), Pixels(target6));
    EXPECT_EQ((std::vector<u16>{0, 1, 2, 40000, 65535, 7, 99, 99, 99, 99}), Pixels(raw10));
    *target10->GetBuffer() += *raw->GetBuffer();
    EXPECT_EQ((std::vector<float>{10, 13, 16, 80013, 131084, 29, -1, -1, -1, -1}), Pixels(target10));

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
        EXPECT_EQ("extract out of buffer range",
                  ThrownText<std::out_of_range>([&] { buffer.Extract(r[0], r[1], r[2], r[3], 4, 3); }))
            << r[0] << ", " << r[1] << ", " << r[2] << ", " << r[3];
    }

    // A float extract is written truncated into the rows of a rectangle of bytes.
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

TEST(ImageBufferArithmetic, FloatTargetsRoundEachOperatorToFloatMayBeAnOperandAndBandsAreStrictOrInclusive) {
    const auto a = MakeImage<float>(3, 2, {16777216.f, 0.1f, -2.5f, 3.f, 1e30f, 7.f});
    const auto b = MakeImage<float>(3, 2, {1e-8f, 0.2f, 2.5f, -3.f, 1e30f, 0.3f});
    const auto u = MakeImage<u16>(3, 2, {3, 65535, 2, 1, 0, 40000});
    const auto v = MakeImage<u16>(3, 2, {5, 1, 65535, 1, 0, 2});
    auto t = MakeFilled<float>(3, 2, 0.f);
    const float *A = a->GetData(), *B = b->GetData();
    const u16 *U = u->GetData(), *V = v->GetData();
    *t->GetBuffer() = *a->GetBuffer() + *u->GetBuffer();
    EXPECT_EQ(Each<float>(6, [&](int i) { return Op(double(A[i]) + double(U[i])); }), Pixels(t));
    *t->GetBuffer() = *u->GetBuffer() - *v->GetBuffer();
    EXPECT_EQ(Each<float>(6, [&](int i) { return Op(double(U[i]) - double(V[i])); }), Pixels(t));
    *t->GetBuffer() = *a->GetBuffer() - *b->GetBuffer();
    EXPECT_EQ(Each<float>(6, [&](int i) { return Op(double(A[i]) - double(B[i])); }), Pixels(t));
    *t->GetBuffer() = *a->GetBuffer() + 0.1f;
    EXPECT_EQ(Each<float>(6, [&](int i) { return Op(double(A[i]) + double(0.1f)); }), Pixels(t));
    *t->GetBuffer() = *a->GetBuffer() / 3.0f;
    EXPECT_EQ(Each<float>(6, [&](int i) { return Op(double(A[i]) / 3.0); }), Pixels(t));
    *t->GetBuffer() = 3.0f / *a->GetBuffer();
    EXPECT_EQ(Each<float>(6, [&](int i) { return Op(3.0 / double(A[i])); }), Pixels(t));
    *t->GetBuffer() = orvane::Max(1.0f, *u->GetBuffer() + *b->GetBuffer());
    EXPECT_EQ(Each<float>(6, [&](int i) { return std::max(1.0f, Op(double(U[i]) + double(B[i]))); }), Pixels(t));

    // Clamp and Outside are strict, AtOrBeyond includes the bounds, NaN is neither.
    const auto x = MakeImage<float>(3, 2, {-0.5f, 0.f, 5.f, 10.f, 10.5f, kNaN});
    *t->GetBuffer() = orvane::Clamp(*x->GetBuffer(), 0.0f, 10.0f);
    const std::vector<float> clamped = Pixels(t);
    EXPECT_EQ((std::vector<float>{0, 0, 5, 10, 10}), std::vector<float>(clamped.begin(), clamped.begin() + 5));
    EXPECT_TRUE(std::isnan(clamped[5]));
    *t->GetBuffer() = orvane::AtOrBeyond(*x->GetBuffer(), 0.f, 10.f);
    EXPECT_EQ((std::vector<float>{1, 1, 0, 1, 1, 0}), Pixels(t));

    auto count = MakeImage<float>(3, 2, {0, 1, 2, 3, 4, 5});
    *count->GetBuffer() += orvane::Outside(*x->GetBuffer(), 0.f, 10.f);
    EXPECT_EQ((std::vector<float>{1, 1, 2, 3, 5, 5}), Pixels(count));
    *count->GetBuffer() = *count->GetBuffer() + orvane::Outside(*x->GetBuffer(), 0.f, 10.f);
    EXPECT_EQ((std::vector<float>{2, 1, 2, 3, 6, 5}), Pixels(count));
}

TEST(ImageBufferIntegerTarget, InnerOperatorsRoundToFloatButTheOutermostIsTruncatedUnrounded) {
    // Element 0 tells the rule from both neighbours: 3 * 0.7f + 3 * 0.3f is 3 all in
    // double and 3 with the sum rounded to float, but 2 by the rule; likewise 5 / 3
    // rounds to float below 5/3.
    const float s1 = 0.7f, s2 = 0.3f, third = Op(1.0 / 3.0);
    const auto a = MakeImage<u16>(3, 2, {3, 10, 65535, 0, 1000, 7});
    const auto b = MakeImage<u16>(3, 2, {3, 0, 65535, 0, 1, 7});
    const auto f = MakeImage<float>(3, 2, {5.f, 14.f, 17.f, 2.f, 99.9f, 210000.f});
    const auto weighted = [&](const std::vector<u16>& x, const std::vector<u16>& y) {
        return Each<u16>(6, [&](int i) {
            return Truncated<u16>(double(Op(x[i] * double(s1))) + double(Op(y[i] * double(s2))));
        });
    };
    auto t = MakeFilled<u16>(3, 2, 1);
    *t->GetBuffer() = *a->GetBuffer() * s1 + *b->GetBuffer() * s2;
    EXPECT_EQ(weighted(Pixels(a), Pixels(b)), Pixels(t));
    *t->GetBuffer() = *f->GetBuffer() / 3.0f + third;
    EXPECT_EQ(Each<u16>(6, [&](int i) { return Truncated<u16>(double(Op(f->GetData()[i] / 3.0)) + double(third)); }),
              Pixels(t));
    const std::vector<u16> before = Pixels(a);  // the target may also be an operand
    *a->GetBuffer() = *a->GetBuffer() * s1 + *a->GetBuffer() * s2;
    EXPECT_EQ(weighted(before, before), Pixels(a));
}

TEST(ImageBufferIntegerTarget, PlainConversionKeepsLowBitsNonFiniteStoresZeroSaturateClampsAndEightBitSumsWrap) {
    const auto f = MakeImage<float>(4, 2, {140000.f, -3.f, 131071.8f, 131072.f, 25.4f, -131073.f, 4e9f, -4e9f});
    auto t = MakeFilled<u16>(4, 2, 1);
    *t->GetBuffer() = *f->GetBuffer() / 2.0f + 0.0f;
    EXPECT_EQ((std::vector<u16>{70000 & 0xFFFF, 65535, 65535, 0, 12, 0, Truncated<u16>(2e9), Truncated<u16>(-2e9)}),
              Pixels(t));
    const auto g = MakeImage<float>(3, 3, {-1.5f, 0.f, 12.7f, 65534.9f, 65535.f, 70000.f, kNaN, kInf, -kInf});
    t = MakeFilled<u16>(3, 3, 5);
    *t->GetBuffer() = *g->GetBuffer() / 1.0f + 0.0f;
    EXPECT_EQ((std::vector<u16>{65535, 0, 12, 65534, 65535, 70000 & 0xFFFF, 0, 0, 0}), Pixels(t));
    *t->GetBuffer() = orvane::Saturate<u16>(*g->GetBuffer());
    EXPECT_EQ((std::vector<u16>{0, 0, 12, 65534, 65535, 65535, 0, 65535, 0}), Pixels(t));

    const auto a = MakeImage<u8>(3, 2, {200, 255, 0, 128, 1, 100});
    const auto b = MakeImage<u8>(3, 2, {100, 1, 0, 128, 254, 27});
    const auto w = MakeImage<u16>(3, 2, {65535, 1000, 256, 0, 300, 65280});
    const u8 *A = a->GetData(), *B = b->GetData();
    const u16* W = w->GetData();
    auto bytes = MakeFilled<u8>(3, 2, 9);
    *bytes->GetBuffer() = *w->GetBuffer() + *b->GetBuffer();
    EXPECT_EQ(Each<u8>(6, [&](int i) { return (W[i] + B[i]) & 0xFF; }), Pixels(bytes));
    *bytes->GetBuffer() = *a->GetBuffer();
    *bytes->GetBuffer() += *b->GetBuffer();
    EXPECT_EQ(Each<u8>(6, [&](int i) { return (A[i] + B[i]) & 0xFF; }), Pixels(bytes));
    *bytes->GetBuffer() = *w->GetBuffer() + *bytes->GetBuffer();
    EXPECT_EQ(Each<u8>(6, [&](int i) { return (W[i] + A[i] + B[i]) & 0xFF; }), Pixels(bytes));
}

TEST(ImageAcquisition, ConstructionZeroFillsAlsoWhenEmpty) {
    const ImageAcquisition<u8> bytes(5, 3);
    const ImageAcquisition<unsigned short> words(7, 2);
    const ImageAcquisition<float> floats(3, 4);
    EXPECT_EQ((std::vector<int>{5, 3, 15, 1, 2, 4}), (std::vector<int>{bytes.GetWidth(), bytes.GetHeight(),
              bytes.GetPixelCount(), bytes.GetBytesPerPixel(), words.GetBytesPerPixel(), floats.GetBytesPerPixel()}));
    EXPECT_EQ(words.GetData(), words.GetPixels().get());
    EXPECT_TRUE(std::all_of(words.GetData(), words.GetData() + 14, [](unsigned short v) { return v == 0; }));
    EXPECT_TRUE(std::all_of(floats.GetData(), floats.GetData() + 12, [](float v) { return v == 0.f; }));

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

TEST(ImageAcquisition, ALargeImageReusesTheBlockOfOneReleasedBeforeAndStillStartsAtZero) {
    const int width = 1201, height = 1000;  // 4.8 MB of floats: a huge-page block
    auto first = boost::make_shared<ImageAcquisition<float>>(width, height);
    first->Fill(7.5f);
    const float* block = first->GetData();
    first.reset();
    const auto smaller = boost::make_shared<ImageAcquisition<float>>(width, height - 600);
    const auto second = boost::make_shared<ImageAcquisition<float>>(width, height);
    EXPECT_NE(block, smaller->GetData());
    EXPECT_EQ(block, second->GetData());
    EXPECT_TRUE(std::all_of(second->GetData(), second->GetData() + second->GetPixelCount(),
                            [](float v) { return v == 0.f; }));

    // Far more released blocks than are kept: each is kept or freed, none lost twice.
    std::vector<boost::shared_ptr<ImageAcquisition<float>>> many;
    for (int i = 0; i < 20; ++i) many.push_back(boost::make_shared<ImageAcquisition<float>>(width, height + i));
    many.clear();
    for (int i = 0; i < 20; ++i) many.push_back(boost::make_shared<ImageAcquisition<float>>(width, height + i));
    EXPECT_TRUE(std::all_of(many.back()->GetData(), many.back()->GetData() + many.back()->GetPixelCount(),
                            [](float v) { return v == 0.f; }));
}

TEST_F(Pools, AcquireTakesTheFreeImageNearestThePoolStartAndClientsShareThePoolOfTheLargestReservation) {
    auto client = Open<unsigned short>(1001, 3);
    client->Reserve(3);
    const Shorts pool = PoolOf(client);
    ASSERT_EQ(3u, pool.size());
    EXPECT_TRUE(InUseOf(client).empty());
    const auto first = client->Acquire(), second = client->Acquire(), third = client->Acquire();
    EXPECT_EQ(pool, (Shorts{first, second, third}));
    EXPECT_EQ(3u, client->GetAcquired());

    second->GetData()[5] = 42;
    second->SetProperty<int>("image.pixelcluster.pos.x", 9);
    client->Release(second);
    client->Release(first);
    EXPECT_EQ(1u, client->GetAcquired());
    EXPECT_EQ((Shorts{third}), InUseOf(client));
    EXPECT_EQ(first, client->Acquire());
    EXPECT_EQ((Shorts{first, third}), InUseOf(client));
    EXPECT_EQ(second, client->Acquire());
    EXPECT_EQ(pool, InUseOf(client));
    EXPECT_EQ(42, second->GetData()[5]);  // a recycled image keeps pixels and properties
    EXPECT_EQ(9, second->GetProperty<int>("image.pixelcluster.pos.x"));

    // Nothing free: a new, zero-filled image is made and appended to both lists.
    const auto fourth = client->Acquire();
    EXPECT_EQ((Shorts{first, second, third, fourth}), PoolOf(client));
    EXPECT_EQ(PoolOf(client), InUseOf(client));
    EXPECT_EQ(4u, client->GetAcquired());
    EXPECT_EQ(1001, fourth->GetWidth());
    EXPECT_EQ(std::vector<unsigned short>(3003, 0), Pixels(fourth));
    EXPECT_TRUE(fourth->GetProperties().empty());

    // Clients of one format share a pool of the largest reservation, not the sum.
    auto a = Open<unsigned short>(1007, 3), b = Open<unsigned short>(1007, 3);
    ASSERT_EQ(a->GetCollector(), b->GetCollector());
    a->Reserve(1);
    b->Reserve(1);
    EXPECT_EQ(1u, PoolOf(a).size());
    const auto imageA = a->Acquire(), imageB = b->Acquire();  // grows on demand
    EXPECT_NE(imageA, imageB);
    EXPECT_EQ(2u, PoolOf(a).size());
    b->Release(imageB);
    a->Release(imageA);
    a->Close();
    EXPECT_EQ((Shorts{imageA}), PoolOf(b));  // b still reserves one; trimmed from the end
    b->Close();
    EXPECT_TRUE(PoolOf(b).empty());
    EXPECT_TRUE(b->GetCollector()->GetCollections().empty());

    auto small = Open<unsigned char>(1009, 2), large = Open<unsigned char>(1009, 2);
    small->Reserve(1);
    large->Reserve(1);
    large->Reserve(2);  // reservations of one client add up
    EXPECT_EQ(3u, large->GetReserved());
    EXPECT_EQ(3u, PoolOf(large).size());
    std::vector<ImagePtr<unsigned char>> held;
    for (int i = 0; i < 3; ++i) held.push_back(large->Acquire());
    for (const auto& image : held) large->Release(image);
    large->Close();
    EXPECT_EQ(0u, large->GetReserved());
    EXPECT_EQ((std::vector<ImagePtr<unsigned char>>{held[0]}), PoolOf(small));
    EXPECT_EQ(1u, small->GetCollector()->GetCollections().size());
}

TEST_F(Pools, TrimWaitsWhileImagesAreInUseAndTheRegistryFindsTheCollectorByFormatOrServesAnOwnOne) {
    auto a = Open<float>(1013, 2), b = Open<float>(1013, 2);
    a->Reserve(1);
    b->Reserve(1);
    const auto imageA = a->Acquire(), imageB = b->Acquire();
    auto passer = Open<float>(1013, 2);
    passer->Reserve(1);
    passer->Close();  // needs 1, but 2 are in use
    EXPECT_EQ(2u, PoolOf(a).size());
    b->Release(imageB);
    passer = Open<float>(1013, 2);
    passer->Reserve(1);
    passer->Close();
    EXPECT_EQ((std::vector<ImagePtr<float>>{imageA}), PoolOf(a));
    a->Release(imageA);

    auto keeper = Open<unsigned short>(1019, 2);
    keeper->Reserve(1);
    const auto x = keeper->Acquire(), y = keeper->Acquire();  // grows the pool to 2 on demand
    keeper->Release(x);
    keeper->Release(y);
    auto idle = Open<unsigned short>(1019, 2);
    EXPECT_EQ(2u, keeper->GetCollector()->GetCollections().size());
    idle->Close();
    EXPECT_EQ(2u, PoolOf(keeper).size());
    EXPECT_EQ(1u, keeper->GetCollector()->GetCollections().size());
    auto reserving = Open<unsigned short>(1019, 2);
    reserving->Reserve(1);
    reserving->Close();
    EXPECT_EQ(1u, PoolOf(keeper).size());

    auto survivor = Open<float>(1021, 2);
    Open<float>(1021, 2)->Reserve(3);  // dies without Close: its reservation must not count any more
    EXPECT_EQ(3u, PoolOf(survivor).size());
    survivor->Reserve(1);
    survivor->Close();
    EXPECT_TRUE(PoolOf(survivor).empty());

    // An own collector serves one collection outside the registry.
    auto& registry = ImageCollectorRegistry::Instance();
    auto own = registry.GetCollection<float>(1031, 2, true);
    ImageCollector<float>* registered = registry.FindCollector<float>(1031, 2);
    ASSERT_NE(nullptr, registered);
    EXPECT_NE(registered, own->GetCollector());
    EXPECT_EQ(registered, Open<float>(1031, 2)->GetCollector());
    auto ownToo = registry.GetCollection<float>(1031, 2, true);
    EXPECT_NE(own->GetCollector(), ownToo->GetCollector());
    EXPECT_EQ(1, (Registered<float>(1031, 2)));

    own->Reserve(2);
    EXPECT_EQ(1031, own->Acquire()->GetWidth());
    EXPECT_EQ(2u, PoolOf(own).size());
    EXPECT_TRUE(registered->GetPool().empty() && registered->GetInUse().empty());
    own->GetCollector()->Clear();
    EXPECT_TRUE(PoolOf(own).empty());
    EXPECT_TRUE(InUseOf(own).empty());
    EXPECT_TRUE(own->GetCollector()->GetCollections().empty());

    // The registry finds the collector by width, height and pixel type.
    const auto base = Open<unsigned short>(1033, 11), same = Open<unsigned short>(1033, 11);
    const std::vector<const void*> distinct{base->GetCollector(), Open<unsigned short>(11, 1033)->GetCollector(),
                                            Open<unsigned short>(1033, 12)->GetCollector(),
                                            Open<float>(1033, 11)->GetCollector(),
                                            Open<unsigned char>(1033, 11)->GetCollector()};
    EXPECT_EQ(base->GetCollector(), same->GetCollector());
    for (size_t i = 0; i < distinct.size(); ++i)
        for (size_t j = i + 1; j < distinct.size(); ++j) EXPECT_NE(distinct[i], distinct[j]) << i << " " << j;
    EXPECT_EQ((std::vector<long>{1, 1, 1, 1, 1}),
              (std::vector<long>{Registered<unsigned short>(1033, 11), Registered<unsigned short>(11, 1033),
                                 Registered<unsigned short>(1033, 12), Registered<float>(1033, 11),
                                 Registered<unsigned char>(1033, 11)}));
}

