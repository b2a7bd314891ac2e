#ifndef ORVANE_CALIBRATION_CALIBRATIONTOOLS_H
#define ORVANE_CALIBRATION_CALIBRATIONTOOLS_H

// The free functions that the calibration classes share, one header per family.

#include "calibration/CalibrationOptions.h"
#include "calibration/HighPassMedian.h"
#include "calibration/ImageStatistics.h"

#endif
