#include "interfaces/CorrectionGainLinear.h"

#include "correction/CorrectionKernels.h"
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
    orvane::detail::ApplyGainLinear(image->GetData(), stored->GetData(), gain->GetGainInversion(),
                                    image->GetPixelCount());
}
