#ifndef ORVANE_PARAMETERS_ECHOLINEPARAMETERS_H
#define ORVANE_PARAMETERS_ECHOLINEPARAMETERS_H

#include <cstdint>

#include "image/ROI.h"

// Parameters of CalibrationEcholine. A default-constructed record is all zero.
struct EchoLineParameters {
    ROI Area{};                      // the part of the defect map that is scanned
    std::int32_t MiddleRow = 0;      // left out; from this row on, line numbers are mirrored
    std::int32_t MiddleColumn = 0;   // left out; runs do not cross it
    std::int32_t MinimumRun = 0;     // shortest run of defective pixels that makes an echo line
};

#endif
