#ifndef ORVANE_CORRECTION_OFFSETCORRECTION_H
#define ORVANE_CORRECTION_OFFSETCORRECTION_H

#include "image/ImageAcquisition.h"
#include "interfaces/ReferenceOffsetSimple.h"

#include <boost/shared_ptr.hpp>

// Subtracts an offset from raw 16-bit frames into float frames:
// out[i] = (float)raw[i] - offset[i], one float subtraction (exact for a 16-bit
// offset), without clipping: a pixel below its offset becomes negative.
// The offset is the live image of a dynamic offset store, read at each Correct so
// that later updates of the store are followed, or a fixed float image such as the
// blend of a time grid (TimeGridBlend).
class OffsetCorrection {
public:
    // A null store or image raises ReferenceException.
    explicit OffsetCorrection(boost::shared_ptr<ReferenceOffsetSimple> store);
    explicit OffsetCorrection(ImagePtr<float> offset);

    int GetWidth() const;
    int GetHeight() const;

    // A frame missing or of another size than the offset, or an output of another
    // size than the frame, raises ReferenceException before anything is written.
    // The frame's properties are copied onto `out`.
    void Correct(const ImagePtr<unsigned short>& raw, const ImagePtr<float>& out) const;

private:
    friend class CorrectionChain;
    // Pixels first ... first + count - 1 of the frame; raw and out point at the first.
    void CorrectSpan(const unsigned short* raw, float* out, int first, int count) const;

    boost::shared_ptr<ReferenceOffsetSimple> store;
    ImagePtr<float> fixed;
};

#endif
