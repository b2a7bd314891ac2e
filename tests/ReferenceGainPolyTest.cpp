#include "TestImages.h"

#include "interfaces/ReferenceGainPoly.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using orvane::test::MakeImage;
using orvane::test::Pixels;
using orvane::test::ScratchDirectory;

TEST(ReferenceGainPoly, RoundTripStaysWithinHalfAStepOfTheLargestFiniteMagnitude) {
    ReferenceGainPoly store(200, 1);
    EXPECT_EQ(3, store.GetGainPolyCoeff());
    const float inf = std::numeric_limits<float>::infinity();
    auto values = MakeImage<float>(200, 1, {-4e-6f, 0.0f, std::numeric_limits<float>::quiet_NaN(), inf, -inf});
    for (int i = 5; i < 200; ++i) values->GetData()[i] = static_cast<float>(std::sin(i * 0.37) * 3e-6);
    auto codes = MakeImage<unsigned short>(200, 1);
    auto back = MakeImage<float>(200, 1);
    store.CompressImage(values, 2, codes);
    store.DeCompressImage(2, codes, back);
    const double scale = 4e-6f, step = scale / 32767;  // the largest finite magnitude
    EXPECT_EQ(scale, store.GetScale(2));
    const std::vector<unsigned short> codesOfFirst(codes->GetData(), codes->GetData() + 5);
    const std::vector<float> backOfFirst(back->GetData(), back->GetData() + 5);  // -S, 0, NaN as 0, +-inf as +-S
    EXPECT_EQ((std::vector<unsigned short>{1, 32768, 32768, 65535, 1}), codesOfFirst);
    EXPECT_EQ((std::vector<float>{-4e-6f, 0.0f, 0.0f, 4e-6f, -4e-6f}), backOfFirst);
    for (int i = 5; i < 200; ++i) {
        const double v = values->GetData()[i];
        ASSERT_EQ(32768 + std::lround(v * 32767 / scale), codes->GetData()[i]) << i;  // half away from zero
        ASSERT_LE(std::fabs(back->GetData()[i] - v), step / 2 + std::fabs(v) * 0x1p-24) << i;
    }
}

TEST(ReferenceGainPoly, EachCoefficientKeepsItsScaleWhateverTheImageProperties) {
    ReferenceGainPoly store(2, 1);
    const auto images = store.GetGainPoly();
    auto back = MakeImage<float>(2, 1);
    const float values[3][2] = {{1.5f, -0.75f}, {2e-9f, 1e-9f}, {0.0f, 0.0f}};  // nothing non-zero: scale 0
    for (int k = 0; k < 3; ++k) store.CompressImage(MakeImage<float>(2, 1, {values[k][0], values[k][1]}), k, images[k]);
    images[0]->GetProperties().clear();
    images[0]->SetProperty("image.time", 3);
    for (int k = 0; k < 3; ++k) {
        store.DeCompressImage(k, images[k], back);
        EXPECT_EQ(values[k][0], store.GetScale(k));
        EXPECT_EQ(values[k][0], back->GetData()[0]);
        EXPECT_NEAR(values[k][1], back->GetData()[1], values[k][0] / 65534 + values[k][0] * 0x1p-24) << k;
    }
    EXPECT_THROW(store.CompressImage(back, 3, images[0]), ReferenceException);
    EXPECT_THROW(store.CompressImage(MakeImage<float>(1, 2, {9.0f, 9.0f}), 0, images[0]), ReferenceException);
    EXPECT_THROW(store.DeCompressImage(-1, images[0], back), ReferenceException);
    EXPECT_THROW(store.DeCompressImage(0, nullptr, back), ReferenceException);
    EXPECT_EQ(1.5f, store.GetScale(0));  // refused calls change nothing
    EXPECT_THROW(ReferenceGainPoly(2, 1, -1), ReferenceException);
}

TEST(ReferenceGainPoly, SaveAndLoadKeepCodesPropertiesScalesAndValidity) {
    ScratchDirectory directory;
    ReferenceGainPoly saved(3, 2, 3, "poly.fxd"), loaded(3, 2, 3, "poly.fxd"), fewer(3, 2, 2, "poly.fxd");
    for (int k = 0; k < 3; ++k) {
        const float top = (k + 1) / 3.0f;  // no short decimal
        saved.CompressImage(MakeImage<float>(3, 2, {top, -top / 2, top / 10, 0.0f, top / 7, -top}), k, saved.GetGainPoly()[k]);
    }
    saved.GetGainPoly()[1]->SetProperty("image.time", 42);
    saved.SetValid(true);
    saved.Save();

    const auto live = loaded.GetGainPoly();
    loaded.Load();
    EXPECT_EQ(live, loaded.GetGainPoly());
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(Pixels(saved.GetGainPoly()[k]), Pixels(live[k]));
        EXPECT_EQ(saved.GetScale(k), loaded.GetScale(k));
    }
    EXPECT_EQ(42, live[1]->GetProperty<int>("image.time"));
    EXPECT_TRUE(loaded.IsValid());
    EXPECT_THROW(fewer.Load(), ReferenceException);
    EXPECT_FALSE(fewer.IsValid());
    EXPECT_EQ(0.0f, fewer.GetScale(0));
}
