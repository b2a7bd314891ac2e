#include "calibration/CalibrationBase.h"

CalibrationBase::~CalibrationBase() = default;
