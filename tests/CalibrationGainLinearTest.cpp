#include "TestImages.h"

#include "calibration/CalibrationGainLinear.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using orvane::test::LogCapture;
using orvane::test::MakeFilled;
using orvane::test::MakeImage;
using orvane::test::Pixels;

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
    for (const auto& line : lines) {
        if (line.find(text) != std::string::npos) return true;
    }
    return false;
}

// A 12 x 8 panel: normalising area columns 2..9, rows 1..6; two 2 x 2 measure areas.
GainLinearParameters Parameters(bool invert = false) {
    GainLinearParameters p;
    p.InvertGain = invert;
    p.Y0 = 1;
    p.Height = 6;
    p.X0 = 2;
    p.Width = 8;
    p.ClipMin = 0.25f;
    p.ClipMax = 4.0f;
    p.GfaSigmas = 3;
    p.GfaTolerance = 0.05f;
    p.MeasureAreas = {ROI(2, 3, 2, 2), ROI(4, 6, 2, 2)};
    return p;
}

struct GainFixture {
    explicit GainFixture(const GainLinearParameters& parameters)
        : parameters(parameters),
          store(boost::make_shared<ReferenceGainLinear>(12, 8)),
          dm(boost::make_shared<ReferenceDM>(12, 8)),
          calibration(this->parameters, store, dm) {
        calibration.Init();
    }

    // The stored gain, decompressed.
    std::vector<float> Gain() {
        auto gain = MakeImage<float>(12, 8);
        store->DeCompressImage(store->GetGainLinear(), gain);
        return Pixels(gain);
    }

    GainLinearParameters parameters;
    boost::shared_ptr<ReferenceGainLinear> store;
    boost::shared_ptr<ReferenceDM> dm;
    CalibrationGainLinear calibration;
};

float At(const std::vector<float>& gain, int x, int y) {
    return gain[static_cast<size_t>(y * 12 + x)];
}

}  // namespace

TEST(CalibrationGain, GoodPixelsAreThoseAtMostTheThresholdInsideTheMap) {
    GainSteps steps;
    auto map = MakeImage<unsigned char>(3, 2, {0, 1, 255, 0, 0, 0});
    EXPECT_TRUE(steps._EffectivePixel(map, 0));
    EXPECT_FALSE(steps._EffectivePixel(map, 1));
    EXPECT_FALSE(steps._EffectivePixel(map, 2));
    EXPECT_FALSE(steps._EffectivePixel(map, 6));
    LogCapture log;
    EXPECT_THROW(steps._EffectivePixel(nullptr, 0), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _EffectivePixel failed due to null pointer"));
}

TEST(CalibrationGain, ExtractCollectsGoodPixelsRowAfterRowWithoutGaps) {
    GainSteps steps;
    auto image = MakeImage<float>(4, 3, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    auto map = MakeImage<unsigned char>(4, 3, {0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0});
    float buffer[6] = {-1, -1, -1, -1, -1, -1};
    int count = -1;
    steps._ExtractGoodPixelInMeasureArea(image, map, ROI(1, 1, 2, 3), buffer, count);
    EXPECT_EQ(5, count);
    EXPECT_EQ((std::vector<float>{5, 7, 9, 10, 11, -1}), std::vector<float>(buffer, buffer + 6));

    // A map shorter than the image: its missing pixels are not good.
    steps._ExtractGoodPixelInMeasureArea(image, MakeImage<unsigned char>(4, 2), ROI(1, 0, 2, 2), buffer, count);
    EXPECT_EQ(2, count);

    LogCapture log;
    EXPECT_THROW(steps._ExtractGoodPixelInMeasureArea(image, map, ROI(2, 1, 2, 2), buffer, count),
                 CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _ExtractGoodPixelInMeasureArea failed\n"));
    EXPECT_THROW(steps._ExtractGoodPixelInMeasureArea(image, nullptr, ROI(0, 0, 1, 1), buffer, count),
                 CalibrationException);  // the missing map fails inside the loop
    EXPECT_THROW(steps._ExtractGoodPixelInMeasureArea(image, map, ROI(0, 0, 1, 1), nullptr, count),
                 CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "_ExtractGoodPixelInMeasureArea failed due to null pointer"));
}

TEST(CalibrationGain, LevelsAndTheirMean) {
    GainSteps steps;
    std::vector<float> values(100, 7.0f);
    values.push_back(5000.0f);
    EXPECT_EQ(7.0f, steps._AverageGaussianFit(values.data(), 101, 3, 0.05f));
    EXPECT_TRUE(std::isnan(steps._AverageGaussianFit(values.data(), 0, 3, 0.05f)));

    float levels[] = {1, 2, 3, 6};
    float mean = 0.0f;
    steps._AverageMean(levels, 4, mean);
    EXPECT_EQ(3.0f, mean);
    steps._AverageMean(levels, 0, mean);
    EXPECT_EQ(3.0f, mean);
    // The sum is kept in float: 2^24 + 1 + 1 stays 2^24.
    float large[] = {16777216.0f, 1.0f, 1.0f};
    steps._AverageMean(large, 3, mean);
    EXPECT_EQ(static_cast<float>(16777216.0 / 3), mean);
    EXPECT_THROW(steps._AverageMean(nullptr, 1, mean), CalibrationException);
}

TEST(CalibrationGain, NormalizingDividesInsideTheAreaAndGivesOneOutside) {
    GainSteps steps;
    auto source = MakeImage<float>(4, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    auto target = MakeFilled<float>(4, 3, -9.0f);
    QuadPart area(1, 3, 1, 9);  // rows past the image are left out
    steps._Normalizing(source, 3.0f, area, target);
    EXPECT_EQ((std::vector<float>{1, 1, 1, 1, 1, 6 / 3.0f, 7 / 3.0f, 1, 1, 10 / 3.0f, 11 / 3.0f, 1}),
              Pixels(target));
    steps._Normalizing(source, 0.0f, area, target);
    EXPECT_EQ(std::vector<float>(12, 1.0f), Pixels(target));
    LogCapture log;
    EXPECT_THROW(steps._Normalizing(source, 3.0f, area, MakeImage<float>(3, 4)), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _Normalizing failed due to wrong image size"));
    EXPECT_THROW(steps._Normalizing(nullptr, 3.0f, area, target), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGain: _Normalizing failed due to null pointer"));
}

TEST(CalibrationGainLinear, UniformFramesGiveGainOneEverywhere) {
    GainFixture f(Parameters());
    LogCapture log;
    f.calibration.CalculateGainReference({MakeFilled<unsigned short>(12, 8, 1000),
                                          MakeFilled<unsigned short>(12, 8, 1000)});
    EXPECT_EQ(std::vector<float>(96, 1.0f), f.Gain());
    EXPECT_EQ((std::vector<std::string>{"I CalibrationGainLinear : CalculateGainReference\n",
                                        "I GainLinear AverageMean : 1000\n",
                                        "I CalibrationGainLinear : CalculateGainReference succeed\n"}),
              log.lines);
    EXPECT_FALSE(f.store->GetGainInversion());
}

TEST(CalibrationGainLinear, GainIsNormalisedClippedAndOneOutsideTheArea) {
    for (bool invert : {false, true}) {
        GainFixture f(Parameters(invert));
        Frame frame = MakeFilled<unsigned short>(12, 8, 1000);
        auto set = [&](int x, int y, unsigned short v) { frame->GetData()[y * 12 + x] = v; };
        set(8, 2, 2000);   // twice the level
        set(8, 3, 10000);  // beyond ClipMax
        set(8, 4, 0);      // below ClipMin
        set(8, 5, 1250);
        set(0, 0, 2000);   // outside the normalising area
        set(11, 7, 0);
        frame->SetProperty("image.time", 77);
        f.calibration.CalculateGainReference({frame});
        const std::vector<float> gain = f.Gain();
        const float top = 65535 / 16384.0f;  // the store's highest gain
        EXPECT_EQ(invert ? 0.5f : 2.0f, At(gain, 8, 2));
        EXPECT_EQ(invert ? 0.25f : top, At(gain, 8, 3));
        EXPECT_EQ(invert ? top : 0.25f, At(gain, 8, 4));
        EXPECT_NEAR(invert ? 0.8 : 1.25, At(gain, 8, 5), 1.0 / 32768);
        EXPECT_EQ(1.0f, At(gain, 0, 0));
        EXPECT_EQ(1.0f, At(gain, 11, 7));
        EXPECT_EQ(invert, f.store->GetGainInversion());
        EXPECT_EQ(77, f.store->GetGainLinear()->GetProperty<int>("image.time"));
    }
}

TEST(CalibrationGainLinear, DefectsStayOutOfTheLevelButAreNormalised) {
    GainFixture f(Parameters());
    Frame frame = MakeFilled<unsigned short>(12, 8, 1000);
    frame->GetData()[2 * 12 + 3] = 3000;  // in the first measure area
    f.dm->GetDM()->GetData()[2 * 12 + 3] = 1;
    LogCapture log;
    f.calibration.CalculateGainReference({frame});
    EXPECT_TRUE(Contains(log.lines, "GainLinear AverageMean : 1000\n"));
    EXPECT_EQ(3.0f, At(f.Gain(), 3, 2));

    // A measure area of defects only has no level: the mean is NaN, which the store
    // keeps as "no usable gain" inside the normalising area; nothing fails.
    GainFixture g(Parameters());
    for (int i : {2 * 12 + 3, 2 * 12 + 4, 3 * 12 + 3, 3 * 12 + 4}) g.dm->GetDM()->GetData()[i] = 9;
    LogCapture log2;
    g.calibration.CalculateGainReference({MakeFilled<unsigned short>(12, 8, 1000)});
    EXPECT_TRUE(Contains(log2.lines, "nan\n"));  // "nan" or "-nan", as the stream writes it
    const std::vector<float> gain = g.Gain();
    EXPECT_EQ(0.0f, At(gain, 5, 3));
    EXPECT_EQ(1.0f, At(gain, 0, 0));
}

TEST(CalibrationGainLinear, NoMeasureAreaLeavesTheMeanAtZero) {
    GainLinearParameters p = Parameters(true);
    p.MeasureAreas.clear();
    GainFixture f(p);
    LogCapture log;
    f.calibration.CalculateGainReference({MakeFilled<unsigned short>(12, 8, 1234)});
    EXPECT_TRUE(Contains(log.lines, "GainLinear AverageMean : 0\n"));
    EXPECT_EQ(std::vector<float>(96, 1.0f), f.Gain());
}

TEST(CalibrationGainLinear, FrameByFrameMatchesTheSeriesAndTheSumNormalisesAlike) {
    const GainLinearParameters p = Parameters();
    std::vector<Frame> frames;
    for (int k = 0; k < 3; ++k) {
        Frame frame = MakeImage<unsigned short>(12, 8);
        for (int i = 0; i < 96; ++i) frame->GetData()[i] = static_cast<unsigned short>(900 + (i * 37 + k * 11) % 200);
        frames.push_back(frame);
    }
    GainFixture series(p);
    series.calibration.CalculateGainReference(frames);

    GainFixture single(p);
    for (const Frame& frame : frames) single.calibration.AccumulateGainImg(frame);
    single.calibration.DivideAccumulation();
    single.calibration.CalculateGainReference();
    EXPECT_EQ(series.Gain(), single.Gain());

    GainFixture sum(p);  // no division: the level scales with the sum
    for (const Frame& frame : frames) sum.calibration.AccumulateGainImg(frame);
    sum.calibration.CalculateGainReference();
    const std::vector<float> a = series.Gain(), b = sum.Gain();
    for (size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], b[i], 1.0 / 16384) << i;
}

TEST(CalibrationGainLinear, InitKeepsTheSeriesAndClearStartsAnew) {
    GainFixture f(Parameters());
    f.calibration.AccumulateGainImg(MakeFilled<unsigned short>(12, 8, 500));
    f.calibration.Init();
    f.calibration.AccumulateGainImg(MakeFilled<unsigned short>(12, 8, 1500));
    f.calibration.DivideAccumulation();
    LogCapture log;
    f.calibration.CalculateGainReference();
    EXPECT_TRUE(Contains(log.lines, "GainLinear AverageMean : 1000\n"));

    f.calibration.Clear();
    EXPECT_THROW(f.calibration.CalculateGainReference(), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGainLinear: CalculateGainReference failed due to null pointer"));
    f.calibration.Init();
    f.calibration.DivideAccumulation();  // no frame: 0 / 0
    f.calibration.CalculateGainReference();
    EXPECT_TRUE(Contains(log.lines, "nan\n"));
}

TEST(CalibrationGainLinear, FailuresCarryTheirMessages) {
    GainLinearParameters p = Parameters();
    GainFixture f(p);
    LogCapture log;
    EXPECT_THROW(f.calibration.CalculateGainReference(std::vector<Frame>{}), CalibrationException);
    EXPECT_TRUE(Contains(log.lines,
                         "CalibrationGainLinear::CalculateGainReference failed due uncorrect number of images"));
    EXPECT_THROW(f.calibration.AccumulateGainImg(nullptr), CalibrationException);
    EXPECT_TRUE(Contains(log.lines, "CalibrationGainLinear: AccumulateGainImg failed\n"));

    // A measure area off the panel fails inside the calculation, which says so last.
    p.MeasureAreas.push_back(ROI(7, 0, 2, 2));
    GainFixture g(p);
    g.store->SetGainInversion(true);
    log.lines.clear();
    EXPECT_THROW(g.calibration.CalculateGainReference({MakeFilled<unsigned short>(12, 8, 10)}),
                 CalibrationException);
    ASSERT_FALSE(log.lines.empty());
    EXPECT_NE(std::string::npos, log.lines.back().find("CalibrationGainLinear: CalculateGainReference failed\n"));
    EXPECT_TRUE(g.store->GetGainInversion());  // untouched without InvertGain
}
