#ifndef ORVANE_CALIBRATION_CALIBRATIONGAINLINEAR_H
#define ORVANE_CALIBRATION_CALIBRATIONGAINLINEAR_H

#include "calibration/CalibrationGain.h"
#include "image/WorkImages.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceGainLinear.h"
#include "parameters/GainLinearParameters.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

// The linear gain of a ReferenceGainLinear from flat frames at one dose: the frames
// are averaged (no offset correction), the average is divided by a robust level
// taken from the measure areas over the good pixels of the defect map, limited to
// [ClipMin, ClipMax] and, with InvertGain, inverted. Outside the normalising area
// the gain is 1.0. Two float work images come from the pool between Init and Clear.
//
// Host order: construct; Init; then CalculateGainReference(frames), or
// AccumulateGainImg per frame, DivideAccumulation and CalculateGainReference().
// A new series on the same object takes Clear and Init: until then the average
// stays in the accumulation and new frames add to it.
class CalibrationGainLinear : public CalibrationGain {
public:
    CalibrationGainLinear(const GainLinearParameters& parameters,
                          boost::shared_ptr<ReferenceGainLinear> reference,
                          boost::shared_ptr<ReferenceDM> defectMap);

    // Takes the two work images once; a second call changes nothing.
    void Init() override;
    void Clear() override;

    // accumulation = max(0, frame + accumulation), rounded to float, with the frame's
    // properties. A frame of another size is not refused: the pixels processed are
    // those that both images have.
    void AccumulateGainImg(ImagePtr<unsigned short> frame);
    // accumulation /= (float)imageCount; imageCount = 0. No frame gives NaN.
    void DivideAccumulation();
    // Normalises, clips, inverts and compresses what stands in the accumulation into
    // the store. A failure of the calibration or of the store throws; any other
    // exception is logged and the operation ends normally.
    void CalculateGainReference();
    // The whole series in one call; an empty list fails before anything changes.
    void CalculateGainReference(const std::vector<ImagePtr<unsigned short>>& frames);

private:
    const std::string _GetCalibrationType() override;

    // Limits every pixel to [ClipMin, ClipMax]; NaN passes.
    void _Clipping(ImagePtr<float> image);
    // image = 1.0 / image, marked with "image.reference.invert" = true.
    void _Inversion(ImagePtr<float> image);

    const GainLinearParameters& parameters;
    boost::shared_ptr<ReferenceGainLinear> reference;
    boost::shared_ptr<ReferenceDM> defectMap;
    ImagePtr<float> accumulation;
    ImagePtr<float> gainImage;  // also the buffer of good pixels while levels are measured
    orvane::detail::WorkImages<float> workImages;  // holds accumulation and gainImage
    std::int32_t width = 0;
    std::int32_t height = 0;
};

#endif
