#include "interfaces/ReferenceGainPoly.h"

#include "correction/ReferenceFile.h"
#include "interfaces/ReferenceException.h"
#include "tools/Parallel.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace {

const char* const kKind = "ReferenceGainPoly";

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

void CheckCoefficient(int coefficient, size_t count) {
    if (coefficient < 0 || static_cast<size_t>(coefficient) >= count) {
        throw ReferenceException(std::string(kKind) + ": no coefficient " + std::to_string(coefficient));
    }
}

// NaN gives the zero code; anything beyond the scale, infinities included, the
// extreme code of its sign.
inline unsigned short CodeOf(float value, double scale) {
    double q = static_cast<double>(value) * ReferenceGainPoly::kSteps / scale;
    if (!(q == q)) {
        q = 0.0;
    }
    q = std::min(std::max(q, -static_cast<double>(ReferenceGainPoly::kSteps)),
                 static_cast<double>(ReferenceGainPoly::kSteps));
    const int steps = q >= 0.0 ? static_cast<int>(q + 0.5) : -static_cast<int>(0.5 - q);
    return static_cast<unsigned short>(ReferenceGainPoly::kZeroCode + steps);
}

// The scales as the settings of the store file: "scales" holds them in order,
// separated by blanks, each with the nine digits that bring a float back exactly.
boost::property_tree::ptree Settings(const std::vector<float>& scales) {
    std::string text;
    for (float scale : scales) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%.9g", static_cast<double>(scale));
        text += (text.empty() ? "" : " ") + std::string(digits);
    }
    boost::property_tree::ptree settings;
    settings.put("coefficients", scales.size());
    settings.put("scales", text);
    return settings;
}

}  // namespace

ReferenceGainPoly::ReferenceGainPoly(int width, int height, int coefficientCount,
                                     const std::string& path)
    : Reference(path), width(width), height(height) {
    if (coefficientCount < 0) {
        throw ReferenceException(std::string(kKind) + ": a store cannot have " +
                                 std::to_string(coefficientCount) + " coefficients");
    }
    for (int k = 0; k < coefficientCount; ++k) {
        coefficients.push_back(boost::make_shared<ImageAcquisition<unsigned short>>(width, height));
    }
    scales.assign(static_cast<size_t>(coefficientCount), 0.0f);
}

ReferenceGainPoly::~ReferenceGainPoly() = default;

std::vector<ImagePtr<unsigned short>> ReferenceGainPoly::GetGainPoly() {
    return coefficients;
}

int ReferenceGainPoly::GetGainPolyCoeff() const {
    return static_cast<int>(coefficients.size());
}

float ReferenceGainPoly::GetScale(int coefficient) const {
    CheckCoefficient(coefficient, scales.size());
    return scales[static_cast<size_t>(coefficient)];
}

void ReferenceGainPoly::CompressImage(const ImagePtr<float>& source, int coefficient,
                                      const ImagePtr<unsigned short>& target) {
    CheckCoefficient(coefficient, scales.size());
    CheckPair(source, target, "CompressImage");
    const float* in = source->GetData();
    const int count = source->GetPixelCount();
    // The largest finite magnitude: the largest of each piece's, the same value for
    // any split. Then every pixel's code on its own.
    constexpr int kPiece = 4096;
    std::vector<float> largest(static_cast<size_t>((count + kPiece - 1) / kPiece), 0.0f);
    orvane::ParallelFor(count, kPiece, [&](int begin, int end) {
        float scale = 0.0f;
        for (int i = begin; i < end; ++i) {
            const float magnitude = std::fabs(in[i]);
            if (magnitude > scale && std::isfinite(magnitude)) {
                scale = magnitude;
            }
        }
        largest[static_cast<size_t>(begin / kPiece)] = scale;
    });
    const float scale = largest.empty() ? 0.0f : *std::max_element(largest.begin(), largest.end());
    unsigned short* out = target->GetData();
    orvane::ParallelFor(count, kPiece, [&](int begin, int end) {
        for (int i = begin; i < end; ++i) {
            out[i] = CodeOf(in[i], scale);
        }
    });
    scales[static_cast<size_t>(coefficient)] = scale;
}

void ReferenceGainPoly::DeCompressImage(int coefficient, const ImagePtr<unsigned short>& source,
                                        const ImagePtr<float>& target) {
    const double scale = GetScale(coefficient);
    CheckPair(source, target, "DeCompressImage");
    const unsigned short* in = source->GetData();
    float* out = target->GetData();
    const int count = source->GetPixelCount();
    for (int i = 0; i < count; ++i) {
        out[i] = static_cast<float>(static_cast<double>(in[i] - kZeroCode) * scale / kSteps);
    }
}

void ReferenceGainPoly::Save() {
    if (GetPath().empty()) {
        return;
    }
    orvane::detail::WriteReferenceFile<unsigned short>(*this, kKind, coefficients, Settings(scales));
}

void ReferenceGainPoly::Load() {
    if (GetPath().empty()) {
        return;
    }
    auto content = orvane::detail::ReadReferenceFile<unsigned short>(
        *this, kKind, width, height, static_cast<int>(coefficients.size()));
    const auto count = content.settings.get_optional<size_t>("coefficients");
    if (!count || *count != coefficients.size()) {
        orvane::detail::ReferenceFileError(kKind, "load", GetPath(),
                                           "the file does not hold " +
                                               std::to_string(coefficients.size()) + " coefficients");
    }
    std::vector<float> loaded;
    std::istringstream text(content.settings.get<std::string>("scales", ""));
    std::string token;
    while (text >> token) {
        char* end = nullptr;
        const float scale = std::strtof(token.c_str(), &end);
        if (*end != '\0' || !std::isfinite(scale) || scale < 0.0f) {
            orvane::detail::ReferenceFileError(kKind, "load", GetPath(), "bad scale '" + token + "'");
        }
        loaded.push_back(scale);
    }
    if (loaded.size() != coefficients.size()) {
        orvane::detail::ReferenceFileError(kKind, "load", GetPath(),
                                           "the file holds " + std::to_string(loaded.size()) +
                                               " scales for " + std::to_string(coefficients.size()) +
                                               " coefficients");
    }
    orvane::detail::CommitReferenceFile(*this, content, coefficients);
    scales = loaded;
}
