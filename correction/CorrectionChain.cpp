#include "correction/CorrectionChain.h"

#include "correction/CorrectionKernels.h"
#include "correction/OutputConversion.h"
#include "interfaces/ReferenceException.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstring>

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
    auto correction = std::make_unique<GainPolyCorrection>(gain);
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
    return Run(raw, out, nullptr, marks, nullptr);
}

CorrectionChain::Result CorrectionChain::Correct(const ImagePtr<unsigned short>& raw,
                                                 const ImagePtr<unsigned short>& out,
                                                 const ImagePtr<unsigned char>& marks) {
    if (!raw || !out) {
        throw ReferenceException("CorrectionChain: Correct needs a frame and an output image");
    }
    RequireOwnSize("an output", out->GetWidth(), out->GetHeight());
    if (!work) {
        work = boost::make_shared<ImageAcquisition<float>>(width, height);
    }
    const Result result = Run(raw, work, out->GetData(), marks, &flagged);
    out->GetProperties() = raw->GetProperties();
    return result;
}

CorrectionChain::Result CorrectionChain::Run(const ImagePtr<unsigned short>& raw, const ImagePtr<float>& out,
                                             unsigned short* out16, const ImagePtr<unsigned char>& marks,
                                             std::vector<int>* flaggedPixels) const {
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
    Result result;
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
            gainPoly->CorrectSpan(pixels + first, first, n);
        }
        // The 16-bit output of a band while it is in cache; only flagged pixels change
        // afterwards, and they are converted again below.
        if (out16) {
            result.clamped += orvane::detail::ConvertToUInt16(pixels + first, out16 + first, n);
        }
    }
    out->GetProperties() = raw->GetProperties();

    if (!defectMap) {
        if (marks) {
            marks->Fill(DefectReplacement::kMarkGood);
        }
        return result;
    }
    if (out16) {
        CollectFlagged(*defectMap, *flaggedPixels);
        for (const int i : *flaggedPixels) {
            result.clamped -= orvane::detail::ConvertToUInt16(pixels + i, out16 + i, 1);
        }
    }
    result.defects = replacement.Replace(out, defectMap, marks);
    if (out16) {
        for (const int i : *flaggedPixels) {
            result.clamped += orvane::detail::ConvertToUInt16(pixels + i, out16 + i, 1);
        }
    }
    return result;
}

void CorrectionChain::CollectFlagged(const ImageAcquisition<unsigned char>& map, std::vector<int>& flaggedPixels) {
    flaggedPixels.clear();
    const unsigned char* m = map.GetData();
    const int count = map.GetPixelCount();
    int i = 0;
    // Eight map bytes at a time: most of a map is 0.
    for (; i + 8 <= count; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, m + i, sizeof word);
        if (word != 0) {
            for (int j = i; j < i + 8; ++j) {
                if (m[j] != 0) flaggedPixels.push_back(j);
            }
        }
    }
    for (; i < count; ++i) {
        if (m[i] != 0) flaggedPixels.push_back(i);
    }
}
