#include "correction/OffsetCorrection.h"

#include "correction/CorrectionKernels.h"
#include "interfaces/ReferenceException.h"

OffsetCorrection::OffsetCorrection(boost::shared_ptr<ReferenceOffsetSimple> store) : store(std::move(store)) {
    if (!this->store) {
        throw ReferenceException("OffsetCorrection: no offset store");
    }
}

OffsetCorrection::OffsetCorrection(ImagePtr<float> offset) : fixed(std::move(offset)) {
    if (!fixed) {
        throw ReferenceException("OffsetCorrection: no offset image");
    }
}

int OffsetCorrection::GetWidth() const { return fixed ? fixed->GetWidth() : store->GetOffset()->GetWidth(); }

int OffsetCorrection::GetHeight() const { return fixed ? fixed->GetHeight() : store->GetOffset()->GetHeight(); }

void OffsetCorrection::Correct(const ImagePtr<unsigned short>& raw, const ImagePtr<float>& out) const {
    if (!raw || !out) {
        throw ReferenceException("OffsetCorrection: Correct needs a frame and an output image");
    }
    orvane::detail::RequireSize("OffsetCorrection", "an offset", raw->GetWidth(), raw->GetHeight(), GetWidth(),
                                GetHeight());
    orvane::detail::RequireSize("OffsetCorrection", "an output", raw->GetWidth(), raw->GetHeight(),
                                out->GetWidth(), out->GetHeight());
    CorrectSpan(raw->GetData(), out->GetData(), 0, raw->GetPixelCount());
    out->GetProperties() = raw->GetProperties();
}

void OffsetCorrection::CorrectSpan(const unsigned short* raw, float* out, int first, int count) const {
    if (fixed) {
        orvane::detail::SubtractOffset(raw, fixed->GetData() + first, out, count);
    } else {
        orvane::detail::SubtractOffset(raw, store->GetOffset()->GetData() + first, out, count);
    }
}
