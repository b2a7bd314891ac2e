// The simulator, its frame folder and its ground truth, on small frames.
#include "apps/orvane/DetectorSimulator.h"
#include "apps/orvane/FrameFolder.h"
#include "apps/orvane/GroundTruth.h"
#include "apps/orvane/InputError.h"
#include "apps/orvane/ModelGeometry.h"
#include "parameters/GainLinearParametersSet.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace orvane::app;

namespace {

// The message of the InputError that `action` raises.
template <typename F>
std::string ErrorOf(F action) {
    try {
        action();
    } catch (const InputError& e) {
        return e.what();
    }
    return "no InputError";
}

bool SamePixels(const ImageAcquisition<unsigned short>& a, const ImageAcquisition<unsigned short>& b) {
    return std::equal(a.GetData(), a.GetData() + a.GetPixelCount(), b.GetData());
}

class SimulatorTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = (fs::temp_directory_path() / ("orvane-sim-" + std::to_string(::getpid()) + "-" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name())).string();
        fs::remove_all(dir);
        options.model = "Rowan";
        options.width = 64;
        options.height = 48;
        options.seed = 7;
        options.darkFrames = 3;
        options.doses = 2;
        options.framesPerDose = 2;
    }
    void TearDown() override { fs::remove_all(dir); }

    void WriteSeries() {
        std::ostringstream log;
        Progress progress(log, false, true);
        WriteSimulatedSeries(options, dir, progress);
    }

    std::string dir;
    SimulationOptions options;
};

TEST(ModelGeometryTest, LooksUpKeysModesAndWildcards) {
    EXPECT_EQ(FindModel("Birch").width, 3121);
    const ModelGeometry rowan = FindModel("Rowan.A1.m8");
    EXPECT_EQ(rowan.key, "Rowan.*.m8");
    EXPECT_EQ(rowan.width, 640);
    EXPECT_EQ(rowan.height, 520);
    EXPECT_EQ(FindModel("Maple").height, 2400);
    const std::string message = ErrorOf([] { FindModel("Cedar.x.m3"); });
    EXPECT_NE(message.find("Cedar.x.m3"), std::string::npos) << message;
    EXPECT_NE(message.find("Birch"), std::string::npos) << message;
    EXPECT_EQ(message.find("Hazel.*.m1"), std::string::npos) << "modes make the list unreadable";
}

TEST(ModelGeometryTest, EveryLinearGainAreaLiesInsideItsModel) {
    for (const ModelGeometry& model : KnownModels()) {
        const GainLinearParameters& gain = s_gainLinearParametersSet.lookup(model.key);
        EXPECT_LE(gain.Y0 + gain.Height, model.height) << model.key;
        EXPECT_LE(gain.X0 + gain.Width, model.width) << model.key;
        for (const ROI& area : gain.MeasureAreas) {
            EXPECT_LE(area.top + area.height, model.height) << model.key;
            EXPECT_LE(area.left + area.width, model.width) << model.key;
        }
    }
}

TEST_F(SimulatorTest, WrittenSeriesIsScannedAndReadBackIdentical) {
    WriteSeries();
    const FrameSeries series = ScanFrameFolder(dir);
    ASSERT_EQ(series.width, 64);
    ASSERT_EQ(series.height, 48);
    ASSERT_EQ(series.darks.size(), 3u);
    ASSERT_EQ(series.doses.size(), 2u);
    EXPECT_EQ(series.doses[1][1], dir + "/" + FlatFileName(2, 1));
    const DetectorSimulator simulator(options);
    for (int i = 0; i < 3; ++i) {
        const ImagePtr<unsigned short> frame = ReadFrame(series.darks[static_cast<size_t>(i)], 64, 48);
        EXPECT_TRUE(SamePixels(*frame, *simulator.Dark(i))) << i;
        EXPECT_FLOAT_EQ(frame->GetProperty<float>("image.temperature"), 30.0f + 0.05f * static_cast<float>(i));
        EXPECT_EQ(frame->GetProperty<long long>("image.time"), 10 * i);
    }
    const ImagePtr<unsigned short> flat = ReadFrame(series.doses[1][1], 64, 48);
    EXPECT_TRUE(SamePixels(*flat, *simulator.Flat(2, 1)));
    EXPECT_EQ(flat->GetProperty<long long>("image.time"), 10 * (3 + 2 + 1));
    EXPECT_NE(ErrorOf([&] { ReadFrame(series.darks[0], 48, 64); }).find(series.darks[0]), std::string::npos);
}

TEST_F(SimulatorTest, FramesAgreeWithTheTruth) {
    const DetectorSimulator simulator(options);
    const GroundTruth& truth = simulator.Truth();
    const float* offset = truth.offset->GetData();
    const unsigned char* kinds = truth.defects->GetData();
    const ImagePtr<unsigned short> dark = simulator.Dark(0);
    for (int dose = 1; dose <= 2; ++dose) {
        const ImagePtr<unsigned short> flat = simulator.Flat(dose, 0);
        double signal = 0, darkSum = 0, darkSquares = 0;
        long good = 0;
        for (int p = 0; p < 64 * 48; ++p) {
            const float lit = static_cast<float>(flat->GetData()[p]) - offset[p];
            signal += lit;
            const auto kind = static_cast<DefectKind>(kinds[p]);
            if (kind == DefectKind::Dead || kind == DefectKind::Cluster) {
                EXPECT_LT(lit, 0.05f * truth.doseLevels[static_cast<size_t>(dose - 1)]) << p;
            }
            if (kind == DefectKind::None) {
                const double d = dark->GetData()[p] - offset[p];
                darkSum += d, darkSquares += d * d, ++good;
            }
        }
        EXPECT_NEAR(signal / (64 * 48), truth.doseLevels[static_cast<size_t>(dose - 1)], 0.01 * signal / (64 * 48));
        EXPECT_NEAR(darkSum / static_cast<double>(good), 0.0, 0.5);
        EXPECT_NEAR(std::sqrt(darkSquares / static_cast<double>(good)), 6.0, 0.5);
    }
    EXPECT_GT(truth.doseLevels[1], 1.9f * truth.doseLevels[0]);
    double gainSum = 0;
    for (int p = 0; p < 64 * 48; ++p) gainSum += truth.gain->GetData()[p];
    EXPECT_NEAR(gainSum / (64 * 48), 1.0, 1e-4);
    std::vector<long> counts(kDefectKindCount);
    for (int p = 0; p < 64 * 48; ++p) ++counts[kinds[p]];
    for (int k = 1; k < kDefectKindCount; ++k) EXPECT_GT(counts[static_cast<size_t>(k)], 0) << DefectKindName(static_cast<DefectKind>(k));
    EXPECT_EQ(truth.clusters.size(), 1u);
    EXPECT_EQ(truth.echoLines.size(), 1u);
}

TEST_F(SimulatorTest, FramesDependOnSeedAndIndexOnly) {
    const DetectorSimulator first(options);
    const DetectorSimulator second(options);
    EXPECT_TRUE(SamePixels(*second.Flat(2, 1), *first.Flat(2, 1)));  // made first by `second`
    EXPECT_TRUE(SamePixels(*first.Dark(1), *second.Dark(1)));
    EXPECT_FALSE(SamePixels(*first.Dark(0), *first.Dark(1)));
    options.seed = 8;
    EXPECT_FALSE(SamePixels(*DetectorSimulator(options).Dark(1), *first.Dark(1)));
}

TEST_F(SimulatorTest, GroundTruthRoundTripsAndRejectsDamage) {
    WriteSeries();
    const GroundTruth truth = DetectorSimulator(options).Truth();
    const GroundTruth loaded = LoadGroundTruth(dir);
    EXPECT_EQ(loaded.model, "Rowan");
    EXPECT_EQ(loaded.width, 64);
    EXPECT_EQ(loaded.height, 48);
    EXPECT_EQ(loaded.darkFrames, 3);
    EXPECT_EQ(loaded.framesPerDose, 2);
    EXPECT_EQ(loaded.doseLevels, truth.doseLevels);
    EXPECT_EQ(loaded.echoLines, truth.echoLines);
    EXPECT_EQ(loaded.clusters, truth.clusters);
    EXPECT_TRUE(std::equal(truth.offset->GetData(), truth.offset->GetData() + 64 * 48, loaded.offset->GetData()));
    EXPECT_TRUE(std::equal(truth.gain->GetData(), truth.gain->GetData() + 64 * 48, loaded.gain->GetData()));
    EXPECT_TRUE(std::equal(truth.defects->GetData(), truth.defects->GetData() + 64 * 48, loaded.defects->GetData()));

    fs::resize_file(dir + "/truth/gain.fxd", 200);
    EXPECT_NE(ErrorOf([&] { LoadGroundTruth(dir); }).find("gain.fxd"), std::string::npos);
    { std::ofstream(dir + "/truth/truth.json") << "{\"model\": \"Rowan\", \"width\": "; }
    EXPECT_NE(ErrorOf([&] { LoadGroundTruth(dir); }).find("truth.json"), std::string::npos);
}

TEST_F(SimulatorTest, ScanNamesWhatIsWrong) {
    EXPECT_NE(ErrorOf([&] { ScanFrameFolder(dir); }).find(dir), std::string::npos);
    fs::create_directories(dir);
    EXPECT_NE(ErrorOf([&] { ScanFrameFolder(dir); }).find("empty"), std::string::npos);
    WriteSeries();

    fs::rename(dir + "/" + FlatFileName(2, 0), dir + "/" + FlatFileName(3, 0));
    fs::rename(dir + "/" + FlatFileName(2, 1), dir + "/" + FlatFileName(3, 1));
    EXPECT_NE(ErrorOf([&] { ScanFrameFolder(dir); }).find("dose 2"), std::string::npos);
    fs::remove(dir + "/" + FlatFileName(3, 0));
    fs::remove(dir + "/" + FlatFileName(3, 1));

    const std::string odd = dir + "/" + DarkFileName(5);
    WriteFrame(odd, ImageAcquisition<unsigned short>(32, 32));
    EXPECT_NE(ErrorOf([&] { ScanFrameFolder(dir); }).find(odd), std::string::npos);
    fs::remove(odd);

    const std::string cut = dir + "/" + DarkFileName(1);
    fs::resize_file(cut, fs::file_size(cut) - 10);
    const std::string message = ErrorOf([&] { ScanFrameFolder(dir); });
    EXPECT_NE(message.find(cut), std::string::npos) << message;
    EXPECT_NE(message.find("truncated"), std::string::npos) << message;
}

}  // namespace
