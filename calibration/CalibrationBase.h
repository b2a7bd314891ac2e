#ifndef ORVANE_CALIBRATION_CALIBRATIONBASE_H
#define ORVANE_CALIBRATION_CALIBRATIONBASE_H

#include <boost/noncopyable.hpp>

#include <string>

// Root of the calibration classes. The calling order for every calibration:
// construct with a parameter record (kept by reference: it must outlive the object)
// and shared pointers to the stores; Init, which reserves work images in the pool;
// feed frames and compute; Clear or destruction, which give the images back.
class CalibrationBase : private boost::noncopyable {
public:
    virtual ~CalibrationBase();
    virtual void Init() = 0;
    virtual void Clear() = 0;

private:
    // The short name of the calibration; it also begins its debug file names.
    virtual const std::string _GetCalibrationType() = 0;
};

#endif
