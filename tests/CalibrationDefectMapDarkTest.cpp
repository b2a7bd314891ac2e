#include "TestImages.h"

#include "calibration/CalibrationDefectMapDark.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

using orvane::test::FailureText;
using orvane::test::LogCapture;
using orvane::test::MakeFilled;
using orvane::test::Pixels;

namespace {

using Frame = ImagePtr<unsigned short>;
using Positions = std::vector<std::pair<int, int>>;

constexpr int kWidth = 64;
constexpr int kHeight = 48;

DefectMapDarkParameters Band(float low, float high, ROI area = ROI(0, 0, kHeight, kWidth)) {
    DefectMapDarkParameters p;
    p.Area = area;
    p.ThresholdMin = low;
    p.ThresholdMax = high;
    return p;
}

// A smooth dark level of 200 .. 593 rising to the right and downward.
Frame Dark() {
    Frame frame = MakeFilled<unsigned short>(kWidth, kHeight, 0);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) frame->GetData()[y * kWidth + x] = static_cast<unsigned short>(200 + 4 * x + 3 * y);
    }
    return frame;
}

Frame With(Frame frame, const std::vector<std::pair<std::pair<int, int>, unsigned short>>& pixels) {
    for (const auto& p : pixels) frame->GetData()[p.first.second * kWidth + p.first.first] = p.second;
    return frame;
}

// The classified map of isolated defects: 1 at each position, 0 elsewhere.
std::vector<unsigned char> Isolated(const Positions& positions) {
    std::vector<unsigned char> map(kWidth * kHeight, 0);
    for (const auto& p : positions) map[p.second * kWidth + p.first] = 1;
    return map;
}

struct DarkFixture {
    explicit DarkFixture(const DefectMapDarkParameters& p)
        : parameters(p), store(boost::make_shared<ReferenceDM>(kWidth, kHeight)), calibration(parameters, store) {
        calibration.Init();
    }
    DefectMapDarkParameters parameters;
    boost::shared_ptr<ReferenceDM> store;
    CalibrationDefectMapDark calibration;
};

}  // namespace

TEST(CalibrationDefectMapDark, MeansOutsideTheBandAreMarkedAndBoundsAccepted) {
    DarkFixture f(Band(100.0f, 1000.0f));
    // Two frames per series: (x, y) -> value in frame 1, value in frame 2.
    const Frame first = With(Dark(), {{{10, 5}, 5000}, {{20, 30}, 20}, {{30, 10}, 99}, {{40, 10}, 99},
                                      {{30, 20}, 0}, {{40, 20}, 2}, {{50, 40}, 1000}});
    const Frame second = With(Dark(), {{{10, 5}, 5000}, {{20, 30}, 20}, {{30, 10}, 101}, {{40, 10}, 99},
                                       {{30, 20}, 2000}, {{40, 20}, 2000}, {{50, 40}, 1001}});
    LogCapture log;
    f.calibration.ComputeDefectMapDarkAndMerge({first, second});
    f.calibration.UpdateDefectMapReference();
    // Means 100 and 1000 (a noisy pixel) sit on the bounds; 99, 1001 and 1000.5 are past them.
    EXPECT_EQ(Isolated({{10, 5}, {20, 30}, {40, 10}, {40, 20}, {50, 40}}), Pixels(f.store->GetDM()));
    EXPECT_EQ((std::vector<std::string>{
                  "I CalibrationDefectMapDark : DefectMapDark\n", "I Defect Map done\n",
                  "I CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge - Number of detected defects : 5\n",
                  "I CalibrationDefectMapDark::UpdateDefectMapReference\n",
                  "I CalibrationDefectMapDark::UpdateDefectMapReference - Number of defects : 5\n"}),
              log.lines);
    EXPECT_FALSE(f.store->IsValid());
}

TEST(CalibrationDefectMapDark, OnlyTheAreaReachesTheMapWithTheFrameProperties) {
    DarkFixture f(Band(100.0f, 1000.0f, ROI(8, 16, 24, 32)));  // columns 16 .. 47, rows 8 .. 31
    const ImagePtr<unsigned char> map = f.store->GetDM();
    map->GetData()[40 * kWidth + 2] = 1;   // outside, kept
    map->GetData()[20 * kWidth + 30] = 9;  // inside, replaced by a good count
    Frame frame = With(Dark(), {{{20, 10}, 5000}, {{5, 5}, 5000}, {{47, 31}, 5000}, {{48, 31}, 5000}});
    frame->SetProperty("image.time", 77);
    f.calibration.ComputeDefectMapDarkAndMerge({frame});
    f.calibration.UpdateDefectMapReference();
    EXPECT_EQ(Isolated({{2, 40}, {20, 10}, {47, 31}}), Pixels(map));
    EXPECT_EQ(77, map->GetProperty<int>("image.time"));
    EXPECT_EQ(18, map->GetProperty<std::uint16_t>("info.quantlevels"));

    // A record with an all-zero area writes nothing.
    const DefectMapDarkParameters none = Band(100.0f, 1000.0f, ROI());
    CalibrationDefectMapDark empty(none, f.store);
    empty.Init();
    empty.ComputeDefectMapDarkAndMerge({MakeFilled<unsigned short>(kWidth, kHeight, 0)});
    empty.UpdateDefectMapReference();
    EXPECT_EQ(Isolated({{2, 40}, {20, 10}, {47, 31}}), Pixels(map));
}

TEST(CalibrationDefectMapDark, WorkCarriesOverBetweenSeriesUntilInit) {
    DarkFixture f(Band(500.0f, 1000.0f));
    LogCapture log;
    f.calibration.ComputeDefectMapDarkAndMerge({With(MakeFilled<unsigned short>(kWidth, kHeight, 600), {{{7, 7}, 5000}})});
    // (600 + 300 + 300) / 2 = 600 is accepted: the mean of the first series stays in
    // the sum and the divisor counts this series alone.
    const Frame low = MakeFilled<unsigned short>(kWidth, kHeight, 300);
    f.calibration.ComputeDefectMapDarkAndMerge({low, low});
    EXPECT_EQ("I CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge - Number of detected defects : 1\n",
              log.lines.back());

    f.calibration.Init();
    const Frame level = MakeFilled<unsigned short>(kWidth, kHeight, 600);
    f.calibration.ComputeDefectMapDarkAndMerge({level});
    EXPECT_EQ("I CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge - Number of detected defects : 0\n",
              log.lines.back());
    f.calibration.ComputeDefectMapDarkAndMerge({level});  // 600 + 600 = 1200
    EXPECT_EQ("I CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge - Number of detected defects : 3072\n",
              log.lines.back());
}

TEST(CalibrationDefectMapDark, CountsGrowPerSeriesAndKeepTheirLowEightBits) {
    // The level 100 sums up over the series and stays in the band; a 0 stays below it.
    DarkFixture f(Band(100.0f, 1.0e6f));
    const Frame frame = With(MakeFilled<unsigned short>(kWidth, kHeight, 100), {{{3, 3}, 0}, {{9, 9}, 0}});
    const Frame later = With(MakeFilled<unsigned short>(kWidth, kHeight, 100), {{{3, 3}, 0}});
    for (int series = 0; series < 255; ++series) f.calibration.ComputeDefectMapDarkAndMerge({frame});
    f.calibration.ComputeDefectMapDarkAndMerge({later});  // (3, 3): 256 series out, (9, 9): 255
    f.calibration.UpdateDefectMapReference();
    EXPECT_EQ(Isolated({{9, 9}}), Pixels(f.store->GetDM()));
}

TEST(CalibrationDefectMapDark, FailuresKeepTheEarlierCounts) {
    const DefectMapDarkParameters band = Band(100.0f, 1000.0f);
    auto store = boost::make_shared<ReferenceDM>(kWidth, kHeight);
    CalibrationDefectMapDark calibration(band, store);
    LogCapture log;
    EXPECT_EQ("CalibrationDefectMapDark: AccumulateImg failed",
              FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({Dark()}); }));
    EXPECT_NE(std::string::npos, log.lines.front().find("AccumulateImg failed because Init has not run"));
    EXPECT_EQ("CalibrationDefectMapDark: UpdateDefectMapDarkReference failed because Init has not run",
              FailureText([&] { calibration.UpdateDefectMapReference(); }));

    calibration.Init();
    calibration.ComputeDefectMapDarkAndMerge({With(Dark(), {{{10, 5}, 5000}})});
    EXPECT_EQ("CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge failed due uncorrect number of images",
              FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({}); }));
    EXPECT_EQ("CalibrationDefectMapDark: AccumulateImg failed",
              FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({Dark(), Frame()}); }));
    calibration.UpdateDefectMapReference();
    EXPECT_EQ(Isolated({{10, 5}}), Pixels(store->GetDM()));

    const DefectMapDarkParameters outside = Band(100.0f, 1000.0f, ROI(40, 0, 9, kWidth));
    CalibrationDefectMapDark tooLow(outside, store);
    tooLow.Init();
    EXPECT_EQ("CalibrationDefectMapDark: UpdateDefectMapDarkReference failed",
              FailureText([&] { tooLow.UpdateDefectMapReference(); }));
    EXPECT_EQ(Isolated({{10, 5}}), Pixels(store->GetDM()));
}
