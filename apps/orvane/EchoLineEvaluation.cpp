#include "apps/orvane/EchoLineEvaluation.h"

#include <algorithm>
#include <vector>

namespace orvane {
namespace app {

namespace {

// The longest run of planted defective pixels in columns first ... end - 1 of `row`.
int LongestRun(const unsigned char* row, int first, int end) {
    int longest = 0;
    int run = 0;
    for (int x = first; x < end; ++x) {
        run = row[x] != 0 ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    return longest;
}

// Every line of `lines` (ascending), paired from the low end.
void SplitPairs(const std::set<int>& lines, std::set<int>& single, std::set<int>& pairs) {
    const std::vector<int> sorted(lines.begin(), lines.end());
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        if (i + 1 < sorted.size() && sorted[i + 1] == sorted[i] + 1) {
            pairs.insert(sorted[i]);
            ++i;
        } else {
            single.insert(sorted[i]);
        }
    }
}

std::set<int> Lines(const std::set<int>& single, const std::set<int>& pairs) {
    std::set<int> lines = single;
    for (int line : pairs) {
        lines.insert(line);
        lines.insert(line + 1);
    }
    return lines;
}

}  // namespace

EchoLineScore ScoreEchoLines(const GroundTruth& truth, const EchoLineParameters& record,
                             const std::set<int>& foundSingle, const std::set<int>& foundDouble) {
    EchoLineScore score;
    score.foundSingle = foundSingle;
    score.foundDouble = foundDouble;
    const int width = truth.width;
    const int height = truth.height;
    const auto number = [&](int row) { return row < record.MiddleRow ? row : height - row - 1; };

    std::set<int> planted;
    std::set<int> mirrored;
    const int top = std::max(0, static_cast<int>(record.Area.top));
    const int bottom = std::min(height, record.Area.top + record.Area.height);
    const int left = std::min(width, static_cast<int>(record.Area.left));
    const int end = std::min(width, record.Area.left + record.Area.width);
    const int split = std::max(left, std::min(end, record.MiddleColumn));
    const unsigned char* kinds = truth.defects ? truth.defects->GetData() : nullptr;
    for (int y = top; kinds && y < bottom; ++y) {
        if (y == record.MiddleRow) continue;
        const unsigned char* row = kinds + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
        const int longest = std::max(LongestRun(row, left, split), LongestRun(row, std::min(end, split + 1), end));
        if (longest >= record.MinimumRun && record.MinimumRun > 0) {
            planted.insert(number(y));
            if (y >= record.MiddleRow) mirrored.insert(number(y));
        }
    }
    score.mirrored = static_cast<int>(mirrored.size());
    SplitPairs(planted, score.plantedSingle, score.plantedDouble);
    std::set<int> echoRows;
    for (int row : truth.echoLines) echoRows.insert(number(row));

    const std::set<int> found = Lines(foundSingle, foundDouble);
    score.plantedLines = static_cast<int>(planted.size());
    score.foundLines = static_cast<int>(found.size());
    for (int line : found) {
        if (planted.count(line)) {
            ++score.foundPlanted;
        } else if (echoRows.count(line)) {
            ++score.foundEchoRows;
        }
    }
    if (score.plantedLines > 0) score.recall = static_cast<double>(score.foundPlanted) / score.plantedLines;
    if (score.foundLines > 0) {
        score.precision = static_cast<double>(score.foundPlanted + score.foundEchoRows) / score.foundLines;
    }
    return score;
}

}  // namespace app
}  // namespace orvane
