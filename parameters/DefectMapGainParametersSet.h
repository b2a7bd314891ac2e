#ifndef ORVANE_PARAMETERS_DEFECTMAPGAINPARAMETERSSET_H
#define ORVANE_PARAMETERS_DEFECTMAPGAINPARAMETERSSET_H

#include "parameters/DefectMapGainParameters.h"
#include "parameters/ParametersSet.h"

// The gain defect-map records, by model and mode. The default row holds the shared
// bands, a 21 x 21 window and an empty area. The rows "Willow.*.m<n>" hold 60 in X0
// and the margin in Y0, where the dose table has them the other way round; they are
// kept as the table gives them, and with the dark table's line length (1368 for
// "Willow.*.m1") X0 + Width exceeds the image, so CalibrationDefectMapGain refuses
// those frames on its size check.
class DefectMapGainParametersSet : public ParametersSet<DefectMapGainParameters> {
public:
    DefectMapGainParametersSet();
};

extern DefectMapGainParametersSet s_defectMapGainParametersSet;

#endif
