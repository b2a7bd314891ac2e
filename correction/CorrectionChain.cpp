#include "correction/CorrectionChain.h"

#include "correction/CorrectionKernels.h"
#include "correction/OutputConversion.h"
#include "interfaces/ReferenceException.h"

#include <boost/make_shared.hpp>

#include <algorithm>

namespace {
// Pixels per band of the offset and gain steps: a band's float pixels stay in L1.
constexpr int kBand = 4096;
}

CorrectionChain::CorrectionChain(int width, int height) : width(width), height(height) {
    if (width < 1 || height < 1) {
        throw ReferenceException("CorrectionChain: a chain needs a size of at least 1 x 1");
    }
}

void CorrectionChain::RequireOwnSize(const char* what, int referenceWidth, int referenceHeight) const {
    orvane::detail::RequireSize("CorrectionChain", what, width, height, referenceWidth, referenceHeight);
}

void CorrectionChain::SetOffset(boost::shared_ptr<OffsetCorrection> offset) {
    if (offset) {
        RequireOwnSize("an offset", offset->GetWidth(), offset->GetHeight());
    }
    this->offset = std::move(offset);
}

void CorrectionChain::SetGainLinear(boost::shared_ptr<ReferenceGainLinear> gain) {
    if (gain) {
        const ImagePtr<unsigned short> codes = gain->GetGainLinear();
        RequireOwnSize("a linear gain", codes->GetWidth(), codes->GetHeight());
        gainPoly.reset();
    }
    gainLinear = std::move(gain);
}

void CorrectionChain::SetGainPoly(boost::shared_ptr<ReferenceGainPoly> gain) {
    if (!gain) {
        gainPoly.reset();
        return;
    }
    auto correction = std::make_unique<GainPolyCorrection>(std::move(gain));
    RequireOwnSize("a polynomial gain", correction->GetWidth(), correction->GetHeight());
    gainPoly = std::move(correction);
    gainLinear.reset();
}

void CorrectionChain::SetDefects(ImagePtr<unsigned char> map, const DefectReplacement::Options& options) {
    DefectReplacement configured(options);
    if (map) {
        RequireOwnSize("a defect map", map->GetWidth(), map->GetHeight());
    }
    defectMap = std::move(map);
    replacement = configured;
}

CorrectionChain::Result CorrectionChain::Correct(const ImagePtr<unsigned short>& raw, const ImagePtr<float>& out,
                                                 const ImagePtr<unsigned char>& marks) const {
    if (!raw || !out) {
        throw ReferenceException("CorrectionChain: Correct needs a frame and an output image");
    }
    RequireOwnSize("the chain's references", raw->GetWidth(), raw->GetHeight());
    RequireOwnSize("an output", out->GetWidth(), out->GetHeight());
    if (marks) {
        RequireOwnSize("a marks plane", marks->GetWidth(), marks->GetHeight());
    }

    const int count = raw->GetPixelCount();
    const unsigned short* in = raw->GetData();
    float* pixels = out->GetData();
    const unsigned short* linearCodes = gainLinear ? gainLinear->GetGainLinear()->GetData() : nullptr;
    const bool inverted = gainLinear && gainLinear->GetGainInversion();
    GainPolyCorrection::Tables polyTables;
    if (gainPoly) {
        polyTables = gainPoly->ReadTables();
    }
    for (int first = 0; first < count; first += kBand) {
        const int n = std::min(kBand, count - first);
        if (offset) {
            offset->CorrectSpan(in + first, pixels + first, first, n);
        } else {
            std::copy(in + first, in + first + n, pixels + first);
        }
        if (linearCodes) {
            orvane::detail::ApplyGainLinear(pixels + first, linearCodes + first, inverted, n);
        } else if (gainPoly) {
            GainPolyCorrection::CorrectSpan(polyTables, pixels + first, first, n);
        }
    }
    out->GetProperties() = raw->GetProperties();

    Result result;
    if (defectMap) {
        result.defects = replacement.Replace(out, defectMap, marks);
    } else if (marks) {
        marks->Fill(DefectReplacement::kMarkGood);
    }
    return result;
}

CorrectionChain::Result CorrectionChain::Correct(const ImagePtr<unsigned short>& raw,
                                                 const ImagePtr<unsigned short>& out,
                                                 const ImagePtr<unsigned char>& marks) {
    if (!out) {
        throw ReferenceException("CorrectionChain: Correct needs a frame and an output image");
    }
    RequireOwnSize("an output", out->GetWidth(), out->GetHeight());
    if (!work) {
        work = boost::make_shared<ImageAcquisition<float>>(width, height);
    }
    Result result = Correct(raw, work, marks);
    result.clamped = OutputConversion::ToUInt16(work, out);
    return result;
}
