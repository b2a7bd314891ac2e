#include "TestImages.h"

#include "interfaces/CorrectionGainLinear.h"
#include "interfaces/ReferenceGainLinear.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using orvane::test::MakeImage;
using orvane::test::Pixels;
using orvane::test::ScratchDirectory;

TEST(ReferenceGainLinear, CodesStayWithinHalfAStepOnTheGainRangeAndZeroIsNoUsableGain) {
    ReferenceGainLinear store(12, 1);
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    // Multiples of 2^-14 below 4 are exact; 4.0 and beyond take the top code; NaN,
    // negatives and gains below 2^-15 code 0.
    auto gain = MakeImage<float>(12, 1, {0.25f, 0.5f, 1.0f, 2.0f, 3.99993896484375f, 4.0f, 1e6f, inf, nan, -1.0f,
                                         1.0f / 65536, 1.0f / 32768});
    auto codes = MakeImage<unsigned short>(12, 1);
    store.CompressImage(gain, codes);
    EXPECT_EQ((std::vector<unsigned short>{4096, 8192, 16384, 32768, 65535, 65535, 65535, 65535, 0, 0, 0, 1}),
              Pixels(codes));

    auto back = MakeImage<float>(12, 1);
    for (float g = 0.25f; g < 4.0f; g = std::nextafter(g * 1.0007f, 5.0f)) {
        gain->GetData()[0] = g;
        store.CompressImage(gain, codes);
        store.DeCompressImage(codes, back);
        ASSERT_LE(std::fabs(back->GetData()[0] - double(g)), 1.0 / 32768) << g;
        ASSERT_EQ(codes->GetData()[0] / 16384.0, back->GetData()[0]);
    }
}

TEST(ReferenceGainLinear, SaveAndLoadKeepGainPropertiesAndInversion) {
    ScratchDirectory directory;
    ReferenceGainLinear saved(3, 2, "gain.fxd"), loaded(3, 2, "gain.fxd"), otherSize(2, 3, "gain.fxd");
    saved.CompressImage(MakeImage<float>(3, 2, {1.0f, 2.0f, 0.5f, 0.25f, 3.0f, 1.5f}), saved.GetGainLinear());
    saved.GetGainLinear()->SetProperty("image.time", 42);
    saved.SetGainInversion(true);
    saved.SetValid(true);
    saved.Save();

    const ImagePtr<unsigned short> live = loaded.GetGainLinear();
    loaded.Load();
    EXPECT_EQ(live, loaded.GetGainLinear());
    EXPECT_EQ(Pixels(saved.GetGainLinear()), Pixels(live));
    EXPECT_EQ(42, live->GetProperty<int>("image.time"));
    EXPECT_TRUE(loaded.GetGainInversion());
    EXPECT_TRUE(loaded.IsValid());
    EXPECT_THROW(otherSize.Load(), ReferenceException);
    EXPECT_FALSE(otherSize.GetGainInversion());
    EXPECT_FALSE(otherSize.IsValid());
}

TEST(CorrectionGainLinear, DividesOrMultipliesByTheStoredGainAndRefusesMismatchedImages) {
    auto store = boost::make_shared<ReferenceGainLinear>(4, 1);
    store->CompressImage(MakeImage<float>(4, 1, {2.0f, 0.5f, 1.5f, 0.0f}), store->GetGainLinear());
    CorrectionGainLinear correction(store);
    for (bool inverted : {false, true}) {
        store->SetGainInversion(inverted);  // read at each Correct
        ImagePtr<float> image = MakeImage<float>(4, 1, {1000.0f, 1000.0f, 1000.0f, 1000.0f});
        correction.Correct(image);
        EXPECT_EQ((inverted ? std::vector<float>{2000.0f, 500.0f, 1500.0f, 0.0f}
                            : std::vector<float>{500.0f, 2000.0f, 1000.0f / 1.5f, 0.0f}),
                  Pixels(image));
    }
    ImagePtr<float> wrong = MakeImage<float>(4, 2);
    EXPECT_THROW(correction.Correct(wrong), ReferenceException);
    EXPECT_THROW(CorrectionGainLinear(nullptr), ReferenceException);
    EXPECT_THROW(store->CompressImage(MakeImage<float>(4, 1), nullptr), ReferenceException);
    EXPECT_THROW(store->CompressImage(MakeImage<float>(1, 4), store->GetGainLinear()), ReferenceException);
    EXPECT_THROW(store->DeCompressImage(store->GetGainLinear(), MakeImage<float>(4, 2)), ReferenceException);
}
