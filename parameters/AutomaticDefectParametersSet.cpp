#include "parameters/AutomaticDefectParametersSet.h"

namespace {

AutomaticDefectParameters Row(const ROI& area, std::int32_t high, std::int32_t low, std::int32_t minHits) {
    AutomaticDefectParameters p;
    p.Area = area;
    p.WindowSize = 7;
    p.WindowPixels = 49;
    p.ThresholdHigh = high;
    p.ThresholdLow = low;
    p.MinHits = minHits;
    return p;
}

}  // namespace

AutomaticDefectParametersSet::AutomaticDefectParametersSet() {
    row("Birch") = Row(ROI(60, 60, 3001, 3001), 1000, -1000, 5);
    row("Cedar") = Row(ROI(0, 0, 2880, 2880), 4000, -4000, 2);
}
