#ifndef ORVANE_CORRECTION_OUTPUTCONVERSION_H
#define ORVANE_CORRECTION_OUTPUTCONVERSION_H

#include "image/ImageAcquisition.h"

#include <cstdint>

// The 16-bit output of a corrected float frame: each pixel x becomes floor(x + 0.5),
// computed in double (round half up), clamped to [0, 65535]. A NaN stores 0.
class OutputConversion {
public:
    // Converts `corrected` into `out` (same size, else ReferenceException and nothing
    // written) and gives the number of clamped pixels: those whose rounded value lay
    // below 0 or above 65535, and NaN ones. Properties are copied too.
    static std::int64_t ToUInt16(const ImagePtr<float>& corrected, const ImagePtr<unsigned short>& out);
};

#endif
