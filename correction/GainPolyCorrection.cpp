#include "correction/GainPolyCorrection.h"

#include "correction/CorrectionKernels.h"
#include "interfaces/ReferenceException.h"

#include <boost/make_shared.hpp>

GainPolyCorrection::GainPolyCorrection(const boost::shared_ptr<ReferenceGainPoly>& store) {
    if (!store) {
        throw ReferenceException("GainPolyCorrection: no polynomial gain store");
    }
    const std::vector<ImagePtr<unsigned short>> codes = store->GetGainPoly();
    if (codes.empty()) {
        throw ReferenceException("GainPolyCorrection: the polynomial gain store has no coefficient");
    }
    width = codes.front()->GetWidth();
    height = codes.front()->GetHeight();
    for (int k = 0; k < static_cast<int>(codes.size()); ++k) {
        coefficients.push_back(boost::make_shared<ImageAcquisition<float>>(width, height));
        store->DeCompressImage(k, codes[static_cast<size_t>(k)], coefficients.back());
        coefficientData.push_back(coefficients.back()->GetData());
    }
}

void GainPolyCorrection::Correct(const ImagePtr<float>& image) const {
    if (!image) {
        throw ReferenceException("GainPolyCorrection: Correct needs an image");
    }
    orvane::detail::RequireSize("GainPolyCorrection", "a polynomial gain", image->GetWidth(), image->GetHeight(),
                                width, height);
    CorrectSpan(image->GetData(), 0, image->GetPixelCount());
}

void GainPolyCorrection::CorrectSpan(float* pixels, int first, int count) const {
    orvane::detail::ApplyGainPoly(pixels, coefficientData.data(), static_cast<int>(coefficientData.size()), first,
                                  count);
}
