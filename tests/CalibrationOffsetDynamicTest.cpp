#include "TestImages.h"
#include "tools/Parallel.h"

#include <gtest/gtest.h>

using namespace orvane::test;

namespace {

using Values = std::vector<unsigned short>;

// Each test uses its own image format, so that pools of the registry are not shared.
struct OffsetDynamicFixture {
    OffsetDynamicFixture(int width, int height, float weight = 0.125f)
        : parameters{weight}, store(boost::make_shared<ReferenceOffsetSimple>(width, height)),
          calibration(parameters, store) {}
    ImageCollector<float>* Pool() {
        return ImageCollectorRegistry::Instance().FindCollector<float>(store->GetOffset()->GetWidth(),
                                                                        store->GetOffset()->GetHeight());
    }
    Values Offset() { return Pixels(store->GetOffset()); }

    OffsetDynamicParameters parameters;
    boost::shared_ptr<ReferenceOffsetSimple> store;
    CalibrationOffsetDynamic calibration;
};

}  // namespace

TEST(CalibrationOffsetDynamic, MeanOfTheSeriesRoundedHalfUpWithTheLastFramesProperties) {
    OffsetDynamicFixture f(3, 1);
    f.store->GetOffset()->SetProperty("old.key", 1);
    f.calibration.Init();
    Frame first = MakeImage<unsigned short>(3, 1, {100, 7, 65535}), last = MakeImage<unsigned short>(3, 1, {101, 7, 65534});
    first->SetProperty("image.time", 100);
    last->SetProperty("image.time", 160);
    last->SetProperty("image.temperature", 31.5f);
    f.calibration.CalculateOffsetReference({first, last});
    EXPECT_EQ(Values({101, 7, 65535}), f.Offset());
    EXPECT_EQ(160, f.store->GetOffset()->GetProperty<long long>("image.time"));
    EXPECT_FLOAT_EQ(31.5f, f.store->GetOffset()->GetProperty<float>("image.temperature"));
    EXPECT_FALSE(f.store->GetOffset()->GetProperties().get_child_optional("old"));

    const Frame one = MakeImage<unsigned short>(3, 1, {0, 4095, 65535});  // one frame gives the frame
    f.calibration.CalculateOffsetReference({one});
    EXPECT_EQ(Pixels(one), f.Offset());

    // The float sum and quotient, then + 0.5 truncated: 60001 + 60002 + 60002.
    float sum = 0.0f;
    for (unsigned short v : {60001, 60002, 60002}) sum = static_cast<float>(static_cast<double>(sum) + v);
    const float quotient = static_cast<float>(static_cast<double>(sum) / 3.0);
    f.calibration.CalculateOffsetReference({MakeFilled<unsigned short>(3, 1, 60001),
                                            MakeFilled<unsigned short>(3, 1, 60002), MakeFilled<unsigned short>(3, 1, 60002)});
    EXPECT_EQ(Values(3, static_cast<unsigned short>(static_cast<double>(quotient) + 0.5)), f.Offset());

    // A frame fed by hand joins the series; the series then closes, and the next one
    // starts afresh: its first frame is assigned, not added.
    f.calibration.AccumulateOffset(MakeImage<unsigned short>(3, 1, {10, 20, 0}));
    f.calibration.CalculateOffsetReference({MakeImage<unsigned short>(3, 1, {20, 40, 0}),
                                            MakeImage<unsigned short>(3, 1, {30, 60, 0})});
    EXPECT_EQ(Values({20, 40, 0}), f.Offset());
    EXPECT_TRUE(f.Pool()->GetInUse().empty());
    f.calibration.AccumulateOffset(MakeImage<unsigned short>(3, 1, {5, 6, 1}));
    f.calibration.DivideAccumulationAndUpdate();
    EXPECT_EQ(Values({5, 6, 1}), f.Offset());
}

// Dynamic blends the frame in, each product rounded to float and the sum truncated
// toward zero; Preview takes the frame as it is. Both take its properties alone.
TEST(CalibrationOffsetDynamic, ASeriesInOnePassGivesTheOffsetOfItsFramesOneAfterAnother) {
    std::vector<Frame> frames;
    for (int k = 0; k < 3; ++k) {
        frames.push_back(MakeImageOf<unsigned short>(211, 197, [k](int x, int y) { return (x * 131 + y * 977 + k * 40503) % 65536; }));
        frames.back()->SetProperty("image.time", 10 * k);
    }
    OffsetDynamicFixture frameByFrame(211, 197);
    frameByFrame.calibration.Init();
    for (const Frame& frame : frames) frameByFrame.calibration.AccumulateOffset(frame);
    frameByFrame.calibration.DivideAccumulationAndUpdate();
    for (const int threads : {1, 2, 7}) {
        orvane::SetThreadCount(threads);
        OffsetDynamicFixture f(211, 197);
        f.calibration.Init();
        f.calibration.CalculateOffsetReference(frames);
        EXPECT_EQ(frameByFrame.Offset(), f.Offset()) << threads << " threads";
        EXPECT_EQ(20, f.store->GetOffset()->GetProperty<int>("image.time"));
    }
    orvane::SetThreadCount(0);
}

TEST(CalibrationOffsetDynamic, BlendOfTheFrameIntoTheOffsetPreviewTakesTheFrame) {
    OffsetDynamicFixture f(4, 1);
    *f.store->GetOffset()->GetBuffer() = *f.store->GetOffset()->GetBuffer() + 1000.0f;
    const auto preview = boost::make_shared<ReferenceOffsetSimple>(4, 1);
    for (const auto& store : {f.store, preview}) store->GetOffset()->SetProperty("stale", 1);
    Frame frame = MakeImage<unsigned short>(4, 1, {1008, 1007, 1000, 999});
    frame->SetProperty("image.time", 5);
    LogCapture log;
    f.calibration.UpdateSingleOffsetRef(frame);
    EXPECT_EQ(Succeeded("CalibrationOffsetDynamic : UpdateSingleOffsetRef"), log.lines);
    log.lines.clear();
    CalibrationOffsetPreview(preview).UpdateSingleOffsetRef(frame);
    EXPECT_EQ(Succeeded("CalibrationOffsetPreview : UpdateSingleOffsetRef"), log.lines);
    EXPECT_EQ(Values({1001, 1000, 1000, 999}), f.Offset());
    EXPECT_EQ(Pixels(frame), Pixels(preview->GetOffset()));
    for (const auto& store : {f.store, preview}) {
        EXPECT_EQ(5, store->GetOffset()->GetProperty<int>("image.time"));
        EXPECT_FALSE(store->GetOffset()->GetProperties().get_child_optional("stale"));
    }
    EXPECT_FALSE(f.store->IsValid());

    const float w = 0.3f, v = static_cast<float>(1.0 - w);
    OffsetDynamicFixture g(1, 1, w);
    g.store->GetOffset()->GetData()[0] = 54321;
    g.calibration.UpdateSingleOffsetRef(MakeFilled<unsigned short>(1, 1, 12345));
    const double sum = static_cast<double>(static_cast<float>(12345.0 * w)) +
                       static_cast<double>(static_cast<float>(54321.0 * v));
    EXPECT_EQ(static_cast<unsigned short>(sum), g.store->GetOffset()->GetData()[0]);

    auto square = boost::make_shared<ReferenceOffsetSimple>(2, 2);  // a smaller frame changes only its pixels
    CalibrationOffsetPreview(square).UpdateSingleOffsetRef(MakeImage<unsigned short>(3, 1, {5, 6, 7}));
    EXPECT_EQ(Values({5, 6, 7, 0}), Pixels(square->GetOffset()));
}

TEST(CalibrationOffsetDynamic, PoolAccountFollowsTheLifecycleFailuresCarryTheirMessages) {
    OffsetDynamicFixture f(7, 3);
    f.calibration.Clear();  // never initialised: nothing happens
    LogCapture log;
    EXPECT_EQ("CalibrationOffsetBase: AccumulateOffset failed",
              FailureText([&] { f.calibration.AccumulateOffset(MakeImage<unsigned short>(7, 3)); }));
    EXPECT_NE(std::string::npos, log.lines.at(0).find("AccumulateOffset failed because Init has not run"));
    EXPECT_EQ("CalibrationOffsetDynamic: UpdateSingleOffsetRef failed",
              FailureText([&] { f.calibration.UpdateSingleOffsetRef(Frame()); }));
    EXPECT_EQ("CalibrationOffsetPreview: UpdateSingleOffsetRef failed",
              FailureText([&] { CalibrationOffsetPreview(f.store).UpdateSingleOffsetRef(Frame()); }));
    EXPECT_NE(std::string::npos, log.lines.rbegin()[1].find("Preview: UpdateSingleOffsetRef failed due to null pointer"));
    f.calibration.Init();
    f.calibration.Init();
    ImageCollector<float>* pool = f.Pool();
    ASSERT_NE(nullptr, pool);
    EXPECT_EQ(1u, pool->GetPool().size());
    EXPECT_EQ(1u, pool->GetCollections().size());
    EXPECT_EQ("CalibrationOffsetDynamic::CalculateOffsetReference failed due uncorrect number of images",
              FailureText([&] { f.calibration.CalculateOffsetReference({}); }));
    log.lines.clear();
    EXPECT_EQ("CalibrationOffsetDynamic: DivideAccumulationAndUpdate failed",
              FailureText([&] { f.calibration.DivideAccumulationAndUpdate(); }));
    // The chain: info line, the inner reason, the base's message, then the outer one.
    ASSERT_EQ(4u, log.lines.size());
    EXPECT_EQ("I CalibrationOffsetDynamic: DivideAccumulationAndUpdate\n", log.lines[0]);
    EXPECT_NE(std::string::npos, log.lines[1].find("failed because no series is open\n"));
    EXPECT_NE(std::string::npos, log.lines[2].find("CalibrationOffsetBase: DivideAccumulationAndUpdate failed\n"));
    EXPECT_NE(std::string::npos, log.lines[3].find("CalibrationOffsetDynamic: DivideAccumulationAndUpdate failed\n"));

    f.calibration.AccumulateOffset(MakeImage<unsigned short>(7, 3));
    EXPECT_EQ(1u, pool->GetInUse().size());
    f.calibration.DeleteAccumulation();
    f.calibration.DeleteAccumulation();
    EXPECT_TRUE(pool->GetInUse().empty());
    f.calibration.AccumulateOffset(MakeImage<unsigned short>(7, 3));
    f.calibration.Clear();  // ends the open series and the account
    EXPECT_TRUE(pool->GetInUse().empty());
    EXPECT_TRUE(pool->GetCollections().empty());
    EXPECT_TRUE(pool->GetPool().empty());
    f.calibration.Init();
    f.calibration.CalculateOffsetReference({MakeFilled<unsigned short>(7, 3, 9)});
    EXPECT_EQ(Values(21, 9), f.Offset());
}
