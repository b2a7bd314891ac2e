#ifndef ORVANE_CALIBRATION_CALIBRATIONDEFECTMAP_H
#define ORVANE_CALIBRATION_CALIBRATIONDEFECTMAP_H

#include "calibration/CalibrationBase.h"
#include "calibration/DefectMapFlag.h"
#include "image/ImageAcquisition.h"
#include "image/WorkImages.h"
#include "image/ROI.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceGainLinear.h"
#include "parameters/DefectMapParameters.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

// The dose defect map, calibration type "DM6". Doses are numbered as they arrive,
// from 1. For each dose the gain-corrected mean image in `work` is clipped to
// [ClipMin, ClipMax] over the whole frame, quantised over the measured area to
// QuantLevels levels between the area's extremes, and each pixel of the area becomes
// LogScale * ln(1 + |p / m|), m its local median. The high-pass values inside
// [GfaMin, GfaMax] give a robust mean and sigma; every pixel of the whole frame
// outside [mean - t, mean + t], t = ExcludeSigmas * sigma, counts one more in
// `defects` (the bounds are accepted). Only the measured area reaches the reference.
//
// Numbers: every floating step computes in double and rounds to float where it
// stores (t, each bound, the mean of the frames, the gain-corrected pixels).
// A dose without a statistic (no high-pass value in the band, or an empty area: mean
// or sigma NaN) takes mean 0 and sigma -1, an empty band: every pixel of the frame
// that is not NaN counts.
//
// The measured area is ROI(Y0, X0, Height, Width), the record's fields narrowed to
// 16 bits. It must lie in the map (Y0 + Height <= height, X0 + Width <= width,
// compared unsigned, and the same for the narrowed area, so that a negative field
// cannot carry a step outside the images); otherwise DefectMap6() fails before it
// changes anything. Frames of another size than the map are not refused: the pixels
// processed are those both have, and the rest of `work` keeps what it held.
//
// Failures: CalibrationException through LogAndThrow with the messages of each step;
// the tools (statistics, high-pass median, the Extract of the statistic) pass theirs
// through DefectMap6() unchanged, and so do failures to write a debug image
// (ImageFileException), except inside _ExcludePixel and UpdateDefectMapReference. A
// failed dose leaves `dose` as it was, and a failure before the exclusion leaves the
// counts of earlier doses as they were.
//
// With the option "dm_save_intermediary_sequence" set, the intermediate images are
// saved as "DM6-ImageDebug-Dose_<n>_<stage>.fxd" (stages input, input-mean, mean_Gc,
// Clipping, Quantification, HighPassMedian, Exclu) and the map as "DM6" before and
// "DM6-flag" after the line and column flagging.
//
// Work images: three float frames of the map's size from the shared pool, taken by
// the first Init and given back by Clear. They are shared with every other client
// of that format, so two such objects must not run at the same time. Any operation
// but Init before the first Init fails ("... because Init has not run").
class CalibrationDefectMap : public CalibrationBase {
public:
    // Keeps the arguments (the record by reference: it must outlive the object) and
    // reads width and height from the store's map.
    CalibrationDefectMap(const DefectMapParameters& parameters,
                         boost::shared_ptr<ReferenceDM> reference,
                         boost::shared_ptr<ReferenceGainLinear> gain,
                         boost::shared_ptr<DefectMapFlag> flag);

    // Takes the three work images once, then, on every call, fills them with 0: Init
    // starts the counts over. It touches neither `dose` nor `accumulated`.
    void Init() override;
    // Gives the work images back to the pool and closes the account.
    void Clear() override;

    // Prepares a dose from a ready mean image: work = image (widened), with the
    // image's properties, then the gain correction. DefectMap6() follows.
    void StoreAndCorrect(ImagePtr<unsigned short> image);
    // A whole dose from a series of frames: work = (float)(sum / count), the sum kept
    // in float frame by frame, with the last frame's properties; then the gain
    // correction and DefectMap6(). An empty series fails. The series starts from a
    // zeroed work image and a frame count of 0, so a series that failed half-way
    // leaves nothing behind in the next one.
    void DefectMap6(const std::vector<ImagePtr<unsigned short>>& images);
    // The same dose fed one frame at a time, for hosts that never hold a whole dose:
    // BeginDose (zeroed work image and count; fails before Init as DefectMap6 does),
    // AccumulateDoseImg per frame, then EndDose, which gives what DefectMap6(frames)
    // gives (an empty dose fails as an empty series does). The debug option saves the
    // stages from the mean on; the frames themselves are not kept.
    void BeginDose();
    void AccumulateDoseImg(ImagePtr<unsigned short> image);
    void EndDose();
    // The dose algorithm on what stands in `work`; `dose` goes up by one at its end.
    void DefectMap6();
    // Writes the counts of the measured area into the store's map, truncated to 8 bits
    // (a count above 255 wraps), replacing what stood there; the rest of the map keeps
    // its values. The map takes the properties of the counts and "info.quantlevels"
    // = 18, then is flagged (DefectMapFlag) and classified (DefectMapChecker). The
    // store's valid flag is not touched, and the store is not saved.
    void UpdateDefectMapReference();

private:
    const std::string _GetCalibrationType() override;

    void _AccumulateImg(ImagePtr<unsigned short> image);
    void _DivideAccumulation();
    // The mean of the accumulated frames, gain-corrected, then DefectMap6().
    void _FinishDose(bool save);
    // work /= gain through a CorrectionGainLinear on the gain store; a store of
    // another size than the map fails.
    void _CorrectGain();
    void _Clipping();
    void _GetMinMax(ROI area, float& min, float& max);
    void _ComputeScalingQuantification(ROI area, float slope, float offset);
    void _HighPassMedian2(ROI area, float slope, float offset);
    // Counts over the whole frame, whatever the area.
    void _ExcludePixel(ROI area, float mean, float sigma);

    const DefectMapParameters& parameters;
    boost::shared_ptr<ReferenceDM> reference;
    boost::shared_ptr<ReferenceGainLinear> gain;
    boost::shared_ptr<DefectMapFlag> flag;
    ImagePtr<float> work;       // the dose being processed
    ImagePtr<float> quantised;  // quantised copy of work, input of the median
    ImagePtr<float> defects;    // per pixel, the doses at which it was excluded
    orvane::detail::WorkImages<float> workImages;  // holds work, quantised and defects
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t accumulated = 0;  // frames added to work since the last division
    std::int32_t dose = 1;
};

#endif
