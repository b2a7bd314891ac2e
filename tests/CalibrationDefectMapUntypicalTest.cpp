#include "TestImages.h"

#include "calibration/CalibrationDefectMapUntypical.h"

#include <gtest/gtest.h>

#include <map>

using namespace orvane::test;

namespace {

using Frame = ImagePtr<unsigned short>;
using Position = std::pair<int, int>;  // (x, y)
constexpr int W = 64;
constexpr int H = 48;

// An 11 x 11 window; QuantLevels one above the largest pixel of the area gives the
// slope 1 and offset 0, so that the high-pass leaves exactly p - median. Statistic
// of 3 sigmas / 5 %, band of 10 sigmas.
DefectMapUntypicalParameters Untypical(int levels, ROI area = ROI(0, 0, H, W)) {
    return DefectMapUntypicalParameters{area, 11, 11, levels, 3, 0.05f, 10};
}

// `background` but at the planted pixels. With `ripple`, the background pixels, taken
// in memory order, run through 0, 0, 0, +1, 0, 0, 0, -1 around it.
Frame Plant(unsigned short background, const std::map<Position, unsigned short>& planted, bool ripple = false) {
    static const int kRipple[8] = {0, 0, 0, 1, 0, 0, 0, -1};
    Frame frame = MakeFilled<unsigned short>(W, H, background);
    int next = 0;
    for (int i = 0; i < W * H; ++i) {
        const auto it = planted.find({i % W, i / W});
        if (it != planted.end()) frame->GetData()[i] = it->second;
        else if (ripple) frame->GetData()[i] = static_cast<unsigned short>(background + kRipple[next++ % 8]);
    }
    return frame;
}

std::vector<unsigned char> Isolated(const std::vector<Position>& positions) {
    std::vector<unsigned char> map(W * H, 0);
    for (const auto& p : positions) map[p.second * W + p.first] = 1;
    return map;
}

struct Fixture {
    explicit Fixture(const DefectMapUntypicalParameters& p) : parameters(p), calibration(parameters, store) {
        calibration.Init();
    }
    std::vector<unsigned char> Map() {
        calibration.UpdateDefectMapReference();
        return Pixels(store->GetDM());
    }
    static size_t InUse() { return ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().size(); }
    DefectMapUntypicalParameters parameters;
    boost::shared_ptr<ReferenceDM> store = boost::make_shared<ReferenceDM>(W, H);
    CalibrationDefectMapUntypical calibration;
};

}  // namespace

TEST(CalibrationDefectMapUntypical, BandIsExcludeSigmasAroundTheMeanWithBoundsAccepted) {
    // The ripple leaves the median at 100 in every window: high-pass values -1, 0, +1,
    // a quarter of them non-zero, so the rejection ends on mean 0 and sigma 0.5 and the
    // band is [-5, 5]. 3064 ripple pixels make 383 of each sign.
    Fixture f(Untypical(601));
    LogCapture log;
    const Frame frame = Plant(100, {{{10, 10}, 600}, {{50, 10}, 0}, {{10, 30}, 105}, {{20, 30}, 95},
                                    {{30, 30}, 106}, {{40, 30}, 94}, {{50, 30}, 120}, {{30, 40}, 80}}, true);
    f.calibration.ComputeDefectMapUntypicalAndMerge(frame);
    EXPECT_EQ("I Defect Map Untypical: Mean = 0 Sigma = 0.5\n", log.lines.at(5));
    EXPECT_EQ(Isolated({{10, 10}, {50, 10}, {30, 30}, {40, 30}, {50, 30}, {30, 40}}), f.Map());
}

TEST(CalibrationDefectMapUntypical, EachFrameCountsOnceAndCountsKeepTheirLowEightBits) {
    // On a flat background sigma ends at 0: every pixel off the median is excluded. An
    // all-zero frame, scaled over [0, 1], excludes nothing.
    Fixture f(Untypical(601));
    std::vector<Frame> frames(255, Plant(100, {{{3, 3}, 600}, {{9, 9}, 600}}));
    frames.push_back(Plant(100, {{{3, 3}, 600}, {{20, 20}, 101}}));
    frames.push_back(MakeFilled<unsigned short>(W, H, 0));
    LogCapture log;
    f.calibration.ComputeDefectMapUntypicalAndMerge(frames);
    EXPECT_EQ("I Scaling and Quantification - Slope = 600 Offset = 0\n", log.lines.at(log.lines.size() - 6));
    // (3, 3) out in 256 frames wraps to 0; (9, 9) in 255 and (20, 20) in one stay.
    EXPECT_EQ(Isolated({{9, 9}, {20, 20}}), f.Map());
}

TEST(CalibrationDefectMapUntypical, OnlyTheAreaReachesTheMapWithTheFramePropertiesButPixelsOutsideEnterTheStatistic) {
    Fixture f(Untypical(501, ROI(8, 16, 24, 32)));  // columns 16 .. 47, rows 8 .. 31
    const ImagePtr<unsigned char> map = f.store->GetDM();
    map->GetData()[40 * W + 2] = 1;   // outside, kept
    map->GetData()[20 * W + 30] = 9;  // inside, replaced by a good count
    Frame frame = Plant(0, {{{20, 10}, 500}, {{5, 5}, 500}, {{47, 31}, 500}, {{48, 31}, 500}});
    frame->SetProperty("image.time", 77);
    f.calibration.ComputeDefectMapUntypicalAndMerge(frame);
    EXPECT_EQ(Isolated({{2, 40}, {20, 10}, {47, 31}}), f.Map());
    EXPECT_EQ(77, map->GetProperty<int>("image.time"));
    EXPECT_EQ(18, map->GetProperty<unsigned short>("info.quantlevels"));

    // The upper half is high-passed to 0 (one pixel to 500), the lower half stays at
    // 100: the rejection stops at once near mean 50 and sigma 50, so the band of
    // +-500 around it keeps the hot pixel that the area alone would have excluded.
    Fixture half(Untypical(601, ROI(0, 0, H / 2, W)));
    LogCapture log;
    half.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{20, 10}, 600}}));
    // The scaled range starts at 0, not at the smallest pixel (100).
    EXPECT_EQ("I Scaling and Quantification - Slope = 1 Offset = 0\n", log.lines.at(2));
    EXPECT_NE(std::string::npos, log.lines.at(5).find("Mean = 50.0"));
    EXPECT_EQ(Isolated({}), half.Map());
}

TEST(CalibrationDefectMapUntypical, FailuresGiveTheImagesBackAndKeepTheCountsUntilClear) {
    Fixture f(Untypical(601));
    const size_t inUse = f.InUse();
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{5, 5}, 600}}));
    f.calibration.Init();  // takes nothing more, starts from zero counts
    EXPECT_EQ(inUse, f.InUse());
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{7, 7}, 600}}));
    LogCapture log;
    const std::string failed = "CalibrationDefectMapUntypical: DefectMapUntypical failed";
    EXPECT_EQ("CalibrationDefectMapUntypical::ComputeDefectMapUntypicalAndMerge failed due uncorrect number of images",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(std::vector<Frame>{}); }));
    EXPECT_EQ(failed, FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(Frame()); }));
    EXPECT_NE(std::string::npos, log.lines.at(log.lines.size() - 2).find(failed + " due to null pointer"));
    // The record is held by reference: a window wider than the area, then an area below the frame.
    const Frame hot = Plant(100, {{{9, 9}, 600}});
    f.parameters.MedianWidth = 2 * W;
    EXPECT_EQ(failed, FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(hot); }));
    f.parameters.MedianWidth = 11;
    f.parameters.Area = ROI(40, 0, 9, W);
    EXPECT_EQ(failed, FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(hot); }));
    EXPECT_NE(std::string::npos, log.lines.at(log.lines.size() - 2).find(failed + " due to area out of image"));
    EXPECT_EQ("CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    EXPECT_EQ(inUse, f.InUse());
    f.parameters.Area = ROI(0, 0, H, W);
    EXPECT_EQ(Isolated({{7, 7}}), f.Map());

    f.calibration.Clear();
    EXPECT_EQ(inUse - 1, f.InUse());
    EXPECT_EQ(failed + " because Init has not run",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {})); }));
    EXPECT_EQ("CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed because Init has not run",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    f.calibration.Init();  // a new run from zero counts
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{9, 9}, 600}}));
    EXPECT_EQ(Isolated({{9, 9}}), f.Map());
}
