#include "calibration/DefectMapFlag.h"

#include "TestImages.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using orvane::test::MakeImage;
using orvane::test::Pixels;

namespace {

using Bytes = std::vector<unsigned char>;
const int W = 20;
const int H = 12;

// Sets the pixels x0..x1 of the rows y0..y1 (inclusive) of a W-wide grid to v.
void Fill(Bytes& grid, int x0, int y0, int x1, int y1, unsigned char v) {
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) grid[y * W + x] = v;
}

Bytes Grid(unsigned char v = 0) { return Bytes(W * H, v); }

// Runs a DefectMapFlag on a W x H map holding `in` and returns the map afterwards.
Bytes Flagged(const DMFlagParameters& p, const Bytes& in) {
    auto map = MakeImage<unsigned char>(W, H);
    std::copy(in.begin(), in.end(), map->GetData());
    DefectMapFlag(p).UpdateDefectMap(map);
    return Pixels(map);
}

// Whole-frame tests whose ratios never flag (a count of n is never above n).
DMFlagParameters WholeFrame(float horizontal = 1.0f, float vertical = 1.0f) {
    DMFlagParameters p;
    p.TestWholeFrame = true;
    p.HorizontalRatio = horizontal;
    p.VerticalRatio = vertical;
    return p;
}

}  // namespace

TEST(DefectMapFlag, AllZeroMapStaysZero) {
    DMFlagParameters p = WholeFrame(0.0f, 0.0f);
    p.TestArea = p.TestDRZLines = p.RetestWholeFrame = p.SplitRows = p.SplitColumns = true;
    p.Area = ROI(1, 1, 10, 18);
    p.SplitRow = 5;
    p.SplitColumn = 9;
    p.DRZFirstCount = p.DRZSecondCount = 3;
    p.DRZSecondColumn = 15;
    EXPECT_EQ(Grid(), Flagged(p, Grid()));
}

TEST(DefectMapFlag, RowIsFlaggedOnlyAboveItsThreshold) {
    // 1000 x 0.1f is a little above 100 in double, so the threshold is 100.
    const DMFlagParameters p = WholeFrame(0.1f, 1.0f);
    for (int marked : {100, 101}) {
        auto map = MakeImage<unsigned char>(1000, 1);
        for (int i = 0; i < marked; ++i) map->GetData()[i * 9] = i % 2 ? 7 : 255;
        const Bytes before = Pixels(map);
        DefectMapFlag(p).UpdateDefectMap(map);
        EXPECT_EQ(marked == 100 ? before : Bytes(1000, 1), Pixels(map)) << marked;
    }
}

TEST(DefectMapFlag, ThresholdBelowOneFlagsASinglePixel) {
    // Ratio 0 on rows; 12 x 0.08 = 0.96 on columns, truncated to 0.
    Bytes in = Grid();
    in[3 * W + 5] = 7;
    Bytes expected = Grid();
    Fill(expected, 0, 3, W - 1, 3, 1);
    Fill(expected, 5, 0, 5, H - 1, 1);
    EXPECT_EQ(expected, Flagged(WholeFrame(0.0f, 0.08f), in));
}

TEST(DefectMapFlag, EmptyAreaFlagsNothing) {
    DMFlagParameters p;
    p.TestArea = true;  // ratios 0: any tested segment with a mark would be flagged
    for (const ROI& area : {ROI(2, 3, 0, 5), ROI(2, 3, 4, 0)}) {
        p.Area = area;
        EXPECT_EQ(Grid(7), Flagged(p, Grid(7)));
    }
}

TEST(DefectMapFlag, SeamRowBelongsToNoRowSegment) {
    DMFlagParameters p = WholeFrame(0.0f, 1.0f);
    p.SplitRows = true;
    p.SplitRow = 5;
    Bytes in = Grid();
    in[2 * W + 4] = in[5 * W + 2] = in[9 * W + 17] = 7;
    Bytes expected = in;
    Fill(expected, 0, 2, W - 1, 2, 1);
    Fill(expected, 0, 9, W - 1, 9, 1);
    EXPECT_EQ(expected, Flagged(p, in));
}

TEST(DefectMapFlag, FlaggedRowStopsAtTheSeamColumn) {
    // Left segment columns 0..7 (threshold 8 x 0.25 = 2), right 9..19 (11 x 0.25 -> 2).
    DMFlagParameters p = WholeFrame(0.25f, 1.0f);
    p.SplitColumns = true;
    p.SplitColumn = 8;
    Bytes in = Grid();
    Fill(in, 0, 1, 2, 1, 3);    // 3 marks left
    in[1 * W + 8] = 5;          // seam
    in[1 * W + 12] = 7;         // 1 mark right
    Fill(in, 10, 4, 12, 4, 3);  // 3 marks right
    Fill(in, 6, 6, 8, 6, 3);    // 2 marks left and the seam pixel
    Bytes expected = in;
    Fill(expected, 0, 1, 7, 1, 1);
    Fill(expected, 9, 4, W - 1, 4, 1);
    EXPECT_EQ(expected, Flagged(p, in));
}

TEST(DefectMapFlag, ColumnTestSkipsRowBlockTwoWithoutSplitColumns) {
    // Row block 1 is rows 0..4: count 5, threshold 2.
    DMFlagParameters p = WholeFrame(1.0f, 0.5f);
    p.SplitRows = true;
    p.SplitRow = 5;
    Bytes in = Grid();
    Fill(in, 3, 7, 3, 9, 4);  // column 3: 3 marks in row block 2 only
    Fill(in, 6, 0, 6, 2, 4);  // column 6: 3 marks in row block 1
    in[8 * W + 6] = 7;
    Bytes expected = in;
    Fill(expected, 6, 0, 6, 4, 1);
    EXPECT_EQ(expected, Flagged(p, in));
}

TEST(DefectMapFlag, ColumnTestUsesBlockOneCountForRowBlockTwo) {
    // Both seams: block 1 has 5 rows (threshold 2); block 2 (rows 6..11) is walked
    // for 5 rows with that threshold, on both sides of the seam column.
    DMFlagParameters p = WholeFrame(1.0f, 0.5f);
    p.SplitRows = p.SplitColumns = true;
    p.SplitRow = 5;
    p.SplitColumn = 10;
    Bytes in = Grid();
    Fill(in, 3, 6, 3, 8, 4);
    Fill(in, 14, 7, 14, 9, 4);
    in[11 * W + 3] = in[11 * W + 14] = 7;
    Bytes expected = in;
    Fill(expected, 3, 6, 3, 10, 1);
    Fill(expected, 14, 6, 14, 10, 1);
    EXPECT_EQ(expected, Flagged(p, in));

    // Block 2 shorter than block 1 (count 7, threshold 3): the walk ends at the map.
    p.SplitRow = 7;
    in = Grid();
    Fill(in, 2, 8, 2, H - 1, 4);
    expected = in;
    Fill(expected, 2, 8, 2, H - 1, 1);
    EXPECT_EQ(expected, Flagged(p, in));
}

TEST(DefectMapFlag, FirstPassSeesTheInputAndRetestSeesTheFlags) {
    // Rows 0..6 hold 11 marks in columns 0..10: rows above 10, columns above 6.
    DMFlagParameters p = WholeFrame(0.5f, 0.5f);
    Bytes in = Grid();
    Fill(in, 0, 0, 10, 6, 2);
    Bytes expected = Grid();
    Fill(expected, 0, 0, W - 1, 6, 1);
    Fill(expected, 0, 0, 10, H - 1, 1);
    EXPECT_EQ(expected, Flagged(p, in));

    p.RetestWholeFrame = true;
    p.RetestHorizontalRatio = 1.0f;
    p.RetestVerticalRatio = 0.5f;
    EXPECT_EQ(Grid(1), Flagged(p, in));
}

TEST(DefectMapFlag, DrzBandsAreOneUnitPerRow) {
    // Bands 0..5 and 14..19: 12 columns x 0.125 -> threshold 1.
    DMFlagParameters p;
    p.TestDRZLines = true;
    p.DRZRatio = 0.125f;
    p.DRZFirstCount = p.DRZSecondCount = 6;
    p.DRZSecondColumn = 14;
    Bytes in = Grid();
    in[1 * W + 2] = in[1 * W + 19] = 7;  // two marks, one per band
    in[3 * W + 4] = 7;                    // one mark
    Fill(in, 6, 3, 13, 3, 7);             // and many between the bands
    Bytes expected = in;
    Fill(expected, 0, 1, 5, 1, 1);
    Fill(expected, 14, 1, 19, 1, 1);
    EXPECT_EQ(expected, Flagged(p, in));
}

TEST(DefectMapFlag, DrzTestRunsBetweenTheFirstPassTestsAndTheirFlagging) {
    DMFlagParameters p = WholeFrame(0.5f, 0.5f);
    p.TestDRZLines = true;
    p.DRZRatio = 0.125f;
    p.DRZFirstCount = p.DRZSecondCount = 6;
    p.DRZSecondColumn = 14;
    Bytes in = Grid();
    Fill(in, 3, 0, 3, 6, 2);             // column 3 (in a band): 7 marks, flagged
    in[9 * W + 15] = 7;                  // 1 band mark; 2 if column 3 were flagged yet
    in[4 * W + 0] = in[4 * W + 19] = 7;  // DRZ row; its 12 flags would exceed 10
    Bytes expected = in;
    Fill(expected, 3, 0, 3, H - 1, 1);
    Fill(expected, 0, 4, 5, 4, 1);
    Fill(expected, 14, 4, 19, 4, 1);
    EXPECT_EQ(expected, Flagged(p, in));

    p.RetestWholeFrame = true;
    p.RetestHorizontalRatio = 0.5f;
    p.RetestVerticalRatio = 1.0f;
    Fill(expected, 0, 4, W - 1, 4, 1);
    EXPECT_EQ(expected, Flagged(p, in));
}

TEST(DefectMapFlag, AreaTestLeavesTheOutsideAlone) {
    // Area rows 2..6, columns 4..11: rows threshold 8 x 0.25 = 2, columns 5 x 0.5 -> 2.
    DMFlagParameters p;
    p.TestArea = true;
    p.Area = ROI(2, 4, 5, 8);
    p.AreaHorizontalRatio = 0.25f;
    p.AreaVerticalRatio = 0.5f;
    Bytes in = Grid();
    Fill(in, 5, 3, 7, 3, 3);
    in[3 * W + 2] = in[3 * W + 15] = 7;
    Fill(in, 9, 4, 9, 6, 3);
    in[8 * W + 9] = 7;
    Fill(in, 0, 10, W - 1, 10, 7);
    Bytes expected = in;
    Fill(expected, 4, 3, 11, 3, 1);
    Fill(expected, 9, 2, 9, 6, 1);
    EXPECT_EQ(expected, Flagged(p, in));
}

TEST(DefectMapFlag, CopyFollowsTheCallersRecord) {
    DMFlagParameters p;
    const DefectMapFlag flag(p);
    DefectMapFlag copy(flag);
    p.TestWholeFrame = true;  // ratios 0
    auto map = MakeImage<unsigned char>(3, 2, {0, 7, 0, 0, 0, 0});
    copy.UpdateDefectMap(map);
    EXPECT_EQ(Bytes({1, 1, 1, 0, 1, 0}), Pixels(map));
}

TEST(DefectMapFlag, NullMapFails) {
    DMFlagParameters p;
    DefectMapFlag flag(p);
    try {
        flag.UpdateDefectMap(ImagePtr<unsigned char>());
        FAIL() << "no exception";
    } catch (const CalibrationException& e) {
        EXPECT_NE(std::string::npos,
                  std::string(e.what()).find(
                      "): DefectMapFlag : UpdateDefectMap failed due to null pointer"));
    }
}
