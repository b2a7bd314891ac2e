#ifndef ORVANE_PARAMETERS_DMFLAGZOOMPARAMETERSSET_H
#define ORVANE_PARAMETERS_DMFLAGZOOMPARAMETERSSET_H

#include "parameters/DMFlagParameters.h"
#include "parameters/DMFlagZoomParameters.h"
#include "parameters/ParametersSet.h"

#include <string>

// The line and column flagging rows of zoomed acquisitions, for the models "Hazel",
// "HazelW", "Aspen", "CedarHi" and "Willow"; ratios, area, second DRZ band and seam
// row are formulas of the region. For "Hazel", "HazelW" and "Aspen" the ratios rise
// for regions narrower or lower than 200 pixels, so that a short segment still needs
// about 20 (whole frame) or 10 (area, retest) defective pixels. The family rows run the DRZ test with bands of 0 columns, which
// flag nothing. No default row: another model gets an all-zero record, which tests
// nothing. The constructor registers the formula variables "X0", "Y0", "Height" and
// "Width", in that order, unless they are registered already.
class DMFlagZoomParametersSet : public ParametersSet<DMFlagZoomParameters> {
public:
    DMFlagZoomParametersSet();

    // The record for a region: the row of lookup(key) with the region written into
    // X0 (left), Y0 (top), Height and Width; the ratios evaluated to floats, the area
    // evaluated (truncated toward zero, low 16 bits kept), DRZSecondColumn and
    // SplitRow evaluated and truncated toward zero, the rest copied. The stored rows
    // are not changed.
    const DMFlagParameters get(const std::string& key, const ROI& roi);
};

extern DMFlagZoomParametersSet s_DMFlagZoomParametersSet;

#endif
