#ifndef ORVANE_CORRECTION_GAINPOLYCORRECTION_H
#define ORVANE_CORRECTION_GAINPOLYCORRECTION_H

#include "image/ImageAcquisition.h"
#include "interfaces/ReferenceGainPoly.h"

#include <boost/shared_ptr.hpp>

#include <vector>

// Applies a stored polynomial gain to offset-corrected float frames, in place: each
// pixel x becomes c1 x + c2 x^2 + ... + cn x^n, the polynomial having no constant
// term. c_k is the decompressed code of coefficient k, exactly as
// ReferenceGainPoly::DeCompressImage gives it with the store's scale; the polynomial
// is evaluated in double by Horner's rule from the highest coefficient,
// (((cn x + c(n-1)) x + ...) + c1) x, and rounded to float once. The store is read
// at each Correct, so a correction follows later calibrations.
class GainPolyCorrection {
public:
    // A null store, or one without coefficients, raises ReferenceException.
    explicit GainPolyCorrection(boost::shared_ptr<ReferenceGainPoly> store);

    int GetWidth() const;
    int GetHeight() const;

    // An image missing or of another size than the store raises ReferenceException.
    void Correct(const ImagePtr<float>& image) const;

private:
    friend class CorrectionChain;

    // The store's codes and the value of every code of each coefficient, as read now.
    struct Tables {
        std::vector<float> values;  // 65536 per coefficient
        std::vector<const float*> valuesOf;
        std::vector<const unsigned short*> codesOf;
    };
    Tables ReadTables() const;
    static void CorrectSpan(const Tables& tables, float* pixels, int first, int count);

    boost::shared_ptr<ReferenceGainPoly> store;
};

#endif
