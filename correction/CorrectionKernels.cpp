#include "correction/CorrectionKernels.h"

#include "interfaces/ReferenceException.h"
#include "interfaces/ReferenceGainLinear.h"
#include "tools/VectorClones.h"

#include <string>

namespace orvane {
namespace detail {

namespace {

template <typename Offset>
inline void Subtract(const unsigned short* raw, const Offset* offset, float* out, int count) {
    for (int i = 0; i < count; ++i) {
        out[i] = static_cast<float>(raw[i]) - static_cast<float>(offset[i]);
    }
}

template <int N>
inline void Horner(float* pixels, const float* const* coefficients, int n, int first, int count) {
    const int terms = N > 0 ? N : n;
    for (int i = 0; i < count; ++i) {
        const double x = pixels[i];
        double y = 0.0;
        for (int k = terms - 1; k >= 0; --k) {
            y = (y + coefficients[k][first + i]) * x;
        }
        pixels[i] = static_cast<float>(y);
    }
}

}  // namespace

ORVANE_VECTOR_CLONES
void SubtractOffset(const unsigned short* raw, const unsigned short* offset, float* out, int count) {
    Subtract(raw, offset, out, count);
}

ORVANE_VECTOR_CLONES
void SubtractOffset(const unsigned short* raw, const float* offset, float* out, int count) {
    Subtract(raw, offset, out, count);
}

// The quotient is formed for every pixel and then selected, so that the loop has no
// branch and vectorises (this file is compiled without trapping math for that).
ORVANE_VECTOR_CLONES
void ApplyGainLinear(float* pixels, const unsigned short* codes, bool inverted, int count) {
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

ORVANE_VECTOR_CLONES
void ApplyGainPoly(float* pixels, const float* const* coefficients, int n, int first, int count) {
    if (n == 3) {
        Horner<3>(pixels, coefficients, n, first, count);  // the calibrated polynomial
    } else {
        Horner<0>(pixels, coefficients, n, first, count);
    }
}

ORVANE_VECTOR_CLONES
std::int64_t ConvertToUInt16(const float* pixels, unsigned short* out, int count) {
    std::int64_t clamped = 0;
    for (int first = 0; first < count; first += 65536) {
        const int last = first + 65536 < count ? first + 65536 : count;
        int clampedHere = 0;
        for (int i = first; i < last; ++i) {
            clampedHere += ConvertToUInt16(pixels[i], out[i]);
        }
        clamped += clampedHere;
    }
    return clamped;
}

void RequireSize(const char* who, const char* what, int width, int height, int referenceWidth,
                 int referenceHeight) {
    if (width != referenceWidth || height != referenceHeight) {
        throw ReferenceException(std::string(who) + ": cannot correct a " + std::to_string(width) + " x " +
                                 std::to_string(height) + " frame with " + what + " of " +
                                 std::to_string(referenceWidth) + " x " + std::to_string(referenceHeight));
    }
}

}  // namespace detail
}  // namespace orvane
