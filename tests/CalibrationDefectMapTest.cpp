#include "TestImages.h"

#include "calibration/CalibrationDefectMap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

using namespace orvane::test;

namespace {

using Frame = ImagePtr<unsigned short>;
constexpr int W = 64;
constexpr int H = 48;

// Gain k / 1024 (k = 900 + 3x + 2y) and raw frames of k: the correction gives exactly 1024.
int K(int x, int y) { return 900 + 3 * x + 2 * y; }

boost::shared_ptr<ReferenceGainLinear> SmoothGain(int width = W, int height = H) {
    auto store = boost::make_shared<ReferenceGainLinear>(width, height);
    for (int i = 0; i < width * height; ++i) store->GetGainLinear()->GetData()[i] = 16 * K(i % width, i / width);
    return store;
}

// A frame of k, with the corrected value at each (x, y) multiplied by its factor
// (exactly, for integer results).
struct Scaled { int x, y; double factor; };
Frame Flat(std::initializer_list<Scaled> scaled = {}) {
    auto frame = MakeImage<unsigned short>(W, H);
    for (int i = 0; i < W * H; ++i) frame->GetData()[i] = K(i % W, i / W);
    for (Scaled s : scaled) frame->GetData()[s.y * W + s.x] = static_cast<unsigned short>(K(s.x, s.y) * s.factor);
    return frame;
}

// A 48 x 36 area at (8, 6) with a 7 x 7 window.
DefectMapParameters Parameters() {
    DefectMapParameters p;
    p.X0 = 8, p.Y0 = 6, p.Width = 48, p.Height = 36, p.ClipMax = 65135, p.ClipMin = -400, p.MedianWidth = 7;
    p.MedianHeight = 7, p.SpareLevel = 3000, p.LogScale = 1000, p.GfaMin = 100, p.GfaMax = 1500;
    p.ExcludeSigmas = 6, p.GfaSigmas = 3, p.GfaTolerance = 0.05f, p.QuantLevels = 65536;
    return p;
}

bool InArea(int i) { return i % W >= 8 && i % W < 56 && i / W >= 6 && i / W < 42; }

struct Fixture {
    explicit Fixture(const DefectMapParameters& p = Parameters(),
                     boost::shared_ptr<ReferenceGainLinear> gain = SmoothGain())
        : parameters(p), calibration(parameters, store, gain, flag) { calibration.Init(); }
    DefectMapParameters parameters;
    DMFlagParameters flagParameters;
    boost::shared_ptr<ReferenceDM> store = boost::make_shared<ReferenceDM>(W, H);
    boost::shared_ptr<DefectMapFlag> flag = boost::make_shared<DefectMapFlag>(flagParameters);
    CalibrationDefectMap calibration;
};

// The pool's images in the order Init acquires them: 0 work, 1 quantised, 2 defects.
float* Pool(int index) {
    return ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().at(index)->GetData();
}

// 1000 * ln(1 + |p / m|), each step rounded to float.
float LogRatio(float p, float m) {
    const float r = static_cast<float>(static_cast<double>(p) / m);
    const float shifted = static_cast<float>(std::fabs(static_cast<double>(r)) + 1.0);
    return static_cast<float>(static_cast<double>(static_cast<float>(std::log(static_cast<double>(shifted)))) * 1000.0);
}

size_t Count(const std::vector<std::string>& lines, const std::string& text) {
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

}  // namespace

TEST(CalibrationDefectMap, DosesAreClippedQuantisedHighPassedAndCounted) {
    DefectMapParameters p = Parameters();
    p.ClipMin = 300, p.ClipMax = 2048;
    ScratchDirectory scratch;
    Fixture f(p);
    LogCapture log;
    // Pixel, count after 3 doses, clipped value of dose 3: (30, 20) is hot at dose 2
    // only, (45, 10) at doses 1 and 3; (2, 2) and (60, 44) lie outside the area.
    struct Special { int i; float count, clipped; };
    const Special specials[] = {{15 * W + 20, 3, 2048}, {30 * W + 40, 3, 512}, {2 * W + 2, 3, 2048},
                                {44 * W + 60, 3, 300},  {20 * W + 30, 1, 1024}, {10 * W + 45, 2, 2048}};
    for (int dose = 1; dose <= 3; ++dose) {
        const Scaled hot = dose == 2 ? Scaled{30, 20, 3} : Scaled{45, 10, 3};
        const Frame frame = Flat({{20, 15, 3}, {40, 30, 0.5}, {2, 2, 3}, {60, 44, 0.25}, hot});
        f.calibration.DefectMap6({frame, frame});
    }
    // The area spans [512, 2048]; every window median is the level of 1024. Outside
    // it work keeps the clipped image, which never falls in the band.
    const float slope = static_cast<float>(65535.0 / (2048.0 - 512.0));
    const int level = static_cast<int>((1024.0 - 512.0) * slope + 0.5);
    const float m = static_cast<float>(level / static_cast<double>(slope) + 512.0);
    for (int i = 0; i < W * H; ++i) {
        Special s{i, InArea(i) ? 0.0f : 3.0f, 1024};
        for (const Special& special : specials) s = special.i == i ? special : s;
        ASSERT_EQ(s.count, Pool(2)[i]) << i;
        if (!InArea(i)) {
            ASSERT_EQ(s.clipped, Pool(0)[i]) << i;
        } else {
            ASSERT_FLOAT_EQ(LogRatio(s.clipped, m), Pool(0)[i]) << i;
            ASSERT_EQ(s.clipped == 2048 ? 65535 : s.clipped == 512 ? 0 : level, Pool(1)[i]) << i;
        }
    }
    for (const char* line : {"Dose 1 - Number of detected defects : 3\n",  // the area only
                             "Dose 2 - Number of detected defects : 4\n", "Dose 3 - Number of detected defects : 4\n"})
        EXPECT_EQ(1u, Count(log.lines, line)) << line;

    f.calibration.Init();  // takes no new image, restarts the counts, not the dose
    EXPECT_EQ(3u, ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetPool().size());
    EXPECT_EQ(std::vector<float>(W * H, 0.0f), std::vector<float>(Pool(2), Pool(2) + W * H));
    f.calibration.Clear();
    f.calibration.Init();
    f.calibration.DefectMap6({Flat()});
    EXPECT_EQ(1u, Count(log.lines, "Dose 4 - Number of detected defects : 0\n"));
    f.calibration.UpdateDefectMapReference();
    EXPECT_TRUE(scratch.Entries().empty());  // no debug image without the option
}

TEST(CalibrationDefectMap, ExclusionBandIsMeanPlusMinusExcludeSigmasOrNoneWithoutStatistic) {
    DefectMapParameters band = Parameters(), outOfBand = Parameters(), empty = Parameters();
    band.ExcludeSigmas = 2;
    outOfBand.GfaMin = 2000, outOfBand.GfaMax = 3000;
    empty.X0 = empty.Y0 = empty.Width = empty.Height = 0;
    Frame frame = Flat();
    for (int i = 0; i < W * H; ++i)  // a ramp and noise
        frame->GetData()[i] += static_cast<unsigned short>(i % W + (i * i * 31 + i * 7) % 41);
    struct Case { DefectMapParameters p; unsigned fewest, most; };  // excluded pixels in the area
    for (const Case& c : {Case{band, 1, 48 * 36 / 2}, Case{outOfBand, 48 * 36, 48 * 36}, Case{empty, 0, 0}}) {
        Fixture f(c.p);
        LogCapture log;
        f.calibration.DefectMap6({frame});
        const auto work = ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().at(0);
        float mean = 0, sigma = 0;
        ComputeGFAMeanAndSigma(work, ROI(c.p.Y0, c.p.X0, c.p.Height, c.p.Width), 3, 0.05f,
                               static_cast<float>(c.p.GfaMin), static_cast<float>(c.p.GfaMax), mean, sigma);
        const bool none = std::isnan(mean) || std::isnan(sigma);
        EXPECT_EQ(none ? 1u : 0u, Count(log.lines, "I Defect Map Mean Corrected : 0 Sigma Corrected : -1\n"));
        if (none) mean = 0, sigma = -1;  // the band is empty: every pixel counts
        const float t = static_cast<float>(c.p.ExcludeSigmas * static_cast<double>(sigma));
        const float low = static_cast<float>(static_cast<double>(mean) - t);
        const float high = static_cast<float>(static_cast<double>(mean) + t);
        unsigned excludedInArea = 0;
        for (int i = 0; i < W * H; ++i) {
            const bool excluded = Pool(0)[i] < low || Pool(0)[i] > high;
            ASSERT_EQ(excluded ? 1.0f : 0.0f, Pool(2)[i]) << i;
            excludedInArea += excluded && c.p.Width > 0 && InArea(i);
        }
        EXPECT_LE(c.fewest, excludedInArea);
        EXPECT_GE(c.most, excludedInArea);
        f.calibration.UpdateDefectMapReference();  // only the area is written
        EXPECT_EQ(excludedInArea, CountPositivePixels(f.store->GetDM()));
    }
}

TEST(CalibrationDefectMap, FailuresCarryTheirMessagesAndKeepTheCountsAndTheDose) {
    DefectMapParameters p = Parameters();
    p.X0 = 16, p.Y0 = 12;  // ends at the last column and row
    Fixture f(p);
    const Frame frame = Flat({{30, 30, 3}});
    f.calibration.DefectMap6({frame});
    const std::vector<float> counts(Pool(2), Pool(2) + W * H);

    const std::string size = "CalibrationDefectMap : DefectMap6 failed due to image size";
    f.parameters.X0 = 17;
    EXPECT_EQ(size, FailureText([&] { f.calibration.DefectMap6({frame}); }));
    f.parameters.X0 = -8, f.parameters.Width = 16;  // wraps past the unsigned test
    EXPECT_EQ(size, FailureText([&] { f.calibration.DefectMap6(); }));
    EXPECT_EQ("CalibrationDefectMap: UpdateDefectMapReference failed",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    f.parameters.X0 = 16, f.parameters.Width = 48;
    EXPECT_EQ("CalibrationDefectMap::DefectMap6 failed due uncorrect number of images",
              FailureText([&] { f.calibration.DefectMap6(std::vector<Frame>{}); }));
    EXPECT_EQ("CalibrationDefectMap: AccumulateImg failed",
              FailureText([&] { f.calibration.DefectMap6({frame, nullptr}); }));
    EXPECT_EQ(counts, std::vector<float>(Pool(2), Pool(2) + W * H));
    LogCapture log;
    f.calibration.DefectMap6({Flat()});  // nothing left of the failed series
    EXPECT_EQ(1.0f, Pool(2)[30 * W + 30]);
    EXPECT_EQ(1u, Count(log.lines, "Dose 2 - Number of detected defects : 1\n"));
    f.calibration.Clear();
    EXPECT_EQ("CalibrationDefectMap::DefectMap6 failed because Init has not run",  // images given back
              FailureText([&] { f.calibration.DefectMap6({Flat()}); }));

    CalibrationDefectMap noFlag(p, f.store, SmoothGain(), nullptr);
    EXPECT_EQ("CalibrationDefectMap : DefectMap6 failed because Init has not run",
              FailureText([&] { noFlag.DefectMap6(); }));
    noFlag.Init();
    EXPECT_EQ("CalibrationDefectMap: UpdateDefectMapReference failed to check DM",
              FailureText([&] { noFlag.UpdateDefectMapReference(); }));
    noFlag.Clear();

    Fixture otherGain(Parameters(), SmoothGain(32, 24));  // the correction refuses its size
    EXPECT_EQ("CalibrationDefectMap::_CorrectGain failed",
              FailureText([&] { otherGain.calibration.DefectMap6({frame}); }));
    EXPECT_EQ("CalibrationDefectMap: StoreAndCorrect failed",
              FailureText([&] { otherGain.calibration.StoreAndCorrect(frame); }));
}

// The option is unset also when the test fails.
struct SaveOption {
    SaveOption() { setenv("OPTION_CALIBRATION_DM_SAVE_INTERMEDIARY_SEQUENCE", "1", 1); }
    ~SaveOption() { unsetenv("OPTION_CALIBRATION_DM_SAVE_INTERMEDIARY_SEQUENCE"); }
};

TEST(CalibrationDefectMap, UpdateReplacesTheAreaFlagsAndClassifiesAndSavesDebugImagesWithTheOption) {
    ScratchDirectory scratch;
    Fixture f;
    f.flagParameters.TestWholeFrame = true;
    f.flagParameters.HorizontalRatio = 0.5f;  // a row segment of 64 needs more than 32
    f.flagParameters.VerticalRatio = 1.0f;
    const ImagePtr<unsigned char> map = f.store->GetDM();
    for (int i = 0; i < W * H; ++i) map->GetData()[i] = InArea(i) ? 5 : 0;
    Frame frame = Flat({{30, 30, 3}});
    for (int x = 10; x < 50; ++x)  // 40 defects in row 15
        frame->GetData()[15 * W + x] = static_cast<unsigned short>(3 * K(x, 15));
    frame->SetProperty("image.time", 41);
    auto option = std::make_unique<SaveOption>();
    f.calibration.DefectMap6({frame, frame});
    frame->SetProperty("image.time", 42);
    f.calibration.StoreAndCorrect(frame);  // the same dose from a ready mean image, with its properties
    f.calibration.DefectMap6();
    f.calibration.UpdateDefectMapReference();
    option.reset();

    std::vector<unsigned char> expected(W * H, 0);
    for (int x = 0; x < W; ++x) expected[15 * W + x] = x == 0 || x == W - 1 ? 2 : 3;  // flagged row, classified
    expected[30 * W + 30] = 1;
    EXPECT_EQ(expected, Pixels(map));
    EXPECT_EQ(42, map->GetProperty<int>("image.time"));
    EXPECT_EQ(18u, map->GetProperty<unsigned>("info.quantlevels"));
    EXPECT_FALSE(f.store->IsValid());
    std::vector<std::string> files;
    for (const char* stage : {"DM6", "DM6-flag", "Dose_1_input", "Dose_1_input-mean", "Dose_1_mean_Gc",
                              "Dose_1_Clipping", "Dose_1_Quantification", "Dose_1_HighPassMedian", "Dose_1_Exclu",
                              "Dose_2_Clipping", "Dose_2_Quantification", "Dose_2_HighPassMedian", "Dose_2_Exclu"})
        files.push_back(std::string("DM6-ImageDebug-") + stage + ".fxd");
    std::sort(files.begin(), files.end());
    EXPECT_EQ(files, scratch.Entries());
    // The map is saved with the counts of the 2 doses before flagging and classification.
    EXPECT_EQ(2, ImageFxdFileIn("DM6-ImageDebug-DM6.fxd").ReadImage<unsigned char>(0)->GetData()[15 * W + 20]);
    EXPECT_EQ(2, ImageFxdFileIn("DM6-ImageDebug-Dose_1_input.fxd").GetFrameCount());  // the frames of the dose
}
