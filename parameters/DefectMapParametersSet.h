#ifndef ORVANE_PARAMETERS_DEFECTMAPPARAMETERSSET_H
#define ORVANE_PARAMETERS_DEFECTMAPPARAMETERSSET_H

#include "parameters/DefectMapParameters.h"
#include "parameters/ParametersSet.h"

// The dose defect-map records of whole-frame acquisitions, by model and mode. The
// default row holds the scalars that every row shares and an empty area, which it
// gives to every model and mode that the table does not know (there are no model
// rows for the moded families, so their unknown modes get it too).
class DefectMapParametersSet : public ParametersSet<DefectMapParameters> {
public:
    DefectMapParametersSet();
};

extern DefectMapParametersSet s_defectMapParametersSet;

#endif
