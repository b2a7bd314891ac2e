#include "correction/OutputConversion.h"

#include "correction/CorrectionKernels.h"
#include "interfaces/ReferenceException.h"

std::int64_t OutputConversion::ToUInt16(const ImagePtr<float>& corrected, const ImagePtr<unsigned short>& out) {
    if (!corrected || !out) {
        throw ReferenceException("OutputConversion: ToUInt16 needs a frame and an output image");
    }
    orvane::detail::RequireSize("OutputConversion", "an output", corrected->GetWidth(), corrected->GetHeight(),
                                out->GetWidth(), out->GetHeight());
    out->GetProperties() = corrected->GetProperties();
    return orvane::detail::ConvertToUInt16(corrected->GetData(), out->GetData(), corrected->GetPixelCount());
}
