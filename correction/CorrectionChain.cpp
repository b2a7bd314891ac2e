#include "correction/CorrectionChain.h"

#include "correction/CorrectionKernels.h"
#include "correction/OutputConversion.h"
#include "interfaces/ReferenceException.h"
#include "tools/Parallel.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
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
    return Run(raw, out, nullptr, marks);
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
    const Result result = Run(raw, work, out->GetData(), marks);
    out->GetProperties() = raw->GetProperties();
    return result;
}

CorrectionChain::Result CorrectionChain::Run(const ImagePtr<unsigned short>& raw, const ImagePtr<float>& out,
                                             unsigned short* out16, const ImagePtr<unsigned char>& marks) const {
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
    const unsigned char* map = defectMap ? defectMap->GetData() : nullptr;
    // Bands are independent and the clamp count is a sum of integers, so the split
    // over threads changes nothing.
    std::atomic<std::int64_t> clamped{0};
    orvane::ParallelFor(count, kBand, [&](int first, int end) {
        const int n = end - first;
        if (offset) {
            offset->CorrectSpan(in + first, pixels + first, first, n);
        } else {
            std::copy(in + first, in + end, pixels + first);
        }
        if (linearCodes) {
            orvane::detail::ApplyGainLinear(pixels + first, linearCodes + first, inverted, n);
        } else if (gainPoly) {
            gainPoly->CorrectSpan(pixels + first, first, n);
        }
        // The 16-bit output of a band while it is in cache. Only flagged pixels change
        // afterwards: their clamps are taken back here and counted when they are
        // converted again after the replacement.
        if (out16) {
            std::int64_t band = orvane::detail::ConvertToUInt16(pixels + first, out16 + first, n);
            if (map) {
                band -= ConvertFlagged(map, pixels, out16, first, end);
            }
            clamped += band;
        }
    });
    out->GetProperties() = raw->GetProperties();

    Result result;
    if (!map) {
        if (marks) {
            marks->Fill(DefectReplacement::kMarkGood);
        }
    } else {
        if (out16) {
            // Each flagged pixel goes to 16 bits as soon as it has its value.
            result.defects = replacement.Replace(out, defectMap, marks, [&](std::size_t i) {
                if (orvane::detail::ConvertToUInt16(pixels[i], out16[i]) != 0) ++clamped;
            });
        } else {
            result.defects = replacement.Replace(out, defectMap, marks);
        }
    }
    result.clamped = clamped.load();
    return result;
}

std::int64_t CorrectionChain::ConvertFlagged(const unsigned char* map, const float* pixels, unsigned short* out16,
                                             int first, int end) {
    std::int64_t clamped = 0;
    int i = first;
    // Eight map bytes at a time: most of a map is 0.
    for (; i + 8 <= end; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, map + i, sizeof word);
        if (word != 0) {
            for (int j = i; j < i + 8; ++j) {
                if (map[j] != 0) clamped += orvane::detail::ConvertToUInt16(pixels[j], out16[j]);
            }
        }
    }
    for (; i < end; ++i) {
        if (map[i] != 0) clamped += orvane::detail::ConvertToUInt16(pixels[i], out16[i]);
    }
    return clamped;
}
