#include "apps/orvane/DefectMapEvaluation.h"

#include <algorithm>
#include <stdexcept>

namespace orvane {
namespace app {

namespace {

std::vector<DefectKind> Targets(const std::string& step) {
    if (step == "dm6") {
        return {DefectKind::Hot,    DefectKind::Dead,   DefectKind::Noisy,       DefectKind::Cluster,
                DefectKind::Line,   DefectKind::Column, DefectKind::PartialLine, DefectKind::PartialColumn};
    }
    if (step == "dm-gain") return {DefectKind::WeakResponse};
    if (step == "dm-dark") return {DefectKind::DarkRegion};
    if (step == "dm-untypical") return {DefectKind::Flicker};
    return {};
}

bool IsRowRun(unsigned char kind) {
    return kind == static_cast<unsigned char>(DefectKind::Line) ||
           kind == static_cast<unsigned char>(DefectKind::PartialLine);
}

bool IsColumnRun(unsigned char kind) {
    return kind == static_cast<unsigned char>(DefectKind::Column) ||
           kind == static_cast<unsigned char>(DefectKind::PartialColumn);
}

}  // namespace

std::vector<MapScore> ScoreDefectMaps(const GroundTruth& truth, const std::vector<DefectMapOutput>& maps) {
    const int width = truth.width, height = truth.height;
    const std::size_t stride = static_cast<std::size_t>(width);
    const unsigned char* kinds = truth.defects->GetData();
    std::vector<char> runRow(static_cast<std::size_t>(height), 0), runColumn(static_cast<std::size_t>(width), 0);
    std::vector<char> echoRow(static_cast<std::size_t>(height), 0);
    for (int y = 0; y < height; ++y) {
        const unsigned char* row = kinds + static_cast<std::size_t>(y) * stride;
        for (int x = 0; x < width; ++x) {
            const unsigned char kind = row[x];
            runRow[static_cast<std::size_t>(y)] |= IsRowRun(kind);
            runColumn[static_cast<std::size_t>(x)] |= IsColumnRun(kind);
        }
    }
    for (int row : truth.echoLines) echoRow[static_cast<std::size_t>(row)] = 1;

    std::vector<MapScore> scores;
    // Where each kind was scored first: the merge counts a kind there.
    std::vector<ROI> firstArea(kDefectKindCount);
    std::vector<char> scored(kDefectKindCount, 0);
    for (const DefectMapOutput& output : maps) {
        if (!output.map || output.map->GetWidth() != width || output.map->GetHeight() != height) {
            throw std::invalid_argument("evaluation: the map of " + output.step + " does not have the truth's size");
        }
        MapScore score;
        score.step = output.step;
        score.targets = Targets(output.step);
        if (output.step == "dm-auto") {
            const auto gain =
                std::find_if(scores.begin(), scores.end(), [](const MapScore& s) { return s.step == "dm-gain"; });
            if (gain != scores.end()) {
                score.targets = gain->targets;
            } else if (!scores.empty()) {
                score.targets = scores.back().targets;
            }
        }
        const bool merge = output.step == "dm-merge";
        if (merge) {
            for (int k = 1; k < kDefectKindCount; ++k) {
                if (scored[static_cast<std::size_t>(k)]) score.targets.push_back(static_cast<DefectKind>(k));
            }
        }
        // The area each target kind is counted in: the map's own, or for the merge the
        // area of the map that looked for the kind first.
        std::vector<const ROI*> areaOf(kDefectKindCount, nullptr);
        for (DefectKind kind : score.targets) {
            const auto k = static_cast<std::size_t>(kind);
            areaOf[k] = merge ? &firstArea[k] : &output.area;
            if (!merge && !scored[k]) {
                firstArea[k] = output.area;
                scored[k] = 1;
            }
        }
        const unsigned char* map = output.map->GetData();
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const std::size_t p = static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x);
                const bool flagged = map[p] != 0;
                const ROI* area = areaOf[kinds[p]];
                if (area && y >= area->top && y < area->top + area->height && x >= area->left &&
                    x < area->left + area->width) {
                    ++score.planted;
                    score.found += flagged;
                }
                if (!flagged) continue;
                ++score.flagged;
                if (kinds[p] != 0 || echoRow[static_cast<std::size_t>(y)]) {
                    ++score.flaggedPlanted;
                } else if (runRow[static_cast<std::size_t>(y)] || runColumn[static_cast<std::size_t>(x)]) {
                    ++score.flaggedByRule;
                }
            }
        }
        if (score.planted > 0) score.recall = static_cast<double>(score.found) / static_cast<double>(score.planted);
        if (score.flagged > 0) {
            score.precision = static_cast<double>(score.flaggedPlanted) / static_cast<double>(score.flagged);
        }
        if (score.flagged > score.flaggedByRule) {
            score.precisionWithoutRule =
                static_cast<double>(score.flaggedPlanted) / static_cast<double>(score.flagged - score.flaggedByRule);
        }
        scores.push_back(score);
    }
    return scores;
}

}  // namespace app
}  // namespace orvane
