// `orvane correct` run as a user runs it, and the correction figures of the demo on a
// small panel.
#include "OrvaneRun.h"
#include "TestImages.h"
#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/CorrectionCheck.h"
#include "apps/orvane/DetectorSimulator.h"
#include "apps/orvane/Evaluation.h"
#include "apps/orvane/FrameSeries.h"
#include "calibration/ImageStatistics.h"
#include "correction/DefectReplacement.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "io/ImageFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace orvane::test;
using namespace orvane::app;

namespace {

template <typename T>
ImagePtr<T> ReadFrame(const std::string& path, int index = 0) {
    return orvane::io::OpenSeries(path)->ReadImage<T>(index);
}

// Robust sigma / mean of the values, as the demo measures it.
double RobustSpread(std::vector<float> values) {
    float mean = 0.0f, sigma = 0.0f;
    ComputeGFAMeanAndSigma(values.data(), static_cast<unsigned>(values.size()), 3, 0.001f,
                           -std::numeric_limits<float>::max(), std::numeric_limits<float>::max(), mean, sigma);
    return sigma / mean;
}

// A copy of the calibration folder, for a damaged variant of it.
std::string CopyOf(const std::string& from, const std::string& to) {
    fs::copy(from, to, fs::copy_options::recursive);
    return to;
}

}  // namespace

TEST(OrvaneCorrect, CorrectsEverySeriesFlatWithItsDefectsReplacedAndRefusesBadReferences) {
    ScratchDirectory scratch;
    const std::string model = std::string("'") + kSmall + "'";
    ASSERT_EQ(0, Orvane("simulate --model " + model + " --out frames --darks 4 --doses 3 --frames 3").code);
    const Outcome calibrate = Orvane("calibrate --model " + model + " --in frames --out cal");
    ASSERT_EQ(0, calibrate.code) << calibrate.err;

    const Outcome run = Orvane("correct --calibration cal --in frames --out fixed --output float32 --marks");
    ASSERT_EQ(0, run.code) << run.err;
    for (const char* line : {"dark: 4 frames", "flat-1: 3 frames", "flat-3: 3 frames"}) {
        EXPECT_TRUE(Contains(run.out, line)) << run.out;
    }
    EXPECT_TRUE(Contains(run.err, "s] correcting 3 frames of flat-2")) << run.err;
    const std::vector<std::string> written = EntriesOf("fixed");
    EXPECT_EQ(2u * (4u + 3u * 3u), written.size());  // a frame and its marks each, nothing else
    for (const char* name : {"dark-003.fxd", "flat-2-001.fxd", "flat-2-marks-001.fxd", "dark-marks-000.fxd"}) {
        EXPECT_TRUE(std::binary_search(written.begin(), written.end(), name)) << name;
    }

    // Every flat of the gain's own dose is flat over the good pixels the gain covers,
    // and every replaced pixel lies near the level of its neighbours (2 pixels off the
    // area's edge: beyond it the gain is 1, and a replacement may read from there).
    const ROI gain = GainArea(s_gainLinearParametersSet.lookup(kSmall), 396, 396);
    const ROI area(static_cast<unsigned short>(gain.top + 2), static_cast<unsigned short>(gain.left + 2),
                   static_cast<unsigned short>(gain.height - 4), static_cast<unsigned short>(gain.width - 4));
    for (int f = 0; f < 3; ++f) {
        const std::string index = "-00" + std::to_string(f) + ".fxd";
        const ImagePtr<float> flat = ReadFrame<float>("fixed/flat-2" + index);
        const ImagePtr<unsigned char> marks = ReadFrame<unsigned char>("fixed/flat-2-marks" + index);
        EXPECT_TRUE(flat->GetProperties().get_optional<long long>("image.time")) << "metadata kept";
        std::vector<float> good;
        long replaced = 0, far = 0;
        for (int y = area.top; y < area.top + area.height; ++y) {
            for (int x = area.left; x < area.left + area.width; ++x) {
                const int i = y * flat->GetWidth() + x;
                const unsigned char mark = marks->GetData()[i];
                ASSERT_NE(DefectReplacement::kMarkUnreplaced, mark);
                if (mark == DefectReplacement::kMarkGood) {
                    good.push_back(flat->GetData()[i]);
                    continue;
                }
                ++replaced;
                std::vector<float> around;  // the good pixels of the 5 x 5 window
                for (int dy = -2; dy <= 2; ++dy) {
                    for (int dx = -2; dx <= 2; ++dx) {
                        const int yy = y + dy, xx = x + dx;
                        if (yy < gain.top || xx < gain.left || yy >= gain.top + gain.height ||
                            xx >= gain.left + gain.width)
                            continue;
                        const int j = yy * flat->GetWidth() + xx;
                        if (marks->GetData()[j] == DefectReplacement::kMarkGood) around.push_back(flat->GetData()[j]);
                    }
                }
                if (around.empty()) continue;
                std::nth_element(around.begin(), around.begin() + around.size() / 2, around.end());
                far += std::fabs(flat->GetData()[i] / around[around.size() / 2] - 1.0f) > 0.03f;
            }
        }
        EXPECT_LT(RobustSpread(good), 0.01) << f;  // the shading alone is about 5 %
        EXPECT_GT(replaced, 100) << f;
        EXPECT_LT(far, replaced / 100 + 1) << f;
    }

    // The default output is the rounded 16-bit frame, here in another format.
    ASSERT_EQ(0, Orvane("correct --calibration cal --in frames --out tif --format tiff").code);
    const ImagePtr<unsigned short> rounded = ReadFrame<unsigned short>("tif/flat-2-001.tif");
    const ImagePtr<float> exact = ReadFrame<float>("fixed/flat-2-001.fxd");
    for (int i = 0; i < exact->GetPixelCount(); ++i) {
        ASSERT_EQ(std::min(65535.0, std::max(0.0, std::floor(exact->GetData()[i] + 0.5))), rounded->GetData()[i]) << i;
    }

    // Refusals: one line, exit 2, no output folder.
    CopyOf("cal", "wrong-size");
    ReferenceOffsetSimple(64, 64, "wrong-size/offset-dynamic.fxd").Save();
    CopyOf("cal", "no-poly");
    fs::remove("no-poly/gain-poly.fxd");
    CopyOf("cal", "invalid-map");
    {
        ReferenceDM map(396, 396, "invalid-map/defect-map.fxd");
        map.Load();
        map.SetValid(false);
        map.Save();
    }
    CopyOf("cal", "damaged");
    {
        std::fstream file("damaged/gain-linear.fxd", std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(fs::file_size("damaged/gain-linear.fxd") / 2));
        file.put('\x5a');
    }
    fs::create_directory("in-use");
    std::ofstream("in-use/keep.txt") << "mine";
    struct Case {
        std::string arguments, mentions, out;
    };
    const Case cases[] = {
        {"--calibration wrong-size --in frames --out x", "offset-dynamic.fxd", "x"},
        {"--calibration no-poly --in frames --out x --gain poly", "gain-poly.fxd", "x"},
        {"--calibration invalid-map --in frames --out x", "not a valid defect map", "x"},
        {"--calibration damaged --in frames --out x", "gain-linear.fxd", "x"},
        {"--calibration cal --in frames --out x --gain cubic", "--gain", "x"},
        {"--calibration cal --in frames --out x --output int8", "--output", "x"},
        {"--calibration cal --in nowhere --out x", "nowhere", "x"},
        {"--calibration cal --in frames --out in-use", "not empty", "in-use"},
    };
    for (const Case& c : cases) {
        const Outcome refused = Orvane("correct " + c.arguments);
        EXPECT_EQ(2, refused.code) << c.arguments;
        EXPECT_EQ(1, std::count(refused.err.begin(), refused.err.end(), '\n')) << c.arguments << "\n" << refused.err;
        EXPECT_TRUE(Contains(refused.err, c.mentions)) << c.arguments << "\n" << refused.err;
    }
    EXPECT_FALSE(fs::exists("x"));
    EXPECT_EQ(std::vector<std::string>{"keep.txt"}, EntriesOf("in-use"));
}

// The demo's figures on a small panel: the corrected flat is as flat with its defects
// as without, no pixel stands out of its neighbourhood, and the replaced pixels are
// close to what the panel would read without the defect.
TEST(OrvaneCorrect, DemoFiguresOnASmallPanelAndTheDefectFreeFramesTheyRestOn) {
    ScratchDirectory scratch;
    SimulationOptions options;
    options.model = kSmall;
    options.seed = 7;
    options.darkFrames = 4;
    options.doses = 3;
    options.framesPerDose = 4;
    Progress progress(std::cerr, false, true);
    WriteSimulatedSeries(options, "frames", progress);
    const FrameSeries series = ScanFrames("frames");
    fs::create_directory("cal");
    RunCalibrations({kSmall, "cal", {}, {}}, series, progress);
    const DetectorSimulator simulator(options);

    // Without defects a frame is the same frame at every good pixel off the echo rows,
    // and a dead pixel reads as a lit one.
    const ImagePtr<unsigned short> flat = simulator.Flat(2, 1), clean = simulator.FlatWithoutDefects(2, 1);
    const GroundTruth& truth = simulator.Truth();
    long differ = 0, deadLit = 0, dead = 0;
    for (int i = 0; i < flat->GetPixelCount(); ++i) {
        const unsigned char kind = truth.defects->GetData()[i];
        const bool echoRow = std::binary_search(truth.echoLines.begin(), truth.echoLines.end(), i / truth.width);
        if (kind == 0 && !echoRow) differ += flat->GetData()[i] != clean->GetData()[i];
        if (kind == static_cast<unsigned char>(DefectKind::Dead)) {
            ++dead;
            deadLit += clean->GetData()[i] > flat->GetData()[i] + 5000;
        }
    }
    EXPECT_EQ(0, differ);
    EXPECT_GT(dead, 0);
    EXPECT_EQ(dead, deadLit);

    const CorrectionFigures figures = CheckCorrection("cal", kSmall, series, simulator, progress);
    ASSERT_EQ("", figures.notMeasured);
    EXPECT_EQ(2, figures.dose);
    EXPECT_EQ(4, figures.frames);
    EXPECT_LT(figures.nonUniformityGood, 0.01);
    // Replaced pixels are interpolated, a little smoother than measured ones: the more
    // the map flags (whole half rows by rule), the further below 1 the ratio may fall.
    EXPECT_GE(figures.nonUniformityRatio, 0.97);
    EXPECT_LT(figures.nonUniformityRatio, 1.5);
    EXPECT_LT(figures.outlierFraction, 1.0e-3);
    EXPECT_GT(figures.replacedSamples, 4 * 100);
    EXPECT_EQ(0, figures.unreplacedSamples);
    EXPECT_LT(figures.replacedErrorMedian, 0.02);
    EXPECT_LT(figures.replacedError99, 0.2);
    EXPECT_LE(figures.replacedErrorMedian, figures.replacedError99);
    // The pictures' means: the raw flat is not corrected, the corrected ones are.
    std::vector<float> raw;
    for (int y = figures.area.top; y < figures.area.top + figures.area.height; ++y) {
        const float* row = figures.raw->GetData() + y * figures.raw->GetWidth() + figures.area.left;
        raw.insert(raw.end(), row, row + figures.area.width);
    }
    EXPECT_GT(RobustSpread(raw), 3.0 * figures.nonUniformityAll);
}
