#ifndef ORVANE_CALIBRATION_CALIBRATIONOFFSETTIMEGRID_H
#define ORVANE_CALIBRATION_CALIBRATIONOFFSETTIMEGRID_H

#include "calibration/CalibrationOffsetBase.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"
#include "parameters/OffsetParameters.h"

#include <boost/shared_ptr.hpp>

#include <string>

// The offsets of a ReferenceOffsetTimeGrid: each grid entry is the rounded mean of
// a series, then kept current by blending in single frames with a share that grows
// with the temperature and time distance from the stored image.
class CalibrationOffsetTimeGrid : public CalibrationOffsetBase {
public:
    CalibrationOffsetTimeGrid(const OffsetParameters& parameters,
                              boost::shared_ptr<ReferenceOffsetTimeGrid> reference,
                              unsigned short standbyDeltaTime);
    ~CalibrationOffsetTimeGrid() override;

    // Closes the series fed through AccumulateOffset into the entry of deltaTime.
    void DivideAccumulationAndUpdate(int deltaTime);
    // Blends one frame into the entry of deltaTime, or into the stand-by image when
    // deltaTime is the stand-by delta time and useStandby is set:
    // target = (float)(frame * c) + (float)(target * (float)(1 - c)), truncated, with
    // c from the distances in "image.temperature" and "image.time". Needs no Init.
    void UpdateSingleOffsetRef(int deltaTime, ImagePtr<unsigned short> image, bool useStandby);
    // The stand-by image becomes a copy of the entry of the stand-by delta time.
    void InitOffsetStandBy();

private:
    const std::string _GetCalibrationType() override;
    // The share of a new frame: the larger of the coefficients of the temperature
    // class and of the time class (0.1 below the first limit; a value on a limit
    // stays in the class below; above the last-but-one limit, the last coefficient).
    float _CalculCoeffForDelta(double deltaTemperature, int deltaTime);

    const OffsetParameters& parameters;
    boost::shared_ptr<ReferenceOffsetTimeGrid> reference;
    unsigned short standbyDeltaTime;
};

#endif
