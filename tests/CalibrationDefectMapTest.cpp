#include "TestImages.h"

#include "calibration/CalibrationDefectMap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <sstream>

using orvane::test::LogCapture;
using orvane::test::MakeImage;
using orvane::test::Pixels;
using orvane::test::ScratchDirectory;

namespace {

using Frame = ImagePtr<unsigned short>;
constexpr int W = 64;
constexpr int H = 48;

// A smooth gain field k / 1024 (k = 900 + 3x + 2y) and raw frames of k: the gain
// correction makes them flat at exactly 1024.
int K(int x, int y) { return 900 + 3 * x + 2 * y; }

boost::shared_ptr<ReferenceGainLinear> SmoothGain(int width = W, int height = H) {
    auto store = boost::make_shared<ReferenceGainLinear>(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) store->GetGainLinear()->GetData()[y * width + x] = 16 * K(x, y);
    return store;
}

Frame Flat() {
    auto frame = MakeImage<unsigned short>(W, H);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) frame->GetData()[y * W + x] = K(x, y);
    return frame;
}

// Multiplies the corrected value of a pixel by about `factor` (exactly for integers).
void Scale(const Frame& frame, int x, int y, double factor) {
    frame->GetData()[y * W + x] = static_cast<unsigned short>(K(x, y) * factor);
}

// The table's values, on a 48 x 36 area at (8, 6) with a 7 x 7 window.
DefectMapParameters Parameters() {
    DefectMapParameters p;
    p.X0 = 8, p.Y0 = 6, p.Width = 48, p.Height = 36;
    p.ClipMax = 65135, p.ClipMin = -400, p.MedianWidth = 7, p.MedianHeight = 7;
    p.SpareLevel = 3000, p.LogScale = 1000, p.GfaMin = 100, p.GfaMax = 1500;
    p.ExcludeSigmas = 6, p.GfaSigmas = 3, p.GfaTolerance = 0.05f, p.QuantLevels = 65536;
    return p;
}

bool InArea(int x, int y) { return x >= 8 && x < 56 && y >= 6 && y < 42; }

struct Fixture {
    explicit Fixture(const DefectMapParameters& p = Parameters(),
                     boost::shared_ptr<ReferenceGainLinear> g = SmoothGain(), bool init = true,
                     bool withFlag = true)
        : parameters(p), store(boost::make_shared<ReferenceDM>(W, H)), gain(g),
          flag(withFlag ? boost::make_shared<DefectMapFlag>(flagParameters) : nullptr),
          calibration(parameters, store, gain, flag) {
        if (init) calibration.Init();
    }
    DefectMapParameters parameters;
    DMFlagParameters flagParameters;
    boost::shared_ptr<ReferenceDM> store;
    boost::shared_ptr<ReferenceGainLinear> gain;
    boost::shared_ptr<DefectMapFlag> flag;
    CalibrationDefectMap calibration;
};

// The pool's images in the order Init acquires them: 0 work, 1 quantised, 2 defects.
ImagePtr<float> PoolImage(int index) {
    return ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetInUse().at(index);
}

template <typename T>
T At(const ImagePtr<T>& image, int x, int y) { return image->GetData()[y * image->GetWidth() + x]; }

// scale * ln(1 + |p / m|), each step rounded to float.
float LogRatio(float p, float m) {
    const float r = static_cast<float>(static_cast<double>(p) / m);
    const float shifted = static_cast<float>(std::fabs(static_cast<double>(r)) + 1.0);
    return static_cast<float>(static_cast<double>(static_cast<float>(std::log(static_cast<double>(shifted)))) * 1000.0);
}

std::vector<std::string> LinesWith(const std::vector<std::string>& lines, const std::string& text) {
    std::vector<std::string> found;
    for (const auto& line : lines) if (line.find(text) != std::string::npos) found.push_back(line);
    return found;
}

template <typename F>
void ExpectFailure(F operation, const std::string& message) {
    try {
        operation();
        ADD_FAILURE() << "no exception for " << message;
    } catch (const CalibrationException& e) {
        const std::string text = e.what();
        const std::string tail = "): " + message;
        EXPECT_TRUE(text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0) << text;
    }
}

}  // namespace

TEST(CalibrationDefectMap, CountsGrowPerDoseAndTheLogCountsTheAreaOnly) {
    Fixture f;
    LogCapture log;
    // Hot (20, 15) and dead (40, 30) at every dose; (30, 20) hot at dose 2, (45, 10) at 1 and 3.
    for (int dose = 1; dose <= 3; ++dose) {
        std::vector<Frame> frames{Flat(), Flat()};
        for (const Frame& frame : frames) {
            Scale(frame, 20, 15, 3), Scale(frame, 40, 30, 0.25), Scale(frame, 2, 2, 3);
            if (dose == 2) Scale(frame, 30, 20, 3);
            if (dose != 2) Scale(frame, 45, 10, 3);
        }
        f.calibration.DefectMap6(frames);
    }
    const ImagePtr<float> defects = PoolImage(2);
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            float expected = InArea(x, y) ? 0.0f : 3.0f;  // outside, work is no high-pass value
            if ((x == 20 && y == 15) || (x == 40 && y == 30)) expected = 3;
            if (x == 30 && y == 20) expected = 1;
            if (x == 45 && y == 10) expected = 2;
            ASSERT_EQ(expected, At(defects, x, y)) << x << ", " << y;
        }
    }
    const std::string prefix = "I CalibrationDefectMap::DefectMap6 - Dose ";
    EXPECT_EQ((std::vector<std::string>{prefix + "1 - Number of detected defects : 3\n",
                                        prefix + "2 - Number of detected defects : 4\n",
                                        prefix + "3 - Number of detected defects : 4\n"}),
              LinesWith(log.lines, "Number of detected defects"));
}

TEST(CalibrationDefectMap, HighPassFollowsClippingScalingAndQuantisation) {
    DefectMapParameters p = Parameters();
    p.ClipMin = 300, p.ClipMax = 2048;
    Fixture f(p);
    Frame frame = Flat();
    Scale(frame, 20, 15, 3), Scale(frame, 40, 30, 0.25), Scale(frame, 2, 2, 3), Scale(frame, 60, 44, 0.25);
    f.calibration.DefectMap6({frame});

    // The area spans [300, 2048] after clipping; its window medians are all the level of 1024.
    const float slope = static_cast<float>(65535.0 / (2048.0 - 300.0));
    const int level = static_cast<int>((1024.0 - 300.0) * slope + 0.5);
    const float m = static_cast<float>(level / static_cast<double>(slope) + 300.0);
    const ImagePtr<float> work = PoolImage(0);
    const ImagePtr<float> quantised = PoolImage(1);
    EXPECT_FLOAT_EQ(LogRatio(2048, m), At(work, 20, 15));
    EXPECT_FLOAT_EQ(LogRatio(300, m), At(work, 40, 30));
    EXPECT_EQ(65535, At(quantised, 20, 15));
    EXPECT_EQ(0, At(quantised, 40, 30));
    int others = 0;
    for (int y = 6; y < 42; ++y) {
        for (int x = 8; x < 56; ++x) {
            if ((x == 20 && y == 15) || (x == 40 && y == 30)) continue;
            EXPECT_FLOAT_EQ(LogRatio(1024, m), At(work, x, y)) << x << ", " << y;
            EXPECT_EQ(level, At(quantised, x, y));
            ++others;
        }
    }
    EXPECT_EQ(48 * 36 - 2, others);
    EXPECT_EQ(2048.0f, At(work, 2, 2));  // outside the area work keeps the clipped image
    EXPECT_EQ(300.0f, At(work, 60, 44));
    EXPECT_EQ(1024.0f, At(work, 0, 0));
}

TEST(CalibrationDefectMap, FlatImageHasSigmaZeroAndAcceptsOnlyItsExactValue) {
    Fixture f;
    Frame frame = Flat();
    frame->GetData()[20 * W + 30] = K(30, 20) + 1;
    LogCapture log;
    f.calibration.DefectMap6({frame});

    const float high = 1031.0f / (1030.0f / 1024.0f);  // K(30, 20) is 1030
    const float slope = static_cast<float>(65535.0 / (static_cast<double>(high) - 1024.0));
    std::ostringstream min, scaling, mean;
    min << "I Defect Map Min 1024 Max " << high << "\n";
    scaling << "I Scaling and Quantification - Slope = " << slope << " Offset = 1024\n";
    mean << "I Defect Map Mean : " << LogRatio(1024, 1024) << " Sigma : 0\n";
    EXPECT_EQ((std::vector<std::string>{
                  "I CalibrationDefectMap : DefectMap6\n", "I Defect Map Clipping\n", min.str(),
                  scaling.str(), "I High Pass Median Divide Log\n", "I Defect Map GFA Mean and Sigma\n",
                  mean.str(), "I Defect Map Creating DM\n",
                  "I CalibrationDefectMap::DefectMap6 - Dose 1 - Number of detected defects : 1\n",
                  "I Defect Map done\n"}),
              log.lines);
    EXPECT_EQ(1.0f, At(PoolImage(2), 30, 20));
    EXPECT_EQ(0.0f, At(PoolImage(2), 31, 20));  // exactly on both bounds: accepted
}

TEST(CalibrationDefectMap, ExclusionBandIsMeanPlusMinusExcludeSigmasOfTheRobustStatistic) {
    DefectMapParameters p = Parameters();
    p.ExcludeSigmas = 2;
    auto gain = boost::make_shared<ReferenceGainLinear>(W, H);
    std::fill(gain->GetGainLinear()->GetData(), gain->GetGainLinear()->GetData() + W * H, 16384);
    Fixture f(p, gain);
    Frame frame = MakeImage<unsigned short>(W, H);
    unsigned state = 12345;
    for (int i = 0; i < W * H; ++i) {
        state = state * 1103515245u + 12345u;
        frame->GetData()[i] = static_cast<unsigned short>(1000 + i % W + (state >> 16) % 40);
    }
    LogCapture log;
    f.calibration.DefectMap6({frame});

    const ImagePtr<float> work = PoolImage(0);
    const ImagePtr<float> defects = PoolImage(2);
    float mean = 0, sigma = 0;
    ComputeGFAMeanAndSigma(work, ROI(6, 8, 36, 48), 3, 0.05f, 100.0f, 1500.0f, mean, sigma);
    std::ostringstream line;
    line << "I Defect Map Mean : " << mean << " Sigma : " << sigma << "\n";
    EXPECT_EQ(1u, LinesWith(log.lines, line.str()).size());
    const float t = static_cast<float>(2.0 * sigma);
    const float low = static_cast<float>(static_cast<double>(mean) - t);
    const float high = static_cast<float>(static_cast<double>(mean) + t);
    int excludedInArea = 0;
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            const float v = At(work, x, y);
            const bool excluded = v < low || v > high;
            ASSERT_EQ(excluded ? 1.0f : 0.0f, At(defects, x, y)) << x << ", " << y;
            excludedInArea += excluded && InArea(x, y);
        }
    }
    EXPECT_GT(sigma, 0.0f);
    EXPECT_GT(excludedInArea, 0);
    EXPECT_LT(excludedInArea, 48 * 36 / 2);
}

TEST(CalibrationDefectMap, DoseWithoutStatisticCondemnsTheWholeFrame) {
    DefectMapParameters outOfBand = Parameters();
    outOfBand.GfaMin = 2000, outOfBand.GfaMax = 3000;
    DefectMapParameters empty = Parameters();
    empty.X0 = empty.Y0 = empty.Width = empty.Height = 0;
    for (const DefectMapParameters& p : {outOfBand, empty}) {
        Fixture f(p);
        LogCapture log;
        f.calibration.DefectMap6({Flat()});
        EXPECT_EQ(std::vector<float>(W * H, 1.0f), Pixels(PoolImage(2)));
        const auto nan = LinesWith(log.lines, "I Defect Map Mean : ");
        ASSERT_EQ(1u, nan.size());
        EXPECT_NE(std::string::npos, nan[0].find("nan"));
        EXPECT_EQ(1u, LinesWith(log.lines, "I Defect Map Mean Corrected : 0 Sigma Corrected : -1\n").size());
        f.calibration.UpdateDefectMapReference();
        const std::size_t written = p.Width == 0 ? 0 : 48 * 36;
        EXPECT_EQ(written, CountPositivePixels(f.store->GetDM()));
    }
}

TEST(CalibrationDefectMap, AreaMustLieInTheMapAndAFailedDoseChangesNothing) {
    DefectMapParameters p = Parameters();
    p.X0 = 16, p.Y0 = 12;  // ends at the last column and row
    Fixture f(p);
    Frame frame = Flat();
    Scale(frame, 30, 30, 3);
    f.calibration.DefectMap6({frame});
    const std::vector<float> counts = Pixels(PoolImage(2));
    EXPECT_EQ(1.0f, At(PoolImage(2), 30, 30));

    const std::string message = "CalibrationDefectMap : DefectMap6 failed due to image size";
    f.parameters.X0 = 17;
    ExpectFailure([&] { f.calibration.DefectMap6({frame}); }, message);
    f.parameters.X0 = 16, f.parameters.Y0 = 13;
    ExpectFailure([&] { f.calibration.DefectMap6(); }, message);
    f.parameters.X0 = -8, f.parameters.Y0 = 12, f.parameters.Width = 16;  // wraps past the unsigned test
    ExpectFailure([&] { f.calibration.DefectMap6(); }, message);
    EXPECT_EQ(counts, Pixels(PoolImage(2)));

    f.parameters.X0 = 16, f.parameters.Width = 48;
    LogCapture log;
    f.calibration.DefectMap6({frame});
    EXPECT_EQ(1u, LinesWith(log.lines, "Dose 2 - Number of detected defects : 1\n").size());
}

TEST(CalibrationDefectMap, FailuresCarryTheirMessagesAndKeepEarlierCounts) {
    Fixture f;
    Frame frame = Flat();
    Scale(frame, 30, 30, 3);
    f.calibration.DefectMap6({frame});
    const std::vector<float> counts = Pixels(PoolImage(2));

    ExpectFailure([&] { f.calibration.DefectMap6(std::vector<Frame>{}); },
                  "CalibrationDefectMap::DefectMap6 failed due uncorrect number of images");
    ExpectFailure([&] { f.calibration.DefectMap6({frame, nullptr}); }, "CalibrationDefectMap: AccumulateImg failed");
    f.parameters.Width = 57;  // Extract refuses the area
    ExpectFailure([&] { f.calibration.UpdateDefectMapReference(); },
                  "CalibrationDefectMap: UpdateDefectMapReference failed");
    EXPECT_EQ(counts, Pixels(PoolImage(2)));
    f.calibration.Clear();

    Fixture otherGain(Parameters(), SmoothGain(32, 24));  // the correction refuses its size
    ExpectFailure([&] { otherGain.calibration.DefectMap6({frame}); }, "CalibrationDefectMap::_CorrectGain failed");
    LogCapture log;
    ExpectFailure([&] { otherGain.calibration.StoreAndCorrect(frame); }, "CalibrationDefectMap: StoreAndCorrect failed");
    ASSERT_EQ(2u, log.lines.size());
    EXPECT_NE(std::string::npos, log.lines[0].find("): CalibrationDefectMap::_CorrectGain failed\n"));
    otherGain.calibration.Clear();

    Fixture noFlag(Parameters(), SmoothGain(), true, false);
    ExpectFailure([&] { noFlag.calibration.UpdateDefectMapReference(); },
                  "CalibrationDefectMap: UpdateDefectMapReference failed to check DM");
}

TEST(CalibrationDefectMap, UpdateReplacesTheAreaFlagsAndClassifies) {
    Fixture f;
    f.flagParameters.TestWholeFrame = true;
    f.flagParameters.HorizontalRatio = 0.5f;  // a row segment of 64 needs more than 32
    f.flagParameters.VerticalRatio = 1.0f;
    const ImagePtr<unsigned char> map = f.store->GetDM();
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) map->GetData()[y * W + x] = InArea(x, y) ? 5 : 0;
    Frame frame = Flat();
    for (int x = 10; x < 50; ++x) Scale(frame, x, 15, 3);  // 40 defects in row 15
    Scale(frame, 30, 30, 3);
    frame->SetProperty("image.time", 42);
    f.calibration.DefectMap6({frame});
    f.calibration.UpdateDefectMapReference();

    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            // Row 15 is flagged whole, then classified as a row: 2 at its ends, 3 inside.
            unsigned char expected = y == 15 ? (x == 0 || x == W - 1 ? 2 : 3) : 0;
            if (x == 30 && y == 30) expected = 1;
            ASSERT_EQ(expected, At(map, x, y)) << x << ", " << y;
        }
    }
    EXPECT_EQ(42, map->GetProperty<int>("image.time"));
    EXPECT_EQ(18u, map->GetProperty<unsigned>("info.quantlevels"));
    EXPECT_FALSE(f.store->IsValid());
}

TEST(CalibrationDefectMap, InitReservesOnceRestartsTheCountsAndTheDoseGoesOn) {
    Fixture f;
    LogCapture log;
    f.calibration.DefectMap6({Flat()});
    f.calibration.Init();
    EXPECT_EQ(3u, ImageCollectorRegistry::Instance().FindCollector<float>(W, H)->GetPool().size());
    EXPECT_EQ(0u, CountPositivePixels(PoolImage(2)));
    f.calibration.DefectMap6({Flat()});
    f.calibration.Clear();
    f.calibration.Init();
    f.calibration.DefectMap6({Flat()});
    EXPECT_EQ(3u, LinesWith(log.lines, " - Number of detected defects : 0\n").size());
    EXPECT_EQ(1u, LinesWith(log.lines, "Dose 3 - ").size());

    Fixture notInitialised(Parameters(), SmoothGain(), false);
    ExpectFailure([&] { notInitialised.calibration.DefectMap6(); },
                  "CalibrationDefectMap : DefectMap6 failed because Init has not run");
}

TEST(CalibrationDefectMap, DebugImagesAreWrittenOnlyWithTheOption) {
    Frame frame = Flat();
    Scale(frame, 20, 15, 3);
    {
        ScratchDirectory scratch;
        Fixture f;
        f.calibration.DefectMap6({frame});
        f.calibration.UpdateDefectMapReference();
        EXPECT_TRUE(scratch.Entries().empty());
    }
    ScratchDirectory scratch;
    struct Option {
        Option() { setenv(kVariable, "1", 1); }
        ~Option() { unsetenv(kVariable); }
        const char* kVariable = "OPTION_CALIBRATION_DM_SAVE_INTERMEDIARY_SEQUENCE";
    };
    auto option = std::make_unique<Option>();
    Fixture f;
    EXPECT_THROW(f.calibration.DefectMap6(std::vector<Frame>{}), CalibrationException);
    EXPECT_TRUE(scratch.Entries().empty());
    f.calibration.DefectMap6({frame, frame});
    f.calibration.StoreAndCorrect(frame);  // the same dose from a ready mean image
    f.calibration.DefectMap6();
    f.calibration.UpdateDefectMapReference();
    option.reset();

    std::vector<std::string> expected;
    for (const char* stage : {"DM6", "DM6-flag", "Dose_1_input", "Dose_1_input-mean", "Dose_1_mean_Gc",
                              "Dose_1_Clipping", "Dose_1_Quantification", "Dose_1_HighPassMedian",
                              "Dose_1_Exclu", "Dose_2_Clipping", "Dose_2_Quantification",
                              "Dose_2_HighPassMedian", "Dose_2_Exclu"}) {
        expected.push_back(std::string("DM6-ImageDebug-") + stage + ".fxd");
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, scratch.Entries());
    // Before flagging and classification the map holds the counts: 2 doses.
    ImageFxdFileIn counts("DM6-ImageDebug-DM6.fxd");
    EXPECT_EQ(2, At(counts.ReadImage<unsigned char>(0), 20, 15));
    EXPECT_EQ(1, At(f.store->GetDM(), 20, 15));
    EXPECT_EQ(2, ImageFxdFileIn("DM6-ImageDebug-Dose_1_input.fxd").GetFrameCount());
}
