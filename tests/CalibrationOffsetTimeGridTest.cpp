#include "TestImages.h"

#include "calibration/CalibrationOffsetTimeGrid.h"
#include "parameters/OffsetTimeGridParametersSet.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>

using namespace orvane::test;

namespace {

Frame MakeFrame(int width, unsigned short value, long long time, float temperature) {
    Frame frame = MakeFilled<unsigned short>(width, 1, value);
    frame->SetProperty("image.time", time);
    frame->SetProperty("image.temperature", temperature);
    return frame;
}

// A grid of delta times 0, 10 and 20 (stand-by 10), each test with its own width.
struct TimeGridFixture {
    explicit TimeGridFixture(int width, const OffsetParameters& parameters = s_OffsetTimeGridParametersSet.lookup("Birch"))
        : width(width),
          store(boost::make_shared<ReferenceOffsetTimeGrid>(width, 1, std::vector<int>{0, 10, 20})),
          calibration(parameters, store, 10) {}

    // Stores a grid entry of value 0 taken at time 0, temperature 30.
    void StoreEntry(int deltaTime) {
        calibration.Init();
        calibration.AccumulateOffset(MakeFrame(width, 0, 0, 30.0f));
        calibration.DivideAccumulationAndUpdate(deltaTime);
    }

    int width;
    boost::shared_ptr<ReferenceOffsetTimeGrid> store;
    CalibrationOffsetTimeGrid calibration;
};

}  // namespace

// The share c of a frame of value 10000 blended into a zero entry at the given
// distances: the result is trunc((float)(10000 * c)).
TEST(CalibrationOffsetTimeGrid, ShareFollowsTheTemperatureAndTimeClassesStandbyOnlyWhenAsked) {
    struct Case { float deltaTemperature; long long timeDifference; float share; };
    // Time differences are in "image.time" units; the classes count steps of 60.
    const Case cases[] = {{0.3f, 10 * 60, 0.1f}, {0.5f, 20 * 60, 0.1f}, {0.6f, 0, 0.2f},
                          {1.5f, 0, 0.3f},       {2.0f, 0, 0.4f},       {2.1f, 0, 0.5f},
                          {7.0f, 0, 0.5f},       {0.0f, 21 * 60, 0.2f}, {0.0f, 80 * 60, 0.4f},
                          {0.0f, 81 * 60, 0.5f}, {1.2f, 85 * 60, 0.5f}, {0.0f, -81 * 60, 0.5f},
                          {0.0f, 21 * 60 - 1, 0.1f}};
    TimeGridFixture f(11);
    for (const Case& c : cases) {
        f.StoreEntry(0);
        f.calibration.UpdateSingleOffsetRef(0, MakeFrame(11, 10000, c.timeDifference, 30.0f + c.deltaTemperature), false);
        EXPECT_FLOAT_EQ(c.share, f.store->Get(0)->GetData()[0] / 10000.0f)
            << "dT " << c.deltaTemperature << " dt " << c.timeDifference;
    }

    // The stand-by offset takes a frame of its delta time only when asked to.
    const auto entryAndStandby = [&](int deltaTime) {
        return std::make_pair(int(f.store->Get(deltaTime)->GetData()[0]), int(f.store->GetStandbyOffset()->GetData()[0]));
    };
    f.StoreEntry(10);
    f.calibration.InitOffsetStandBy();
    EXPECT_EQ(0, f.store->GetStandbyOffset()->GetProperty<long long>("image.time"));
    f.calibration.UpdateSingleOffsetRef(10, MakeFrame(11, 10000, 0, 37.0f), true);
    EXPECT_EQ(std::make_pair(0, 5000), entryAndStandby(10));
    f.calibration.UpdateSingleOffsetRef(10, MakeFrame(11, 10000, 0, 37.0f), false);
    EXPECT_EQ(std::make_pair(5000, 5000), entryAndStandby(10));

    // Another delta time is blended into its entry: each product rounded to float, the sum truncated.
    f.StoreEntry(20);
    *f.store->Get(20)->GetBuffer() = *f.store->Get(20)->GetBuffer() + 40001.0f;
    f.calibration.UpdateSingleOffsetRef(20, MakeFrame(11, 12347, 60 * 30, 30.2f), true);  // c = 0.2
    const float c = 0.2f, v = static_cast<float>(1.0 - c);
    const double sum = static_cast<double>(static_cast<float>(12347.0 * c)) +
                       static_cast<double>(static_cast<float>(40001.0 * v));
    EXPECT_EQ(std::make_pair(int(static_cast<unsigned short>(sum)), 5000), entryAndStandby(20));
    EXPECT_EQ(60 * 30, f.store->Get(20)->GetProperty<long long>("image.time"));
}

TEST(CalibrationOffsetTimeGrid, FailuresCarryTheirMessagesAndLeaveTheEntryAsItWas) {
    TimeGridFixture f(33);
    f.StoreEntry(0);
    Frame frame = MakeFilled<unsigned short>(33, 1, 500);
    frame->SetProperty("image.temperature", 30.0f);  // no time
    LogCapture log;
    for (const Frame& bad : {frame, Frame()}) {
        EXPECT_EQ("CalibrationOffsetTimeGrid: UpdateSingleOffsetRef failed",
                  FailureText([&] { f.calibration.UpdateSingleOffsetRef(0, bad, false); }));
    }
    EXPECT_EQ(std::vector<unsigned short>(33, 0), Pixels(f.store->Get(0)));
    EXPECT_EQ(0, f.store->Get(0)->GetProperty<long long>("image.time"));
    EXPECT_EQ("I CalibrationOffsetTimeGrid : UpdateSingleOffsetRef\n", log.lines.front());

    f.calibration.AccumulateOffset(MakeFrame(33, 7, 0, 30.0f));
    EXPECT_EQ("CalibrationOffsetTimeGrid: DivideAccumulationAndUpdate failed due to wrong indice delta time",
              FailureText([&] { f.calibration.DivideAccumulationAndUpdate(15); }));
    f.calibration.DivideAccumulationAndUpdate(20);  // the series stays open and closes into a known entry
    EXPECT_EQ(7, f.store->Get(20)->GetData()[0]);
    EXPECT_EQ("CalibrationOffsetTimeGrid: DivideAccumulationAndUpdate failed",
              FailureText([&] { f.calibration.DivideAccumulationAndUpdate(20); }));
    // The store's own refusal in an update reaches the caller unchanged.
    EXPECT_THROW(f.calibration.UpdateSingleOffsetRef(15, MakeFrame(33, 1, 0, 30.0f), false), ReferenceException);

    TimeGridFixture unknown(34, s_OffsetTimeGridParametersSet.lookup("Willow"));  // lists shorter than two
    unknown.StoreEntry(0);
    EXPECT_THROW(unknown.calibration.UpdateSingleOffsetRef(0, MakeFrame(34, 1, 0, 30.0f), false), CalibrationException);
}

TEST(ReferenceOffsetTimeGrid, EntriesByIndexAndDeltaTimeSavedGridLoadsBackAndAnotherGridRefusesIt) {
    EXPECT_THROW(ReferenceOffsetTimeGrid(3, 2, {}), ReferenceException);
    EXPECT_THROW(ReferenceOffsetTimeGrid(3, 2, {0, 60, 0}), ReferenceException);
    ScratchDirectory scratch;
    ReferenceOffsetTimeGrid saved(3, 1, {0, 60}, "grid.fxd");
    EXPECT_EQ(2, saved.GetNbReferences());
    EXPECT_EQ(saved.GetAt(1), saved.Get(60));
    EXPECT_NE(saved.GetAt(0), saved.GetStandbyOffset());
    for (int index : {2, -1}) EXPECT_THROW(saved.GetAt(index), ReferenceException) << index;
    EXPECT_THROW(saved.Get(61), ReferenceException);
    saved.Get(60)->GetData()[1] = 4321;
    saved.Get(60)->SetProperty("image.time", 77);
    saved.GetStandbyOffset()->GetData()[0] = 99;
    saved.SetValid(true);
    saved.Save();

    ReferenceOffsetTimeGrid loaded(3, 1, {0, 60}, "grid.fxd");
    const ImagePtr<unsigned short> live = loaded.Get(60);
    loaded.Load();
    EXPECT_EQ(live, loaded.Get(60));
    EXPECT_EQ(std::vector<unsigned short>({0, 4321, 0}), Pixels(live));
    EXPECT_EQ(77, live->GetProperty<int>("image.time"));
    EXPECT_EQ(std::vector<unsigned short>({99, 0, 0}), Pixels(loaded.GetStandbyOffset()));
    EXPECT_TRUE(loaded.IsValid());

    ReferenceOffsetTimeGrid other(3, 1, {0, 120}, "grid.fxd");
    other.GetAt(0)->GetData()[0] = 5;
    EXPECT_THROW(other.Load(), ReferenceException);
    EXPECT_EQ(std::vector<unsigned short>({5, 0, 0}), Pixels(other.GetAt(0)));
    EXPECT_FALSE(other.IsValid());
}
