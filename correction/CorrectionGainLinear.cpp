#include "interfaces/CorrectionGainLinear.h"

#include "interfaces/ReferenceException.h"

#include <string>

CorrectionGainLinear::CorrectionGainLinear(boost::shared_ptr<ReferenceGainLinear> gain)
    : gain(std::move(gain)) {
    if (!this->gain) {
        throw ReferenceException("CorrectionGainLinear: no gain store");
    }
}

CorrectionGainLinear::~CorrectionGainLinear() = default;

void CorrectionGainLinear::Correct(ImagePtr<float>& image) {
    const ImagePtr<unsigned short> stored = gain->GetGainLinear();
    if (!image) {
        throw ReferenceException("CorrectionGainLinear: Correct needs an image");
    }
    if (image->GetWidth() != stored->GetWidth() || image->GetHeight() != stored->GetHeight()) {
        throw ReferenceException("CorrectionGainLinear: cannot correct a " +
                                 std::to_string(image->GetWidth()) + " x " +
                                 std::to_string(image->GetHeight()) + " image with a gain of " +
                                 std::to_string(stored->GetWidth()) + " x " +
                                 std::to_string(stored->GetHeight()));
    }
    float* pixels = image->GetData();
    const unsigned short* codes = stored->GetData();
    const int count = image->GetPixelCount();
    if (gain->GetGainInversion()) {
        for (int i = 0; i < count; ++i) {
            pixels[i] = codes[i] == 0 ? 0.0f : pixels[i] * ReferenceGainLinear::DeCompress(codes[i]);
        }
    } else {
        for (int i = 0; i < count; ++i) {
            pixels[i] = codes[i] == 0 ? 0.0f : pixels[i] / ReferenceGainLinear::DeCompress(codes[i]);
        }
    }
}
