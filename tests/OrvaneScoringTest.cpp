// The demo's scoring of the structured artefacts: the simulator plants offset changes
// and runs of defective pixels, the calibrations find them, and the scores compare.
#define BOOST_BIND_GLOBAL_PLACEHOLDERS  // quiets a deprecation note of the JSON parser
#include "TestImages.h"

#include "OrvaneCalibration.h"
#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/CalibrationVerdicts.h"
#include "apps/orvane/DemoPanels.h"
#include "apps/orvane/DetectorSimulator.h"
#include "apps/orvane/Evaluation.h"
#include "apps/orvane/FrameSeries.h"
#include "apps/orvane/GroundTruth.h"
#include "apps/orvane/ModelGeometry.h"
#include "apps/orvane/Report.h"

#include <boost/make_shared.hpp>
#include <boost/property_tree/json_parser.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace orvane::app;
using namespace orvane::test;
namespace fs = std::filesystem;

namespace {

// A reduced panel under the one model with a cluster row: room for a few offset
// changes. Model, width, height, seed, darks,
// doses, frames per dose.
const SimulationOptions kPanel{"Birch", 512, 448, 3, 9, 1, 1};

TEST(ScoringTest, ClustersOfThePlantedOffsetChangesAreFoundAndPlacesOffTheirEdgeAreNot) {
    ScratchDirectory scratch;
    std::ostringstream log;
    Progress progress(log, false, true);
    const DetectorSimulator simulator(kPanel);
    WriteSimulatedSeries(simulator, "frames", progress);
    const GroundTruth truth = LoadGroundTruth("frames");
    ASSERT_EQ(truth.offsetChanges.size(), simulator.Truth().offsetChanges.size());
    for (std::size_t i = 0; i < truth.offsetChanges.size(); ++i) {
        EXPECT_EQ(truth.offsetChanges[i].box, simulator.Truth().offsetChanges[i].box);
        EXPECT_EQ(truth.offsetChanges[i].amplitude, simulator.Truth().offsetChanges[i].amplitude);
    }

    fs::create_directory("out");
    const CalibrationOutputs outputs = RunCalibrations(
        {"Birch", "out", {"offset-dynamic", "offset-time-grid", "clusters"}, {}}, ScanFrames("frames"), progress);
    const Evaluation evaluation = Evaluate(truth, outputs);
    ASSERT_TRUE(evaluation.clustersRan);
    EXPECT_FALSE(evaluation.echoLinesRan);
    const ClusterScore& score = evaluation.clusters;
    EXPECT_GE(score.planted, 3);
    EXPECT_GE(score.weak, 1);
    EXPECT_GE(score.recall, 0.95);
    EXPECT_GE(score.precision, 0.9);
    EXPECT_EQ(score.weakFound, 0) << "a change below the threshold was found";
    EXPECT_GE(score.places, 8 * score.found) << "one place per column of a change";
    EXPECT_LE(score.largestRowError, 1);

    // The same places four rows off, or mirrored into the other half, meet no change.
    const auto& record = s_clustersCalibrationParametersSet.lookup("Birch");
    for (const int shift : {4, -4}) {
        std::vector<ClusterPlace> moved = outputs.clusterPlaces;
        for (ClusterPlace& place : moved) place.y += place.y < truth.height / 2 ? -shift : shift;
        const ClusterScore off = ScoreClusters(truth, record, moved);
        EXPECT_EQ(std::make_tuple(0, 0, 0.0), std::make_tuple(off.found, off.placesOnChanges, off.precision)) << shift;
    }
    std::vector<ClusterPlace> mirrored = outputs.clusterPlaces;
    for (ClusterPlace& place : mirrored) place.y = truth.height - 1 - place.y;
    EXPECT_EQ(0, ScoreClusters(truth, record, mirrored).placesOnChanges);
    EXPECT_EQ(1.0, ScoreClusters(truth, record, {}).precision) << "no place is no false place";
}

TEST(ScoringTest, OffsetsMeetTheTrueDarkLevelWithinTheirNoiseAndAShiftedOffsetShows) {
    ScratchDirectory scratch;
    std::ostringstream log;
    Progress progress(log, false, true);
    const DetectorSimulator simulator(kPanel);
    WriteSimulatedSeries(simulator, "frames", progress);
    fs::create_directory("out");
    CalibrationOutputs outputs =
        RunCalibrations({"Birch", "out", {"offset-dynamic", "offset-time-grid"}, {}}, ScanFrames("frames"), progress);
    const Evaluation evaluation = Evaluate(simulator.Truth(), outputs, &simulator);

    // The dynamic offset, then the blend halfway between each pair of the three entries.
    ASSERT_EQ(3u, evaluation.offsets.size());
    EXPECT_EQ("offset-dynamic", evaluation.offsets[0].step);
    for (const OffsetMatch& match : evaluation.offsets) {
        EXPECT_LE(std::fabs(match.bias), 0.3) << match.step << ' ' << match.state;
        EXPECT_GT(match.error, 0.97 * match.noiseFloor) << match.step << ' ' << match.state;
        EXPECT_LT(match.error, 1.03 * match.noiseFloor) << match.step << ' ' << match.state;
    }
    // A blend of two entries of three frames each is quieter than either entry.
    const double noise = DetectorSimulator::ReadNoise();
    const double entryFloor = std::sqrt(2.0 / M_PI * ((noise * noise + 1.0 / 12.0) / 3.0 + 1.0 / 12.0));
    EXPECT_LT(evaluation.offsets[1].error, 0.8 * entryFloor);
    const auto verdictOf = [&outputs](const Evaluation& e, const std::string& step) {
        for (const CalibrationVerdict& v : JudgeCalibrations("Birch", outputs, &e)) {
            if (v.step == step) return v.verdict;
        }
        return std::string("none");
    };
    EXPECT_EQ("pass", verdictOf(evaluation, "offset-dynamic"));
    EXPECT_EQ("pass", verdictOf(evaluation, "offset-time-grid"));

    // Three counts more on the middle entry: both blends lean by half of it.
    Evaluation shifted = evaluation;
    const ImagePtr<unsigned short> middle = outputs.offsetGrid->GetAt(1);
    for (int i = 0; i < middle->GetPixelCount(); ++i) middle->GetData()[i] += 3;
    // The dynamic offset one column off: the fixed pattern no longer lines up.
    float* offset = outputs.offset->GetData();
    std::rotate(offset, offset + 1, offset + outputs.offset->GetPixelCount());
    shifted.offsets = ScoreOffsets(simulator, outputs);
    ASSERT_EQ(3u, shifted.offsets.size());
    EXPECT_GT(shifted.offsets[0].error, 10.0 * evaluation.offsets[0].error);
    for (std::size_t i = 1; i < 3; ++i) {
        EXPECT_NEAR(evaluation.offsets[i].bias + 1.5, shifted.offsets[i].bias, 0.01) << shifted.offsets[i].state;
    }
    EXPECT_EQ("attention", verdictOf(shifted, "offset-dynamic"));
    EXPECT_EQ("attention", verdictOf(shifted, "offset-time-grid"));
}

TEST(ScoringTest, EchoRunsInBothHalvesAreNumberedAndPairedAsTheStepNumbersThem) {
    SimulationOptions large = kPanel;  // echo runs go on panels of the echo-line tables' sizes
    large.width = 1100;
    large.height = 1024;
    const DetectorSimulator simulator(large);
    const GroundTruth& truth = simulator.Truth();
    // A perfect defect map: every planted pixel.
    auto map = boost::make_shared<ReferenceDM>(truth.width, truth.height);
    unsigned char* dm = map->GetDM()->GetData();
    const unsigned char* kinds = truth.defects->GetData();
    for (int p = 0; p < truth.width * truth.height; ++p) dm[p] = kinds[p] != 0;
    EchoLineParameters record;
    record.Area =
        ROI(8, 8, static_cast<unsigned short>(truth.height - 16), static_cast<unsigned short>(truth.width - 16));
    record.MiddleRow = truth.height / 2;
    record.MiddleColumn = truth.width / 2;
    record.MinimumRun = 30;
    auto store = boost::make_shared<ReferenceEcholine>();
    CalibrationEcholine calibration(record, store, map);
    calibration.CalculateEcholineReference();
    calibration.FillEcholineReference();

    const EchoLineScore score = ScoreEchoLines(truth, record, store->singleLines, store->doubleLines);
    EXPECT_EQ(score.plantedSingle, score.foundSingle);
    EXPECT_EQ(score.plantedDouble, score.foundDouble);
    EXPECT_GE(score.plantedDouble.size(), 2u) << "a pair of runs in each half";
    EXPECT_GE(score.mirrored, 2);
    EXPECT_EQ(std::make_tuple(1.0, 1.0), std::make_tuple(score.recall, score.precision));

    // A line missed lowers the recall; a row that echoes the row above is no false
    // find, any other line is.
    std::set<int> single = store->singleLines;
    single.erase(single.begin());
    EXPECT_EQ(score.plantedLines - 1, ScoreEchoLines(truth, record, single, store->doubleLines).foundPlanted);
    ASSERT_FALSE(truth.echoLines.empty());
    const int echoRow = truth.echoLines.front();
    single = store->singleLines;
    single.insert(echoRow < record.MiddleRow ? echoRow : truth.height - 1 - echoRow);
    const EchoLineScore withEcho = ScoreEchoLines(truth, record, single, store->doubleLines);
    EXPECT_EQ(std::make_tuple(1, 1.0), std::make_tuple(withEcho.foundEchoRows, withEcho.precision));
    std::set<int> doubles = store->doubleLines;
    doubles.insert(record.MiddleRow - 3);  // planted rows keep a row apart from each other; not this pair
    const EchoLineScore withFalse = ScoreEchoLines(truth, record, store->singleLines, doubles);
    EXPECT_LT(withFalse.precision, 1.0);
    EXPECT_EQ(withFalse.foundLines, score.foundLines + 2);
}

// The demo's second panel end to end: every defect map finds the kind it is there for,
// which the other maps of the three that look for one kind do not find, as far as
// their design allows: the untypical map reads raw frames, in which a weak pixel
// stands out as well. (dm6 finds every kind: it reads the doses' means, to about 1 %,
// and the darks divided by the gain.)
TEST(ScoringTest, EachDefectMapOfTheSmallPanelFindsTheKindItIsThereFor) {
    ScratchDirectory scratch;
    std::ostringstream log;
    Progress progress(log, false, true);
    const ModelGeometry panel = FindModel(kDemoSecondModel);
    SimulationOptions options;
    options.model = kDemoSecondModel;
    options.seed = 5;
    options.plantArea = AreaEveryMapMeasures(panel);
    WriteSimulatedSeries(options, "frames", progress);
    const GroundTruth truth = LoadGroundTruth("frames");
    // Nothing planted outside that area but whole rows and columns.
    for (int y = 0; y < truth.height; ++y) {
        for (int x = 0; x < truth.width; ++x) {
            const auto kind = static_cast<DefectKind>(truth.defects->GetData()[y * truth.width + x]);
            const bool inside = x >= options.plantArea.left && x < options.plantArea.left + options.plantArea.width &&
                                y >= options.plantArea.top && y < options.plantArea.top + options.plantArea.height;
            if (!inside && kind != DefectKind::None && kind != DefectKind::Line && kind != DefectKind::Column) {
                ADD_FAILURE() << DefectKindName(kind) << " at " << x << ", " << y;
            }
        }
    }
    const DefectMapUntypicalParameters untypical = DemoUntypicalRow(panel.width, panel.height);
    fs::create_directory("out");
    const CalibrationOutputs outputs =
        RunCalibrations({kDemoSecondModel, "out", {}, {}, &untypical}, ScanFrames("frames"), progress);
    for (const StepReport& step : outputs.steps) EXPECT_NE(StepReport::Status::Failed, step.status) << step.name;

    const Evaluation evaluation = Evaluate(truth, outputs);
    std::set<std::string> steps;
    for (const MapScore& map : evaluation.maps) {
        steps.insert(map.step);
        EXPECT_GT(map.planted, 0) << map.step;
        EXPECT_GE(map.recall, 0.95) << map.step;
        EXPECT_GE(map.precisionWithoutRule, 0.9) << map.step;
        EXPECT_LE(map.precision, map.precisionWithoutRule) << map.step;
    }
    EXPECT_EQ(steps, (std::set<std::string>{"dm6", "dm-gain", "dm-dark", "dm-untypical", "dm-merge"}));
    // The merge is scored on every kind of the four, and loses no flagged pixel.
    ASSERT_EQ("dm-merge", evaluation.maps.back().step);
    EXPECT_EQ(static_cast<std::size_t>(kDefectKindCount - 1), evaluation.maps.back().targets.size());
    const unsigned char* merged = outputs.maps.back().map->GetData();
    for (const DefectMapOutput& map : outputs.maps) {
        long lost = 0;
        for (int p = 0; p < truth.width * truth.height; ++p) lost += map.map->GetData()[p] != 0 && merged[p] == 0;
        EXPECT_EQ(0, lost) << map.step;
    }

    // Found per map and kind: each map's own kind, which no other map finds.
    std::map<std::string, std::vector<long>> found;
    const unsigned char* kinds = truth.defects->GetData();
    for (const DefectMapOutput& map : outputs.maps) {
        std::vector<long>& counts = found[map.step];
        counts.assign(kDefectKindCount, 0);
        for (int p = 0; p < truth.width * truth.height; ++p) counts[kinds[p]] += map.map->GetData()[p] != 0;
    }
    const auto count = [&](const std::string& step, DefectKind kind) {
        return found[step][static_cast<std::size_t>(kind)];
    };
    EXPECT_GT(count("dm-gain", DefectKind::WeakResponse), 0);
    EXPECT_EQ(0, count("dm-dark", DefectKind::WeakResponse));
    EXPECT_GT(count("dm-dark", DefectKind::DarkRegion), 0);
    EXPECT_EQ(0, count("dm-gain", DefectKind::DarkRegion) + count("dm-untypical", DefectKind::DarkRegion));
    EXPECT_GT(count("dm-untypical", DefectKind::Flicker), 0);
    EXPECT_EQ(0, count("dm-gain", DefectKind::Flicker) + count("dm-dark", DefectKind::Flicker));
}

// Each calibration gets a summary line: judged against its targets where the truth
// scores it, and the main panel's report takes in the small panel's.
TEST(ScoringTest, TheReportLeadsWithALinePerCalibrationAndTakesInTheSmallPanel) {
    ScratchDirectory dir;
    CalibrationOutputs small;
    small.steps.push_back({"offset-dynamic", StepReport::Status::Ran, "mean offset 1000", 0.1, {}});
    small.steps.push_back({"dm-gain", StepReport::Status::Ran, "12 defective pixels", 0.1, {}});
    small.steps.push_back({"dm-dark", StepReport::Status::Failed, "CalibrationDefectMapDark: Init failed", 0.0, {}});
    small.steps.push_back({"dm-untypical", StepReport::Status::Ran, "3 defective pixels", 0.1, {}});
    small.steps.push_back({"clusters", StepReport::Status::Skipped, "no parameter rows", 0.0, {}});
    small.defects = boost::make_shared<ImageAcquisition<unsigned char>>(40, 30);
    Evaluation smallScores;
    smallScores.gainError = NAN;
    MapScore gain;
    gain.step = "dm-gain", gain.recall = kRecallTarget, gain.precision = 0.5;
    gain.precisionWithoutRule = kPrecisionTarget;
    MapScore untypical = gain;
    untypical.step = "dm-untypical", untypical.precisionWithoutRule = 0.89;
    smallScores.maps = {gain, untypical};

    fs::create_directory("small");
    const ReportPanel panel = WriteReport("small", "Willow.*.m12", small, &smallScores, nullptr, {}, "small/");
    std::vector<std::string> verdicts;
    for (const CalibrationVerdict& v : panel.verdicts) verdicts.push_back(v.step + " " + v.verdict);
    EXPECT_EQ(verdicts, (std::vector<std::string>{"offset-dynamic ran", "dm-gain pass", "dm-dark attention",
                                                  "dm-untypical attention", "clusters skipped"}));
    EXPECT_TRUE(Contains(panel.sections, "src=\"small/defect-map.png\""));
    EXPECT_TRUE(fs::exists("small/defect-map.png") && fs::exists("small/report.html"));

    CalibrationOutputs main;
    main.steps.push_back({"echo-lines", StepReport::Status::Ran, "1 single and 0 double echo lines", 0.0, {}});
    Evaluation mainScores;
    mainScores.gainError = NAN;
    mainScores.echoLinesRan = true;
    mainScores.echoLines.recall = 0.5;
    WriteReport(".", "Birch", main, &mainScores, nullptr, {panel});
    boost::property_tree::ptree summary;
    boost::property_tree::read_json("summary.json", summary);
    verdicts.clear();
    for (const auto& line : summary.get_child("calibrations")) {
        verdicts.push_back(line.second.get<std::string>("model") + " " + line.second.get<std::string>("step") + " " +
                           line.second.get<std::string>("verdict"));
    }
    ASSERT_EQ(verdicts.size(), 6u);
    EXPECT_EQ(verdicts.front(), "Birch echo-lines attention");
    EXPECT_EQ(verdicts[2], "Willow.*.m12 dm-gain pass");
    const std::string html = ReadFile("report.html");
    EXPECT_TRUE(Contains(html, "Panel Willow.*.m12") && Contains(html, "src=\"small/defect-map.png\"") &&
                Contains(html, "Birch and Willow.*.m12"));
    EXPECT_LT(html.find("Summary"), html.find("Panel Birch"));
}

// A polynomial gain is scored on what each pixel is expected to read: one that is
// exact at dose 2 leaves nothing there and grows off it, by the response's loss.
TEST(ScoringTest, PolynomialGainsAreScoredOnTheExpectedSignalOfEachDose) {
    const DetectorSimulator simulator(SimulationOptions{"Rowan", 96, 80, 7, 3, 3, 2});
    const ImagePtr<float> expected = simulator.ExpectedSignal(2);
    auto exact = boost::make_shared<ReferenceGainPoly>(96, 80, 3);
    auto first = boost::make_shared<ImageAcquisition<float>>(96, 80);
    // Planted pixels, which the score leaves out, get 0: their extreme factors would
    // coarsen the codes of all.
    const unsigned char* kinds = simulator.Truth().defects->GetData();
    for (int p = 0; p < 96 * 80; ++p) first->GetData()[p] = kinds[p] ? 0.0f : 1000.0f / expected->GetData()[p];
    exact->CompressImage(first, 0, exact->GetGainPoly()[0]);
    const auto zero = boost::make_shared<ImageAcquisition<float>>(96, 80);
    for (int k : {1, 2}) exact->CompressImage(zero, k, exact->GetGainPoly()[static_cast<std::size_t>(k)]);

    CalibrationOutputs outputs;
    outputs.polyGainDenoised = exact;
    const std::vector<GainPolyScore> scores = ScoreGainPolys(simulator, outputs, ROI(8, 8, 64, 80));
    ASSERT_EQ(scores.size(), 1u);
    EXPECT_EQ(scores[0].step, "gain-poly-denoised");
    const std::vector<double>& errors = scores[0].doseErrors;
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_LT(errors[1], 1e-4) << "only the codes' rounding is left";
    EXPECT_GT(errors[0], 10 * errors[1]);
    EXPECT_GT(errors[2], 10 * errors[1]);
    EXPECT_LT(std::max(errors[0], errors[2]), 0.01);
    EXPECT_EQ(scores[0].worst, *std::max_element(errors.begin(), errors.end()));
    EXPECT_THROW(simulator.ExpectedSignal(4), std::out_of_range);
}

}  // namespace
