#ifndef ORVANE_INTERFACES_REFERENCEGAINLINEAR_H
#define ORVANE_INTERFACES_REFERENCEGAINLINEAR_H

#include "image/ImageAcquisition.h"
#include "interfaces/Reference.h"

#include <string>

// The linear gain of a detector, one 16-bit code per pixel, zero at construction and
// always of the store's size.
//
// Encoding: a code c stands for the gain c / 16384, so codes cover [0, 65535/16384]
// in steps of 2^-14. Compressing rounds g * 16384 half up and clamps it to that
// range: every multiple of 2^-14 below 4 (1.0, 0.5, 0.25, 2.0 ...) comes back
// exactly, any other gain in [0.25, 4.0] within 2^-15 (4.0 itself within 2^-14, as
// 65535/16384). Code 0 means "no usable gain": NaN and gains below 2^-15 compress
// to it, and CorrectionGainLinear turns its pixels to 0.
//
// The inversion flag records that the stored gain is the reciprocal of the measured
// one (the calibration sets it); it changes nothing in the encoding.
// Save and Load keep the image, its properties, the inversion and valid flags in
// one .fxd file at the path; a failed Load leaves the store as it was.
class ReferenceGainLinear : public Reference {
public:
    static constexpr float kCodesPerUnit = 16384.0f;

    ReferenceGainLinear(int width, int height, const std::string& path = "");
    ~ReferenceGainLinear() override;

    // The live stored gain: calibrations write into it directly.
    ImagePtr<unsigned short> GetGainLinear();

    // target = the codes of source, pixel by pixel; properties are not touched.
    // Images missing or of different sizes raise ReferenceException.
    void CompressImage(const ImagePtr<float>& source, const ImagePtr<unsigned short>& target);
    // target = the gains of the codes of source (exact in float); the same checks.
    void DeCompressImage(const ImagePtr<unsigned short>& source, const ImagePtr<float>& target);

    void SetGainInversion(bool inverted);  // false at construction
    bool GetGainInversion() const;

    static unsigned short Compress(float gain);
    static float DeCompress(unsigned short code) { return static_cast<float>(code) / kCodesPerUnit; }

    void Save() override;
    void Load() override;

private:
    ImagePtr<unsigned short> gain;
    bool inverted = false;
};

#endif
