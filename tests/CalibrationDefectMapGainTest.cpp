#include "TestImages.h"

#include "calibration/CalibrationDefectMapGain.h"

#include <gtest/gtest.h>

using namespace orvane::test;

namespace {

constexpr int W = 64;
constexpr int H = 48;

// A 48 x 36 area at (8, 6) with a 5 x 5 window; gains clipped to [0.25, 4], ratios
// accepted in [0.53, 2], 65536 levels.
DefectMapGainParameters Parameters() { return DefectMapGainParameters{8, 6, 48, 36, 5, 5, 0.25f, 4.0f, 0.53f, 2.0f, 65536}; }

// The gain is smooth, from 1.0 to about 1.04 over the frame.
struct Fixture {
    explicit Fixture(const DefectMapGainParameters& p = Parameters(), int gainWidth = W)
        : parameters(p), gain(boost::make_shared<ReferenceGainLinear>(gainWidth, H)),
          calibration(parameters, store, gain, boost::make_shared<DefectMapFlag>(flagParameters)) {
        calibration.Init();
        for (int i = 0; i < gainWidth * H; ++i) Code(i) = 16384 + 8 * (i % gainWidth) + 4 * (i / gainWidth);
    }
    unsigned short& Code(int i) { return gain->GetGainLinear()->GetData()[i]; }
    void SetGain(int x, int y, float g) { Code(y * W + x) = ReferenceGainLinear::Compress(g); }
    std::vector<float> Counts() const { return Pixels(Pool(2)); }
    // The pool's images in the order Init acquires them: 0 work, 1 quantised, 2 defects.
    static ImagePtr<float> Pool(int i) {
        return ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().at(i);
    }

    DefectMapGainParameters parameters;
    DMFlagParameters flagParameters;  // held by reference
    boost::shared_ptr<ReferenceDM> store = boost::make_shared<ReferenceDM>(W, H);
    boost::shared_ptr<ReferenceGainLinear> gain;
    CalibrationDefectMapGain calibration;
};

}  // namespace

TEST(CalibrationDefectMapGain, PlantedDefectsFailOneOrBothTestsAndTheAreaIsWritten) {
    DefectMapGainParameters p = Parameters();
    p.ClipMax = 3.5f;
    Fixture f(p);
    struct Plant { int x, y; float gain, count; };
    const Plant plants[] = {{20, 15, 0.25f, 2}, {30, 20, 3.0f, 1}, {25, 30, 2.2f, 1}, {40, 30, 0.6f, 0},
                            // outside the area the second test sees the clipped gain
                            {2, 2, 0.25f, 2},   {0, 47, 0.1f, 2},  {60, 44, 3.0f, 1}, {60, 2, 3.5f, 2},
                            {61, 2, 3.9f, 2}};
    for (const Plant& plant : plants) f.SetGain(plant.x, plant.y, plant.gain);
    f.gain->GetGainLinear()->SetProperty("image.time", 7);
    const ImagePtr<unsigned char> map = f.store->GetDM();
    map->GetData()[0] = 7, map->GetData()[10 * W + 10] = 5;  // outside and inside the area
    f.calibration.DefectMapGain();

    std::vector<float> expected(W * H, 0.0f);
    for (const Plant& plant : plants) expected[plant.y * W + plant.x] = plant.count;
    EXPECT_EQ(expected, f.Counts());
    EXPECT_EQ(3.5f, Fixture::Pool(0)->GetData()[2 * W + 61]);  // clipped

    f.calibration.UpdateDefectMapReference();
    std::vector<unsigned char> classified(W * H, 0);  // isolated defects: 1
    for (int i : {0, 15 * W + 20, 20 * W + 30, 30 * W + 25}) classified[i] = 1;
    EXPECT_EQ(classified, Pixels(map));
    EXPECT_EQ(7, map->GetProperty<int>("image.time"));
    EXPECT_EQ(18u, map->GetProperty<unsigned>("info.quantlevels"));
    EXPECT_TRUE(f.store->IsValid());
}

TEST(CalibrationDefectMapGain, RatiosOnTheBoundsAreAcceptedAndEachRunStartsAfresh) {
    DefectMapGainParameters p = Parameters();
    p.ThresholdMin = 0.5f;
    Fixture f(p);
    for (int i = 0; i < W * H; ++i) f.Code(i) = 16384;
    f.SetGain(20, 15, 0.5f), f.SetGain(30, 20, 2.0f), f.SetGain(2, 2, 0.25f);
    LogCapture log;
    f.calibration.DefectMapGain();
    // The area spans [0.5, 2]; the median of 1.0 comes back exactly.
    EXPECT_EQ("I Defect Map Min 0.5 Max 2\n", log.lines.at(2));
    std::vector<float> expected(W * H, 0.0f);
    expected[2 * W + 2] = 2;  // outside the area
    EXPECT_EQ(expected, f.Counts());

    // With ClipMin 0 a block of 0 has a local median of 0, which makes the ratio 0.
    f.parameters.ClipMin = 0.0f;
    f.SetGain(30, 20, 1.0f), f.SetGain(2, 2, 1.0f);
    f.Code(15 * W + 20) = 8191;  // just below 0.5
    expected.assign(W * H, 0.0f);
    expected[15 * W + 20] = 1;
    for (int y = 22; y < 29; ++y) {
        for (int x = 30; x < 37; ++x) {
            f.Code(y * W + x) = 0;
            expected[y * W + x] = x == 33 && y == 25 ? 1 : 2;  // the centre is in range, its median 0
        }
    }
    f.SetGain(33, 25, 1.0f);
    f.calibration.DefectMapGain();
    EXPECT_EQ(expected, f.Counts());
}

TEST(CalibrationDefectMapGain, FailuresCarryTheirMessagesAndChangeNothing) {
    DefectMapGainParameters p = Parameters();
    p.X0 = 16, p.Y0 = 12;  // ends at the last column and row
    auto store = boost::make_shared<ReferenceDM>(W, H);
    CalibrationDefectMapGain noFlag(p, store, boost::make_shared<ReferenceGainLinear>(W, H), nullptr);
    EXPECT_EQ("CalibrationDefectMapGain : DefectMapGain failed because Init has not run",
              FailureText([&] { noFlag.DefectMapGain(); }));
    noFlag.Init();
    EXPECT_EQ("CalibrationDefectMapGain: UpdateDefectMapReference failed to check DM",
              FailureText([&] { noFlag.UpdateDefectMapReference(); }));
    noFlag.Clear();
    EXPECT_EQ("CalibrationDefectMapGain : DefectMapGain failed because Init has not run",  // images given back
              FailureText([&] { noFlag.DefectMapGain(); }));

    Fixture f(p);
    f.SetGain(30, 30, 0.25f);
    f.calibration.DefectMapGain();
    const std::vector<float> counts = f.Counts();
    EXPECT_EQ(2.0f, counts[30 * W + 30]);
    for (int x0 : {17, -8}) {  // -8 wraps past the unsigned test
        f.parameters.X0 = x0;
        EXPECT_EQ("CalibrationDefectMapGain : DefectMapGain failed due to image size",
                  FailureText([&] { f.calibration.DefectMapGain(); }));
    }
    EXPECT_EQ(counts, f.Counts());
    EXPECT_EQ("CalibrationDefectMapGain: UpdateDefectMapReference failed",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    EXPECT_FALSE(store->IsValid() || f.store->IsValid());
    f.calibration.Clear();

    Fixture otherSize(Parameters(), 32);  // the store's failure passes unchanged
    EXPECT_THROW(otherSize.calibration.DefectMapGain(), ReferenceException);
}
