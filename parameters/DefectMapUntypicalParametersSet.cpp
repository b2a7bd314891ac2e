#include "parameters/DefectMapUntypicalParametersSet.h"

namespace {

DefectMapUntypicalParameters Row(const ROI& area) {
    DefectMapUntypicalParameters p;
    p.Area = area;
    p.MedianWidth = 11;
    p.MedianHeight = 11;
    p.QuantLevels = 65536;
    p.GfaSigmas = 3;
    p.GfaTolerance = 0.05f;
    p.ExcludeSigmas = 10;
    return p;
}

}  // namespace

DefectMapUntypicalParametersSet::DefectMapUntypicalParametersSet() {
    for (const char* key : {"LarchB", "LarchA"}) row(key) = Row(ROI(2, 30, 2875, 2775));
    for (const char* key : {"CedarTa", "CedarTb"}) row(key) = Row(ROI(2, 11, 2875, 2869));
}
