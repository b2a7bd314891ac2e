#include "TestImages.h"

#include "calibration/CalibrationDefectMap.h"
#include "calibration/CalibrationDefectMapDark.h"
#include "calibration/CalibrationDefectMapGain.h"
#include "calibration/CalibrationDefectMapUntypical.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

using namespace orvane::test;

namespace {

using Position = std::pair<int, int>;  // (x, y)
constexpr int W = 64;
constexpr int H = 48;

// An initialised calibration of the W x H panel and its store; the records are held by
// reference. The calibrations that read a gain classify with a flag of default record.
template <typename Calibration, typename Parameters>
struct Calibrated {
    explicit Calibrated(const Parameters& p) : parameters(p), calibration(parameters, store) { calibration.Init(); }
    Calibrated(const Parameters& p, boost::shared_ptr<ReferenceGainLinear> gain)
        : parameters(p), calibration(parameters, store, gain, boost::make_shared<DefectMapFlag>(flagParameters)) {
        calibration.Init();
    }
    std::vector<unsigned char> Map() {
        calibration.UpdateDefectMapReference();
        return Pixels(store->GetDM());
    }
    Parameters parameters;
    DMFlagParameters flagParameters;
    boost::shared_ptr<ReferenceDM> store = boost::make_shared<ReferenceDM>(W, H);
    Calibration calibration;
};
using DM6 = Calibrated<CalibrationDefectMap, DefectMapParameters>;
using DMGain = Calibrated<CalibrationDefectMapGain, DefectMapGainParameters>;
using DMDark = Calibrated<CalibrationDefectMapDark, DefectMapDarkParameters>;
using DMUntypical = Calibrated<CalibrationDefectMapUntypical, DefectMapUntypicalParameters>;

// The float pool's images in the order Init acquires them; for DM6 and DMGain 0 work,
// 1 quantised, 2 defects.
float* Pool(int index) {
    return ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().at(index)->GetData();
}
std::vector<float> Counts() { return std::vector<float>(Pool(2), Pool(2) + W * H); }
size_t InUse() { return ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().size(); }

// The classified map of isolated defects: 1 at each (x, y), 0 elsewhere.
std::vector<unsigned char> Isolated(const std::vector<Position>& positions) {
    std::vector<unsigned char> map(W * H, 0);
    for (const auto& p : positions) map[p.second * W + p.first] = 1;
    return map;
}

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
    Frame frame = MakeImageOf<unsigned short>(W, H, K);
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

// 1000 * ln(1 + |p / m|), each step rounded to float.
float LogRatio(float p, float m) {
    const float r = static_cast<float>(static_cast<double>(p) / m);
    const float shifted = static_cast<float>(std::fabs(static_cast<double>(r)) + 1.0);
    return static_cast<float>(static_cast<double>(static_cast<float>(std::log(static_cast<double>(shifted)))) * 1000.0);
}

// A 48 x 36 area at (8, 6) with a 5 x 5 window; gains clipped to [0.25, 4], ratios
// accepted in [0.53, 2], 65536 levels.
DefectMapGainParameters GainParameters() { return {8, 6, 48, 36, 5, 5, 0.25f, 4.0f, 0.53f, 2.0f, 65536}; }

// The gain is smooth, from 1.0 to about 1.04 over the frame.
boost::shared_ptr<ReferenceGainLinear> RampGain(int width = W) {
    auto gain = boost::make_shared<ReferenceGainLinear>(width, H);
    for (int i = 0; i < width * H; ++i) gain->GetGainLinear()->GetData()[i] = 16384 + 8 * (i % width) + 4 * (i / width);
    return gain;
}

void SetGain(const boost::shared_ptr<ReferenceGainLinear>& gain, int x, int y, float g) {
    gain->GetGainLinear()->GetData()[y * W + x] = ReferenceGainLinear::Compress(g);
}

// An 11 x 11 window; QuantLevels one above the largest pixel of the area gives the
// slope 1 and offset 0, so that the high-pass leaves exactly p - median. Statistic
// of 3 sigmas / 5 %, band of 10 sigmas.
DefectMapUntypicalParameters Untypical(int levels, ROI area = ROI(0, 0, H, W)) {
    return DefectMapUntypicalParameters{area, 11, 11, levels, 3, 0.05f, 10};
}

// `background` but at the planted pixels; a background below 0 is a smooth dark of
// 200 + 4x + 3y. With `ripple`, the background pixels, taken in memory order, run
// through 0, 0, 0, +1, 0, 0, 0, -1 around it.
struct Pixel { int x, y; unsigned short value; };
Frame Plant(int background, const std::vector<Pixel>& planted = {}, bool ripple = false) {
    static const int kRipple[8] = {0, 0, 0, 1, 0, 0, 0, -1};
    int next = 0;
    return MakeImageOf<unsigned short>(W, H, [&](int x, int y) {
        const auto it =
            std::find_if(planted.begin(), planted.end(), [&](const Pixel& p) { return p.x == x && p.y == y; });
        if (it != planted.end()) return int(it->value);
        return background < 0 ? 200 + 4 * x + 3 * y : background + (ripple ? kRipple[next++ % 8] : 0);
    });
}

// A reference map's time and its quantisation levels.
std::pair<int, int> TimeAndLevels(const ImagePtr<unsigned char>& m) {
    return {m->GetProperty<int>("image.time"), m->GetProperty<int>("info.quantlevels")};
}

// The option is unset also when the test fails.
struct SaveOption {
    SaveOption() { setenv("OPTION_CALIBRATION_DM_SAVE_INTERMEDIARY_SEQUENCE", "1", 1); }
    ~SaveOption() { unsetenv("OPTION_CALIBRATION_DM_SAVE_INTERMEDIARY_SEQUENCE"); }
};

}  // namespace

TEST(CalibrationDefectMap, DosesAreClippedQuantisedHighPassedAndCounted) {
    DefectMapParameters p = Parameters();
    p.ClipMin = 300, p.ClipMax = 2048;
    ScratchDirectory scratch;
    DM6 f(p, SmoothGain());
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
        EXPECT_EQ(1, CountContaining(log.lines, line)) << line;

    f.calibration.Init();  // takes no new image, restarts the counts, not the dose
    EXPECT_EQ(3u, ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetPool().size());
    EXPECT_EQ(std::vector<float>(W * H, 0.0f), Counts());
    f.calibration.Clear();
    f.calibration.Init();
    f.calibration.DefectMap6({Flat()});
    EXPECT_EQ(1, CountContaining(log.lines, "Dose 4 - Number of detected defects : 0\n"));
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
        DM6 f(c.p, SmoothGain());
        LogCapture log;
        f.calibration.DefectMap6({frame});
        const auto work = ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().at(0);
        float mean = 0, sigma = 0;
        ComputeGFAMeanAndSigma(work, ROI(c.p.Y0, c.p.X0, c.p.Height, c.p.Width), 3, 0.05f,
                               static_cast<float>(c.p.GfaMin), static_cast<float>(c.p.GfaMax), mean, sigma);
        const bool none = std::isnan(mean) || std::isnan(sigma);
        EXPECT_EQ(none ? 1 : 0, CountContaining(log.lines, "I Defect Map Mean Corrected : 0 Sigma Corrected : -1\n"));
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
    DM6 f(p, SmoothGain());
    const Frame frame = Flat({{30, 30, 3}});
    f.calibration.DefectMap6({frame});
    const std::vector<float> counts = Counts();

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
    EXPECT_EQ(counts, Counts());
    LogCapture log;
    f.calibration.DefectMap6({Flat()});  // nothing left of the failed series
    EXPECT_EQ(1.0f, Pool(2)[30 * W + 30]);
    EXPECT_EQ(1, CountContaining(log.lines, "Dose 2 - Number of detected defects : 1\n"));
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

    DM6 otherGain(Parameters(), SmoothGain(32, 24));  // the correction refuses its size
    EXPECT_EQ("CalibrationDefectMap::_CorrectGain failed",
              FailureText([&] { otherGain.calibration.DefectMap6({frame}); }));
    EXPECT_EQ("CalibrationDefectMap: StoreAndCorrect failed",
              FailureText([&] { otherGain.calibration.StoreAndCorrect(frame); }));
}

TEST(CalibrationDefectMap, UpdateReplacesTheAreaFlagsAndClassifiesAndSavesDebugImagesWithTheOption) {
    ScratchDirectory scratch;
    DM6 f(Parameters(), SmoothGain());
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
    EXPECT_EQ(std::make_pair(42, 18), TimeAndLevels(map));
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

// Fed one frame at a time, a dose and a dark series give what their lists give.
TEST(CalibrationDefectMap, DosesAndDarkSeriesFedFrameByFrameGiveWhatTheirListsGive) {
    std::vector<Frame> frames, darks;
    for (int k = 0; k < 3; ++k) {
        frames.push_back(Flat({{20, 15, 3}, {40, 30, 0.5}, {10 + k, 10, 2}}));
        darks.push_back(Plant(-1, {{20, 10, 5000}, {30, 20, static_cast<unsigned short>(97 + k)}}));
        for (int i = 0; i < W * H; ++i) frames.back()->GetData()[i] += static_cast<unsigned short>((i * 7 + k * 13) % 29);
    }
    DM6 listed(Parameters(), SmoothGain()), streamed(Parameters(), SmoothGain());
    listed.calibration.DefectMap6(frames);
    streamed.calibration.BeginDose();
    for (const Frame& frame : frames) streamed.calibration.AccumulateDoseImg(frame);
    streamed.calibration.EndDose();
    const std::vector<unsigned char> map = listed.Map();
    EXPECT_EQ(map, streamed.Map());
    EXPECT_EQ(std::vector<int>({1, 1}), std::vector<int>({map[15 * W + 20], map[30 * W + 40]}));
    EXPECT_EQ("CalibrationDefectMap::DefectMap6 failed due uncorrect number of images",
              FailureText([&] { streamed.calibration.BeginDose(), streamed.calibration.EndDose(); }));

    DMDark darkList({ROI(0, 0, H, W), 100.0f, 1000.0f}), darkStream({ROI(0, 0, H, W), 100.0f, 1000.0f});
    darkList.calibration.ComputeDefectMapDarkAndMerge(darks);
    for (const Frame& frame : darks) darkStream.calibration.AccumulateImg(frame);
    darkStream.calibration.ComputeDefectMapDarkAndMerge();
    EXPECT_EQ(Isolated({{20, 10}, {30, 20}}), darkList.Map());
    EXPECT_EQ(darkList.Map(), darkStream.Map());
    EXPECT_EQ("CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge failed due uncorrect number of images",
              FailureText([&] { darkStream.calibration.ComputeDefectMapDarkAndMerge(); }));
}

TEST(CalibrationDefectMapGain, PlantedDefectsFailOneOrBothTestsRatiosOnTheBoundsAreAcceptedEachRunStartsAfresh) {
    DefectMapGainParameters p = GainParameters();
    p.ClipMax = 3.5f;
    const auto gain = RampGain();
    DMGain f(p, gain);
    struct Planted { int x, y; float gain, count; };
    const Planted plants[] = {{20, 15, 0.25f, 2}, {30, 20, 3.0f, 1}, {25, 30, 2.2f, 1}, {40, 30, 0.6f, 0},
                            // outside the area the second test sees the clipped gain
                            {2, 2, 0.25f, 2},   {0, 47, 0.1f, 2},  {60, 44, 3.0f, 1}, {60, 2, 3.5f, 2},
                            {61, 2, 3.9f, 2}};
    for (const Planted& plant : plants) SetGain(gain, plant.x, plant.y, plant.gain);
    gain->GetGainLinear()->SetProperty("image.time", 7);
    const ImagePtr<unsigned char> map = f.store->GetDM();
    map->GetData()[0] = 7, map->GetData()[10 * W + 10] = 5;  // outside and inside the area
    f.calibration.DefectMapGain();

    std::vector<float> expected(W * H, 0.0f);
    for (const Planted& plant : plants) expected[plant.y * W + plant.x] = plant.count;
    EXPECT_EQ(expected, Counts());
    EXPECT_EQ(3.5f, Pool(0)[2 * W + 61]);  // clipped

    EXPECT_EQ(Isolated({{0, 0}, {20, 15}, {30, 20}, {25, 30}}), f.Map());
    EXPECT_EQ(std::make_pair(7, 18), TimeAndLevels(map));
    EXPECT_TRUE(f.store->IsValid());

    f.parameters.ClipMax = 4.0f, f.parameters.ThresholdMin = 0.5f;
    unsigned short* code = gain->GetGainLinear()->GetData();
    std::fill(code, code + W * H, 16384);
    SetGain(gain, 20, 15, 0.5f), SetGain(gain, 30, 20, 2.0f), SetGain(gain, 2, 2, 0.25f);
    LogCapture log;
    f.calibration.DefectMapGain();
    // The area spans [0.5, 2]; the median of 1.0 comes back exactly.
    EXPECT_EQ("I Defect Map Min 0.5 Max 2\n", log.lines.at(2));
    expected.assign(W * H, 0.0f);
    expected[2 * W + 2] = 2;  // outside the area
    EXPECT_EQ(expected, Counts());

    // With ClipMin 0 a block of 0 has a local median of 0, which makes the ratio 0.
    f.parameters.ClipMin = 0.0f;
    SetGain(gain, 30, 20, 1.0f), SetGain(gain, 2, 2, 1.0f);
    code[15 * W + 20] = 8191;  // just below 0.5
    expected.assign(W * H, 0.0f);
    expected[15 * W + 20] = 1;
    for (int y = 22; y < 29; ++y) {
        for (int x = 30; x < 37; ++x) {
            code[y * W + x] = 0;
            expected[y * W + x] = x == 33 && y == 25 ? 1 : 2;  // the centre is in range, its median 0
        }
    }
    SetGain(gain, 33, 25, 1.0f);
    f.calibration.DefectMapGain();
    EXPECT_EQ(expected, Counts());
}

TEST(CalibrationDefectMapGain, FailuresCarryTheirMessagesAndChangeNothing) {
    DefectMapGainParameters p = GainParameters();
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

    const auto gain = RampGain();
    DMGain f(p, gain);
    SetGain(gain, 30, 30, 0.25f);
    f.calibration.DefectMapGain();
    const std::vector<float> counts = Counts();
    EXPECT_EQ(2.0f, counts[30 * W + 30]);
    for (int x0 : {17, -8}) {  // -8 wraps past the unsigned test
        f.parameters.X0 = x0;
        EXPECT_EQ("CalibrationDefectMapGain : DefectMapGain failed due to image size",
                  FailureText([&] { f.calibration.DefectMapGain(); }));
    }
    EXPECT_EQ(counts, Counts());
    EXPECT_EQ("CalibrationDefectMapGain: UpdateDefectMapReference failed",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    EXPECT_FALSE(store->IsValid() || f.store->IsValid());
    f.calibration.Clear();

    DMGain otherSize(GainParameters(), RampGain(32));  // the store's failure passes unchanged
    EXPECT_THROW(otherSize.calibration.DefectMapGain(), ReferenceException);
}

TEST(CalibrationDefectMapDark, MeansOutsideTheBandCountOnlyTheAreaReachesTheMapWorkCarriesOverBetweenSeriesUntilInit) {
    DMDark f({ROI(8, 16, 24, 32), 100.0f, 1000.0f});  // columns 16 .. 47, rows 8 .. 31
    const ImagePtr<unsigned char> map = f.store->GetDM();
    map->GetData()[40 * W + 2] = 1, map->GetData()[20 * W + 20] = 9;  // outside, kept; inside, replaced by a good count
    // Means 100 and 1000 sit on the bounds; 99, 1001 and 1000.5 are past them. (5, 5)
    // and (48, 31) lie outside the area.
    const Frame first = Plant(-1, {{20, 10, 5000}, {20, 30, 20}, {30, 10, 99}, {40, 10, 99}, {30, 20, 0}, {40, 20, 2},
                                  {45, 25, 1000}, {5, 5, 5000}, {47, 31, 5000}, {48, 31, 5000}});
    const Frame second = Plant(-1, {{20, 10, 5000}, {20, 30, 20}, {30, 10, 101}, {40, 10, 99}, {30, 20, 2000},
                                   {40, 20, 2000}, {45, 25, 1001}, {5, 5, 5000}, {47, 31, 5000}, {48, 31, 5000}});
    first->SetProperty("image.time", 76), second->SetProperty("image.time", 77);
    LogCapture log;
    f.calibration.ComputeDefectMapDarkAndMerge({first, second});
    EXPECT_EQ(Isolated({{2, 40}, {20, 10}, {20, 30}, {40, 10}, {40, 20}, {45, 25}, {47, 31}}), f.Map());
    const std::string count =
        "I CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge - Number of detected defects : ";
    EXPECT_EQ(count + "8\n", log.lines.at(2));
    EXPECT_EQ("I CalibrationDefectMapDark::UpdateDefectMapReference - Number of defects : 7\n", log.lines.at(4));
    EXPECT_EQ(std::make_pair(77, 18), TimeAndLevels(map));
    EXPECT_FALSE(f.store->IsValid());

    f.parameters = {ROI(0, 0, H, W), 500.0f, 1000.0f};
    f.calibration.Init();
    f.calibration.ComputeDefectMapDarkAndMerge({Plant(600)});
    EXPECT_EQ(count + "0\n", log.lines.back());
    // The mean of the first series stays in the sum and the divisor counts this series
    // alone: 600 + 600 = 1200 is out.
    f.calibration.ComputeDefectMapDarkAndMerge({Plant(600)});
    EXPECT_EQ(count + "3072\n", log.lines.back());

    // (3, 3) is out in 256 series and wraps to 0, (9, 9) in 255.
    f.parameters.ThresholdMin = 100.0f, f.parameters.ThresholdMax = 1.0e6f;
    f.calibration.Init();
    const Frame both = Plant(100, {{3, 3, 0}, {9, 9, 0}});
    for (int series = 0; series < 255; ++series) f.calibration.ComputeDefectMapDarkAndMerge({both});
    f.calibration.ComputeDefectMapDarkAndMerge({Plant(100, {{3, 3, 0}})});
    EXPECT_EQ(Isolated({{9, 9}}), f.Map());
}

TEST(CalibrationDefectMapDark, FailuresCarryTheirMessagesAndKeepTheEarlierCounts) {
    // The records are held by reference.
    const DefectMapDarkParameters band{ROI(0, 0, H, W), 100.0f, 1000.0f}, below{ROI(40, 0, 9, W), 100.0f, 1000.0f};
    auto store = boost::make_shared<ReferenceDM>(W, H);
    CalibrationDefectMapDark calibration(band, store);
    LogCapture log;
    const std::string accumulate = "CalibrationDefectMapDark: AccumulateImg failed";
    EXPECT_EQ(accumulate, FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({Plant(-1)}); }));
    EXPECT_NE(std::string::npos, log.lines.front().find("AccumulateImg failed because Init has not run"));
    EXPECT_EQ("CalibrationDefectMapDark: UpdateDefectMapDarkReference failed because Init has not run",
              FailureText([&] { calibration.UpdateDefectMapReference(); }));

    calibration.Init();
    calibration.ComputeDefectMapDarkAndMerge({Plant(-1, {{10, 5, 5000}})});
    EXPECT_EQ("CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge failed due uncorrect number of images",
              FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({}); }));
    EXPECT_EQ(accumulate, FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({Plant(-1), Frame()}); }));
    calibration.UpdateDefectMapReference();
    EXPECT_EQ(Isolated({{10, 5}}), Pixels(store->GetDM()));

    CalibrationDefectMapDark tooLow(below, store);
    tooLow.Init();
    EXPECT_EQ("CalibrationDefectMapDark: UpdateDefectMapDarkReference failed",
              FailureText([&] { tooLow.UpdateDefectMapReference(); }));
    EXPECT_EQ(Isolated({{10, 5}}), Pixels(store->GetDM()));
}

TEST(CalibrationDefectMapUntypical, BandIsExcludeSigmasAroundTheMeanFramesCountOnceInEightBitsOnlyTheAreaIsWritten) {
    // The ripple leaves the median at 100 in every window: high-pass values -1, 0, +1,
    // a quarter of them non-zero, so the rejection ends on mean 0 and sigma 0.5 and the
    // band is [-5, 5]. 3064 ripple pixels make 383 of each sign.
    DMUntypical f(Untypical(601));
    LogCapture log;
    const Frame frame = Plant(100, {{10, 10, 600}, {50, 10, 0}, {10, 30, 105}, {20, 30, 95},
                                    {30, 30, 106}, {40, 30, 94}, {50, 30, 120}, {30, 40, 80}}, true);
    f.calibration.ComputeDefectMapUntypicalAndMerge(frame);
    EXPECT_EQ("I Defect Map Untypical: Mean = 0 Sigma = 0.5\n", log.lines.at(5));
    EXPECT_EQ(Isolated({{10, 10}, {50, 10}, {30, 30}, {40, 30}, {50, 30}, {30, 40}}), f.Map());

    // On a flat background sigma ends at 0: every pixel off the median is excluded. An
    // all-zero frame, scaled over [0, 1], excludes nothing.
    f.calibration.Init();
    std::vector<Frame> frames(255, Plant(100, {{3, 3, 600}, {9, 9, 600}}));
    frames.push_back(Plant(100, {{3, 3, 600}, {20, 20, 101}}));
    frames.push_back(MakeFilled<unsigned short>(W, H, 0));
    f.calibration.ComputeDefectMapUntypicalAndMerge(frames);
    EXPECT_EQ("I Scaling and Quantification - Slope = 600 Offset = 0\n", log.lines.at(log.lines.size() - 6));
    // (3, 3) out in 256 frames wraps to 0; (9, 9) in 255 and (20, 20) in one stay.
    EXPECT_EQ(Isolated({{9, 9}, {20, 20}}), f.Map());

    DMUntypical area(Untypical(501, ROI(8, 16, 24, 32)));  // columns 16 .. 47, rows 8 .. 31
    const ImagePtr<unsigned char> map = area.store->GetDM();
    map->GetData()[40 * W + 2] = 1, map->GetData()[20 * W + 30] = 9;  // outside, kept; inside, replaced by a good count
    Frame edges = Plant(0, {{20, 10, 500}, {5, 5, 500}, {47, 31, 500}, {48, 31, 500}});
    edges->SetProperty("image.time", 77);
    area.calibration.ComputeDefectMapUntypicalAndMerge(edges);
    EXPECT_EQ(Isolated({{2, 40}, {20, 10}, {47, 31}}), area.Map());
    EXPECT_EQ(std::make_pair(77, 18), TimeAndLevels(map));

    // The upper half is high-passed to 0 (one pixel to 500), the lower half stays at
    // 100: the rejection stops at once near mean 50 and sigma 50, so the band of
    // +-500 around it keeps the hot pixel that the area alone would have excluded.
    DMUntypical half(Untypical(601, ROI(0, 0, H / 2, W)));
    log.lines.clear();
    half.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{20, 10, 600}}));
    // The scaled range starts at 0, not at the smallest pixel (100).
    EXPECT_EQ("I Scaling and Quantification - Slope = 1 Offset = 0\n", log.lines.at(2));
    EXPECT_NE(std::string::npos, log.lines.at(5).find("Mean = 50.0"));
    EXPECT_EQ(Isolated({}), half.Map());
}

TEST(CalibrationDefectMapUntypical, FailuresGiveTheImagesBackAndKeepTheCountsUntilClear) {
    DMUntypical f(Untypical(601));
    const size_t inUse = InUse();
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{5, 5, 600}}));
    f.calibration.Init();  // takes nothing more, starts from zero counts
    EXPECT_EQ(inUse, InUse());
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{7, 7, 600}}));
    LogCapture log;
    const std::string failed = "CalibrationDefectMapUntypical: DefectMapUntypical failed";
    EXPECT_EQ("CalibrationDefectMapUntypical::ComputeDefectMapUntypicalAndMerge failed due uncorrect number of images",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(std::vector<Frame>{}); }));
    EXPECT_EQ(failed, FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(Frame()); }));
    EXPECT_NE(std::string::npos, log.lines.at(log.lines.size() - 2).find(failed + " due to null pointer"));
    // The record is held by reference: a window wider than the area, then an area below the frame.
    const Frame hot = Plant(100, {{9, 9, 600}});
    f.parameters.MedianWidth = 2 * W;
    EXPECT_EQ(failed, FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(hot); }));
    f.parameters.MedianWidth = 11;
    f.parameters.Area = ROI(40, 0, 9, W);
    EXPECT_EQ(failed, FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(hot); }));
    EXPECT_NE(std::string::npos, log.lines.at(log.lines.size() - 2).find(failed + " due to area out of image"));
    EXPECT_EQ("CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    EXPECT_EQ(inUse, InUse());
    f.parameters.Area = ROI(0, 0, H, W);
    EXPECT_EQ(Isolated({{7, 7}}), f.Map());

    f.calibration.Clear();
    EXPECT_EQ(inUse - 1, InUse());
    EXPECT_EQ(failed + " because Init has not run",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100)); }));
    EXPECT_EQ("CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed because Init has not run",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    f.calibration.Init();  // a new run from zero counts
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{9, 9, 600}}));
    EXPECT_EQ(Isolated({{9, 9}}), f.Map());
}
