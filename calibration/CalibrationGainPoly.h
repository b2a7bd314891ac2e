#ifndef ORVANE_CALIBRATION_CALIBRATIONGAINPOLY_H
#define ORVANE_CALIBRATION_CALIBRATIONGAINPOLY_H

#include "calibration/CalibrationGain.h"
#include "image/PixelStorage.h"
#include "image/QuadPart.h"
#include "image/WorkImages.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "parameters/GainPolyParameters.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// The polynomial gain of a ReferenceGainPoly: per pixel, the coefficients c1, c2,
// c3 of y = c1 x + c2 x^2 + c3 x^3 that map the pixel's value x at each dose to the
// robust level y of that dose, by weighted least squares. The number of
// coefficients n is the store's GetGainPolyCoeff().
//
// Host order: construct; Init; for each of the nbDoses doses AccumulateGainImg per
// frame and DivideAccumulation(doseWeight); then CalculateGainReference() or
// CalculateDenoisedGainReference(); read the store. A new series takes Clear and
// Init. Init reserves nbDoses + 4 float images of the pool for the three work
// images and the dose images, n for the coefficient images and one byte mask; all
// are given back by Clear.
//
// Numbers: floating steps compute in double and round to float where a value is
// stored (every sum of the fit, every matrix entry, every buffer element);
// conversions to integers truncate. Lists of images are read with a checked index:
// past the end std::out_of_range "invalid vector<T> subscript", which the handlers
// treat as any other exception.
class CalibrationGainPoly : public CalibrationGain {
public:
    CalibrationGainPoly(const GainPolyParameters& parameters,
                        boost::shared_ptr<ReferenceGainPoly> reference,
                        boost::shared_ptr<ReferenceGainLinear> linearReference,
                        boost::shared_ptr<ReferenceDM> defectMap, int nbDoses);
    ~CalibrationGainPoly() override;

    // First call: takes the work images and zeroes mask, accumulation and corrected
    // image. Every call sets doseCount and framesInDose to 0, and nothing else once
    // initialised.
    void Init() override;
    void Clear() override;

    // accumulation = max(0, frame + accumulation), rounded to float, with the frame's
    // properties. A frame of another size is not refused: the pixels processed are
    // those that both images have. Without Init, or without a frame, it fails.
    void AccumulateGainImg(ImagePtr<unsigned short> frame);
    // Closes the current dose: its image is a copy of the accumulation after one
    // frame, else accumulation / (float)imageCount (no frame gives NaN); then the
    // accumulation is zeroed for the next dose. Fails once nbDoses doses are closed,
    // leaving the lists as they were.
    void DivideAccumulation(float doseWeight);
    // Levels, fit and compression of the dose images as they stand. A failure of the
    // fit itself is only logged; the coefficients then written are what the fit
    // left (a missing coefficient image raises std::out_of_range).
    void CalculateGainReference();
    // The same after dividing each dose image by the linear gain and denoising it
    // area by area; the coefficients are then rewritten for undivided pixel values.
    // Logs no line of its own and catches nothing.
    void CalculateDenoisedGainReference();

private:
    friend class CalibrationGainPolyInspector;  // white-box access for the unit tests

    const std::string _GetCalibrationType() override;

    // Measures the level of every dose and fits. Fails on an invalid defect-map store,
    // without Init, or with fewer dose images than nbDoses; every other failure is
    // logged at error level and the operation returns normally.
    void _CalculateGainWithoutDenoise();
    // Per pixel p, over the doses i with x the dose pixel, y = doseLevels[i] and
    // w = (float)((float)framesPerDose[i] * doseWeights[i] / (|x| + 1)):
    //   B[j]    += (float)x^(j+1) * y * w      M[j][k] += (float)x^(j+k+2) * w
    // then C = inverse(M) applied to B (C[k] = sum over j of M[j][k] * B[j]), or 0
    // where M cannot be inverted. Each power is the double product of x's rounded to
    // float (within an ulp of pow), each sum is stored as float. Needs n = 0 or
    // n >= 3 (the elimination works on three rows): 1 or 2 fail before any pixel.
    void _ComputePolynomialCoefficients();
    // In-place Gauss-Jordan without pivot search, its elimination on three rows:
    // false at the first pivot that is 0 or not finite. The fit runs the same steps
    // inline, on a matrix in registers.
    bool _InvertMatrix(float** matrix);
    void _CompressCoeffToRef();
    // Mean of the pixels strictly between ClipMin and ClipMax (sum in double), or 0.
    float _ComputeClippedAverage(ImagePtr<float> image);
    void _Clear();

    // Denoised road (CalibrationGainPolyDenoise.cpp). An area is worked on in flat
    // row-major buffers of rows x columns samples; a line is a run of consecutive
    // samples: `columns` of them with alongRows (rows lines, RowSigmaFactor,
    // RowWindow), else `rows` of them (columns lines, ColumnSigmaFactor,
    // ColumnWindow), whatever the image columns are.

    // linearGain = the stored linear gain, decompressed (through accumulation).
    void _ComputeLinearCoefficients();
    // dose image /= linearGain where the gain is not 0 (the quotient also goes into
    // correctedImage); where it is 0 the dose pixel becomes 0.
    void _ApplyLinearCorrection(int dose);
    // coefficient k /= (float)g^(k+1) per pixel. Where g is 0 the coefficient becomes
    // 0: the fit saw only zeros there.
    void _FormattingCoefficient();
    // target = mask != 0 ? second : first, per pixel; all four of one size.
    void _AddMaskPixel(ImagePtr<float> first, ImagePtr<float> second,
                       ImagePtr<unsigned char> mask, ImagePtr<float> target);
    // Linear correction and area estimates of every dose image; maskImage counts,
    // across doses, where an estimate was taken. Any failure but a
    // CalibrationException is logged and ends the step normally.
    void _DenoisingCalibrationImage();
    // The estimate of one area: a robust moving average along lines of `rows`
    // samples, another along lines of `columns` samples over what the first left,
    // their sum; mask = 1 where the pixel lies within MaskSigmas clipped sigmas of
    // its estimate.
    void _DenoisingArea(float* pixels, int rows, int columns, float* denoised, unsigned char* mask);
    // goodMask = 1.0 where |(float)(v - mean of the line)| <= (float)(3 * factor *
    // sigma of the line * 0.5), else 0.0.
    void _DetectingBadPixels(float* pixels, int rows, int columns, bool alongRows, float* goodMask);
    // average = mean of the samples with goodMask exactly 1.0 within (window - 1) / 2
    // positions on the same line (window cut at the line's ends), or 0 if none; a
    // running double sum, so the cost does not depend on the window. A negative
    // half-window leaves every window empty. A null goodMask fails too.
    void _RobustMovingAverage(float* pixels, int rows, int columns, bool alongRows, float* goodMask,
                              float* average);
    // center = (float)((float)(sum in double) / (float)count); spread = population
    // standard deviation about center, as MeanAndSigma computes it.
    void _MedianAndSigma(float* samples, int count, float* center, float* spread);
    void _CreatingROIMask(float* differences, unsigned char* mask, int count);
    void _Add(float* a, float* b, float* result, int count);
    void _Sub(float* a, float* b, float* result, int count);
    // The three copies fail with a clear message when the area leaves the image.
    void _ExtractingUsedArea(ImagePtr<float> image, QuadPart& area, float* pixels);
    void _ReplacingArea(float* pixels, QuadPart& area, ImagePtr<float> image);
    // image byte += mask byte over the area (8-bit wrap-around).
    void _ReplacingMaskArea(unsigned char* mask, QuadPart& area, ImagePtr<unsigned char> image);

    const GainPolyParameters& parameters;
    boost::shared_ptr<ReferenceGainPoly> reference;
    boost::shared_ptr<ReferenceGainLinear> linearReference;
    boost::shared_ptr<ReferenceDM> defectMap;
    ImagePtr<float> accumulation;  // also the buffer of good pixels, and scratch
    ImagePtr<unsigned char> maskImage;
    ImagePtr<float> linearGain;
    ImagePtr<float> correctedImage;
    std::vector<ImagePtr<float>> coefficients;  // the coefficient of x first
    std::vector<ImagePtr<float>> doseImages;
    std::int32_t doseCount = 0;
    std::vector<int> framesPerDose;
    std::vector<float> doseWeights;
    std::int32_t framesInDose = 0;
    std::int32_t nbDoses = 0;
    std::vector<float> doseLevels;
    // accumulation, linearGain, correctedImage and the dose images; the coefficient
    // images; maskImage.
    orvane::detail::WorkImages<float> workImages;
    orvane::detail::WorkImages<float> coefficientImages;
    orvane::detail::WorkImages<unsigned char> maskImages;
    std::int32_t width = 0;
    std::int32_t height = 0;

    // The work buffers of the area steps (four per area and the copy of
    // _CreatingROIMask), held for one run of _DenoisingCalibrationImage so that
    // every area reuses memory already mapped instead of faulting in fresh pages;
    // empty otherwise, and the steps then allocate their own.
    orvane::detail::PixelVector<float> areaScratch;
};

namespace orvane {
namespace detail {

// Element `index` of a list of images, checked.
template <typename V>
auto& CheckedAt(V& list, std::size_t index) {
    if (index >= list.size()) {
        throw std::out_of_range("invalid vector<T> subscript");
    }
    return list[index];
}

}  // namespace detail
}  // namespace orvane

#endif
