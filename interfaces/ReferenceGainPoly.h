#ifndef ORVANE_INTERFACES_REFERENCEGAINPOLY_H
#define ORVANE_INTERFACES_REFERENCEGAINPOLY_H

#include "image/ImageAcquisition.h"
#include "interfaces/Reference.h"

#include <string>
#include <vector>

// The polynomial gain of a detector: one 16-bit image per coefficient (the
// coefficient of x first, then x^2, ...), zero at construction and always of the
// store's size.
//
// Encoding, per coefficient k, with the scale S_k that the store keeps for it:
// CompressImage sets S_k to the largest finite |c| of the source image and stores
// each pixel c as the code 32768 + q, q = c * 32767 / S_k (in double) rounded half
// away from zero, so codes 1 ... 65535 cover [-S_k, S_k] in steps of S_k / 32767.
// DeCompressImage gives (code - 32768) * S_k / 32767, computed in double and rounded
// to float. So 0, S_k and -S_k come back exactly and any finite c within S_k / 65534
// (half a step) plus the float rounding of the result. NaN stores code 32768 (0),
// +-infinity the extreme codes (+-S_k). A source with no finite non-zero value sets
// S_k to 0, and its codes all decompress to 0.
//
// S_k belongs to the store, not to the image's properties (a calibration replaces
// those after compressing): it is set by every CompressImage of coefficient k, also
// into a target that is not the store's image, and is 0 at construction.
// Save and Load keep the images, their properties, the scales and the valid flag in
// one .fxd file at the path; Load refuses a file with another number of
// coefficients and leaves the store as it was on any failure.
class ReferenceGainPoly : public Reference {
public:
    // A negative number of coefficients raises ReferenceException.
    ReferenceGainPoly(int width, int height, int coefficients = 3, const std::string& path = "");
    ~ReferenceGainPoly() override;

    // The live coefficient images: calibrations write into them directly.
    std::vector<ImagePtr<unsigned short>> GetGainPoly();
    int GetGainPolyCoeff() const;

    // target = the codes of source; sets the scale of `coefficient`. A coefficient
    // out of range, images missing or of different sizes raise ReferenceException
    // before anything changes. Properties are not touched.
    void CompressImage(const ImagePtr<float>& source, int coefficient,
                       const ImagePtr<unsigned short>& target);
    // target = the coefficients of the codes of source, with the scale of
    // `coefficient`; the same checks.
    void DeCompressImage(int coefficient, const ImagePtr<unsigned short>& source,
                         const ImagePtr<float>& target);

    // The scale S_k of coefficient k (ReferenceException out of range).
    float GetScale(int coefficient) const;

    void Save() override;
    void Load() override;

    static constexpr int kZeroCode = 32768;
    static constexpr int kSteps = 32767;

private:
    int width;
    int height;
    std::vector<ImagePtr<unsigned short>> coefficients;
    std::vector<float> scales;
};

#endif
