#include "correction/GainPolyCorrection.h"

#include "correction/CorrectionKernels.h"
#include "interfaces/ReferenceException.h"

namespace {
constexpr int kCodes = 65536;
}

GainPolyCorrection::GainPolyCorrection(boost::shared_ptr<ReferenceGainPoly> store) : store(std::move(store)) {
    if (!this->store) {
        throw ReferenceException("GainPolyCorrection: no polynomial gain store");
    }
    if (this->store->GetGainPolyCoeff() < 1) {
        throw ReferenceException("GainPolyCorrection: the polynomial gain store has no coefficient");
    }
}

int GainPolyCorrection::GetWidth() const { return store->GetGainPoly().front()->GetWidth(); }

int GainPolyCorrection::GetHeight() const { return store->GetGainPoly().front()->GetHeight(); }

void GainPolyCorrection::Correct(const ImagePtr<float>& image) const {
    if (!image) {
        throw ReferenceException("GainPolyCorrection: Correct needs an image");
    }
    orvane::detail::RequireSize("GainPolyCorrection", "a polynomial gain", image->GetWidth(), image->GetHeight(),
                                GetWidth(), GetHeight());
    CorrectSpan(ReadTables(), image->GetData(), 0, image->GetPixelCount());
}

GainPolyCorrection::Tables GainPolyCorrection::ReadTables() const {
    const int n = store->GetGainPolyCoeff();
    const std::vector<ImagePtr<unsigned short>> images = store->GetGainPoly();
    Tables tables;
    tables.values.resize(static_cast<size_t>(n) * kCodes);
    for (int k = 0; k < n; ++k) {
        // The arithmetic of ReferenceGainPoly::DeCompressImage, once per code.
        const double scale = store->GetScale(k);
        float* values = tables.values.data() + static_cast<size_t>(k) * kCodes;
        for (int code = 0; code < kCodes; ++code) {
            values[code] =
                static_cast<float>(static_cast<double>(code - ReferenceGainPoly::kZeroCode) * scale / ReferenceGainPoly::kSteps);
        }
        tables.valuesOf.push_back(values);
        tables.codesOf.push_back(images[static_cast<size_t>(k)]->GetData());
    }
    return tables;
}

void GainPolyCorrection::CorrectSpan(const Tables& tables, float* pixels, int first, int count) {
    orvane::detail::ApplyGainPoly(pixels, first, count, tables.codesOf.data(), tables.valuesOf.data(),
                                  static_cast<int>(tables.codesOf.size()));
}
