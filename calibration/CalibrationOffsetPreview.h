#ifndef ORVANE_CALIBRATION_CALIBRATIONOFFSETPREVIEW_H
#define ORVANE_CALIBRATION_CALIBRATIONOFFSETPREVIEW_H

#include "calibration/CalibrationOffsetBase.h"
#include "interfaces/ReferenceOffsetSimple.h"

#include <boost/shared_ptr.hpp>

#include <string>

// The offset of a ReferenceOffsetSimple replaced by the last frame, unchanged.
class CalibrationOffsetPreview : public CalibrationOffsetBase {
public:
    explicit CalibrationOffsetPreview(boost::shared_ptr<ReferenceOffsetSimple> reference);
    ~CalibrationOffsetPreview() override;

    // Copies the frame's pixels and properties into the offset. Needs no Init.
    void UpdateSingleOffsetRef(ImagePtr<unsigned short> image);

private:
    const std::string _GetCalibrationType() override;

    boost::shared_ptr<ReferenceOffsetSimple> reference;
};

#endif
