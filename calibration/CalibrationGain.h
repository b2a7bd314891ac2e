#ifndef ORVANE_CALIBRATION_CALIBRATIONGAIN_H
#define ORVANE_CALIBRATION_CALIBRATIONGAIN_H

#include "calibration/CalibrationBase.h"
#include "image/ImageAcquisition.h"
#include "image/QuadPart.h"
#include "image/ROI.h"

#include <cstdint>

// The steps that the gain calibrations run on an averaged flat-field image, in this
// order: for each measure area _ExtractGoodPixelInMeasureArea, then
// _AverageGaussianFit on what it collected; _AverageMean over the levels of all
// areas; in the linear gain, _Normalizing by that mean. A pixel is good when its
// defect-map value is at most DefectMapChecker::s_ucDefectThreshold. Failures are
// CalibrationExceptions through LogAndThrow; nothing keeps state between calls.
class CalibrationGain : public CalibrationBase {
public:
    CalibrationGain();
    ~CalibrationGain() override;

protected:
    // Whether the pixel at `index` is good; an index at or past the end of the map
    // is not. Fails without a map.
    bool _EffectivePixel(const ImagePtr<unsigned char>& defectMap, int index);
    // Writes the values of the area's good pixels, row after row without gaps, to
    // goodPixels (room for area.height * area.width floats) and their number to
    // goodCount. Both images are indexed with the width of `image`. An area that
    // leaves `image` fails instead of reading outside it.
    void _ExtractGoodPixelInMeasureArea(const ImagePtr<float>& image,
                                        const ImagePtr<unsigned char>& defectMap, ROI area,
                                        float* goodPixels, int& goodCount);
    // ClippedMean of the values, which it reorders and shortens in place. No value
    // gives NaN.
    float _AverageGaussianFit(float* values, int count, int sigmaFactor, float tolerance);
    // mean = (float)(sum / count) with the sum in float, in order; with count 0 mean
    // keeps its value.
    void _AverageMean(float* values, int count, float& mean);
    // target = 1.0 everywhere, and source / mean (a float division) inside the area
    // when mean is not 0. The images must have the same size; the part of the area
    // beyond the images is left out.
    void _Normalizing(const ImagePtr<float>& source, float mean, QuadPart& area,
                      const ImagePtr<float>& target);

    // Frames added since the last division.
    std::int32_t imageCount = 0;
};

#endif
