#ifndef ORVANE_CALIBRATION_CALIBRATIONDEFECTMAPUNTYPICAL_H
#define ORVANE_CALIBRATION_CALIBRATIONDEFECTMAPUNTYPICAL_H

#include "calibration/CalibrationBase.h"
#include "image/ImageAcquisition.h"
#include "image/WorkImages.h"
#include "interfaces/ReferenceDM.h"
#include "parameters/DefectMapUntypicalParameters.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

// The untypical-pixel defect map of a ReferenceDM: each raw frame on its own goes
// through a median high-pass by subtraction over Area (quantised to QuantLevels
// between 0 and the area's maximum), then a robust mean and sigma over the whole
// frame, pixels outside Area still raw, with the band of the largest finite floats;
// every pixel outside [mean - t, mean + t], t = (float)(ExcludeSigmas * sigma), counts
// one more in `defects` (a pixel on a bound is accepted). A NaN mean or sigma is not
// corrected: it excludes no pixel. No line or column flagging.
//
// Numbers: t, mean - t and mean + t are each rounded to float, defects = defects +
// (0 or 1). The counts of Area go to the map truncated toward zero with their low 8
// bits kept.
//
// Pool: Init takes `defects` and reserves room for the two images that each frame
// borrows and gives back, also when it fails. Clear (the same as the destructor's
// _Clear) gives `defects` back and closes the account: the host calls it once the map
// is written, and a new Init starts a new run from zero counts. Computing or updating
// after Clear without a new Init fails.
//
// Host order: construct; Init; ComputeDefectMapUntypicalAndMerge any number of times;
// UpdateDefectMapReference; Clear or destruction. The record is held by reference and
// must outlive the object.
class CalibrationDefectMapUntypical : public CalibrationBase {
public:
    // Reads the map's width and height from the store.
    CalibrationDefectMapUntypical(const DefectMapUntypicalParameters& parameters,
                                  boost::shared_ptr<ReferenceDM> reference);

    // Takes `defects` once; every call fills it with 0.
    void Init() override;
    void Clear() override;

    // One frame; `defects` takes its properties. A frame of another size is not
    // refused: its pixels are taken in memory order and a shorter frame leaves the
    // rest of the map's pixels at 0. Fails before Init, with a null frame, with an
    // Area outside the map (checked first, as the scaling steps do not check it), or
    // when the high-pass median fails (its window must fit the area, the levels the
    // values); the counts of earlier frames stay.
    void ComputeDefectMapUntypicalAndMerge(const ImagePtr<unsigned short>& image);
    // Each frame in order; an empty list fails before anything changes.
    void ComputeDefectMapUntypicalAndMerge(const std::vector<ImagePtr<unsigned short>>& images);
    // Replaces the rectangle Area of the store's map by the counts, gives the map the
    // properties of `defects` and "info.quantlevels" = 18 (unsigned short), and
    // classifies the whole map. Pixels outside Area keep their values up to the
    // classification. An Area outside the map fails; so does a call before Init. The
    // store's valid flag is not touched and the store is not saved.
    void UpdateDefectMapReference();

private:
    const std::string _GetCalibrationType() override;

    const DefectMapUntypicalParameters& parameters;
    boost::shared_ptr<ReferenceDM> reference;
    ImagePtr<float> defects;
    // Holds defects; two more images are taken for the time of one computation.
    orvane::detail::WorkImages<float> workImages;
    std::int32_t width = 0;
    std::int32_t height = 0;
};

#endif
