#include "correction/DefectReplacement.h"

#include "interfaces/ReferenceException.h"
#include "tools/Parallel.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace {

const std::string kName = "DefectReplacement";
constexpr int kRowsPerPiece = 64;

std::string SizeText(int width, int height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

template <typename T>
void CheckSize(const ImagePtr<float>& frame, const ImagePtr<T>& image, const char* what) {
    if (!image) {
        throw ReferenceException(kName + ": Replace needs " + what);
    }
    if (image->GetWidth() != frame->GetWidth() || image->GetHeight() != frame->GetHeight()) {
        throw ReferenceException(kName + ": cannot replace with " + what + " of " +
                                 SizeText(image->GetWidth(), image->GetHeight()) + " on a frame of " +
                                 SizeText(frame->GetWidth(), frame->GetHeight()));
    }
}

// A run of flagged pixels along a row or a column: [start, end).
struct Run {
    int start;
    int end;
    int Length() const { return end - start; }
};

// The frame being corrected and its map; only good pixels are read.
struct Panel {
    float* pixels;
    const unsigned char* map;
    int width;
    int height;

    size_t Index(int x, int y) const { return static_cast<size_t>(y) * width + x; }
    bool IsGood(int x, int y) const { return map[Index(x, y)] == 0; }
    double Value(int x, int y) const { return pixels[Index(x, y)]; }
};

// The first x >= from of the row that is flagged, or width; eight bytes at a time
// over the good stretches.
int NextFlagged(const unsigned char* row, int from, int width) {
    int x = from;
    for (; x + 8 <= width; x += 8) {
        std::uint64_t word;
        std::memcpy(&word, row + x, sizeof word);
        if (word != 0) {
            break;
        }
    }
    while (x < width && row[x] == 0) {
        ++x;
    }
    return x;
}

int RunEnd(const unsigned char* row, int from, int width) {
    int x = from;
    while (x < width && row[x] != 0) {
        ++x;
    }
    return x;
}

// The vertical run of flagged pixels through (x, y).
Run ColumnRun(const Panel& panel, int x, int y) {
    int top = y;
    while (top > 0 && !panel.IsGood(x, top - 1)) {
        --top;
    }
    int end = y;
    while (end < panel.height && !panel.IsGood(x, end)) {
        ++end;
    }
    return Run{top, end};
}

// Linear interpolation across a run between the good pixel before it (at distance
// a) and the one after it (distance b); one side alone when the other is missing.
bool AcrossRun(bool hasBefore, double before, int a, bool hasAfter, double after, int b,
               float& value) {
    if (hasBefore && hasAfter) {
        value = static_cast<float>((before * b + after * a) / (a + b));
    } else if (hasBefore || hasAfter) {
        value = static_cast<float>(hasBefore ? before : after);
    } else {
        return false;
    }
    return true;
}

bool RowRunValue(const Panel& panel, int x, int y, Run vertical, float& value) {
    const bool above = vertical.start > 0, below = vertical.end < panel.height;
    return AcrossRun(above, above ? panel.Value(x, vertical.start - 1) : 0.0, y - vertical.start + 1,
                     below, below ? panel.Value(x, vertical.end) : 0.0, vertical.end - y, value);
}

bool ColumnRunValue(const Panel& panel, int x, int y, Run horizontal, float& value) {
    const bool left = horizontal.start > 0, right = horizontal.end < panel.width;
    return AcrossRun(left, left ? panel.Value(horizontal.start - 1, y) : 0.0, x - horizontal.start + 1,
                     right, right ? panel.Value(horizontal.end, y) : 0.0, horizontal.end - x, value);
}

bool NeighbourMean(const Panel& panel, int x, int y, float& value) {
    double sum = 0.0;
    int count = 0;
    for (int ny = std::max(y - 1, 0); ny <= std::min(y + 1, panel.height - 1); ++ny) {
        for (int nx = std::max(x - 1, 0); nx <= std::min(x + 1, panel.width - 1); ++nx) {
            if (panel.IsGood(nx, ny)) {
                sum += panel.Value(nx, ny);
                ++count;
            }
        }
    }
    if (count == 0) {
        return false;
    }
    value = static_cast<float>(sum / count);
    return true;
}

struct Direction {
    int dx;
    int dy;
};
constexpr Direction kDirections[8] = {{0, -1}, {1, -1}, {1, 0}, {1, 1},
                                      {0, 1},  {-1, 1}, {-1, 0}, {-1, -1}};

bool InverseDistanceMean(const Panel& panel, int x, int y, int reach, float& value) {
    const double sqrt2 = std::sqrt(2.0);
    double weightedSum = 0.0, weightSum = 0.0;
    for (const Direction& d : kDirections) {
        const double unit = (d.dx != 0 && d.dy != 0) ? sqrt2 : 1.0;
        for (int k = 1; k <= reach; ++k) {
            const int nx = x + k * d.dx, ny = y + k * d.dy;
            if (nx < 0 || ny < 0 || nx >= panel.width || ny >= panel.height) {
                break;
            }
            if (panel.IsGood(nx, ny)) {
                const double weight = 1.0 / (k * unit);
                weightedSum += weight * panel.Value(nx, ny);
                weightSum += weight;
                break;
            }
        }
    }
    if (weightSum == 0.0) {
        return false;
    }
    value = static_cast<float>(weightedSum / weightSum);
    return true;
}

// Replaces the flagged pixel (x, y) by the first rule that applies and returns its mark.
unsigned char ReplacePixel(const Panel& panel, const DefectReplacement::Options& options, int x,
                           int y, Run horizontal, Run vertical) {
    const int h = horizontal.Length(), v = vertical.Length();
    float value = 0.0f;
    unsigned char mark = DefectReplacement::kMarkUnreplaced;
    if (h >= options.minimumRun && v <= options.maximumThickness &&
        RowRunValue(panel, x, y, vertical, value)) {
        mark = DefectReplacement::kMarkRun;
    } else if (v >= options.minimumRun && h <= options.maximumThickness &&
               ColumnRunValue(panel, x, y, horizontal, value)) {
        mark = DefectReplacement::kMarkRun;
    } else if (h < options.minimumRun && v < options.minimumRun && NeighbourMean(panel, x, y, value)) {
        mark = DefectReplacement::kMarkIsolated;
    } else if (InverseDistanceMean(panel, x, y, options.reach, value)) {
        mark = DefectReplacement::kMarkCluster;
    } else {
        return mark;
    }
    panel.pixels[panel.Index(x, y)] = value;
    return mark;
}

}  // namespace

DefectReplacement::DefectReplacement() = default;

DefectReplacement::DefectReplacement(const Options& options) : options(options) {
    if (options.maximumThickness < 1 || options.minimumRun <= options.maximumThickness ||
        options.reach < 1) {
        throw ReferenceException(kName + ": needs 1 <= maximumThickness < minimumRun and reach >= 1, got " +
                                 "maximumThickness " + std::to_string(options.maximumThickness) +
                                 ", minimumRun " + std::to_string(options.minimumRun) + ", reach " +
                                 std::to_string(options.reach));
    }
}

DefectReplacement::Result DefectReplacement::Replace(const ImagePtr<float>& frame,
                                                     const ImagePtr<unsigned char>& map,
                                                     const ImagePtr<unsigned char>& marks) const {
    return Replace(frame, map, marks, nullptr);
}

DefectReplacement::Result DefectReplacement::Replace(const ImagePtr<float>& frame,
                                                     const ImagePtr<unsigned char>& map,
                                                     const ImagePtr<unsigned char>& marks,
                                                     const std::function<void(std::size_t)>& done) const {
    if (!frame) {
        throw ReferenceException(kName + ": Replace needs a frame");
    }
    CheckSize(frame, map, "a defect map");
    if (marks) {
        CheckSize(frame, marks, "a marks plane");
        if (marks == map) {
            throw ReferenceException(kName + ": the marks plane cannot be the defect map");
        }
        marks->Fill(kMarkGood);
    }
    const Panel panel{frame->GetData(), map->GetData(), frame->GetWidth(), frame->GetHeight()};
    unsigned char* markPixels = marks ? marks->GetData() : nullptr;

    // Pieces of rows spread over threads: a replacement reads only good pixels and
    // writes only its own flagged one, and the counts are sums of integers, so the
    // split changes nothing.
    std::mutex resultLock;
    Result result;
    orvane::ParallelFor(panel.height, kRowsPerPiece, [&](int firstRow, int endRow) {
        // The vertical run through each column's current flagged pixel, measured once.
        std::vector<Run> columnRuns(static_cast<size_t>(panel.width), Run{0, 0});
        Result piece;
        for (int y = firstRow; y < endRow; ++y) {
            const unsigned char* row = panel.map + panel.Index(0, y);
            for (int x = NextFlagged(row, 0, panel.width); x < panel.width;
                 x = NextFlagged(row, x, panel.width)) {
                const Run horizontal{x, RunEnd(row, x, panel.width)};
                for (; x < horizontal.end; ++x) {
                    Run& vertical = columnRuns[static_cast<size_t>(x)];
                    if (vertical.end <= y) {
                        vertical = ColumnRun(panel, x, y);
                    }
                    const unsigned char mark = ReplacePixel(panel, options, x, y, horizontal, vertical);
                    switch (mark) {
                        case kMarkIsolated: ++piece.replacedIsolated; break;
                        case kMarkRun: ++piece.replacedInRuns; break;
                        case kMarkCluster: ++piece.replacedInClusters; break;
                        default: ++piece.unreplaced; break;
                    }
                    if (markPixels) {
                        markPixels[panel.Index(x, y)] = mark;
                    }
                    if (done) {
                        done(panel.Index(x, y));
                    }
                }
            }
        }
        const std::lock_guard<std::mutex> hold(resultLock);
        result.replacedIsolated += piece.replacedIsolated;
        result.replacedInRuns += piece.replacedInRuns;
        result.replacedInClusters += piece.replacedInClusters;
        result.unreplaced += piece.unreplaced;
    });
    return result;
}

DefectReplacement::Result DefectReplacement::Replace(const ImagePtr<float>& frame, ReferenceDM& store,
                                                     const ImagePtr<unsigned char>& marks) const {
    return Replace(frame, store.GetDM(), marks);
}
