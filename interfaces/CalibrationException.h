#ifndef ORVANE_INTERFACES_CALIBRATIONEXCEPTION_H
#define ORVANE_INTERFACES_CALIBRATIONEXCEPTION_H

#include "interfaces/BaseException.h"

// Every failure of a calibration, thrown through LogAndThrow.
class CalibrationException : public BaseExceptionSimple<CalibrationException> {
public:
    using BaseExceptionSimple<CalibrationException>::BaseExceptionSimple;
    ~CalibrationException() override;
};

#endif
