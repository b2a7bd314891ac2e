#ifndef ORVANE_CALIBRATION_CALIBRATIONDEFECTMAPDARK_H
#define ORVANE_CALIBRATION_CALIBRATIONDEFECTMAPDARK_H

#include "calibration/CalibrationBase.h"
#include "image/ImageAcquisition.h"
#include "image/WorkImages.h"
#include "interfaces/ReferenceDM.h"
#include "parameters/DefectMapDarkParameters.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

// The dark defect map of a ReferenceDM: a series of raw dark frames is averaged and
// every pixel whose mean lies outside [ThresholdMin, ThresholdMax] counts one more in
// `defects` (a mean on a bound is accepted, a NaN mean never counts). No gain, no
// high-pass, no statistic, no line or column flagging. Two float work images of the
// map's size come from the shared pool between Init and Clear.
//
// Numbers: work = work + frame and work = work / (float)accumulated, each rounded to
// float; defects = defects + (0 or 1). The counts of Area go to the map truncated
// toward zero and keep their low 8 bits (256 series make 0 again).
//
// `work` is zeroed only by Init: a second series without Init starts from the mean of
// the first, divided by its own frame count alone. `defects` grows over series until
// the next Init. A frame of another size is not refused: the pixels processed are the
// first min(frame, map) pixels in memory order.
//
// Host order: construct; Init; ComputeDefectMapDarkAndMerge per series;
// UpdateDefectMapReference; Clear or destruction. The record is held by reference and
// must outlive the object.
class CalibrationDefectMapDark : public CalibrationBase {
public:
    // Reads the map's width and height from the store.
    CalibrationDefectMapDark(const DefectMapDarkParameters& parameters,
                             boost::shared_ptr<ReferenceDM> reference);

    // Takes the two work images once; every call fills both with 0 and starts the
    // frame count of `work` again.
    void Init() override;
    void Clear() override;

    // One series: the frames' mean into `work`, then the band test into `defects`,
    // which takes the properties of the last frame. An empty list fails before
    // anything changes. Before Init, or with a null frame, fails as AccumulateImg.
    void ComputeDefectMapDarkAndMerge(const std::vector<ImagePtr<unsigned short>>& images);
    // The same series fed one frame at a time, for hosts that never hold a whole
    // series: AccumulateImg per frame, then ComputeDefectMapDarkAndMerge() gives what
    // the list gives. Without a frame since the last series it fails as an empty list.
    void AccumulateImg(ImagePtr<unsigned short> image);
    void ComputeDefectMapDarkAndMerge();
    // Replaces the rectangle Area of the store's map by the counts, gives the map the
    // properties of `defects` and "info.quantlevels" = 18 (unsigned short), and
    // classifies the whole map. Pixels outside Area keep their values up to the
    // classification. An Area outside the map fails; so does a call before Init. The
    // store's valid flag is not touched and the store is not saved.
    void UpdateDefectMapReference();

private:
    const std::string _GetCalibrationType() override;

    // work += frame, work takes the frame's properties, accumulated + 1.
    void _AccumulateImg(ImagePtr<unsigned short> image);
    // work = work / (float)accumulated; accumulated = 0.
    void _DivideAccumulation();
    // defects += 1.0 where ThresholdMin > work or work > ThresholdMax.
    void _ComputeDefectMapDarkAndMerge();
    // The mean of the accumulated frames, the band test, the count logged.
    void _FinishSeries();

    const DefectMapDarkParameters& parameters;
    boost::shared_ptr<ReferenceDM> reference;
    ImagePtr<float> defects;
    ImagePtr<float> work;
    orvane::detail::WorkImages<float> workImages;  // holds defects and work
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t accumulated = 0;
};

#endif
