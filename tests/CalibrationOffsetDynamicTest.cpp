#include "TestImages.h"

#include <gtest/gtest.h>

using orvane::test::LogCapture;
using orvane::test::MakeFilled;
using orvane::test::MakeImage;
using orvane::test::Pixels;

namespace {

using Frame = ImagePtr<unsigned short>;

// Each test uses its own image format, so that pools of the registry are not shared.
struct OffsetDynamicFixture {
    OffsetDynamicFixture(int width, int height, float weight = 0.125f)
        : parameters{weight}, store(boost::make_shared<ReferenceOffsetSimple>(width, height)),
          calibration(parameters, store) {}

    ImageCollector<float>* Pool() {
        const auto image = store->GetOffset();
        return ImageCollectorRegistry::Instance().FindCollector<float>(image->GetWidth(),
                                                                        image->GetHeight());
    }

    OffsetDynamicParameters parameters;
    boost::shared_ptr<ReferenceOffsetSimple> store;
    CalibrationOffsetDynamic calibration;
};

}  // namespace

TEST(CalibrationOffsetDynamic, MeanOfSeriesRoundsHalfUp) {
    OffsetDynamicFixture f(3, 1);
    f.calibration.Init();
    f.calibration.CalculateOffsetReference({MakeImage<unsigned short>(3, 1, {100, 7, 65535}),
                                            MakeImage<unsigned short>(3, 1, {101, 7, 65534})});
    EXPECT_EQ(std::vector<unsigned short>({101, 7, 65535}), Pixels(f.store->GetOffset()));
}

TEST(CalibrationOffsetDynamic, OneFrameGivesTheFrame) {
    OffsetDynamicFixture f(2, 2);
    f.calibration.Init();
    const Frame frame = MakeImage<unsigned short>(2, 2, {0, 1, 4095, 65535});
    f.calibration.CalculateOffsetReference({frame});
    EXPECT_EQ(Pixels(frame), Pixels(f.store->GetOffset()));
}

TEST(CalibrationOffsetDynamic, MeanIsTheFloatQuotientPlusHalfTruncated) {
    OffsetDynamicFixture f(1, 1);
    f.calibration.Init();
    const std::vector<unsigned short> values = {60001, 60002, 60002};
    std::vector<Frame> frames;
    float sum = 0.0f;
    for (unsigned short v : values) {
        frames.push_back(MakeFilled<unsigned short>(1, 1, v));
        sum = static_cast<float>(static_cast<double>(sum) + v);
    }
    f.calibration.CalculateOffsetReference(frames);
    const float quotient = static_cast<float>(static_cast<double>(sum) / 3.0);
    EXPECT_EQ(static_cast<unsigned short>(static_cast<double>(quotient) + 0.5),
              f.store->GetOffset()->GetData()[0]);
}

TEST(CalibrationOffsetDynamic, SeriesFedByHandIsIncludedAndThenClosed) {
    OffsetDynamicFixture f(2, 1);
    f.calibration.Init();
    f.calibration.AccumulateOffset(MakeImage<unsigned short>(2, 1, {10, 20}));
    f.calibration.CalculateOffsetReference({MakeImage<unsigned short>(2, 1, {20, 40}),
                                            MakeImage<unsigned short>(2, 1, {30, 60})});
    EXPECT_EQ(std::vector<unsigned short>({20, 40}), Pixels(f.store->GetOffset()));
    EXPECT_TRUE(f.Pool()->GetInUse().empty());

    // The next series starts afresh: its first frame is assigned, not added.
    f.calibration.AccumulateOffset(MakeImage<unsigned short>(2, 1, {5, 6}));
    f.calibration.DivideAccumulationAndUpdate();
    EXPECT_EQ(std::vector<unsigned short>({5, 6}), Pixels(f.store->GetOffset()));
}

TEST(CalibrationOffsetDynamic, OffsetTakesThePropertiesOfTheLastFrame) {
    OffsetDynamicFixture f(1, 1);
    f.store->GetOffset()->SetProperty("old.key", 1);
    f.calibration.Init();
    Frame first = MakeImage<unsigned short>(1, 1), last = MakeImage<unsigned short>(1, 1);
    first->SetProperty("image.time", 100);
    last->SetProperty("image.time", 160);
    last->SetProperty("image.temperature", 31.5f);
    f.calibration.CalculateOffsetReference({first, last});
    const Frame offset = f.store->GetOffset();
    EXPECT_EQ(160, offset->GetProperty<long long>("image.time"));
    EXPECT_FLOAT_EQ(31.5f, offset->GetProperty<float>("image.temperature"));
    EXPECT_FALSE(offset->GetProperties().get_child_optional("old"));
}

TEST(CalibrationOffsetDynamic, EmptySeriesFailsWithItsMessage) {
    OffsetDynamicFixture f(4, 1);
    f.calibration.Init();
    try {
        f.calibration.CalculateOffsetReference({});
        FAIL() << "no exception";
    } catch (const CalibrationException& e) {
        EXPECT_NE(std::string::npos,
                  std::string(e.what()).find("): CalibrationOffsetDynamic::CalculateOffsetReference "
                                             "failed due uncorrect number of images"));
    }
}

TEST(CalibrationOffsetDynamic, OutOfOrderCallsFailInOrder) {
    OffsetDynamicFixture f(5, 1);
    LogCapture log;
    EXPECT_THROW(f.calibration.AccumulateOffset(MakeImage<unsigned short>(5, 1)), CalibrationException);
    f.calibration.Init();
    try {
        f.calibration.DivideAccumulationAndUpdate();
        FAIL() << "no exception";
    } catch (const CalibrationException& e) {
        EXPECT_NE(std::string::npos,
                  std::string(e.what()).find("): CalibrationOffsetDynamic: DivideAccumulationAndUpdate failed"));
    }
    // The chain: info line, the inner reason, the base's message, then the outer one.
    ASSERT_GE(log.lines.size(), 4u);
    const auto n = log.lines.size();
    EXPECT_EQ("I CalibrationOffsetDynamic: DivideAccumulationAndUpdate\n", log.lines[n - 4]);
    EXPECT_NE(std::string::npos, log.lines[n - 2].find("CalibrationOffsetBase: DivideAccumulationAndUpdate failed\n"));
    EXPECT_NE(std::string::npos, log.lines[n - 1].find("CalibrationOffsetDynamic: DivideAccumulationAndUpdate failed\n"));
}

TEST(CalibrationOffsetDynamic, BlendTruncatesTowardZero) {
    OffsetDynamicFixture f(3, 1);
    *f.store->GetOffset()->GetBuffer() = *f.store->GetOffset()->GetBuffer() + 1000.0f;
    Frame frame = MakeImage<unsigned short>(3, 1, {1008, 1007, 1000});
    frame->SetProperty("image.time", 5);
    LogCapture log;
    f.calibration.UpdateSingleOffsetRef(frame);
    EXPECT_EQ(std::vector<unsigned short>({1001, 1000, 1000}), Pixels(f.store->GetOffset()));
    EXPECT_EQ(5, f.store->GetOffset()->GetProperty<int>("image.time"));
    EXPECT_EQ(std::vector<std::string>({"I CalibrationOffsetDynamic : UpdateSingleOffsetRef\n",
                                        "I CalibrationOffsetDynamic : UpdateSingleOffsetRef succeed\n"}),
              log.lines);
    EXPECT_FALSE(f.store->IsValid());
}

TEST(CalibrationOffsetDynamic, BlendRoundsEachProductToFloat) {
    const float w = 0.3f;
    OffsetDynamicFixture f(1, 1, w);
    f.store->GetOffset()->GetData()[0] = 54321;
    f.calibration.UpdateSingleOffsetRef(MakeFilled<unsigned short>(1, 1, 12345));
    const float v = static_cast<float>(1.0 - w);
    const double sum = static_cast<double>(static_cast<float>(12345.0 * w)) +
                       static_cast<double>(static_cast<float>(54321.0 * v));
    EXPECT_EQ(static_cast<unsigned short>(sum), f.store->GetOffset()->GetData()[0]);
}

TEST(CalibrationOffsetDynamic, NullFrameFailsWithTheOperationsMessage) {
    OffsetDynamicFixture f(6, 1);
    try {
        f.calibration.UpdateSingleOffsetRef(Frame());
        FAIL() << "no exception";
    } catch (const CalibrationException& e) {
        EXPECT_NE(std::string::npos,
                  std::string(e.what()).find("): CalibrationOffsetDynamic: UpdateSingleOffsetRef failed"));
    }
}

TEST(CalibrationOffsetDynamic, PoolAccountFollowsTheLifecycle) {
    OffsetDynamicFixture f(7, 3);
    f.calibration.Clear();  // never initialised: nothing happens
    f.calibration.Init();
    f.calibration.Init();
    ImageCollector<float>* pool = f.Pool();
    ASSERT_NE(nullptr, pool);
    EXPECT_EQ(1u, pool->GetPool().size());
    EXPECT_EQ(1u, pool->GetCollections().size());

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
    EXPECT_EQ(std::vector<unsigned short>(21, 9), Pixels(f.store->GetOffset()));
}
