#include "TestImages.h"

#include "calibration/CalibrationDefectMapDark.h"

#include <gtest/gtest.h>

using namespace orvane::test;

namespace {

using Frame = ImagePtr<unsigned short>;
constexpr int W = 64;
constexpr int H = 48;

DefectMapDarkParameters Band(float low, float high, ROI area = ROI(0, 0, H, W)) {
    return DefectMapDarkParameters{area, low, high};
}

// A frame of `level`, or with level < 0 a smooth dark of 200 + 4x + 3y, then the given pixels.
struct Pixel { int x, y; unsigned short value; };
Frame Make(int level, std::initializer_list<Pixel> pixels = {}) {
    Frame frame = MakeFilled<unsigned short>(W, H, static_cast<unsigned short>(level));
    for (int i = 0; i < W * H && level < 0; ++i)
        frame->GetData()[i] = static_cast<unsigned short>(200 + 4 * (i % W) + 3 * (i / W));
    for (const Pixel& p : pixels) frame->GetData()[p.y * W + p.x] = p.value;
    return frame;
}

// The classified map of isolated defects: 1 at each (x, y), 0 elsewhere.
std::vector<unsigned char> Isolated(std::initializer_list<std::pair<int, int>> positions) {
    std::vector<unsigned char> map(W * H, 0);
    for (const auto& p : positions) map[p.second * W + p.first] = 1;
    return map;
}

struct Fixture {
    explicit Fixture(const DefectMapDarkParameters& p) : parameters(p), calibration(parameters, store) {
        calibration.Init();
    }
    DefectMapDarkParameters parameters;
    boost::shared_ptr<ReferenceDM> store = boost::make_shared<ReferenceDM>(W, H);
    CalibrationDefectMapDark calibration;
};

}  // namespace

TEST(CalibrationDefectMapDark, MeansOutsideTheBandCountAndOnlyTheAreaReachesTheMap) {
    Fixture f(Band(100.0f, 1000.0f, ROI(8, 16, 24, 32)));  // columns 16 .. 47, rows 8 .. 31
    const ImagePtr<unsigned char> map = f.store->GetDM();
    map->GetData()[40 * W + 2] = 1;   // outside, kept
    map->GetData()[20 * W + 20] = 9;  // inside, replaced by a good count
    // Means 100 and 1000 sit on the bounds; 99, 1001 and 1000.5 are past them. (5, 5)
    // and (48, 31) lie outside the area.
    const Frame first = Make(-1, {{20, 10, 5000}, {20, 30, 20}, {30, 10, 99}, {40, 10, 99}, {30, 20, 0}, {40, 20, 2},
                                  {45, 25, 1000}, {5, 5, 5000}, {47, 31, 5000}, {48, 31, 5000}});
    const Frame second = Make(-1, {{20, 10, 5000}, {20, 30, 20}, {30, 10, 101}, {40, 10, 99}, {30, 20, 2000},
                                   {40, 20, 2000}, {45, 25, 1001}, {5, 5, 5000}, {47, 31, 5000}, {48, 31, 5000}});
    first->SetProperty("image.time", 76);
    second->SetProperty("image.time", 77);
    LogCapture log;
    f.calibration.ComputeDefectMapDarkAndMerge({first, second});
    f.calibration.UpdateDefectMapReference();
    EXPECT_EQ(Isolated({{2, 40}, {20, 10}, {20, 30}, {40, 10}, {40, 20}, {45, 25}, {47, 31}}), Pixels(map));
    EXPECT_EQ("I CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge - Number of detected defects : 8\n",
              log.lines.at(2));
    EXPECT_EQ("I CalibrationDefectMapDark::UpdateDefectMapReference - Number of defects : 7\n", log.lines.at(4));
    EXPECT_EQ(77, map->GetProperty<int>("image.time"));
    EXPECT_EQ(18, map->GetProperty<unsigned short>("info.quantlevels"));
    EXPECT_FALSE(f.store->IsValid());
}

TEST(CalibrationDefectMapDark, WorkCarriesOverBetweenSeriesUntilInitAndCountsKeepTheirLowEightBits) {
    Fixture f(Band(500.0f, 1000.0f));
    LogCapture log;
    f.calibration.ComputeDefectMapDarkAndMerge({Make(600, {{7, 7, 5000}})});
    // (600 + 300 + 300) / 2 = 600 is accepted: the mean of the first series stays in
    // the sum and the divisor counts this series alone.
    f.calibration.ComputeDefectMapDarkAndMerge({Make(300), Make(300)});
    const std::string count =
        "I CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge - Number of detected defects : ";
    EXPECT_EQ(count + "1\n", log.lines.back());
    f.calibration.Init();
    f.calibration.ComputeDefectMapDarkAndMerge({Make(600)});
    EXPECT_EQ(count + "0\n", log.lines.back());
    f.calibration.ComputeDefectMapDarkAndMerge({Make(600)});  // 600 + 600 = 1200
    EXPECT_EQ(count + "3072\n", log.lines.back());

    // (3, 3) is out in 256 series and wraps to 0, (9, 9) in 255.
    f.parameters.ThresholdMin = 100.0f, f.parameters.ThresholdMax = 1.0e6f;
    f.calibration.Init();
    const Frame both = Make(100, {{3, 3, 0}, {9, 9, 0}});
    for (int series = 0; series < 255; ++series) f.calibration.ComputeDefectMapDarkAndMerge({both});
    f.calibration.ComputeDefectMapDarkAndMerge({Make(100, {{3, 3, 0}})});
    f.calibration.UpdateDefectMapReference();
    EXPECT_EQ(Isolated({{9, 9}}), Pixels(f.store->GetDM()));
}

TEST(CalibrationDefectMapDark, FailuresCarryTheirMessagesAndKeepTheEarlierCounts) {
    // The records are held by reference.
    const DefectMapDarkParameters band = Band(100.0f, 1000.0f), below = Band(100.0f, 1000.0f, ROI(40, 0, 9, W));
    auto store = boost::make_shared<ReferenceDM>(W, H);
    CalibrationDefectMapDark calibration(band, store);
    LogCapture log;
    const std::string accumulate = "CalibrationDefectMapDark: AccumulateImg failed";
    EXPECT_EQ(accumulate, FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({Make(-1)}); }));
    EXPECT_NE(std::string::npos, log.lines.front().find("AccumulateImg failed because Init has not run"));
    EXPECT_EQ("CalibrationDefectMapDark: UpdateDefectMapDarkReference failed because Init has not run",
              FailureText([&] { calibration.UpdateDefectMapReference(); }));

    calibration.Init();
    calibration.ComputeDefectMapDarkAndMerge({Make(-1, {{10, 5, 5000}})});
    EXPECT_EQ("CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge failed due uncorrect number of images",
              FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({}); }));
    EXPECT_EQ(accumulate, FailureText([&] { calibration.ComputeDefectMapDarkAndMerge({Make(-1), Frame()}); }));
    calibration.UpdateDefectMapReference();
    EXPECT_EQ(Isolated({{10, 5}}), Pixels(store->GetDM()));

    CalibrationDefectMapDark tooLow(below, store);
    tooLow.Init();
    EXPECT_EQ("CalibrationDefectMapDark: UpdateDefectMapDarkReference failed",
              FailureText([&] { tooLow.UpdateDefectMapReference(); }));
    EXPECT_EQ(Isolated({{10, 5}}), Pixels(store->GetDM()));
}
