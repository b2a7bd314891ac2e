#ifndef ORVANE_CALIBRATION_CALIBRATIONOFFSETDYNAMIC_H
#define ORVANE_CALIBRATION_CALIBRATIONOFFSETDYNAMIC_H

#include "calibration/CalibrationOffsetBase.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "parameters/OffsetDynamicParameters.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

// The offset of a ReferenceOffsetSimple: the rounded mean of a series of dark
// frames, then kept current by blending in single frames with weight
// parameters.Weight. The store's validity is never touched.
class CalibrationOffsetDynamic : public CalibrationOffsetBase {
public:
    CalibrationOffsetDynamic(const OffsetDynamicParameters& parameters,
                             boost::shared_ptr<ReferenceOffsetSimple> reference);
    ~CalibrationOffsetDynamic() override;

    // A whole series in one call; a series already open is continued. An empty
    // vector fails. With the option "offset_save_intermediary_sequence" set, the
    // input, the accumulation and the offset are saved as debug images.
    void CalculateOffsetReference(const std::vector<ImagePtr<unsigned short>>& images);
    // Closes a series fed frame by frame through AccumulateOffset into the offset.
    void DivideAccumulationAndUpdate();
    // offset = (float)(frame * w) + (float)(offset * (float)(1 - w)), truncated: an
    // exponential moving average that loses up to one count downward. Needs no Init.
    void UpdateSingleOffsetRef(ImagePtr<unsigned short> image);

private:
    const std::string _GetCalibrationType() override;

    const OffsetDynamicParameters& parameters;
    boost::shared_ptr<ReferenceOffsetSimple> reference;
};

#endif
