#include "calibration/DefectMapFlag.h"

#include "TestImages.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace orvane::test;

namespace {

using Bytes = std::vector<unsigned char>;
using P = DMFlagParameters;
const int W = 20, H = 12;

struct Rect { int x0, y0, x1, y1; };  // inclusive

Bytes Draw(Bytes grid, const std::vector<Rect>& rects, unsigned char v) {
    for (const Rect& r : rects)
        for (int y = r.y0; y <= r.y1; ++y)
            for (int x = r.x0; x <= r.x1; ++x) grid[y * W + x] = v;
    return grid;
}

// A W x H map marked 7 on `marks`, flagged with the parameters that `set` writes; it
// must come out as the marks with 1 on `flagged`.
struct Case { const char* what; std::function<void(P&)> set; std::vector<Rect> marks, flagged; };

void ExpectFlags(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        P p;
        c.set(p);
        const Bytes in = Draw(Bytes(W * H), c.marks, 7);
        auto map = MakeImage<unsigned char>(W, H);
        std::copy(in.begin(), in.end(), map->GetData());
        DefectMapFlag(p).UpdateDefectMap(map);
        EXPECT_EQ(Draw(in, c.flagged, 1), Pixels(map)) << c.what;
    }
}

void WholeFrame(P& p, float horizontal, float vertical) { p.TestWholeFrame = true, p.HorizontalRatio = horizontal, p.VerticalRatio = vertical; }

void Retest(P& p, float horizontal, float vertical) { p.RetestWholeFrame = true, p.RetestHorizontalRatio = horizontal, p.RetestVerticalRatio = vertical; }

// A seam row and a seam column, each unless negative.
void Split(P& p, int row, int column) { p.SplitRows = row >= 0, p.SplitColumns = column >= 0, p.SplitRow = row, p.SplitColumn = column; }

// Bands of columns 0..5 and 14..19: 12 columns x 0.125 gives a threshold of 1.
void Drz(P& p) { p.TestDRZLines = true, p.DRZRatio = 0.125f, p.DRZFirstCount = p.DRZSecondCount = 6, p.DRZSecondColumn = 14; }

}  // namespace

TEST(DefectMapFlag, RowIsFlaggedOnlyAboveItsThreshold) {
    // 1000 x 0.1f is a little above 100 in double, so the threshold is 100.
    P p;
    WholeFrame(p, 0.1f, 1.0f);
    for (int marked : {100, 101}) {
        auto map = MakeImage<unsigned char>(1000, 1);
        for (int i = 0; i < marked; ++i) map->GetData()[i * 9] = i % 2 ? 7 : 255;
        const Bytes before = Pixels(map);
        DefectMapFlag(p).UpdateDefectMap(map);
        EXPECT_EQ(marked == 100 ? before : Bytes(1000, 1), Pixels(map)) << marked;
    }
}

TEST(DefectMapFlag, ThresholdsAreTruncatedAndAreasBoundTheTest) {
    ExpectFlags({
        {"all tests on an empty map", [](P& p) {
             WholeFrame(p, 0.0f, 0.0f), Retest(p, 0.0f, 0.0f), Drz(p), Split(p, 5, 9), p.TestArea = true, p.Area = ROI(1, 1, 10, 18);
         }, {}, {}},
        // Rows: ratio 0; columns: 12 x 0.08 = 0.96, truncated to 0.
        {"threshold below one", [](P& p) { WholeFrame(p, 0.0f, 0.08f); }, {{5, 3, 5, 3}}, {{0, 3, W - 1, 3}, {5, 0, 5, H - 1}}},
        {"area of height 0", [](P& p) { p.TestArea = true; p.Area = ROI(2, 3, 0, 5); }, {{0, 0, W - 1, H - 1}}, {}},
        {"area of width 0", [](P& p) { p.TestArea = true; p.Area = ROI(2, 3, 4, 0); }, {{0, 0, W - 1, H - 1}}, {}},
        // Rows 2..6, columns 4..11: rows 8 x 0.25 = 2, columns 5 x 0.5 -> 2 (not 5 x 0.25 -> 1).
        {"area", [](P& p) { p.TestArea = true, p.Area = ROI(2, 4, 5, 8), p.AreaHorizontalRatio = 0.25f, p.AreaVerticalRatio = 0.5f; }, {{5, 3, 7, 3}, {2, 3, 2, 3}, {15, 3, 15, 3}, {9, 4, 9, 6}, {9, 8, 9, 8}, {5, 5, 5, 5}, {0, 10, W - 1, 10}},
         {{4, 3, 11, 3}, {9, 2, 9, 6}}},
    });
}

TEST(DefectMapFlag, SeamsBelongToNoSegment) {
    ExpectFlags({
        {"seam row", [](P& p) { WholeFrame(p, 0.0f, 1.0f); Split(p, 5, -1); },
         {{4, 2, 4, 2}, {2, 5, 2, 5}, {17, 9, 17, 9}}, {{0, 2, W - 1, 2}, {0, 9, W - 1, 9}}},
        // Left segment columns 0..7 (8 x 0.25 = 2), right 9..19 (11 x 0.25 -> 2).
        {"seam column", [](P& p) { WholeFrame(p, 0.25f, 1.0f); Split(p, -1, 8); },
         {{0, 1, 2, 1}, {8, 1, 8, 1}, {12, 1, 12, 1}, {10, 4, 12, 4}, {6, 6, 8, 6}}, {{0, 1, 7, 1}, {9, 4, W - 1, 4}}},
        // Row block 1 is rows 0..4 (5 x 0.5 -> 2); block 2 is not tested without a seam column.
        {"column test without seam column", [](P& p) { WholeFrame(p, 1.0f, 0.5f); Split(p, 5, -1); },
         {{3, 7, 3, 9}, {6, 0, 6, 2}, {6, 8, 6, 8}}, {{6, 0, 6, 4}}},
        // With both seams, block 2 (rows 6..11) is walked for 5 rows with threshold 2,
        {"column test with both seams", [](P& p) { WholeFrame(p, 1.0f, 0.5f); Split(p, 5, 10); },
         {{3, 6, 3, 8}, {14, 7, 14, 9}, {3, 11, 3, 11}, {14, 11, 14, 11}}, {{3, 6, 3, 10}, {14, 6, 14, 10}}},
        // and a block 2 shorter than block 1 (7 rows, threshold 3) only to the map's end.
        {"short row block 2", [](P& p) { WholeFrame(p, 1.0f, 0.5f); Split(p, 7, 10); }, {{2, 8, 2, H - 1}}, {{2, 8, 2, H - 1}}},
    });
}

TEST(DefectMapFlag, FirstPassSeesTheInputDrzFlagsAtOnceAndRetestSeesTheFlags) {
    // Rows 0..6 hold 11 marks in columns 0..10: rows above 20 x 0.5, columns above 12 x 0.5.
    const std::vector<Rect> block{{0, 0, 10, 6}};
    // Column 3 is flagged after the DRZ test, so row 9 keeps its single band mark.
    const std::vector<Rect> drz{{3, 0, 3, 6}, {15, 9, 15, 9}, {0, 4, 0, 4}, {19, 4, 19, 4}};
    ExpectFlags({
        {"first pass", [](P& p) { WholeFrame(p, 0.5f, 0.5f); }, block, {{0, 0, W - 1, 6}, {0, 0, 10, H - 1}}},
        {"retest", [](P& p) { WholeFrame(p, 0.5f, 0.5f); Retest(p, 1.0f, 0.5f); }, block, {{0, 0, W - 1, H - 1}}},
        {"retest ratios", [](P& p) { WholeFrame(p, 1.0f, 1.0f); Retest(p, 0.5f, 1.0f); }, block, {{0, 0, W - 1, 6}}},
        {"DRZ bands as one unit per row", Drz, {{2, 1, 2, 1}, {19, 1, 19, 1}, {4, 3, 4, 3}, {6, 3, 13, 3}},
         {{0, 1, 5, 1}, {14, 1, 19, 1}}},
        {"DRZ between the tests and their flagging", [](P& p) { WholeFrame(p, 0.5f, 0.5f); Drz(p); },
         drz, {{3, 0, 3, H - 1}, {0, 4, 5, 4}, {14, 4, 19, 4}}},
        {"retest sees the DRZ flags", [](P& p) { WholeFrame(p, 0.5f, 0.5f); Drz(p); Retest(p, 0.5f, 1.0f); },
         drz, {{3, 0, 3, H - 1}, {0, 4, W - 1, 4}}},
    });
}

TEST(DefectMapFlag, CopyFollowsTheCallersRecordAndNullMapFails) {
    P p;
    const DefectMapFlag flag(p);
    DefectMapFlag copy(flag);
    p.TestWholeFrame = true;  // ratios 0
    auto map = MakeImage<unsigned char>(3, 2, {0, 7, 0, 0, 0, 0});
    copy.UpdateDefectMap(map);
    EXPECT_EQ(Bytes({1, 1, 1, 0, 1, 0}), Pixels(map));
    EXPECT_EQ(FailureText([&] { copy.UpdateDefectMap(nullptr); }),
              "DefectMapFlag : UpdateDefectMap failed due to null pointer");
}
