#ifndef ORVANE_CORRECTION_CORRECTIONKERNELS_H
#define ORVANE_CORRECTION_CORRECTIONKERNELS_H

// The per-pixel rules of the correction stage, on spans of pixels. The operations
// apply them to whole frames and CorrectionChain to bands of a frame, so that both
// give the same bits. Every loop is flat and allocates nothing.

#include <cstdint>

namespace orvane {
namespace detail {

// out = raw - offset, one float subtraction (exact for a 16-bit offset).
void SubtractOffset(const unsigned short* raw, const unsigned short* offset, float* out, int count);
void SubtractOffset(const unsigned short* raw, const float* offset, float* out, int count);

// pixel / g (or pixel * g for an inverted gain), g = code / 16384 the decompressed
// linear gain, a float operation; 0 where the code is 0.
void ApplyGainLinear(float* pixels, const unsigned short* codes, bool inverted, int count);

// x -> c1 x + c2 x^2 + ... + cn x^n for the pixels first ... first + count - 1 of a
// frame, `pixels` pointing at the first of them and c_k = coefficients[k][pixel]:
// Horner's rule in double from the highest coefficient,
// y = (((cn x + c(n-1)) x + ...) + c1) x, rounded to float once.
void ApplyGainPoly(float* pixels, const float* const* coefficients, int n, int first, int count);

// The 16-bit output: round half up, floor(x + 0.5), then clamp to [0, 65535]; NaN
// stores 0. Gives the number of clamped pixels: those whose rounded value lies below
// 0 or above 65535, and NaN ones.
std::int64_t ConvertToUInt16(const float* pixels, unsigned short* out, int count);

// The same for one pixel: 1 when it was clamped. In float without rounding error:
// for 0 <= c < 2^24, t = trunc(c) and c - t are exact, and floor(c + 0.5) is t + 1
// exactly when c - t >= 0.5.
inline int ConvertToUInt16(float x, unsigned short& out) {
    const float high = x < 65535.0f ? x : 65535.0f;
    const float c = x > 0.0f ? high : 0.0f;
    const int t = static_cast<int>(c);
    out = static_cast<unsigned short>(t + static_cast<int>(c - static_cast<float>(t) >= 0.5f));
    return static_cast<int>(!(x >= -0.5f)) | static_cast<int>(x >= 65535.5f);
}

// Raises ReferenceException "<who>: cannot correct a W x H frame with <what> of W x H"
// unless the frame has the reference's size.
void RequireSize(const char* who, const char* what, int width, int height, int referenceWidth,
                 int referenceHeight);

}  // namespace detail
}  // namespace orvane

#endif
