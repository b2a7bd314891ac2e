#ifndef ORVANE_PARAMETERS_GAINLINEARPARAMETERSSET_H
#define ORVANE_PARAMETERS_GAINLINEARPARAMETERSSET_H

#include "parameters/GainLinearParameters.h"
#include "parameters/ParametersSet.h"

// The linear-gain records of whole-frame acquisitions, by model and mode. Every row
// has the clipping band [0.25, 4] and the Gaussian-fit settings 3 sigmas, 0.05. The
// default row has an empty normalising area and no measure areas, which gives a gain
// of 1.0. The stem rows "Hazel", "HazelW", "Aspen", "CedarHi" and "Willow" hold only
// what their mode rows start from (inversion, and the top margin of the first three):
// a lookup that ends on one of them has an empty area.
class GainLinearParametersSet : public ParametersSet<GainLinearParameters> {
public:
    GainLinearParametersSet();
};

extern GainLinearParametersSet s_gainLinearParametersSet;

#endif
