#ifndef ORVANE_CORRECTION_CORRECTIONKERNELS_H
#define ORVANE_CORRECTION_CORRECTIONKERNELS_H

// The per-pixel rules of the correction stage, on spans of pixels. The operations
// apply them to whole frames and CorrectionChain to bands of a frame, so that both
// give the same bits. Every loop is flat and allocates nothing.

#include "interfaces/ReferenceException.h"
#include "interfaces/ReferenceGainLinear.h"

#include <cstdint>
#include <string>

namespace orvane {
namespace detail {

// out = raw - offset, one float subtraction (exact for a 16-bit offset).
template <typename Offset>
inline void SubtractOffset(const unsigned short* raw, const Offset* offset, float* out, int count) {
    for (int i = 0; i < count; ++i) {
        out[i] = static_cast<float>(raw[i]) - static_cast<float>(offset[i]);
    }
}

// pixel / g (or pixel * g for an inverted gain), g the decompressed code, a float
// operation; 0 where the code is 0. The quotient is formed for every pixel and then
// selected, so that the loop has no branch and vectorises.
inline void ApplyGainLinear(float* pixels, const unsigned short* codes, bool inverted, int count) {
    if (inverted) {
        for (int i = 0; i < count; ++i) {
            const float product = pixels[i] * ReferenceGainLinear::DeCompress(codes[i]);
            pixels[i] = codes[i] == 0 ? 0.0f : product;
        }
    } else {
        for (int i = 0; i < count; ++i) {
            const float quotient = pixels[i] / ReferenceGainLinear::DeCompress(codes[i]);
            pixels[i] = codes[i] == 0 ? 0.0f : quotient;
        }
    }
}

// x -> c1 x + c2 x^2 + ... + cn x^n for the pixels `first` ... `first + count - 1` of
// a frame, `pixels` pointing at the first of them; c_k = values[k][codes[k][pixel]],
// values[k] the decompressed value of every code. Horner's rule in double from the
// highest coefficient, y = (((cn x + c(n-1)) x + ...) + c1) x, rounded to float once.
template <int N>
inline void ApplyGainPolyOf(float* pixels, int first, int count, const unsigned short* const* codes,
                            const float* const* values, int coefficients) {
    const int n = N > 0 ? N : coefficients;
    for (int i = 0; i < count; ++i) {
        const double x = pixels[i];
        double y = 0.0;
        for (int k = n - 1; k >= 0; --k) {
            y = (y + values[k][codes[k][first + i]]) * x;
        }
        pixels[i] = static_cast<float>(y);
    }
}

inline void ApplyGainPoly(float* pixels, int first, int count, const unsigned short* const* codes,
                          const float* const* values, int coefficients) {
    if (coefficients == 3) {
        ApplyGainPolyOf<3>(pixels, first, count, codes, values, coefficients);  // the tables' polynomial
    } else {
        ApplyGainPolyOf<0>(pixels, first, count, codes, values, coefficients);
    }
}

// The 16-bit output: round half up, floor(x + 0.5), then clamp to [0, 65535]; NaN
// stores 0. Gives the number of clamped pixels: those whose rounded value lies below
// 0 or above 65535, and NaN ones. Computed in float lanes without rounding error:
// for 0 <= c < 2^24, t = trunc(c) and c - t are exact, and floor(c + 0.5) is t + 1
// exactly when c - t >= 0.5.
inline std::int64_t ConvertToUInt16(const float* pixels, unsigned short* out, int count) {
    std::int64_t clamped = 0;
    for (int first = 0; first < count; first += 65536) {
        const int last = first + 65536 < count ? first + 65536 : count;
        int clampedHere = 0;
        for (int i = first; i < last; ++i) {
            const float x = pixels[i];
            clampedHere += static_cast<int>(!(x >= -0.5f)) | static_cast<int>(x >= 65535.5f);
            const float high = x < 65535.0f ? x : 65535.0f;
            const float c = x > 0.0f ? high : 0.0f;
            const int t = static_cast<int>(c);
            out[i] = static_cast<unsigned short>(t + static_cast<int>(c - static_cast<float>(t) >= 0.5f));
        }
        clamped += clampedHere;
    }
    return clamped;
}

// Raises "<who>: cannot correct a W x H frame with <what> of W x H" unless the
// frame has the reference's size.
inline void RequireSize(const char* who, const char* what, int width, int height, int referenceWidth,
                        int referenceHeight) {
    if (width != referenceWidth || height != referenceHeight) {
        throw ReferenceException(std::string(who) + ": cannot correct a " + std::to_string(width) + " x " +
                                 std::to_string(height) + " frame with " + what + " of " +
                                 std::to_string(referenceWidth) + " x " + std::to_string(referenceHeight));
    }
}

}  // namespace detail
}  // namespace orvane

#endif
