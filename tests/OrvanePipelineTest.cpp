// The parts of the `orvane` command: the calibration pipeline on a small series, the
// report and its evaluation, and the simulator with its frame folder and ground truth.
#define BOOST_BIND_GLOBAL_PLACEHOLDERS  // quiets a deprecation note of the JSON parser
#include "TestImages.h"

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/DetectorSimulator.h"
#include "apps/orvane/Evaluation.h"
#include "apps/orvane/FrameReader.h"
#include "apps/orvane/FrameSeries.h"
#include "apps/orvane/GroundTruth.h"
#include "apps/orvane/InputError.h"
#include "apps/orvane/ModelGeometry.h"
#include "apps/orvane/ParameterPrinter.h"
#include "apps/orvane/PngWriter.h"
#include "apps/orvane/ReferenceExport.h"
#include "apps/orvane/Report.h"
#include "io/FxdFile.h"
#include "parameters/GainLinearParametersSet.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/property_tree/json_parser.hpp>
#include <gtest/gtest.h>
#include <png.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

using namespace orvane::app;
using namespace orvane::test;
namespace fs = std::filesystem;

namespace {

// A Willow mode-12 frame: 342 x 396, with parameter rows for the offset, the linear
// gain, the dose and dark defect maps.
constexpr const char* kModel = "Willow.A1.m12";
constexpr int kWidth = 342, kHeight = 396;
constexpr int kHotX = 170, kHotY = 230;  // a hot pixel

// Left-to-right and top-to-bottom shading of the response.
double Shading(int x, int y) { return 1.0 + 0.3 * x / kWidth - 0.1 * y / kHeight; }

void WriteFxd(const std::string& path, const ImageAcquisition<unsigned short>& frame) {
    const auto writer = orvane::io::CreateFxdWriter(path);
    writer->WriteImage(frame);
    writer->Close();
}

std::uint32_t Noise(std::uint32_t& state) {  // small deterministic noise, 0..15
    state = state * 1664525u + 1013904223u;
    return state >> 28;
}

// A dark of 1000 + 3 (x % 7), the shaded response to `level` and noise.
void WriteShadedFrame(const std::string& path, double level, int index) {
    std::uint32_t state = 12345u + static_cast<std::uint32_t>(index) * 7919u;
    const auto frame = MakeImageOf<unsigned short>(
        kWidth, kHeight, [&](int x, int y) { return 1000.0 + (x % 7) * 3.0 + level * Shading(x, y) + Noise(state); });
    frame->GetData()[kHotY * kWidth + kHotX] = 60000;  // hot: far above any dark or flat level
    frame->SetProperty("image.temperature", 30.0);
    frame->SetProperty("image.time", 60 * index);
    WriteFxd(path, *frame);
}

class PipelineTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories("out");
        series.width = kWidth;
        series.height = kHeight;
        for (int i = 0; i < 4; ++i) series.darks.push_back(Shaded("dark-" + std::to_string(i), 0.0, i));
        for (int dose = 1; dose <= 3; ++dose) {
            series.doses.emplace_back();
            for (int i = 0; i < 3; ++i)
                series.doses.back().push_back(Shaded("flat-" + std::to_string(dose) + "-" + std::to_string(i), 4000.0 * dose, 10 * dose + i));
        }
    }
    // The frame file `name`.fxd of the scratch folder, written by WriteShadedFrame.
    FrameRef Shaded(const std::string& name, double level, int index) {
        const std::string path = (scratch.Path() / (name + ".fxd")).string();
        WriteShadedFrame(path, level, index);
        return {path, "", 0, 0, true};
    }

    CalibrationOutputs Run(const std::vector<std::string>& only = {}) {
        return RunCalibrations({kModel, (scratch.Path() / "out").string(), only, {}}, series, progress);
    }
    static const StepReport& Find(const CalibrationOutputs& outputs, const std::string& name) {
        for (const StepReport& step : outputs.steps) {
            if (step.name == name) return step;
        }
        throw std::runtime_error("no step " + name);
    }

    ScratchDirectory scratch;
    FrameSeries series;
    std::ostringstream log;
    Progress progress{log, false, true};
};

TEST_F(PipelineTest, FullRunReportsEveryStepAndCorrectsTheFlat) {
    const CalibrationOutputs outputs = Run();
    ASSERT_EQ(outputs.steps.size(), CalibrationStepNames().size());
    for (std::size_t i = 0; i < outputs.steps.size(); ++i) {
        const StepReport& step = outputs.steps[i];
        EXPECT_EQ(step.name, CalibrationStepNames()[i]);
        // A step that ran names its files; one that did not says why.
        EXPECT_EQ(step.status == StepReport::Status::Ran, !step.files.empty()) << step.name;
        EXPECT_FALSE(step.status != StepReport::Status::Ran && step.detail.empty()) << step.name;
        for (const std::string& file : step.files) EXPECT_TRUE(fs::exists("out/" + file)) << file;
    }
    for (const char* name : {"offset-dynamic", "gain-linear", "dm6", "dm-dark", "dm-merge"}) {
        EXPECT_EQ(Find(outputs, name).status, StepReport::Status::Ran) << name << ": " << Find(outputs, name).detail;
    }
    EXPECT_EQ(Find(outputs, "offset-time-grid").detail, std::string("no parameter rows for ") + kModel);
    EXPECT_TRUE(fs::exists("out/defect-map.fxd"));

    ASSERT_TRUE(outputs.defects && outputs.offset && outputs.gain && outputs.flatBefore && outputs.flatAfter);
    EXPECT_NE(outputs.defects->GetData()[kHotY * kWidth + kHotX], 0);
    EXPECT_EQ(outputs.defects->GetData()[200 * kWidth + 100], 0);
    EXPECT_NEAR(outputs.offset->GetData()[200 * kWidth + 5], 1000.0 + 5 * 3.0 + 7.5, 6.0);
    // The gain is the response itself (this model stores its reciprocal).
    const float* gain = outputs.gain->GetData();
    EXPECT_NEAR(gain[200 * kWidth + 300] / gain[200 * kWidth + 50], Shading(300, 200) / Shading(50, 200), 0.01);
    // The check flat is the dose above the one the gain was measured on.
    EXPECT_NEAR(outputs.flatBefore->GetData()[200 * kWidth + 50], 12000.0 * Shading(50, 200), 20.0);
    EXPECT_GT(outputs.nonUniformityBefore, 0.03);
    EXPECT_LT(outputs.nonUniformityAfter, outputs.nonUniformityBefore / 10);
}

TEST_F(PipelineTest, OnlyRestrictsTheStepsRejectsUnknownNamesAndAFailedStepSkipsItsDependants) {
    const CalibrationOutputs outputs = Run({"offset-dynamic", "dm-dark"});
    for (const StepReport& step : outputs.steps) {
        if (step.name == "offset-dynamic" || step.name == "dm-dark") {
            EXPECT_EQ(step.status, StepReport::Status::Ran) << step.name;
        } else {
            EXPECT_EQ(step.status, StepReport::Status::Skipped) << step.name;
            EXPECT_EQ(step.detail, "not requested") << step.name;
        }
    }
    EXPECT_TRUE(fs::exists("out/offset-dynamic.fxd"));
    EXPECT_FALSE(fs::exists("out/gain-linear.fxd"));
    EXPECT_FALSE(outputs.gain);
    ASSERT_TRUE(outputs.defects);  // the only map made is the final one
    EXPECT_NE(outputs.defects->GetData()[kHotY * kWidth + kHotX], 0);

    // What a step waits for is named, in the order of its needs.
    const CalibrationOutputs waiting = Run({"dm6", "dm-merge"});
    EXPECT_EQ(Find(waiting, "dm6").detail, "needs gain-linear");
    EXPECT_EQ(Find(waiting, "dm-merge").detail, "needs a defect map");

    const std::string unknown = ThrownText<InputError>([&] { Run({"dm6", "dm-nonsense"}); });
    EXPECT_TRUE(Contains(unknown, "dm-nonsense") && Contains(unknown, "echo-lines")) << unknown;

    // A failed step skips its dependants.
    std::ofstream(series.darks[2].file, std::ios::trunc) << "not a frame";
    const CalibrationOutputs failed = Run();
    EXPECT_EQ(Find(failed, "offset-dynamic").status, StepReport::Status::Failed);
    EXPECT_TRUE(Contains(Find(failed, "offset-dynamic").detail, "dark-2.fxd"));
    EXPECT_EQ(Find(failed, "gain-linear").detail, "needs offset-dynamic");
    EXPECT_EQ(Find(failed, "dm6").detail, "needs gain-linear");
    EXPECT_EQ(Find(failed, "gain-linear").status, StepReport::Status::Skipped);
    EXPECT_FALSE(failed.offset || failed.flatAfter);
}

std::vector<unsigned char> ReadGreyPng(const fs::path& path, int& width, int& height) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_file(&image, path.c_str())) << path;
    image.format = PNG_FORMAT_GRAY;
    std::vector<unsigned char> pixels(PNG_IMAGE_SIZE(image));
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
    width = static_cast<int>(image.width), height = static_cast<int>(image.height);
    return pixels;
}

TEST(OrvaneReport, PngIsReducedByBlockMeanAndReportShowsExistingPicturesAndEscapesEveryStep) {
    ScratchDirectory dir;
    // 10 x 6, at most 4 per side: blocks of 3 x 3, a 4 x 2 picture with partial edge blocks.
    auto image = MakeFilled(10, 6, 0.5f);
    float* p = image->GetData();
    for (int y = 0; y < 3; ++y)
        for (int x = 3; x < 9; ++x) p[y * 10 + x] = x < 6 ? 0.25f : NAN;
    p[0 * 10 + 3] = NAN;  // ignored in its block's mean
    for (int y = 3; y < 6; ++y) p[y * 10 + 9] = 2.0f;  // the 1-pixel-wide edge block, clamped
    WritePng("v.png", *image, 0.0f, 1.0f, 4);

    auto map = MakeFilled<unsigned char>(10, 6, 0);
    map->GetData()[4 * 10 + 4] = 7;
    WriteDefectPng("d.png", *map, 4);

    int w = 0, h = 0;
    const auto grey = ReadGreyPng("v.png", w, h);
    ASSERT_EQ(std::make_pair(w, h), std::make_pair(4, 2));
    const std::vector<long> expected{std::lround(0.5 * 255), std::lround(0.25 * 255), 0, 255};
    EXPECT_EQ((std::vector<long>{grey[0], grey[1], grey[2], grey[7]}), expected);
    const auto defects = ReadGreyPng("d.png", w, h);
    ASSERT_EQ(w * h, 8);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(defects[i], i == 5 ? 0 : 255) << i;
    EXPECT_THROW(WritePng("missing/v.png", *image, 0, 1), std::runtime_error);

    // The report shows the pictures it made; its summary escapes every step.
    CalibrationOutputs outputs;
    const std::string odd = "said \"no\" at C:\\frames\n\tthen\x01";
    outputs.steps.push_back({"offset-dynamic", StepReport::Status::Ran, "mean 812", 1.5, {"offset.fxd"}});
    outputs.steps.push_back({"gain-linear", StepReport::Status::Failed, odd, 0.0, {}});
    outputs.steps.push_back({"dm6", StepReport::Status::Skipped, "needs gain-linear", 0.0, {}});
    outputs.defects = MakeFilled<unsigned char>(40, 30, 0);
    outputs.gain = MakeFilled(40, 30, 1.0f);
    Evaluation evaluation;
    evaluation.kinds.push_back({"hot", 3, 2, 2.0 / 3.0});
    evaluation.precision = 0.75;
    WriteReport(dir.Path().string(), "Birch", outputs, &evaluation);

    boost::property_tree::ptree summary;
    boost::property_tree::read_json("summary.json", summary);
    EXPECT_EQ(summary.get<std::string>("model"), "Birch");
    std::vector<std::string> names;
    for (const auto& step : summary.get_child("steps")) names.push_back(step.second.get<std::string>("name"));
    EXPECT_EQ(names, (std::vector<std::string>{"offset-dynamic", "gain-linear", "dm6"}));
    EXPECT_EQ(summary.get_child("steps").begin()->second.get_child("files").begin()->second.data(), "offset.fxd");
    EXPECT_EQ(std::next(summary.get_child("steps").begin())->second.get<std::string>("detail"), odd);
    EXPECT_DOUBLE_EQ(summary.get<double>("evaluation.precision"), 0.75);
    EXPECT_EQ(summary.get_child("evaluation.kinds").begin()->second.get<long>("found"), 2);

    const std::string html = ReadFile("report.html");
    EXPECT_TRUE(Contains(html, "Birch") && Contains(html, "needs gain-linear"));
    for (const std::string picture :
         {"defect-map.png", "gain.png", "offset.png", "flat-before.png", "flat-after.png"}) {
        const bool made = picture == "defect-map.png" || picture == "gain.png";  // only those images exist
        EXPECT_EQ(Contains(html, "src=\"" + picture), made) << picture;
        EXPECT_EQ(fs::exists(picture), made) << picture;
    }
    EXPECT_FALSE(Contains(html, "<script") || Contains(html, "http"));
}

// The final map's classes and the gain decide the bits of the exported pixel mask.
TEST(OrvaneReport, PixelMaskBitsFollowTheGainAndTheNeighbours) {
    const auto map = MakeImage<unsigned char>(7, 1, {1, 1, 1, 1, 2, 0, 9});
    const auto gain = MakeImage<float>(7, 1, {0.04f, 0.05f, 0.95f, 1.06f, 1.0f, 0.0f, 3.0f});
    EXPECT_EQ((std::vector<std::uint32_t>{1, 2, 8, 4, 8 | 32, 0, 4 | 32}), PixelMask(*map, gain.get()));
    EXPECT_EQ((std::vector<std::uint32_t>{8, 8, 8, 8, 8 | 32, 0, 8 | 32}), PixelMask(*map, nullptr));
}

TEST(OrvaneReport, EvaluationCountsKindsPrecisionAndScaleFreeGainError) {
    GroundTruth truth;
    truth.width = 4, truth.height = 3;
    truth.defects = MakeFilled<unsigned char>(4, 3, 0);
    unsigned char* kinds = truth.defects->GetData();
    kinds[0] = kinds[1] = static_cast<unsigned char>(DefectKind::Hot);
    kinds[2] = static_cast<unsigned char>(DefectKind::Dead);
    for (int x = 0; x < 4; ++x) kinds[8 + x] = static_cast<unsigned char>(DefectKind::Line);
    truth.gain = MakeImageOf<float>(4, 3, [](int x, int y) { return 0.5f + 0.1f * static_cast<float>(y * 4 + x); });

    CalibrationOutputs outputs;
    outputs.defects = MakeFilled<unsigned char>(4, 3, 0);
    for (int i : {0, 5, 8, 9, 10, 11}) outputs.defects->GetData()[i] = 1;  // 5 is a false alarm
    outputs.gain = MakeFilled(4, 3, 0.0f);
    for (int i = 0; i < 12; ++i) outputs.gain->GetData()[i] = 3.0f * truth.gain->GetData()[i];
    outputs.gain->GetData()[0] = 100.0f;  // a defect pixel: not counted
    outputs.gain->GetData()[7] = NAN;     // not finite: not counted
    outputs.nonUniformityBefore = 0.1, outputs.nonUniformityAfter = 0.01;

    Evaluation e = Evaluate(truth, outputs);
    ASSERT_EQ(e.kinds.size(), static_cast<size_t>(kDefectKindCount - 1));
    EXPECT_EQ(e.kinds[0].kind, "hot");
    // hot, dead, noisy (none planted), cluster, line: planted, found, recall
    const std::vector<std::tuple<long, long, double>> expected{{2, 1, 0.5}, {1, 0, 0.0}, {0, 0, 1.0}, {0, 0, 1.0},
                                                               {4, 4, 1.0}};
    for (size_t k = 0; k < expected.size(); ++k)
        EXPECT_EQ(std::make_tuple(e.kinds[k].planted, e.kinds[k].found, e.kinds[k].recall), expected[k]) << k;
    EXPECT_EQ(std::make_pair(e.flagged, e.flaggedPlanted), std::make_pair(6L, 5L));
    EXPECT_DOUBLE_EQ(e.precision, 5.0 / 6.0);
    EXPECT_NEAR(e.gainError, 0.0, 1e-6);

    // Good pixels 3..6 at truth 1; gain 1, 1, 3, 3 is 0.5, 0.5, 1.5, 1.5 of its mean.
    std::fill(truth.gain->GetData(), truth.gain->GetData() + 12, 1.0f);
    float* gain = outputs.gain->GetData();
    gain[3] = gain[4] = 1.0f, gain[5] = gain[6] = 3.0f;
    EXPECT_NEAR(Evaluate(truth, outputs).gainError, 0.5, 1e-6);

    std::ostringstream text;
    PrintEvaluation(text, e);
    EXPECT_TRUE(Contains(text.str(), "0.500") && Contains(text.str(), "10.0x lower")) << text.str();

    outputs.defects.reset();
    e = Evaluate(truth, outputs);
    EXPECT_EQ(std::make_pair(e.kinds[0].found, e.kinds[0].recall), std::make_pair(0L, 0.0));
    outputs.gain = MakeFilled(3, 4, 1.0f);
    EXPECT_THROW(Evaluate(truth, outputs), std::invalid_argument);
}

class SimulatorTest : public ::testing::Test {
protected:
    ScratchDirectory scratch;
    const std::string dir = (scratch.Path() / "frames").string();  // not made yet
    // Model, width, height, seed, dark frames, doses, frames per dose.
    SimulationOptions options{"Rowan", 64, 48, 7, 3, 2, 2};
    std::ostringstream log;
    Progress progress{log, false, true};
};

TEST(ModelGeometryTest, LooksUpKeysModesAndWildcardsAndHoldsEveryLinearGainArea) {
    EXPECT_EQ(FindModel("Birch").width, 3121);
    const ModelGeometry rowan = FindModel("Rowan.A1.m8");
    // The mode's own size is 640 x 520, but it inherits the full panel's dm6 and echo-line rows.
    EXPECT_EQ(std::make_tuple(std::string("Rowan.*.m8"), 1920, 1540), std::make_tuple(rowan.key, rowan.width, rowan.height));
    EXPECT_EQ(FindModel("Maple").height, 2400);
    const std::string message = ThrownText<InputError>([] { FindModel("Cedar.x.m3"); });
    EXPECT_TRUE(Contains(message, "Cedar.x.m3") && Contains(message, "Birch")) << message;
    EXPECT_FALSE(Contains(message, "Hazel.*.m1")) << "modes make the list unreadable";

    // The gain table's own test keeps the measure areas inside the normalising area.
    for (const ModelGeometry& model : KnownModels()) {
        const GainLinearParameters& gain = s_gainLinearParametersSet.lookup(model.key);
        EXPECT_LE(gain.Y0 + gain.Height, model.height) << model.key;
        EXPECT_LE(gain.X0 + gain.Width, model.width) << model.key;
    }
}

// The program's own frames of a model give every step with rows what it needs: rows
// inherited from a larger panel, or with X0 and Y0 swapped, must still fit the frame.
// Every key whose frame is small enough to simulate here runs; keys with the same
// frame and the same rows run once.
TEST(ModelGeometryTest, EverySmallModelCalibratesItsOwnFramesWithoutAFailedStep) {
    std::set<std::string> seen;
    for (const ModelGeometry& model : KnownModels()) {
        if (model.width * model.height > 1000 * 1000) continue;
        std::ostringstream rows;
        rows << model.width << " x " << model.height << '\n';
        PrintParameters(rows, model.key, ROI(0, 0, static_cast<unsigned short>(model.height),
                                              static_cast<unsigned short>(model.width)));
        std::string signature = rows.str();
        boost::replace_all(signature, model.key, "");
        if (!seen.insert(signature).second) continue;

        SCOPED_TRACE(model.key);
        ScratchDirectory scratch;
        std::ostringstream log;
        Progress progress(log, false, true);
        WriteSimulatedSeries({model.key, 0, 0, 3, 2, 3, 2}, "frames", progress);
        fs::create_directory("out");
        const CalibrationOutputs outputs =
            RunCalibrations({model.key, (scratch.Path() / "out").string(), {}, {}}, ScanFrames("frames"), progress);
        int ran = 0;
        for (const StepReport& step : outputs.steps) {
            EXPECT_NE(StepReport::Status::Failed, step.status) << step.name << ": " << step.detail;
            ran += step.status == StepReport::Status::Ran;
        }
        EXPECT_GE(ran, 4);  // at least the offset, the linear gain, a defect map and the merge
    }
    EXPECT_GE(seen.size(), 5u);
}

TEST_F(SimulatorTest, WrittenSeriesAndTruthAreReadBackIdenticalAndScanNamesWhatIsWrong) {
    EXPECT_TRUE(Contains(ThrownText<InputError>([&] { ScanFrames(dir); }), dir));
    fs::create_directories(dir);
    EXPECT_TRUE(Contains(ThrownText<InputError>([&] { ScanFrames(dir); }), "empty"));
    WriteSimulatedSeries(options, dir, progress);
    const FrameSeries series = ScanFrames(dir);
    ASSERT_EQ(std::make_tuple(64, 48, size_t(3), size_t(2)),
              std::make_tuple(series.width, series.height, series.darks.size(), series.doses.size()));
    EXPECT_EQ(series.doses[1][1].file, dir + "/" + FlatFileName(2, 1));
    const DetectorSimulator simulator(options);
    FrameReader reader(series);
    for (int i = 0; i < 3; ++i) {
        const ImagePtr<unsigned short> frame = reader.Read(series.darks[static_cast<size_t>(i)]);
        EXPECT_EQ(Pixels(frame), Pixels(simulator.Dark(i))) << i;
        EXPECT_FLOAT_EQ(frame->GetProperty<float>("image.temperature"), 30.0f + 0.05f * static_cast<float>(i));
        EXPECT_EQ(frame->GetProperty<long long>("image.time"), 10 * i);
    }
    const ImagePtr<unsigned short> flat = reader.Read(series.doses[1][1]);
    EXPECT_EQ(Pixels(flat), Pixels(simulator.Flat(2, 1)));
    EXPECT_EQ(flat->GetProperty<long long>("image.time"), 10 * (3 + 2 + 1));
    FrameSeries turned = series;
    std::swap(turned.width, turned.height);
    EXPECT_TRUE(Contains(ThrownText<InputError>([&] { FrameReader(turned).Read(series.darks[0]); }), series.darks[0].file));

    const GroundTruth& truth = simulator.Truth();
    const GroundTruth loaded = LoadGroundTruth(dir);
    EXPECT_EQ(std::make_tuple(std::string("Rowan"), 64, 48, 3, 2),
              std::make_tuple(loaded.model, loaded.width, loaded.height, loaded.darkFrames, loaded.framesPerDose));
    EXPECT_TRUE(loaded.doseLevels == truth.doseLevels && loaded.echoLines == truth.echoLines &&
                loaded.clusters == truth.clusters);
    EXPECT_EQ(Pixels(truth.offset), Pixels(loaded.offset));
    EXPECT_EQ(Pixels(truth.gain), Pixels(loaded.gain));
    EXPECT_EQ(Pixels(truth.defects), Pixels(loaded.defects));

    fs::resize_file(dir + "/truth/gain.fxd", 200);
    EXPECT_TRUE(Contains(ThrownText<InputError>([&] { LoadGroundTruth(dir); }), "gain.fxd"));
    { std::ofstream(dir + "/truth/truth.json") << "{\"model\": \"Rowan\", \"width\": "; }
    EXPECT_TRUE(Contains(ThrownText<InputError>([&] { LoadGroundTruth(dir); }), "truth.json"));

    for (int i : {0, 1}) fs::rename(dir + "/" + FlatFileName(2, i), dir + "/" + FlatFileName(3, i));
    EXPECT_TRUE(Contains(ThrownText<InputError>([&] { ScanFrames(dir); }), "dose 2"));
    for (int i : {0, 1}) fs::remove(dir + "/" + FlatFileName(3, i));

    const std::string odd = dir + "/" + DarkFileName(5);
    WriteFxd(odd, ImageAcquisition<unsigned short>(32, 32));
    EXPECT_TRUE(Contains(ThrownText<InputError>([&] { ScanFrames(dir); }), odd));
    fs::remove(odd);

    // One frame under two names, or a series both as a stack and as frame files.
    fs::copy_file(dir + "/" + DarkFileName(1), dir + "/dark-1.fxd");
    EXPECT_EQ(dir + ": holds both dark-001.fxd and dark-1.fxd for one frame; keep one",
              ThrownText<InputError>([&] { ScanFrames(dir); }));
    fs::rename(dir + "/dark-1.fxd", dir + "/dark.fxd");
    EXPECT_TRUE(Contains(ThrownText<InputError>([&] { ScanFrames(dir); }), "holds both the stack dark.fxd"));
}

// Raw stacks carry no metadata: the frames take the documented defaults, and without
// them the time grid fails saying what is missing. A failed step names its cause.
TEST_F(SimulatorTest, FramesWithoutMetadataTakeTheDefaultsAndFailedStepsNameTheirCause) {
    options.model = "Cedar";
    options.format = orvane::io::ImageFileFormat::Raw;
    WriteSimulatedSeries(options, dir, progress);
    const FrameSeries series = ScanFrames(dir, {orvane::io::ParseRawLayout("64x48:u16le"), ""});
    EXPECT_TRUE(FrameReader(series).Read(series.darks[2])->GetProperties().empty());
    const ImagePtr<unsigned short> flat = FrameReader(series, {60.0, 31.5}).Read(series.doses[1][0]);
    EXPECT_EQ(60 * (3 + 2), flat->GetProperty<int>("image.time"));  // its place after 3 darks and 2 flats
    EXPECT_EQ(31.5, flat->GetProperty<double>("image.temperature"));

    const std::vector<std::string> only{"offset-dynamic", "offset-time-grid", "gain-linear"};
    const CalibrationOutputs without = RunCalibrations({"Cedar", dir, only, {}}, series, progress);
    EXPECT_EQ(StepReport::Status::Failed, without.steps[1].status);
    EXPECT_TRUE(Contains(without.steps[1].detail, "dark.raw frame 0 has no image.time") &&
                Contains(without.steps[1].detail, "--frame-interval")) << without.steps[1].detail;
    const CalibrationOutputs with = RunCalibrations({"Cedar", dir, only, {60.0, 31.5}}, series, progress);
    EXPECT_EQ(StepReport::Status::Ran, with.steps[1].status) << with.steps[1].detail;
    // The gain's measure areas leave this small frame: the step names the cause the
    // library logged first, not the failure that ended it.
    EXPECT_EQ(StepReport::Status::Failed, with.steps[2].status);
    EXPECT_EQ("CalibrationGain: _ExtractGoodPixelInMeasureArea failed because the area leaves the image",
              with.steps[2].detail);
}

TEST_F(SimulatorTest, FramesAgreeWithTheTruthAndDependOnSeedAndIndexOnly) {
    const DetectorSimulator simulator(options);
    const GroundTruth& truth = simulator.Truth();
    const float* offset = truth.offset->GetData();
    const unsigned char* kinds = truth.defects->GetData();
    const ImagePtr<unsigned short> dark = simulator.Dark(0);
    const ImagePtr<unsigned short> nextDark = simulator.Dark(1);
    for (int dose = 1; dose <= 2; ++dose) {
        const ImagePtr<unsigned short> flat = simulator.Flat(dose, 0);
        double signal = 0, darkSum = 0, darkSquares = 0, changeSquares = 0;
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
                const double change = nextDark->GetData()[p] - dark->GetData()[p];
                darkSum += d, darkSquares += d * d, changeSquares += change * change, ++good;
            }
        }
        EXPECT_NEAR(signal / (64 * 48), truth.doseLevels[static_cast<size_t>(dose - 1)], 0.01 * signal / (64 * 48));
        EXPECT_NEAR(darkSum / static_cast<double>(good), 0.0, 0.5);
        EXPECT_NEAR(std::sqrt(darkSquares / static_cast<double>(good)), 6.0, 0.5);
        // Each frame draws its own noise: two darks differ by sqrt(2) times its sigma.
        EXPECT_NEAR(std::sqrt(changeSquares / static_cast<double>(good)), 6.0 * std::sqrt(2.0), 0.7);
    }
    EXPECT_GT(truth.doseLevels[1], 1.9f * truth.doseLevels[0]);
    EXPECT_NEAR(std::accumulate(truth.gain->GetData(), truth.gain->GetData() + 64 * 48, 0.0) / (64 * 48), 1.0, 1e-4);
    std::vector<long> counts(kDefectKindCount);
    for (int p = 0; p < 64 * 48; ++p) ++counts[kinds[p]];
    for (int k = 1; k < kDefectKindCount; ++k) EXPECT_GT(counts[static_cast<size_t>(k)], 0) << DefectKindName(static_cast<DefectKind>(k));
    EXPECT_EQ(truth.clusters.size(), 1u);
    EXPECT_EQ(truth.echoLines.size(), 1u);

    // A frame depends on the seed and its index only, not on the frames made before.
    const DetectorSimulator second(options);
    EXPECT_EQ(Pixels(second.Flat(2, 1)), Pixels(simulator.Flat(2, 1)));  // made first by `second`
    EXPECT_EQ(Pixels(simulator.Dark(1)), Pixels(second.Dark(1)));
    options.seed = 8;
    EXPECT_NE(Pixels(DetectorSimulator(options).Dark(1)), Pixels(simulator.Dark(1)));
}

}  // namespace
