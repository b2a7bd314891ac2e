#include "parameters/EchoLineParametersSet.h"

namespace {

void SetRow(EchoLineParameters& row, const ROI& area, std::int32_t middleRow,
            std::int32_t middleColumn) {
    row.Area = area;
    row.MiddleRow = middleRow;
    row.MiddleColumn = middleColumn;
}

}  // namespace

// The "" row scans nothing; its middle row and column are never used and stay 0.
// Every model row starts as a copy of it and so inherits MinimumRun.
EchoLineParametersSet::EchoLineParametersSet() {
    row("").MinimumRun = 30;
    SetRow(row("Birch"), ROI(60, 60, 3001, 3001), 1560, 1560);
    SetRow(row("LarchB"), ROI(2, 30, 2874, 2775), 2880, 2880);
    SetRow(row("LarchA"), ROI(2, 30, 2874, 2775), 2880, 2880);
    SetRow(row("CedarTa"), ROI(2, 11, 2874, 2869), 2880, 2880);
    SetRow(row("CedarTb"), ROI(2, 11, 2874, 2869), 2880, 2880);
    SetRow(row("MapleQ"), ROI(29, 50, 2820, 2300), 2880, 2400);
    SetRow(row("MapleQa"), ROI(6, 25, 2866, 2350), 2880, 2400);
    SetRow(row("MapleQb"), ROI(6, 25, 2866, 2350), 2880, 2400);
    SetRow(row("Rowan"), ROI(19, 0, 1520, 1920), 1560, 1920);
}
