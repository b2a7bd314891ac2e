#ifndef ORVANE_CALIBRATION_CALIBRATIONDEFECTMAPGAIN_H
#define ORVANE_CALIBRATION_CALIBRATIONDEFECTMAPGAIN_H

#include "calibration/CalibrationBase.h"
#include "calibration/DefectMapFlag.h"
#include "image/ImageAcquisition.h"
#include "image/WorkImages.h"
#include "image/ROI.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceGainLinear.h"
#include "parameters/DefectMapGainParameters.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>

// The gain defect map, calibration type "DMGain": defective pixels of the linear gain
// stored in a ReferenceGainLinear, with no frames. Each pixel of the decompressed
// gain fails a first test when it lies at or beyond [ClipMin, ClipMax] (a bound
// counts as out of range) and is then clipped into it; over the measured area the
// clipped gain is divided by its local median (0 where the median is 0), and a pixel
// fails a second test when that lies outside [ThresholdMin, ThresholdMax] (a bound
// is accepted). `defects` holds 0, 1 or 2 failed tests per pixel; outside the area
// the second test sees the clipped gain, not a ratio, and only the area reaches the
// reference. Each DefectMapGain starts afresh.
//
// The measured area is ROI(Y0, X0, Height, Width), the record's fields narrowed to
// 16 bits, and must lie in the map, as for CalibrationDefectMap; otherwise
// DefectMapGain fails before it changes anything. Failures of the gain store
// (ReferenceException: a store of another size than the map) and of the statistics
// and high-pass tools pass through DefectMapGain unchanged; every other failure is a
// CalibrationException through LogAndThrow.
//
// Work images: three float frames of the map's size from the shared pool, taken by
// the first Init and given back by Clear. Any operation but Init before the first
// Init fails ("... because Init has not run").
class CalibrationDefectMapGain : public CalibrationBase {
public:
    // Keeps the arguments (the record by reference: it must outlive the object) and
    // reads width and height from the store's map.
    CalibrationDefectMapGain(const DefectMapGainParameters& parameters,
                             boost::shared_ptr<ReferenceDM> reference,
                             boost::shared_ptr<ReferenceGainLinear> gain,
                             boost::shared_ptr<DefectMapFlag> flag);

    // Takes the three work images once, then, on every call, fills them with 0.
    void Init() override;
    // Gives the work images back to the pool and closes the account.
    void Clear() override;

    // The whole detection, from the stored gain into `defects`.
    void DefectMapGain();
    // Writes the counts of the measured area into the store's map (replacing what
    // stood there; the rest keeps its values), with the properties of the counts and
    // "info.quantlevels" = 18; flags and classifies the map, and as its last step
    // marks the store valid. A failure leaves the valid flag as it was.
    void UpdateDefectMapReference();

private:
    const std::string _GetCalibrationType() override;

    void _ClipAndDetect();
    void _GetMinMax(ROI area, float& min, float& max);
    void _ComputeScalingQuantification(ROI area, float slope, float offset);
    void _ThresholdAndMerge();

    const DefectMapGainParameters& parameters;
    boost::shared_ptr<ReferenceDM> reference;
    boost::shared_ptr<ReferenceGainLinear> gain;
    boost::shared_ptr<DefectMapFlag> flag;
    ImagePtr<float> work;       // the decompressed gain
    ImagePtr<float> quantised;  // quantised copy of work, input of the median
    ImagePtr<float> defects;    // per pixel, the number of tests it failed
    orvane::detail::WorkImages<float> workImages;  // holds work, quantised and defects
    std::int32_t width = 0;
    std::int32_t height = 0;
};

#endif
