#include "TestImages.h"

#include "calibration/CalibrationGainLinear.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace orvane::test;

namespace {

using Frame = ImagePtr<unsigned short>;

// Opens the protected steps of the gain base class.
class GainSteps : public CalibrationGain {
public:
    void Init() override {}
    void Clear() override {}
    using CalibrationGain::_AverageGaussianFit;
    using CalibrationGain::_AverageMean;
    using CalibrationGain::_EffectivePixel;
    using CalibrationGain::_ExtractGoodPixelInMeasureArea;
    using CalibrationGain::_Normalizing;

private:
    const std::string _GetCalibrationType() override { return "GainSteps"; }
};

bool Contains(const std::vector<std::string>& lines, const std::string& text) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(text) != std::string::npos; });
}

// A 12 x 8 panel: normalising area columns 2..9, rows 1..6; gain clipped to [0.25, 4];
// Gaussian fit 3 sigmas / 5 %; two 2 x 2 measure areas, at (3, 2) and (6, 4).
GainLinearParameters Parameters(bool invert = false) {
    return GainLinearParameters{invert, 1, 6, 2, 8, 0.25f, 4.0f, 3, 0.05f, {ROI(2, 3, 2, 2), ROI(4, 6, 2, 2)}};
}

struct GainFixture {
    explicit GainFixture(const GainLinearParameters& parameters)
        : parameters(parameters), store(boost::make_shared<ReferenceGainLinear>(12, 8)),
          dm(boost::make_shared<ReferenceDM>(12, 8)), calibration(this->parameters, store, dm) {
        calibration.Init();
    }
    // The stored gain, decompressed.
    std::vector<float> Gain() {
        auto gain = MakeImage<float>(12, 8);
        store->DeCompressImage(store->GetGainLinear(), gain);
        return Pixels(gain);
    }
    // The logged lines of one calculation on the frames, or on the series so far without
    // frames; a failure is logged too.
    std::vector<std::string> Calculate(const std::vector<Frame>& frames) {
        LogCapture log;
        try {
            frames.empty() ? calibration.CalculateGainReference() : calibration.CalculateGainReference(frames);
        } catch (const CalibrationException&) {
        }
        return log.lines;
    }

    GainLinearParameters parameters;
    boost::shared_ptr<ReferenceGainLinear> store;
    boost::shared_ptr<ReferenceDM> dm;
    CalibrationGainLinear calibration;
};

}  // namespace

TEST(CalibrationGain, GoodPixelsAreThoseAtMostTheThresholdInsideTheMapCollectedRowAfterRow) {
    GainSteps steps;
    auto map = MakeImage<unsigned char>(3, 2, {0, 1, 255, 0, 0, 0});
    for (int index : {-1, 0, 1, 2, 5, 6}) EXPECT_EQ(index == 0 || index == 5, steps._EffectivePixel(map, index)) << index;
    auto image = MakeImage<float>(4, 3, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    map = MakeImage<unsigned char>(4, 3, {0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0});
    float buffer[6] = {-1, -1, -1, -1, -1, -1};
    int count = -1;
    steps._ExtractGoodPixelInMeasureArea(image, map, ROI(1, 1, 2, 3), buffer, count);  // to the corner
    EXPECT_EQ(5, count);
    EXPECT_EQ((std::vector<float>{5, 7, 9, 10, 11, -1}), std::vector<float>(buffer, buffer + 6));
    // A map shorter than the image: its missing pixels are not good.
    steps._ExtractGoodPixelInMeasureArea(image, MakeImage<unsigned char>(4, 2), ROI(1, 0, 2, 2), buffer, count);
    EXPECT_EQ(2, count);

    LogCapture log;
    EXPECT_THROW(steps._EffectivePixel(nullptr, 0), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _EffectivePixel failed due to null pointer"));
    EXPECT_THROW(steps._ExtractGoodPixelInMeasureArea(image, map, ROI(2, 1, 2, 2), buffer, count), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _ExtractGoodPixelInMeasureArea failed\n"));
    // The missing map fails inside the loop; the missing buffer before it.
    EXPECT_THROW(steps._ExtractGoodPixelInMeasureArea(image, nullptr, ROI(0, 0, 1, 1), buffer, count), CalibrationException);
    EXPECT_THROW(steps._ExtractGoodPixelInMeasureArea(image, map, ROI(0, 0, 1, 1), nullptr, count), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _ExtractGoodPixelInMeasureArea failed due to null pointer"));
}

TEST(CalibrationGain, LevelsTheirMeanAndNormalizing) {
    GainSteps steps;
    std::vector<float> values(100, 7.0f);
    values.push_back(5000.0f);
    EXPECT_EQ(7.0f, steps._AverageGaussianFit(values.data(), 101, 3, 0.05f));
    EXPECT_TRUE(std::isnan(steps._AverageGaussianFit(values.data(), 0, 3, 0.05f)));
    float levels[] = {1, 2, 3, 6}, large[] = {16777216.0f, 1.0f, 1.0f};
    float mean = 0.0f;
    steps._AverageMean(levels, 4, mean);
    EXPECT_EQ(3.0f, mean);
    steps._AverageMean(levels, 0, mean);  // keeps the mean
    EXPECT_EQ(3.0f, mean);
    steps._AverageMean(large, 3, mean);  // the sum is kept in float: 2^24 + 1 + 1 stays 2^24
    EXPECT_EQ(static_cast<float>(16777216.0 / 3), mean);
    EXPECT_THROW(steps._AverageMean(nullptr, 1, mean), CalibrationException);

    // Divides inside the area, gives 1 outside it and everywhere for a mean of 0.
    auto source = MakeImage<float>(4, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    auto target = MakeFilled<float>(4, 3, -9.0f);
    QuadPart area(1, 3, 1, 9);  // rows past the image are left out
    steps._Normalizing(source, 3.0f, area, target);
    EXPECT_EQ((std::vector<float>{1, 1, 1, 1, 1, 6 / 3.0f, 7 / 3.0f, 1, 1, 10 / 3.0f, 11 / 3.0f, 1}), Pixels(target));
    steps._Normalizing(source, 0.0f, area, target);
    EXPECT_EQ(std::vector<float>(12, 1.0f), Pixels(target));
    LogCapture log;
    EXPECT_THROW(steps._Normalizing(source, 3.0f, area, MakeImage<float>(3, 4)), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _Normalizing failed due to wrong image size"));
    EXPECT_THROW(steps._Normalizing(nullptr, 3.0f, area, target), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _Normalizing failed due to null pointer"));
}

TEST(CalibrationGainLinear, GainIsNormalisedClippedInvertedAndOneOutsideTheArea) {
    struct Case { int x, y; unsigned short value; double gain, inverted; };
    const double top = 65535 / 16384.0;  // the store's highest gain
    const std::vector<Case> cases{
        {8, 2, 2000, 2.0, 0.5}, {8, 3, 10000, top, 0.25}, {8, 4, 0, 0.25, top}, {8, 5, 1250, 1.25, 0.8},
        {2, 1, 2000, 2.0, 0.5}, {9, 6, 2000, 2.0, 0.5},  // the corners of the normalising area
        {1, 1, 2000, 1, 1},     {10, 6, 2000, 1, 1},     {2, 0, 2000, 1, 1}, {9, 7, 2000, 1, 1}, {5, 5, 1000, 1, 1}};
    for (bool invert : {false, true}) {
        GainFixture f(Parameters(invert));
        Frame frame = MakeFilled<unsigned short>(12, 8, 1000);
        for (const Case& c : cases) frame->GetData()[c.y * 12 + c.x] = c.value;
        frame->SetProperty("image.time", 77);
        const std::vector<std::string> log = f.Calculate({frame});
        const std::vector<float> gain = f.Gain();
        for (const Case& c : cases)
            EXPECT_NEAR(invert ? c.inverted : c.gain, gain[c.y * 12 + c.x], 1.0 / 32768) << c.x << ", " << c.y;
        EXPECT_EQ(invert, f.store->GetGainInversion());
        EXPECT_EQ(77, f.store->GetGainLinear()->GetProperty<int>("image.time"));
        EXPECT_EQ((std::vector<std::string>{"I CalibrationGainLinear : CalculateGainReference\n",
                                            "I GainLinear AverageMean : 1000\n",
                                            "I CalibrationGainLinear : CalculateGainReference succeed\n"}),
                  log);
    }
}

// The level is the mean of the measure areas' levels over their good pixels.
TEST(CalibrationGainLinear, LevelOfTheGoodPixelsOfTheMeasureAreas) {
    GainLinearParameters none = Parameters(true);
    none.MeasureAreas.clear();
    GainFixture f(Parameters()), g(Parameters()), h(none);
    Frame frame = MakeFilled<unsigned short>(12, 8, 1000);
    frame->GetData()[2 * 12 + 3] = 3000;  // a defect in the first measure area: normalised all the same
    f.dm->GetDM()->GetData()[2 * 12 + 3] = 1;
    EXPECT_TRUE(Contains(f.Calculate({frame}), "GainLinear AverageMean : 1000\n"));
    EXPECT_EQ(3.0f, f.Gain()[2 * 12 + 3]);
    // A measure area of defects only has no level: the mean is NaN, which the store
    // keeps as "no usable gain" inside the normalising area; nothing fails.
    for (int i : {2 * 12 + 3, 2 * 12 + 4, 3 * 12 + 3, 3 * 12 + 4}) g.dm->GetDM()->GetData()[i] = 9;
    EXPECT_TRUE(Contains(g.Calculate({frame}), "nan\n"));  // "nan" or "-nan"
    EXPECT_EQ(0.0f, g.Gain()[3 * 12 + 5]);
    EXPECT_EQ(1.0f, g.Gain()[0]);
    // No measure area leaves the mean at 0, and the gain at 1.0 everywhere.
    EXPECT_TRUE(Contains(h.Calculate({frame}), "GainLinear AverageMean : 0\n"));
    EXPECT_EQ(std::vector<float>(96, 1.0f), h.Gain());
}

// A series fed frame by frame, with an Init in between, gives what the series gives.
TEST(CalibrationGainLinear, FrameByFrameMatchesTheSeriesInitKeepsItClearStartsAnew) {
    std::vector<Frame> frames;
    for (int k = 0; k < 3; ++k) {
        frames.push_back(MakeImage<unsigned short>(12, 8));
        for (int i = 0; i < 96; ++i) frames.back()->GetData()[i] = static_cast<unsigned short>(900 + (i * 37 + k * 11) % 200);
    }
    GainFixture series(Parameters()), single(Parameters());
    const std::vector<std::string> log = series.Calculate(frames);
    single.calibration.AccumulateGainImg(frames[0]);
    single.calibration.Init();
    for (int k = 1; k < 3; ++k) single.calibration.AccumulateGainImg(frames[k]);
    single.calibration.DivideAccumulation();
    EXPECT_EQ(log, single.Calculate({}));
    EXPECT_EQ(series.Gain(), single.Gain());

    single.calibration.Clear();
    EXPECT_TRUE(Contains(single.Calculate({}), "CalibrationGainLinear: CalculateGainReference failed due to null pointer"));
    single.calibration.Init();
    single.calibration.DivideAccumulation();  // no frame: 0 / 0
    EXPECT_TRUE(Contains(single.Calculate({}), "nan\n"));
}

TEST(CalibrationGainLinear, FailuresCarryTheirMessages) {
    GainLinearParameters p = Parameters();
    GainFixture f(p);
    EXPECT_EQ("CalibrationGainLinear::CalculateGainReference failed due uncorrect number of images",
              FailureText([&] { f.calibration.CalculateGainReference(std::vector<Frame>{}); }));
    EXPECT_EQ("CalibrationGainLinear: AccumulateGainImg failed", FailureText([&] { f.calibration.AccumulateGainImg(nullptr); }));
    // A measure area off the panel fails inside the calculation, which says so last.
    p.MeasureAreas.push_back(ROI(7, 0, 2, 2));
    GainFixture g(p);
    g.store->SetGainInversion(true);
    LogCapture log;
    EXPECT_EQ("CalibrationGainLinear: CalculateGainReference failed",
              FailureText([&] { g.calibration.CalculateGainReference({MakeFilled<unsigned short>(12, 8, 10)}); }));
    ASSERT_FALSE(log.lines.empty());
    EXPECT_NE(std::string::npos, log.lines.back().find("CalibrationGainLinear: CalculateGainReference failed\n"));
    EXPECT_TRUE(g.store->GetGainInversion());  // untouched without InvertGain
}
