#ifndef ORVANE_CORRECTION_CORRECTIONCHAIN_H
#define ORVANE_CORRECTION_CORRECTIONCHAIN_H

#include "correction/DefectReplacement.h"
#include "correction/GainPolyCorrection.h"
#include "correction/OffsetCorrection.h"
#include "image/ImageAcquisition.h"
#include "interfaces/ReferenceGainLinear.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>

// Turns raw 16-bit frames into corrected frames, in this order:
//   1. offset  out = raw - offset (OffsetCorrection), or out = raw without one;
//   2. gain    the linear gain (CorrectionGainLinear's rule) or the polynomial gain
//              (GainPolyCorrection), or none;
//   3. defects the flagged pixels of a defect map are replaced (DefectReplacement);
//   4. output  float, or 16 bits rounded and clamped (OutputConversion).
// Steps 1, 2 and the 16-bit output run band by band while a band is in cache, the
// bands spread over threads (tools/Parallel.h), then step 3 and the output of the
// pixels it replaced; every step keeps its own arithmetic, so the result is that of
// the operations applied one after another, bit for bit, for any thread count. The frame's properties go
// onto the output.
// The offset, the linear gain and the defect map are read at each Correct; the
// polynomial gain when it is set. Every reference must have the chain's size.
class CorrectionChain {
public:
    struct Result {
        std::int64_t clamped = 0;             // 16-bit output: pixels clamped to 0 or 65535
        DefectReplacement::Result defects;    // pixels replaced by rule, and left as they were
    };

    CorrectionChain(int width, int height);

    int GetWidth() const { return width; }
    int GetHeight() const { return height; }

    // Each setter replaces its step; a reference of another size than the chain
    // raises ReferenceException. One gain at most: setting one removes the other.
    void SetOffset(boost::shared_ptr<OffsetCorrection> offset);
    void SetGainLinear(boost::shared_ptr<ReferenceGainLinear> gain);
    void SetGainPoly(boost::shared_ptr<ReferenceGainPoly> gain);
    void SetDefects(ImagePtr<unsigned char> map, const DefectReplacement::Options& options = {});

    // Corrects `raw` into the float image `out`; the marks of DefectReplacement go into
    // `marks` when given (all 0 without a defect step). A frame, output or marks plane
    // of another size than the chain raises ReferenceException before anything is
    // written.
    Result Correct(const ImagePtr<unsigned short>& raw, const ImagePtr<float>& out,
                   const ImagePtr<unsigned char>& marks = ImagePtr<unsigned char>()) const;
    // The same into a 16-bit image, through a float frame the chain keeps between calls.
    Result Correct(const ImagePtr<unsigned short>& raw, const ImagePtr<unsigned short>& out,
                   const ImagePtr<unsigned char>& marks = ImagePtr<unsigned char>());

private:
    void RequireOwnSize(const char* what, int referenceWidth, int referenceHeight) const;
    // Steps 1 to 3 into `out`, and the 16-bit output into `out16` when given.
    Result Run(const ImagePtr<unsigned short>& raw, const ImagePtr<float>& out, unsigned short* out16,
               const ImagePtr<unsigned char>& marks) const;
    // Converts the pixels first ... end - 1 flagged in `map` to 16 bits; gives how
    // many of them were clamped.
    static std::int64_t ConvertFlagged(const unsigned char* map, const float* pixels, unsigned short* out16,
                                       int first, int end);

    int width;
    int height;
    boost::shared_ptr<OffsetCorrection> offset;
    boost::shared_ptr<ReferenceGainLinear> gainLinear;
    std::unique_ptr<GainPolyCorrection> gainPoly;
    ImagePtr<unsigned char> defectMap;
    DefectReplacement replacement;
    ImagePtr<float> work;  // the float frame of the 16-bit output
};

#endif
