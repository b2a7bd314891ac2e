#include "interfaces/ReferenceGainLinear.h"

#include "correction/ReferenceFile.h"
#include "interfaces/ReferenceException.h"

#include <boost/make_shared.hpp>

#include <cmath>

namespace {

const char* const kKind = "ReferenceGainLinear";

template <typename A, typename B>
void CheckPair(const ImagePtr<A>& source, const ImagePtr<B>& target, const char* operation) {
    if (!source || !target) {
        throw ReferenceException(std::string(kKind) + ": " + operation + " needs two images");
    }
    if (source->GetWidth() != target->GetWidth() || source->GetHeight() != target->GetHeight()) {
        throw ReferenceException(std::string(kKind) + ": " + operation + " of a " +
                                 std::to_string(source->GetWidth()) + " x " +
                                 std::to_string(source->GetHeight()) + " image into a " +
                                 std::to_string(target->GetWidth()) + " x " +
                                 std::to_string(target->GetHeight()) + " image");
    }
}

// Exact in double: a float times a power of two, plus one half. Branch-free so that
// the image loop vectorises; NaN fails the first test and gives 0.
inline unsigned short CodeOf(float value) {
    const double scaled = static_cast<double>(value) * ReferenceGainLinear::kCodesPerUnit + 0.5;
    const double low = scaled >= 1.0 ? scaled : 0.0;
    const double code = low < 65535.0 ? low : 65535.0;
    return static_cast<unsigned short>(static_cast<int>(code));
}

}  // namespace

ReferenceGainLinear::ReferenceGainLinear(int width, int height, const std::string& path)
    : Reference(path), gain(boost::make_shared<ImageAcquisition<unsigned short>>(width, height)) {}

ReferenceGainLinear::~ReferenceGainLinear() = default;

ImagePtr<unsigned short> ReferenceGainLinear::GetGainLinear() {
    return gain;
}

unsigned short ReferenceGainLinear::Compress(float value) {
    return CodeOf(value);
}

void ReferenceGainLinear::CompressImage(const ImagePtr<float>& source,
                                        const ImagePtr<unsigned short>& target) {
    CheckPair(source, target, "CompressImage");
    const float* in = source->GetData();
    unsigned short* out = target->GetData();
    const int count = source->GetPixelCount();
    for (int i = 0; i < count; ++i) {
        out[i] = CodeOf(in[i]);
    }
}

void ReferenceGainLinear::DeCompressImage(const ImagePtr<unsigned short>& source,
                                          const ImagePtr<float>& target) {
    CheckPair(source, target, "DeCompressImage");
    *target->GetBuffer() = *source->GetBuffer() / kCodesPerUnit;
}

void ReferenceGainLinear::SetGainInversion(bool isInverted) {
    inverted = isInverted;
}

bool ReferenceGainLinear::GetGainInversion() const {
    return inverted;
}

void ReferenceGainLinear::Save() {
    if (GetPath().empty()) {
        return;
    }
    boost::property_tree::ptree settings;
    settings.put("inverted", inverted);
    orvane::detail::WriteReferenceFile<unsigned short>(*this, kKind, {gain}, settings);
}

void ReferenceGainLinear::Load() {
    if (GetPath().empty()) {
        return;
    }
    auto content = orvane::detail::ReadReferenceFile<unsigned short>(
        *this, kKind, gain->GetWidth(), gain->GetHeight(), 1);
    const auto found = content.settings.get_optional<bool>("inverted");
    if (!found) {
        orvane::detail::ReferenceFileError(kKind, "load", GetPath(),
                                           "the file does not say whether the gain is inverted");
    }
    orvane::detail::CommitReferenceFile(*this, content, {gain});
    inverted = *found;
}
