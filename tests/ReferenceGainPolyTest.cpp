#include "TestImages.h"

#include "interfaces/ReferenceGainPoly.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using orvane::test::MakeImage;
using orvane::test::Pixels;
using orvane::test::ScratchDirectory;

TEST(ReferenceGainPoly, RoundTripStaysWithinHalfAStepOfTheLargestMagnitude) {
    ReferenceGainPoly store(200, 1);
    EXPECT_EQ(3, store.GetGainPolyCoeff());
    auto values = MakeImage<float>(200, 1);
    for (int i = 0; i < 200; ++i) values->GetData()[i] = static_cast<float>(std::sin(i * 0.37) * 3e-6);
    values->GetData()[7] = -4e-6f;  // the largest magnitude
    values->GetData()[8] = 0.0f;
    auto codes = MakeImage<unsigned short>(200, 1);
    auto back = MakeImage<float>(200, 1);
    store.CompressImage(values, 2, codes);
    store.DeCompressImage(2, codes, back);
    const double scale = 4e-6f, step = scale / 32767;
    EXPECT_EQ(scale, store.GetScale(2));
    for (int i = 0; i < 200; ++i) {
        const double v = values->GetData()[i];
        ASSERT_EQ(32768 + std::lround(v * 32767 / scale), codes->GetData()[i]) << i;
        ASSERT_LE(std::fabs(back->GetData()[i] - v), step / 2 + std::fabs(v) * 0x1p-24) << i;
    }
    EXPECT_EQ(-4e-6f, back->GetData()[7]);
    EXPECT_EQ(0.0f, back->GetData()[8]);
}

TEST(ReferenceGainPoly, NonFiniteValuesAndAllZeroImages) {
    ReferenceGainPoly store(4, 1);
    const float inf = std::numeric_limits<float>::infinity();
    auto codes = MakeImage<unsigned short>(4, 1);
    auto back = MakeImage<float>(4, 1);
    store.CompressImage(MakeImage<float>(4, 1, {std::numeric_limits<float>::quiet_NaN(), inf, -inf, 2.0f}), 0, codes);
    EXPECT_EQ((std::vector<unsigned short>{32768, 65535, 1, 65535}), Pixels(codes));
    store.DeCompressImage(0, codes, back);
    EXPECT_EQ((std::vector<float>{0.0f, 2.0f, -2.0f, 2.0f}), Pixels(back));
    store.CompressImage(MakeImage<float>(4, 1), 1, codes);
    EXPECT_EQ(0.0f, store.GetScale(1));
    store.DeCompressImage(1, codes, back);
    EXPECT_EQ(std::vector<float>(4, 0.0f), Pixels(back));
}

TEST(ReferenceGainPoly, EachCoefficientKeepsItsScaleWhateverTheImageProperties) {
    ReferenceGainPoly store(2, 1);
    const auto images = store.GetGainPoly();
    store.CompressImage(MakeImage<float>(2, 1, {1.5f, -0.75f}), 0, images[0]);
    store.CompressImage(MakeImage<float>(2, 1, {2e-9f, 1e-9f}), 1, images[1]);
    images[0]->GetProperties().clear();
    images[0]->SetProperty("image.time", 3);
    auto back = MakeImage<float>(2, 1);
    store.DeCompressImage(0, images[0], back);
    EXPECT_EQ(1.5f, back->GetData()[0]);
    EXPECT_NEAR(-0.75, back->GetData()[1], 1.5 / 65534);
    store.DeCompressImage(1, images[1], back);
    EXPECT_EQ(2e-9f, back->GetData()[0]);
    EXPECT_NEAR(1e-9, back->GetData()[1], 2e-9 / 65534);

    EXPECT_THROW(store.CompressImage(back, 3, images[0]), ReferenceException);
    EXPECT_THROW(store.CompressImage(MakeImage<float>(1, 2, {9.0f, 9.0f}), 0, images[0]), ReferenceException);
    EXPECT_THROW(store.DeCompressImage(-1, images[0], back), ReferenceException);
    EXPECT_THROW(store.DeCompressImage(0, nullptr, back), ReferenceException);
    EXPECT_EQ(1.5f, store.GetScale(0));  // refused calls change nothing
    EXPECT_THROW(ReferenceGainPoly(2, 1, -1), ReferenceException);
}

TEST(ReferenceGainPoly, SaveAndLoadKeepCodesPropertiesScalesAndValidity) {
    ScratchDirectory directory;
    ReferenceGainPoly saved(3, 2, 3, "poly.fxd");
    for (int k = 0; k < 3; ++k) {
        const float top = (k + 1) / 3.0f;  // no short decimal
        saved.CompressImage(MakeImage<float>(3, 2, {top, -top / 2, top / 10, 0.0f, top / 7, -top}), k,
                            saved.GetGainPoly()[k]);
    }
    saved.GetGainPoly()[1]->SetProperty("image.time", 42);
    saved.SetValid(true);
    saved.Save();

    ReferenceGainPoly loaded(3, 2, 3, "poly.fxd");
    const auto live = loaded.GetGainPoly();
    loaded.Load();
    EXPECT_EQ(live, loaded.GetGainPoly());
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(Pixels(saved.GetGainPoly()[k]), Pixels(live[k]));
        EXPECT_EQ(saved.GetScale(k), loaded.GetScale(k));
    }
    EXPECT_EQ(42, live[1]->GetProperty<int>("image.time"));
    EXPECT_TRUE(loaded.IsValid());

    ReferenceGainPoly fewer(3, 2, 2, "poly.fxd");
    EXPECT_THROW(fewer.Load(), ReferenceException);
    EXPECT_FALSE(fewer.IsValid());
    EXPECT_EQ(0.0f, fewer.GetScale(0));
}
