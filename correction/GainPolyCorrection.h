#ifndef ORVANE_CORRECTION_GAINPOLYCORRECTION_H
#define ORVANE_CORRECTION_GAINPOLYCORRECTION_H

#include "image/ImageAcquisition.h"
#include "interfaces/ReferenceGainPoly.h"

#include <boost/shared_ptr.hpp>

#include <vector>

// Applies a polynomial gain to offset-corrected float frames, in place: each pixel x
// becomes c1 x + c2 x^2 + ... + cn x^n, the polynomial having no constant term. The
// coefficients c_k are those ReferenceGainPoly::DeCompressImage gives, taken from the
// store once, at construction (a later calibration needs a new correction); the
// polynomial is evaluated in double by Horner's rule from the highest coefficient,
// (((cn x + c(n-1)) x + ...) + c1) x, and rounded to float once.
class GainPolyCorrection {
public:
    // A null store, or one without coefficients, raises ReferenceException.
    explicit GainPolyCorrection(const boost::shared_ptr<ReferenceGainPoly>& store);

    int GetWidth() const { return width; }
    int GetHeight() const { return height; }

    // An image missing or of another size than the store raises ReferenceException.
    void Correct(const ImagePtr<float>& image) const;

private:
    friend class CorrectionChain;
    // Pixels first ... first + count - 1 of a frame; `pixels` points at the first.
    void CorrectSpan(float* pixels, int first, int count) const;

    int width = 0;
    int height = 0;
    std::vector<ImagePtr<float>> coefficients;  // c_1 first
    std::vector<const float*> coefficientData;  // their pixels
};

#endif
