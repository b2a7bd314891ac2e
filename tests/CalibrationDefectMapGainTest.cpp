#include "TestImages.h"

#include "calibration/CalibrationDefectMapGain.h"

#include <gtest/gtest.h>

using orvane::test::LogCapture;
using orvane::test::Pixels;

namespace {

constexpr int W = 64;
constexpr int H = 48;

// The table's values, on a 48 x 36 area at (8, 6) with a 5 x 5 window.
DefectMapGainParameters Parameters() {
    DefectMapGainParameters p;
    p.X0 = 8, p.Y0 = 6, p.Width = 48, p.Height = 36, p.MedianWidth = 5, p.MedianHeight = 5;
    p.ClipMin = 0.25f, p.ClipMax = 4.0f, p.ThresholdMin = 0.53f, p.ThresholdMax = 2.0f;
    p.QuantLevels = 65536;
    return p;
}

bool InArea(int x, int y) { return x >= 8 && x < 56 && y >= 6 && y < 42; }

struct Fixture {
    explicit Fixture(const DefectMapGainParameters& p = Parameters(), bool withFlag = true, int gainWidth = W)
        : parameters(p), store(boost::make_shared<ReferenceDM>(W, H)),
          gain(boost::make_shared<ReferenceGainLinear>(gainWidth, H)),
          flag(withFlag ? boost::make_shared<DefectMapFlag>(flagParameters) : nullptr),
          calibration(parameters, store, gain, flag) {
        calibration.Init();
        Smooth();
    }
    // A smooth gain from 1.0 to about 1.04 over the frame.
    void Smooth() {
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < gain->GetGainLinear()->GetWidth(); ++x) Set(x, y, 16384 + 8 * x + 4 * y);
    }
    void Set(int x, int y, unsigned short code) {
        const ImagePtr<unsigned short> stored = gain->GetGainLinear();
        stored->GetData()[y * stored->GetWidth() + x] = code;
    }
    void SetGain(int x, int y, float g) { Set(x, y, ReferenceGainLinear::Compress(g)); }

    DefectMapGainParameters parameters;
    DMFlagParameters flagParameters;
    boost::shared_ptr<ReferenceDM> store;
    boost::shared_ptr<ReferenceGainLinear> gain;
    boost::shared_ptr<DefectMapFlag> flag;
    CalibrationDefectMapGain calibration;
};

// The pool's images in the order Init acquires them: 0 work, 1 quantised, 2 defects.
ImagePtr<float> PoolImage(int index) {
    return ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().at(index);
}

template <typename T>
T At(const ImagePtr<T>& image, int x, int y) { return image->GetData()[y * image->GetWidth() + x]; }

template <typename F>
void ExpectFailure(F operation, const std::string& message) {
    try {
        operation();
        ADD_FAILURE() << "no exception for " << message;
    } catch (const CalibrationException& e) {
        const std::string text = e.what();
        const std::string tail = "): " + message;
        EXPECT_TRUE(text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0) << text;
    }
}

}  // namespace

TEST(CalibrationDefectMapGain, PlantedDefectsFailOneOrBothTests) {
    DefectMapGainParameters p = Parameters();
    p.ClipMax = 3.5f;
    Fixture f(p);
    struct Plant { int x, y; float gain, count; };
    const Plant plants[] = {{20, 15, 0.25f, 2}, {30, 20, 3.0f, 1}, {25, 30, 2.2f, 1}, {40, 30, 0.6f, 0},
                            // outside the area the second test sees the clipped gain
                            {2, 2, 0.25f, 2},   {0, 47, 0.1f, 2},  {60, 44, 3.0f, 1}, {60, 2, 3.5f, 2},
                            {61, 2, 3.9f, 2}};
    for (const Plant& plant : plants) f.SetGain(plant.x, plant.y, plant.gain);
    LogCapture log;
    f.calibration.DefectMapGain();

    std::vector<float> expected(W * H, 0.0f);
    for (const Plant& plant : plants) expected[plant.y * W + plant.x] = plant.count;
    EXPECT_EQ(expected, Pixels(PoolImage(2)));
    EXPECT_EQ(0.25f, At(PoolImage(0), 2, 2));  // on the bound: condemned, and clipping leaves it
    EXPECT_EQ(0.25f, At(PoolImage(0), 0, 47));
    EXPECT_EQ(3.5f, At(PoolImage(0), 61, 2));
    EXPECT_EQ("I CalibrationDefectMapGain::DefectMapGain - Number of detected defects : 8\n", log.lines.at(log.lines.size() - 2));
}

TEST(CalibrationDefectMapGain, RatiosOnTheBoundsAreAcceptedAndEachRunStartsAfresh) {
    DefectMapGainParameters p = Parameters();
    p.ThresholdMin = 0.5f;
    Fixture f(p);
    std::fill(f.gain->GetGainLinear()->GetData(), f.gain->GetGainLinear()->GetData() + W * H, 16384);
    f.SetGain(20, 15, 0.5f);
    f.SetGain(30, 20, 2.0f);
    LogCapture log;
    f.calibration.DefectMapGain();
    // Area in [0.5, 2]: slope 65535 / 1.5 = 43690 exactly, and the median of 1.0 comes back exactly.
    EXPECT_EQ((std::vector<std::string>{
                  "I CalibrationDefectMapGain : DefectMapGain\n", "I Clip and detec pixel out of range\n",
                  "I Defect Map Min 0.5 Max 2\n", "I Scaling and Quantification - Slope = 43690 Offset = 0.5\n",
                  "I High Pass Median Divide\n", "I Defect Map threshold and merge\n",
                  "I CalibrationDefectMapGain::DefectMapGain - Number of detected defects : 0\n",
                  "I Defect Map Gain done\n"}),
              log.lines);

    f.Set(20, 15, 8191);  // just below 0.5
    f.SetGain(30, 20, 1.0f);
    f.calibration.DefectMapGain();
    EXPECT_EQ(1u, CountPositivePixels(PoolImage(2)));
    EXPECT_EQ(1.0f, At(PoolImage(2), 20, 15));

    f.SetGain(20, 15, 1.0f);
    f.calibration.DefectMapGain();
    EXPECT_EQ(0u, CountPositivePixels(PoolImage(2)));
}

TEST(CalibrationDefectMapGain, LocalMedianOfZeroMakesTheRatioZero) {
    DefectMapGainParameters p = Parameters();
    p.ClipMin = 0.0f;
    Fixture f(p);
    for (int y = 15; y < 22; ++y)
        for (int x = 20; x < 27; ++x) f.Set(x, y, 0);
    f.SetGain(23, 18, 1.0f);
    f.calibration.DefectMapGain();
    EXPECT_EQ(1.0f, At(PoolImage(2), 23, 18));  // in range, but its median is 0
    EXPECT_EQ(2.0f, At(PoolImage(2), 21, 16));  // on ClipMin, and a ratio of 0
}

TEST(CalibrationDefectMapGain, UpdateReplacesTheAreaClassifiesAndMarksTheStoreValid) {
    Fixture f;
    const ImagePtr<unsigned char> map = f.store->GetDM();
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) map->GetData()[y * W + x] = InArea(x, y) ? 5 : 0;
    map->GetData()[0] = 7;
    f.SetGain(20, 15, 0.25f);
    f.SetGain(2, 2, 0.25f);  // counted, but outside the area
    f.gain->GetGainLinear()->SetProperty("image.time", 7);
    f.calibration.DefectMapGain();
    f.calibration.UpdateDefectMapReference();

    std::vector<unsigned char> expected(W * H, 0);
    expected[0] = 1;         // kept, then classified
    expected[15 * W + 20] = 1;
    EXPECT_EQ(expected, Pixels(map));
    EXPECT_EQ(7, map->GetProperty<int>("image.time"));
    EXPECT_EQ(18u, map->GetProperty<unsigned>("info.quantlevels"));
    EXPECT_TRUE(f.store->IsValid());
}

TEST(CalibrationDefectMapGain, FailuresCarryTheirMessages) {
    DefectMapGainParameters p = Parameters();
    p.X0 = 16, p.Y0 = 12;  // ends at the last column and row
    Fixture f(p);
    f.SetGain(30, 30, 0.25f);
    f.calibration.DefectMapGain();
    const std::vector<float> counts = Pixels(PoolImage(2));
    EXPECT_EQ(2.0f, At(PoolImage(2), 30, 30));
    f.SetGain(40, 40, 0.25f);
    for (int x0 : {17, -8}) {
        f.parameters.X0 = x0;
        ExpectFailure([&] { f.calibration.DefectMapGain(); },
                      "CalibrationDefectMapGain : DefectMapGain failed due to image size");
    }
    EXPECT_EQ(counts, Pixels(PoolImage(2)));
    f.calibration.Clear();

    Fixture noFlag(Parameters(), false);
    noFlag.calibration.DefectMapGain();
    ExpectFailure([&] { noFlag.calibration.UpdateDefectMapReference(); },
                  "CalibrationDefectMapGain: UpdateDefectMapReference failed to check DM");
    EXPECT_FALSE(noFlag.store->IsValid());
    noFlag.calibration.Clear();

    Fixture tooLarge;
    tooLarge.parameters.Width = 57;
    ExpectFailure([&] { tooLarge.calibration.UpdateDefectMapReference(); },
                  "CalibrationDefectMapGain: UpdateDefectMapReference failed");
    EXPECT_FALSE(tooLarge.store->IsValid());
    tooLarge.calibration.Clear();

    Fixture otherSize(Parameters(), true, 32);  // the store's failure passes unchanged
    EXPECT_THROW(otherSize.calibration.DefectMapGain(), ReferenceException);
    otherSize.calibration.Clear();

    CalibrationDefectMapGain notInitialised(p, boost::make_shared<ReferenceDM>(W, H),
                                            boost::make_shared<ReferenceGainLinear>(W, H), nullptr);
    ExpectFailure([&] { notInitialised.DefectMapGain(); },
                  "CalibrationDefectMapGain : DefectMapGain failed because Init has not run");
}
