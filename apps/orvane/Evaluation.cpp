#include "apps/orvane/Evaluation.h"

#include "apps/orvane/FrameReader.h"
#include "calibration/ImageStatistics.h"
#include "image/PixelStorage.h"
#include "interfaces/CorrectionGainLinear.h"
#include "parameters/CalibrationClustersParametersSet.h"
#include "parameters/EchoLineParametersSet.h"
#include "parameters/GainLinearParametersSet.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <stdexcept>

namespace orvane {
namespace app {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Every image compared must have the size of the truth.
template <typename T>
void CheckSize(const ImagePtr<T>& image, const char* what, int width, int height) {
    if (image && (image->GetWidth() != width || image->GetHeight() != height)) {
        throw std::invalid_argument(std::string("evaluation: ") + what + " is " + std::to_string(image->GetWidth()) +
                                    " x " + std::to_string(image->GetHeight()) + ", the truth " +
                                    std::to_string(width) + " x " + std::to_string(height));
    }
}

// Mean |gain / truth - 1| over good pixels (none planted there) of `area`, the one
// the gain is measured on, where both are finite and positive, each normalised by its
// own mean over those pixels first, since the calibration may scale its gain
// differently from the truth.
double GainError(const float* gain, const float* truth, const unsigned char* kinds, int width, const ROI& area) {
    auto usable = [&](size_t i) {
        return kinds[i] == static_cast<unsigned char>(DefectKind::None) && std::isfinite(gain[i]) &&
               std::isfinite(truth[i]) && gain[i] > 0.0f && truth[i] > 0.0f;
    };
    // Calls `visit` with every pixel of the area.
    const auto each = [&](auto visit) {
        for (int y = area.top; y < area.top + area.height; ++y) {
            const size_t row = static_cast<size_t>(y) * static_cast<size_t>(width);
            for (size_t i = row + area.left; i < row + area.left + area.width; ++i) visit(i);
        }
    };
    double gainSum = 0.0;
    double truthSum = 0.0;
    size_t count = 0;
    each([&](size_t i) {
        if (usable(i)) {
            gainSum += gain[i];
            truthSum += truth[i];
            ++count;
        }
    });
    if (count == 0) {
        return kNaN;
    }
    // (g / gMean) / (t / tMean) - 1 = g / t * ratio - 1
    const double ratio = truthSum / gainSum;
    double errorSum = 0.0;
    each([&](size_t i) {
        if (usable(i)) {
            errorSum += std::fabs(static_cast<double>(gain[i]) / truth[i] * ratio - 1.0);
        }
    });
    return errorSum / static_cast<double>(count);
}

// One "name  value %" row of the figures below the kinds.
void PrintPercent(std::ostream& out, const char* name, double fraction, const char* note = "") {
    char line[160];
    std::snprintf(line, sizeof line, "%-24s %8.3f %%%s\n", name, 100.0 * fraction, note);
    out << line;
}

}  // namespace

FlatCheck MakeFlatCheck(const std::vector<FrameRef>& frames, FrameReader& reader,
                        const ImageAcquisition<unsigned short>& offset, const boost::shared_ptr<ReferenceGainLinear>& gain) {
    if (frames.empty()) {
        throw std::runtime_error("the series has no flat frames");
    }
    const int width = offset.GetWidth();
    const int height = offset.GetHeight();
    FlatCheck check;
    check.before = boost::make_shared<ImageAcquisition<float>>(width, height);
    for (const FrameRef& frame : frames) {
        *check.before->GetBuffer() += *reader.Read(frame)->GetBuffer() - *offset.GetBuffer();
    }
    *check.before->GetBuffer() = *check.before->GetBuffer() * (1.0f / static_cast<float>(frames.size()));
    check.after = boost::make_shared<ImageAcquisition<float>>(width, height);
    *check.after->GetBuffer() = *check.before->GetBuffer();
    CorrectionGainLinear(gain).Correct(check.after);
    return check;
}

ROI GainArea(const GainLinearParameters& record, int width, int height) {
    const int x0 = std::min(width, static_cast<int>(static_cast<std::uint16_t>(record.X0)));
    const int y0 = std::min(height, static_cast<int>(static_cast<std::uint16_t>(record.Y0)));
    const int x1 = std::min(width, x0 + static_cast<int>(static_cast<std::uint16_t>(record.Width)));
    const int y1 = std::min(height, y0 + static_cast<int>(static_cast<std::uint16_t>(record.Height)));
    if (x1 <= x0 || y1 <= y0) {
        return ROI(0, 0, static_cast<unsigned short>(height), static_cast<unsigned short>(width));
    }
    return ROI(static_cast<unsigned short>(y0), static_cast<unsigned short>(x0), static_cast<unsigned short>(y1 - y0),
               static_cast<unsigned short>(x1 - x0));
}

double NonUniformity(const ImageAcquisition<float>& flat, const ImageAcquisition<unsigned short>& gainCodes,
                     const ImageAcquisition<unsigned char>* defects, const GainLinearParameters& record) {
    const int width = flat.GetWidth();
    const ROI area = GainArea(record, width, flat.GetHeight());
    const int x0 = area.left, y0 = area.top, x1 = area.left + area.width, y1 = area.top + area.height;
    // Full-frame buffers: on huge pages.
    orvane::detail::PixelVector<float> values;
    values.reserve(static_cast<std::size_t>(x1 - x0) * static_cast<std::size_t>(y1 - y0));
    const unsigned char* map = defects ? defects->GetData() : nullptr;
    const unsigned short* codes = gainCodes.GetData();
    const float* pixels = flat.GetData();
    for (int y = y0; y < y1; ++y) {
        const int row = y * width;
        for (int i = row + x0; i < row + x1; ++i) {
            if ((map == nullptr || map[i] == 0) && codes[i] != 0) {
                values.push_back(pixels[i]);
            }
        }
    }
    if (values.empty()) {
        return kNaN;
    }
    orvane::detail::PixelVector<float> scratch(values.size());
    float mean = 0.0f;
    float sigma = 0.0f;
    ComputeGFAMeanAndSigma(values.data(), scratch.data(), static_cast<unsigned>(values.size()), 3, 0.001f,
                           -std::numeric_limits<float>::max(), std::numeric_limits<float>::max(), mean, sigma);
    return mean != 0.0f ? static_cast<double>(sigma) / mean : kNaN;
}

Evaluation Evaluate(const GroundTruth& truth, const CalibrationOutputs& outputs, const DetectorSimulator* simulator) {
    if (!truth.defects) {
        throw std::invalid_argument("evaluation: the truth has no defect map");
    }
    const int width = truth.width;
    const int height = truth.height;
    CheckSize(truth.defects, "the truth defect map", width, height);
    CheckSize(truth.gain, "the truth gain", width, height);
    CheckSize(outputs.defects, "the defect map", width, height);
    CheckSize(outputs.gain, "the gain", width, height);

    Evaluation result;
    result.nonUniformityBefore = outputs.nonUniformityBefore;
    result.nonUniformityAfter = outputs.nonUniformityAfter;

    const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    const unsigned char* kinds = truth.defects->GetData();
    std::array<long, kDefectKindCount> planted{};
    std::array<long, kDefectKindCount> found{};
    if (outputs.defects) {
        // Echo rows belong in the map (the echo-line step reads them from it), so a
        // flagged pixel there is no false find.
        std::vector<unsigned char> echoRow(static_cast<size_t>(height), 0);
        for (int row : truth.echoLines) {
            if (row >= 0 && row < height) echoRow[static_cast<size_t>(row)] = 1;
        }
        const unsigned char* map = outputs.defects->GetData();
        for (size_t i = 0; i < n; ++i) {
            const unsigned char kind = kinds[i];
            const bool flagged = map[i] != 0;
            if (kind < kDefectKindCount) {
                ++planted[kind];
                found[kind] += flagged;
            }
            result.flagged += flagged;
            result.flaggedPlanted += flagged && (kind != 0 || echoRow[i / static_cast<size_t>(width)]);
        }
        result.precision = result.flagged > 0 ? static_cast<double>(result.flaggedPlanted) / result.flagged : 1.0;
    } else {
        for (size_t i = 0; i < n; ++i) {
            if (kinds[i] < kDefectKindCount) {
                ++planted[kinds[i]];
            }
        }
        result.precision = kNaN;
    }

    for (int k = 1; k < kDefectKindCount; ++k) {
        KindScore score;
        score.kind = DefectKindName(static_cast<DefectKind>(k));
        score.planted = planted[static_cast<size_t>(k)];
        score.found = found[static_cast<size_t>(k)];
        if (!outputs.defects) {
            score.recall = 0.0;
        } else {
            score.recall = score.planted > 0 ? static_cast<double>(score.found) / score.planted : 1.0;
        }
        result.kinds.push_back(score);
    }

    result.maps = ScoreDefectMaps(truth, outputs.maps);
    // Only a model with rows runs these steps: the lookups insert nothing then.
    const auto ran = [&outputs](const char* name) {
        return std::any_of(outputs.steps.begin(), outputs.steps.end(), [name](const StepReport& step) {
            return step.name == name && step.status == StepReport::Status::Ran;
        });
    };
    if ((result.echoLinesRan = ran("echo-lines"))) {
        result.echoLines = ScoreEchoLines(truth, s_EchoLineParametersSet.lookup(truth.model), outputs.singleEchoLines,
                                          outputs.doubleEchoLines);
    }
    if ((result.clustersRan = ran("clusters"))) {
        result.clusters =
            ScoreClusters(truth, s_clustersCalibrationParametersSet.lookup(truth.model), outputs.clusterPlaces);
    }

    if (simulator) {
        result.offsets = ScoreOffsets(*simulator, outputs);
    }
    if (simulator && (outputs.polyGain || outputs.polyGainDenoised)) {  // they need the linear gain's row
        result.gainPolys =
            ScoreGainPolys(*simulator, outputs, GainArea(s_gainLinearParametersSet.lookup(truth.model), width, height));
    }
    // A gain exists only when its step ran: the model has a row then.
    result.gainError = outputs.gain && truth.gain
                           ? GainError(outputs.gain->GetData(), truth.gain->GetData(), kinds, width,
                                       GainArea(s_gainLinearParametersSet.lookup(truth.model), width, height))
                           : kNaN;
    return result;
}

void PrintEvaluation(std::ostream& out, const Evaluation& evaluation) {
    char line[200];
    std::snprintf(line, sizeof line, "%-16s %10s %10s %8s\n", "defect kind", "planted", "found", "recall");
    out << line;
    for (const KindScore& score : evaluation.kinds) {
        std::snprintf(line, sizeof line, "%-16s %10ld %10ld %8.3f\n", score.kind.c_str(), score.planted, score.found,
                      score.recall);
        out << line;
    }
    out << '\n';
    std::snprintf(line, sizeof line, "%-24s %8.3f    (%ld flagged, %ld of them planted)\n", "precision",
                  evaluation.precision, evaluation.flagged, evaluation.flaggedPlanted);
    out << line;
    PrintPercent(out, "gain error", evaluation.gainError);
    PrintPercent(out, "non-uniformity before", evaluation.nonUniformityBefore);
    char ratio[48] = "";
    const double factor = evaluation.nonUniformityBefore / evaluation.nonUniformityAfter;
    if (evaluation.nonUniformityAfter > 0.0 && std::isfinite(factor)) {
        std::snprintf(ratio, sizeof ratio, "  (%.1fx lower)", factor);
    }
    PrintPercent(out, "non-uniformity after", evaluation.nonUniformityAfter, ratio);
    if (!evaluation.offsets.empty()) out << '\n';
    for (const OffsetMatch& match : evaluation.offsets) {
        std::snprintf(line, sizeof line, "%s at %.2f degrees, %s: error %.3f (noise floor %.3f), bias %+.3f counts\n",
                      match.step.c_str(), static_cast<double>(match.temperature), match.state.c_str(), match.error,
                      match.noiseFloor, match.bias);
        out << line;
    }
    for (const GainPolyScore& poly : evaluation.gainPolys) {
        out << '\n' << poly.step << ": error at each dose";
        for (double error : poly.doseErrors) {
            std::snprintf(line, sizeof line, " %.3f %%", 100.0 * error);
            out << line;
        }
        out << '\n';
    }
    if (!evaluation.maps.empty()) {
        out << '\n';
        std::snprintf(line, sizeof line, "%-14s %-28s %8s %8s %8s %9s %9s\n", "defect map", "kinds it is to find",
                      "planted", "found", "recall", "precision", "w/o rule");
        out << line;
        for (const MapScore& map : evaluation.maps) {
            std::string targets;
            for (DefectKind kind : map.targets) targets += (targets.empty() ? "" : ",") + std::string(DefectKindName(kind));
            if (targets.size() > 28) targets = targets.substr(0, 25) + "...";
            std::snprintf(line, sizeof line, "%-14s %-28s %8ld %8ld %8.3f %9.3f %9.3f\n", map.step.c_str(),
                          targets.c_str(), map.planted, map.found, map.recall, map.precision, map.precisionWithoutRule);
            out << line;
        }
    }
    if (evaluation.echoLinesRan) {
        const EchoLineScore& e = evaluation.echoLines;
        out << '\n';
        std::snprintf(line, sizeof line, "%-16s %10s %10s\n", "echo lines", "planted", "found");
        out << line;
        std::snprintf(line, sizeof line, "%-16s %10zu %10zu\n", "single", e.plantedSingle.size(), e.foundSingle.size());
        out << line;
        std::snprintf(line, sizeof line, "%-16s %10zu %10zu\n", "double", e.plantedDouble.size(), e.foundDouble.size());
        out << line;
        std::snprintf(line, sizeof line, "%-24s %8.3f    (%d of %d planted lines, %d of them mirrored)\n", "recall",
                      e.recall, e.foundPlanted, e.plantedLines, e.mirrored);
        out << line;
        std::snprintf(line, sizeof line, "%-24s %8.3f    (%d lines found, %d of them echo rows)\n", "precision",
                      e.precision, e.foundLines, e.foundEchoRows);
        out << line;
    }
    if (evaluation.clustersRan) {
        const ClusterScore& c = evaluation.clusters;
        out << '\n';
        std::snprintf(line, sizeof line, "%-24s %8.3f    (%d of %d offset changes; %d of %d below the threshold)\n",
                      "cluster recall", c.recall, c.found, c.planted, c.weakFound, c.weak);
        out << line;
        std::snprintf(line, sizeof line, "%-24s %8.3f    (%d of %d places on a change, at most %d rows off its edge)\n",
                      "cluster precision", c.precision, c.placesOnChanges, c.places, c.largestRowError);
        out << line;
    }
}

}  // namespace app
}  // namespace orvane
