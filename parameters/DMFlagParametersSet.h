#ifndef ORVANE_PARAMETERS_DMFLAGPARAMETERSSET_H
#define ORVANE_PARAMETERS_DMFLAGPARAMETERSSET_H

#include "parameters/DMFlagParameters.h"
#include "parameters/ParametersSet.h"

// The line and column flagging records of whole-frame acquisitions, by model and
// mode. The default row tests an empty area only. The family rows "Hazel", "HazelW",
// "Aspen", "CedarHi" and "Willow" hold the tests and ratios that their mode rows start
// from, with an empty area; they answer only for a mode that the table does not know.
// Where such a row runs the DRZ test its bands have 0 columns (the test flags
// nothing), and the seam of "Aspen" is row 0, the one row inside every frame: its
// whole-frame row test covers the rows below it and its column test has no rows to
// count. Seam values of rows whose split is off are not kept (they are never read).
class DMFlagParametersSet : public ParametersSet<DMFlagParameters> {
public:
    DMFlagParametersSet();
};

extern DMFlagParametersSet s_DMFlagParametersSet;

#endif
