#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/InputError.h"
#include "tools/ImageFxdFile.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace orvane::app;
namespace fs = std::filesystem;

namespace {

// A Willow mode-12 frame: 342 x 396, with parameter rows for the offset, the linear
// gain, the dose and dark defect maps.
constexpr const char* kModel = "Willow.A1.m12";
constexpr int kWidth = 342;
constexpr int kHeight = 396;
constexpr int kHotX = 170;
constexpr int kHotY = 230;

// Left-to-right and top-to-bottom shading of the response.
double Shading(int x, int y) { return 1.0 + 0.3 * x / kWidth - 0.1 * y / kHeight; }

std::uint32_t Noise(std::uint32_t& state) {  // small deterministic noise, 0..15
    state = state * 1664525u + 1013904223u;
    return state >> 28;
}

void WriteFrame(const std::string& path, double level, int index) {
    std::vector<unsigned short> pixels(kWidth * kHeight);
    std::uint32_t state = 12345u + static_cast<std::uint32_t>(index) * 7919u;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const double dark = 1000.0 + (x % 7) * 3.0;
            pixels[y * kWidth + x] = static_cast<unsigned short>(dark + level * Shading(x, y) + Noise(state));
        }
    }
    pixels[kHotY * kWidth + kHotX] = 60000;  // hot: far above any dark or flat level
    boost::property_tree::ptree properties;
    properties.put("image.temperature", 30.0);
    properties.put("image.time", 60 * index);
    ImageFxdFileOut file(path);
    file.SetProperties(properties, 0);
    file.Open(kWidth, kHeight, 1, true);
    file.WriteFrameData(pixels.data(), 1, 0);
    file.Close();
}

class PipelineTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("orvane-pipeline-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir / "out");
        series.width = kWidth;
        series.height = kHeight;
        for (int i = 0; i < 4; ++i) {
            series.darks.push_back((dir / ("dark-" + std::to_string(i) + ".fxd")).string());
            WriteFrame(series.darks.back(), 0.0, i);
        }
        for (int dose = 1; dose <= 3; ++dose) {
            series.doses.emplace_back();
            for (int i = 0; i < 3; ++i) {
                series.doses.back().push_back(
                    (dir / ("flat-" + std::to_string(dose) + "-" + std::to_string(i) + ".fxd")).string());
                WriteFrame(series.doses.back().back(), 4000.0 * dose, 10 * dose + i);
            }
        }
    }
    void TearDown() override { fs::remove_all(dir); }

    CalibrationOutputs Run(const std::vector<std::string>& only = {}) {
        return RunCalibrations({kModel, (dir / "out").string(), only}, series, progress);
    }
    static const StepReport& Find(const CalibrationOutputs& outputs, const std::string& name) {
        for (const StepReport& step : outputs.steps) {
            if (step.name == name) return step;
        }
        throw std::runtime_error("no step " + name);
    }

    fs::path dir;
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
        if (step.status == StepReport::Status::Ran) {
            EXPECT_FALSE(step.files.empty()) << step.name;
        } else {
            EXPECT_FALSE(step.detail.empty()) << step.name;
            EXPECT_TRUE(step.files.empty()) << step.name;
        }
        for (const std::string& file : step.files) {
            EXPECT_TRUE(fs::exists(dir / "out" / file)) << file;
        }
    }
    for (const char* name : {"offset-dynamic", "gain-linear", "dm6", "dm-dark", "dm-merge"}) {
        EXPECT_EQ(Find(outputs, name).status, StepReport::Status::Ran) << name << ": " << Find(outputs, name).detail;
    }
    EXPECT_EQ(Find(outputs, "offset-time-grid").detail, std::string("no parameter rows for ") + kModel);
    EXPECT_TRUE(fs::exists(dir / "out" / "defect-map.fxd"));

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

TEST_F(PipelineTest, OnlyRestrictsTheStepsAndRejectsUnknownNames) {
    const CalibrationOutputs outputs = Run({"offset-dynamic", "dm-dark"});
    for (const StepReport& step : outputs.steps) {
        if (step.name == "offset-dynamic" || step.name == "dm-dark") {
            EXPECT_EQ(step.status, StepReport::Status::Ran) << step.name;
        } else {
            EXPECT_EQ(step.status, StepReport::Status::Skipped) << step.name;
            EXPECT_EQ(step.detail, "not requested") << step.name;
        }
    }
    EXPECT_TRUE(fs::exists(dir / "out" / "offset-dynamic.fxd"));
    EXPECT_FALSE(fs::exists(dir / "out" / "gain-linear.fxd"));
    EXPECT_FALSE(outputs.gain);
    ASSERT_TRUE(outputs.defects);  // the only map made is the final one
    EXPECT_NE(outputs.defects->GetData()[kHotY * kWidth + kHotX], 0);

    // What a step waits for is named, in the order of its needs.
    const CalibrationOutputs waiting = Run({"dm6", "dm-merge"});
    EXPECT_EQ(Find(waiting, "dm6").detail, "needs gain-linear");
    EXPECT_EQ(Find(waiting, "dm-merge").detail, "needs a defect map");

    try {
        Run({"dm6", "dm-nonsense"});
        FAIL() << "an unknown step was accepted";
    } catch (const InputError& e) {
        EXPECT_NE(std::string(e.what()).find("dm-nonsense"), std::string::npos);
        EXPECT_NE(std::string(e.what()).find("echo-lines"), std::string::npos);
    }
}

TEST_F(PipelineTest, AFailedStepSkipsItsDependants) {
    std::ofstream(series.darks[2], std::ios::trunc) << "not a frame";
    const CalibrationOutputs outputs = Run();
    EXPECT_EQ(Find(outputs, "offset-dynamic").status, StepReport::Status::Failed);
    EXPECT_NE(Find(outputs, "offset-dynamic").detail.find("dark-2.fxd"), std::string::npos);
    EXPECT_EQ(Find(outputs, "gain-linear").detail, "needs offset-dynamic");
    EXPECT_EQ(Find(outputs, "dm6").detail, "needs gain-linear");
    EXPECT_EQ(Find(outputs, "gain-linear").status, StepReport::Status::Skipped);
    EXPECT_FALSE(outputs.offset);
    EXPECT_FALSE(outputs.flatAfter);
}

}  // namespace
