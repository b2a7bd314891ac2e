#include "TestImages.h"

#include "calibration/CalibrationDefectMapUntypical.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <utility>

using orvane::test::FailureText;
using orvane::test::LogCapture;
using orvane::test::MakeFilled;
using orvane::test::Pixels;

namespace {

using Frame = ImagePtr<unsigned short>;
using Position = std::pair<int, int>;  // (x, y)

constexpr int kWidth = 64;
constexpr int kHeight = 48;

// An 11 x 11 window; QuantLevels one above the largest pixel of the area gives the
// slope 1 and offset 0, so that the high-pass leaves exactly p - median.
DefectMapUntypicalParameters Untypical(int levels, ROI area = ROI(0, 0, kHeight, kWidth)) {
    DefectMapUntypicalParameters p;
    p.Area = area;
    p.MedianWidth = 11;
    p.MedianHeight = 11;
    p.QuantLevels = levels;
    p.GfaSigmas = 3;
    p.GfaTolerance = 0.05f;
    p.ExcludeSigmas = 10;
    return p;
}

// `background` everywhere but at the planted pixels. With `ripple`, the background
// pixels, taken in memory order, run through 0, 0, 0, +1, 0, 0, 0, -1 around it.
Frame Plant(unsigned short background, const std::map<Position, unsigned short>& planted, bool ripple = false) {
    static const int kRipple[8] = {0, 0, 0, 1, 0, 0, 0, -1};
    Frame frame = MakeFilled<unsigned short>(kWidth, kHeight, background);
    int next = 0;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const auto it = planted.find({x, y});
            unsigned short& pixel = frame->GetData()[y * kWidth + x];
            if (it != planted.end()) {
                pixel = it->second;
            } else if (ripple) {
                pixel = static_cast<unsigned short>(background + kRipple[next++ % 8]);
            }
        }
    }
    return frame;
}

std::vector<unsigned char> Isolated(const std::vector<Position>& positions) {
    std::vector<unsigned char> map(kWidth * kHeight, 0);
    for (const auto& p : positions) map[p.second * kWidth + p.first] = 1;
    return map;
}

struct UntypicalFixture {
    explicit UntypicalFixture(const DefectMapUntypicalParameters& p)
        : parameters(p), store(boost::make_shared<ReferenceDM>(kWidth, kHeight)), calibration(parameters, store) {
        calibration.Init();
    }
    std::vector<unsigned char> Map() {
        calibration.UpdateDefectMapReference();
        return Pixels(store->GetDM());
    }
    size_t InUse() const {
        return ImageCollectorRegistry::Instance().FindCollector<float>(kWidth, kHeight)->GetInUse().size();
    }
    DefectMapUntypicalParameters parameters;
    boost::shared_ptr<ReferenceDM> store;
    CalibrationDefectMapUntypical calibration;
};

}  // namespace

TEST(CalibrationDefectMapUntypical, AllZeroFrameExcludesNothing) {
    UntypicalFixture f(Untypical(65536));
    LogCapture log;
    f.calibration.ComputeDefectMapUntypicalAndMerge(MakeFilled<unsigned short>(kWidth, kHeight, 0));
    EXPECT_EQ((std::vector<std::string>{"I CalibrationDefectMapUntypical : DefectMapUntypical\n",
                                        "I Defect Map Untypical: HPM subtract\n",
                                        "I Scaling and Quantification - Slope = 65535 Offset = 0\n",
                                        "I High Pass Median Subtract\n",
                                        "I Defect Map Untypical: GFA Mean and Sigma\n",
                                        "I Defect Map Untypical: Mean = 0 Sigma = 0\n",
                                        "I Defect Map Untypical: Flagging Defective Pixels & Merge\n",
                                        "I Defect Map Untypical done\n"}),
              log.lines);
    EXPECT_EQ(Isolated({}), f.Map());
    EXPECT_EQ("I CalibrationDefectMapUntypical : UpdateDefectMapReference done\n", log.lines.back());
    EXPECT_EQ(18, f.store->GetDM()->GetProperty<std::uint16_t>("info.quantlevels"));
}

TEST(CalibrationDefectMapUntypical, BandIsExcludeSigmasAroundTheMeanWithBoundsAccepted) {
    // The ripple leaves the median at 100 in every window: high-pass values -1, 0, +1,
    // a quarter of them non-zero, so the rejection ends on mean 0 and sigma 0.5 and the
    // band is [-5, 5]. 3064 ripple pixels make 383 of each sign.
    UntypicalFixture f(Untypical(601));
    const std::map<Position, unsigned short> planted = {
        {{10, 10}, 600}, {{50, 10}, 0},  {{10, 30}, 105}, {{20, 30}, 95},
        {{30, 30}, 106}, {{40, 30}, 94}, {{50, 30}, 120}, {{30, 40}, 80}};
    LogCapture log;
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, planted, true));
    EXPECT_EQ("I Defect Map Untypical: Mean = 0 Sigma = 0.5\n", log.lines.at(5));
    EXPECT_EQ(Isolated({{10, 10}, {50, 10}, {30, 30}, {40, 30}, {50, 30}, {30, 40}}), f.Map());
}

TEST(CalibrationDefectMapUntypical, EachFrameCountsOnceAndCountsKeepTheirLowEightBits) {
    // On a flat background sigma ends at 0: every pixel off the median is excluded.
    UntypicalFixture f(Untypical(601));
    std::vector<Frame> frames(255, Plant(100, {{{3, 3}, 600}, {{9, 9}, 600}}));
    frames.push_back(Plant(100, {{{3, 3}, 600}, {{20, 20}, 101}}));
    f.calibration.ComputeDefectMapUntypicalAndMerge(frames);
    // (3, 3) out in 256 frames wraps to 0; (9, 9) in 255 and (20, 20) in one stay.
    EXPECT_EQ(Isolated({{9, 9}, {20, 20}}), f.Map());
}

TEST(CalibrationDefectMapUntypical, OnlyTheAreaReachesTheMapWithTheFrameProperties) {
    UntypicalFixture f(Untypical(501, ROI(8, 16, 24, 32)));  // columns 16 .. 47, rows 8 .. 31
    const ImagePtr<unsigned char> map = f.store->GetDM();
    map->GetData()[40 * kWidth + 2] = 1;   // outside, kept
    map->GetData()[20 * kWidth + 30] = 9;  // inside, replaced by a good count
    Frame frame = Plant(0, {{{20, 10}, 500}, {{5, 5}, 500}, {{47, 31}, 500}, {{48, 31}, 500}});
    frame->SetProperty("image.time", 77);
    f.calibration.ComputeDefectMapUntypicalAndMerge(frame);
    EXPECT_EQ(Isolated({{2, 40}, {20, 10}, {47, 31}}), f.Map());
    EXPECT_EQ(77, map->GetProperty<int>("image.time"));
}

TEST(CalibrationDefectMapUntypical, PixelsOutsideTheAreaEnterTheStatisticRaw) {
    // The upper half is high-passed to 0 (one pixel to 500), the lower half stays at
    // 100: the rejection stops at once near mean 50 and sigma 50, so the band of
    // +-500 around it keeps the hot pixel that the area alone would have excluded.
    UntypicalFixture f(Untypical(601, ROI(0, 0, kHeight / 2, kWidth)));
    LogCapture log;
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{20, 10}, 600}}));
    // The scaled range starts at 0, not at the smallest pixel (100).
    EXPECT_EQ("I Scaling and Quantification - Slope = 1 Offset = 0\n", log.lines.at(2));
    EXPECT_NE(std::string::npos, log.lines.at(5).find("Mean = 50.0"));
    EXPECT_EQ(Isolated({}), f.Map());
}

TEST(CalibrationDefectMapUntypical, FailuresGiveTheImagesBackAndKeepTheEarlierCounts) {
    UntypicalFixture f(Untypical(601));
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{7, 7}, 600}}));
    const size_t inUse = f.InUse();
    LogCapture log;
    EXPECT_EQ("CalibrationDefectMapUntypical::ComputeDefectMapUntypicalAndMerge failed due uncorrect number of images",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(std::vector<Frame>{}); }));
    EXPECT_EQ("CalibrationDefectMapUntypical: DefectMapUntypical failed",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(Frame()); }));
    EXPECT_NE(std::string::npos, log.lines.at(log.lines.size() - 2).find("DefectMapUntypical failed due to null pointer"));

    // The record is held by reference: a window wider than the area, then an area
    // below the frame.
    f.parameters.MedianWidth = 2 * kWidth;
    EXPECT_EQ("CalibrationDefectMapUntypical: DefectMapUntypical failed",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{9, 9}, 600}})); }));
    f.parameters.MedianWidth = 11;
    f.parameters.Area = ROI(40, 0, 9, kWidth);
    EXPECT_EQ("CalibrationDefectMapUntypical: DefectMapUntypical failed",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{9, 9}, 600}})); }));
    EXPECT_NE(std::string::npos, log.lines.at(log.lines.size() - 2).find("failed due to area out of image"));
    EXPECT_EQ("CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    EXPECT_EQ(inUse, f.InUse());

    f.parameters.Area = ROI(0, 0, kHeight, kWidth);
    EXPECT_EQ(Isolated({{7, 7}}), f.Map());
}

TEST(CalibrationDefectMapUntypical, ClearGivesTheCountsBackAndInitStartsAgain) {
    UntypicalFixture f(Untypical(601));
    const size_t inUse = f.InUse();
    f.calibration.Init();
    EXPECT_EQ(inUse, f.InUse());
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{7, 7}, 600}}));
    f.calibration.Clear();
    EXPECT_EQ(inUse - 1, f.InUse());
    EXPECT_EQ("CalibrationDefectMapUntypical: DefectMapUntypical failed because Init has not run",
              FailureText([&] { f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {})); }));
    EXPECT_EQ("CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed because Init has not run",
              FailureText([&] { f.calibration.UpdateDefectMapReference(); }));
    f.calibration.Init();
    f.calibration.ComputeDefectMapUntypicalAndMerge(Plant(100, {{{9, 9}, 600}}));
    EXPECT_EQ(Isolated({{9, 9}}), f.Map());
}
