#define BOOST_BIND_GLOBAL_PLACEHOLDERS  // quiets a deprecation note of the JSON parser
#include "apps/orvane/Evaluation.h"
#include "apps/orvane/PngWriter.h"
#include "apps/orvane/Report.h"

#include <boost/make_shared.hpp>
#include <boost/property_tree/json_parser.hpp>
#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

namespace fs = std::filesystem;
using namespace orvane::app;

namespace {

// A fresh folder per test, removed afterwards.
struct TempDir {
    fs::path path = fs::temp_directory_path() /
                    ("orvane-report-" + std::to_string(getpid()) + "-" +
                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
    TempDir() { fs::create_directories(path); }
    ~TempDir() { fs::remove_all(path); }
};

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

template <typename T>
ImagePtr<T> Filled(int width, int height, T value) {
    auto image = boost::make_shared<ImageAcquisition<T>>(width, height);
    std::fill(image->GetData(), image->GetData() + width * height, value);
    return image;
}

}  // namespace

TEST(OrvaneReport, PngIsReducedByBlockMeanWithNanBlackAndDefectBlocksBlack) {
    TempDir dir;
    // 10 x 6, at most 4 per side: blocks of 3 x 3, a 4 x 2 picture with partial edge blocks.
    auto image = Filled(10, 6, 0.5f);
    float* p = image->GetData();
    for (int y = 0; y < 3; ++y)
        for (int x = 3; x < 6; ++x) p[y * 10 + x] = 0.25f;
    p[0 * 10 + 3] = NAN;  // ignored in its block's mean
    for (int y = 0; y < 3; ++y)
        for (int x = 6; x < 9; ++x) p[y * 10 + x] = NAN;
    for (int y = 3; y < 6; ++y) p[y * 10 + 9] = 2.0f;  // the 1-pixel-wide edge block, clamped
    WritePng((dir.path / "v.png").string(), *image, 0.0f, 1.0f, 4);

    auto map = Filled<unsigned char>(10, 6, 0);
    map->GetData()[4 * 10 + 4] = 7;
    WriteDefectPng((dir.path / "d.png").string(), *map, 4);

    int w = 0, h = 0;
    const auto grey = ReadGreyPng(dir.path / "v.png", w, h);
    ASSERT_EQ(std::make_pair(w, h), std::make_pair(4, 2));
    const std::vector<long> expected{std::lround(0.5 * 255), std::lround(0.25 * 255), 0, 255};
    EXPECT_EQ((std::vector<long>{grey[0], grey[1], grey[2], grey[7]}), expected);
    const auto defects = ReadGreyPng(dir.path / "d.png", w, h);
    ASSERT_EQ(w * h, 8);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(defects[i], i == 5 ? 0 : 255) << i;
    EXPECT_THROW(WritePng((dir.path / "missing" / "v.png").string(), *image, 0, 1), std::runtime_error);
}

TEST(OrvaneReport, EvaluationCountsKindsPrecisionAndScaleFreeGainError) {
    GroundTruth truth;
    truth.width = 4, truth.height = 3;
    truth.defects = Filled<unsigned char>(4, 3, 0);
    unsigned char* kinds = truth.defects->GetData();
    kinds[0] = kinds[1] = static_cast<unsigned char>(DefectKind::Hot);
    kinds[2] = static_cast<unsigned char>(DefectKind::Dead);
    for (int x = 0; x < 4; ++x) kinds[8 + x] = static_cast<unsigned char>(DefectKind::Line);
    truth.gain = Filled(4, 3, 0.0f);
    for (int i = 0; i < 12; ++i) truth.gain->GetData()[i] = 0.5f + 0.1f * static_cast<float>(i);

    CalibrationOutputs outputs;
    outputs.defects = Filled<unsigned char>(4, 3, 0);
    for (int i : {0, 5, 8, 9, 10, 11}) outputs.defects->GetData()[i] = 1;  // 5 is a false alarm
    outputs.gain = Filled(4, 3, 0.0f);
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
    EXPECT_NE(text.str().find("0.500"), std::string::npos);
    EXPECT_NE(text.str().find("10.0x lower"), std::string::npos);

    outputs.defects.reset();
    e = Evaluate(truth, outputs);
    EXPECT_EQ(std::make_pair(e.kinds[0].found, e.kinds[0].recall), std::make_pair(0L, 0.0));
    outputs.gain = Filled(3, 4, 1.0f);
    EXPECT_THROW(Evaluate(truth, outputs), std::invalid_argument);
}

TEST(OrvaneReport, ReportShowsExistingPicturesAndSummaryEscapesEveryStep) {
    TempDir dir;
    CalibrationOutputs outputs;
    const std::string odd = "said \"no\" at C:\\frames\n\tthen\x01";
    outputs.steps.push_back({"offset-dynamic", StepReport::Status::Ran, "mean 812", 1.5, {"offset.fxd"}});
    outputs.steps.push_back({"gain-linear", StepReport::Status::Failed, odd, 0.0, {}});
    outputs.steps.push_back({"dm6", StepReport::Status::Skipped, "needs gain-linear", 0.0, {}});
    outputs.defects = Filled<unsigned char>(40, 30, 0);
    outputs.gain = Filled(40, 30, 1.0f);
    Evaluation evaluation;
    evaluation.kinds.push_back({"hot", 3, 2, 2.0 / 3.0});
    evaluation.precision = 0.75;
    WriteReport(dir.path.string(), "Birch", outputs, &evaluation);

    boost::property_tree::ptree summary;
    boost::property_tree::read_json((dir.path / "summary.json").string(), summary);
    EXPECT_EQ(summary.get<std::string>("model"), "Birch");
    std::vector<std::string> names;
    for (const auto& step : summary.get_child("steps")) names.push_back(step.second.get<std::string>("name"));
    EXPECT_EQ(names, (std::vector<std::string>{"offset-dynamic", "gain-linear", "dm6"}));
    EXPECT_EQ(summary.get_child("steps").begin()->second.get_child("files").begin()->second.data(), "offset.fxd");
    EXPECT_EQ(std::next(summary.get_child("steps").begin())->second.get<std::string>("detail"), odd);
    EXPECT_DOUBLE_EQ(summary.get<double>("evaluation.precision"), 0.75);
    EXPECT_EQ(summary.get_child("evaluation.kinds").begin()->second.get<long>("found"), 2);

    std::stringstream text;
    text << std::ifstream(dir.path / "report.html").rdbuf();
    const std::string html = text.str();
    EXPECT_NE(html.find("Birch"), std::string::npos);
    EXPECT_NE(html.find("needs gain-linear"), std::string::npos);
    for (const std::string picture :
         {"defect-map.png", "gain.png", "offset.png", "flat-before.png", "flat-after.png"}) {
        const bool made = picture == "defect-map.png" || picture == "gain.png";  // only those images exist
        EXPECT_EQ(html.find("src=\"" + picture) != std::string::npos, made) << picture;
        EXPECT_EQ(fs::exists(dir.path / picture), made) << picture;
    }
    EXPECT_EQ(html.find("<script"), std::string::npos);
    EXPECT_EQ(html.find("http"), std::string::npos);
}
