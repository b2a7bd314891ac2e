#include "TestImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

using orvane::test::MakeFilled;
using orvane::test::MakeImage;
using orvane::test::Pixels;

namespace {

using u8 = unsigned char;
using u16 = unsigned short;

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

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

}  // namespace

TEST(ImageBufferCopy, CopiesWidenAndOnlyTheSmallestSizeIsProcessed) {
    const auto raw = MakeImage<u16>(3, 2, {0, 1, 2, 40000, 65535, 7});
    const auto floats = MakeImage<float>(3, 2, {0.1f, -2.5f, 1e30f, 3.f, -0.f, 16777216.f});
    auto wide = MakeFilled<float>(3, 2, -1.f), copy = MakeFilled<float>(3, 2, -1.f);
    *wide->GetBuffer() = *raw->GetBuffer();
    *copy->GetBuffer() = *floats->GetBuffer();
    EXPECT_EQ(Each<float>(6, [&](int i) { return static_cast<float>(raw->GetData()[i]); }), Pixels(wide));
    EXPECT_EQ(Pixels(floats), Pixels(copy));

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
}

TEST(ImageBufferArithmetic, FloatTargetsRoundEachOperatorToFloat) {
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
}

TEST(ImageBufferArithmetic, ClampAndOutsideAreStrictAtOrBeyondIncludesTheBoundsNaNIsNeither) {
    const auto x = MakeImage<float>(3, 2, {-0.5f, 0.f, 5.f, 10.f, 10.5f, kNaN});
    auto t = MakeFilled<float>(3, 2, 7.f);
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

TEST(ImageBufferIntegerTarget, PlainConversionKeepsLowBitsNonFiniteStoresZeroAndSaturateClamps) {
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
}

TEST(ImageBufferIntegerTarget, EightBitSumsWrapAroundAlsoIntoAnOperand) {
    const auto a = MakeImage<u8>(3, 2, {200, 255, 0, 128, 1, 100});
    const auto b = MakeImage<u8>(3, 2, {100, 1, 0, 128, 254, 27});
    const auto w = MakeImage<u16>(3, 2, {65535, 1000, 256, 0, 300, 65280});
    const u8 *A = a->GetData(), *B = b->GetData();
    const u16* W = w->GetData();
    auto t = MakeFilled<u8>(3, 2, 9);
    *t->GetBuffer() = *a->GetBuffer() + *b->GetBuffer();
    EXPECT_EQ(Each<u8>(6, [&](int i) { return (A[i] + B[i]) & 0xFF; }), Pixels(t));
    *t->GetBuffer() = *w->GetBuffer() + *b->GetBuffer();
    EXPECT_EQ(Each<u8>(6, [&](int i) { return (W[i] + B[i]) & 0xFF; }), Pixels(t));

    auto acc = MakeImage<u8>(3, 2, {200, 255, 0, 128, 1, 100});
    *acc->GetBuffer() += *b->GetBuffer();
    EXPECT_EQ(Each<u8>(6, [&](int i) { return (A[i] + B[i]) & 0xFF; }), Pixels(acc));
    *acc->GetBuffer() = *w->GetBuffer() + *acc->GetBuffer();
    EXPECT_EQ(Each<u8>(6, [&](int i) { return (W[i] + A[i] + B[i]) & 0xFF; }), Pixels(acc));
}

TEST(ImageBufferAliasing, FloatTargetMayAlsoBeAnOperand) {
    const std::vector<float> start{16777216.f, 0.1f, -5.f, 3.f};
    auto acc = MakeImage<float>(4, 1, {16777216.f, 0.1f, -5.f, 3.f});
    const auto frame = MakeImage<u16>(4, 1, {1, 2, 65535, 3}), frame2 = MakeImage<u16>(4, 1, {3, 2, 1, 0});
    *acc->GetBuffer() += *frame->GetBuffer();
    *acc->GetBuffer() += *frame2->GetBuffer();
    EXPECT_EQ(Each<float>(4, [&](int i) {
                  return Op(double(Op(double(start[i]) + frame->GetData()[i])) + frame2->GetData()[i]);
              }),
              Pixels(acc));
    auto inv = MakeImage<float>(4, 1, {3.f, -0.5f, 7.f, 1e-3f});
    *inv->GetBuffer() = 3.0f / *inv->GetBuffer();
    EXPECT_EQ((std::vector<float>{1.f, -6.f, Op(3.0 / 7.0), Op(3.0 / double(1e-3f))}), Pixels(inv));
}
