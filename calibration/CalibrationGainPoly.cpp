#include "calibration/CalibrationGainPoly.h"

#include "calibration/CalibrationLifecycle.h"
#include "tools/FrameAccumulation.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "tools/Parallel.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>
#include <cstddef>
#include <cmath>
#include <memory>

using orvane::detail::CheckedAt;

namespace {

// The three rows that the elimination of _InvertMatrix works on.
constexpr int kEliminatedRows = 3;

// Pixels whose sums the fit gathers in one sweep over the dose images.
constexpr int kBlock = 256;

// _InvertMatrix for n = N coefficients, or the runtime n when N is 0, on rows of
// pointers or on a local array. A float quotient is the double quotient rounded to
// float; the elimination keeps the product in double and rounds its difference.
template <int N, typename Matrix>
inline bool InvertWithoutPivot(Matrix& matrix, int n) {
    const int size = N > 0 ? N : n;
    for (int i = 0; i < size; ++i) {
        const float d = matrix[i][i];
        if (d == 0.0f || !std::isfinite(d)) {
            return false;
        }
        matrix[i][i] = 1.0f;
        for (int r = 0; r < size; ++r) {
            matrix[r][i] = matrix[r][i] / d;
        }
        for (int column = 0; column < size; ++column) {
            if (column == i) {
                continue;
            }
            const float t = matrix[i][column];
            matrix[i][column] = 0.0f;
            for (int r = 0; r < kEliminatedRows; ++r) {
                matrix[r][column] = static_cast<float>(static_cast<double>(matrix[r][column]) -
                                                       static_cast<double>(matrix[r][i]) * t);
            }
        }
    }
    return true;
}

struct FitData {
    std::vector<const float*> values;  // the dose images
    std::vector<double> numerators;    // (float)framesPerDose * doseWeight, per dose
    std::vector<float> levels;         // the level of each dose
    std::vector<float*> outputs;       // the coefficient images
    int pixels;
};

// The per-pixel fit, for n = N coefficients or the runtime n when N is 0 (N = 3
// unrolls). A block of pixels gathers its sums dose after dose in flat per-power
// rows, which vectorises across pixels; each pixel's sums see the same additions in
// the same order as a pixel-by-pixel loop. M[j][k] sums x^(j+k+2) * w, so it
// depends on j + k alone: one sum per power gives every entry bit for bit.
template <int N, typename Matrix>
void FitPixels(const FitData& data, int n, Matrix& matrix, float* b, float* c, int first, int end) {
    const int size = N > 0 ? N : n;
    const int powers = 2 * size;
    std::vector<float> sums(static_cast<size_t>(powers + 1) * kBlock);
    std::vector<float> rights(static_cast<size_t>(size) * kBlock);
    std::vector<float> weights(kBlock);
    for (int start = first; start < end; start += kBlock) {
        const int block = std::min(kBlock, end - start);
        std::fill(sums.begin(), sums.end(), 0.0f);
        std::fill(rights.begin(), rights.end(), 0.0f);
        for (size_t i = 0; i < data.values.size(); ++i) {
            const float* x = data.values[i] + start;
            const double numerator = data.numerators[i];
            const double y = data.levels[i];
            for (int q = 0; q < block; ++q) {
                weights[q] = static_cast<float>(numerator / (std::fabs(static_cast<double>(x[q])) + 1.0));
            }
            for (int q = 0; q < block; ++q) {
                const double w = weights[q];
                double running = x[q];
                for (int e = 1; e <= powers; ++e) {
                    // x^e as a double product, rounded to float (within an ulp of pow).
                    const double power = static_cast<float>(running);
                    if (e <= size) {
                        float& right = rights[static_cast<size_t>(e - 1) * kBlock + q];
                        right = static_cast<float>(right + power * y * w);
                    }
                    if (e >= 2) {
                        float& sum = sums[static_cast<size_t>(e) * kBlock + q];
                        sum = static_cast<float>(sum + power * w);
                    }
                    running *= x[q];
                }
            }
        }
        for (int q = 0; q < block; ++q) {
            for (int j = 0; j < size; ++j) {
                b[j] = rights[static_cast<size_t>(j) * kBlock + q];
                for (int k = 0; k < size; ++k) {
                    matrix[j][k] = sums[static_cast<size_t>(j + k + 2) * kBlock + q];
                }
            }
            const size_t p = static_cast<size_t>(start + q);
            if (!InvertWithoutPivot<N>(matrix, size)) {
                for (int k = 0; k < size; ++k) {
                    data.outputs[k][p] = 0.0f;
                }
                continue;
            }
            for (int k = 0; k < size; ++k) {
                float sum = 0.0f;
                for (int j = 0; j < size; ++j) {
                    sum = static_cast<float>(sum + static_cast<double>(matrix[j][k]) * b[j]);
                }
                c[k] = sum;
                data.outputs[k][p] = c[k];
            }
        }
    }
}

}  // namespace

using orvane::detail::RequireInit;

CalibrationGainPoly::CalibrationGainPoly(const GainPolyParameters& parameters,
                                         boost::shared_ptr<ReferenceGainPoly> reference,
                                         boost::shared_ptr<ReferenceGainLinear> linearReference,
                                         boost::shared_ptr<ReferenceDM> defectMap, int nbDoses)
    : parameters(parameters), reference(reference), linearReference(linearReference),
      defectMap(defectMap), nbDoses(nbDoses) {
    const ImagePtr<unsigned short> stored = linearReference->GetGainLinear();
    width = stored->GetWidth();
    height = stored->GetHeight();
}

CalibrationGainPoly::~CalibrationGainPoly() {
    _Clear();
}

const std::string CalibrationGainPoly::_GetCalibrationType() {
    return "GainPoly";
}

void CalibrationGainPoly::Init() {
    if (!workImages.IsOpen()) {
        try {
            workImages.Open(width, height, static_cast<std::uint32_t>(std::max(nbDoses, 0) + 4),
                        {&accumulation, &linearGain, &correctedImage});
            coefficientImages.Open(width, height,
                                   static_cast<std::uint32_t>(reference->GetGainPolyCoeff()));
            maskImages.Open(width, height, 1, {&maskImage});
        } catch (...) {
            workImages.Close();
            coefficientImages.Close();
            maskImages.Close();
            throw;
        }
        // Pool images come back with their last user's pixels.
        maskImage->Fill(0);
        accumulation->Fill(0.0f);
        correctedImage->Fill(0.0f);
    }
    doseCount = 0;
    framesInDose = 0;
}

void CalibrationGainPoly::Clear() {
    _Clear();
}

void CalibrationGainPoly::_Clear() {
    workImages.Close();
    coefficientImages.Close();
    maskImages.Close();
    coefficients.clear();
    // The frames counted so far went with the accumulation.
    imageCount = 0;
    doseLevels.clear();
    doseImages.clear();
    framesPerDose.clear();
    doseWeights.clear();
}

void CalibrationGainPoly::AccumulateGainImg(ImagePtr<unsigned short> frame) {
    try {
        RequireInit(workImages.IsOpen(),
                    "CalibrationGainPoly: AccumulateGainImg failed because Init has not run",
                    __FILE__, __LINE__);
        if (!frame) {
            LogAndThrow<CalibrationException>(
                "CalibrationGainPoly: AccumulateGainImg failed due to null pointer", __FILE__, __LINE__);
        }
        orvane::AccumulateFrames(*accumulation, {frame}, orvane::AddFrameAtLeastZero());
        accumulation->GetProperties() = frame->GetProperties();
        ++imageCount;
        ++framesInDose;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: AccumulateGainImg failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationGainPoly::DivideAccumulation(float doseWeight) {
    if (doseCount >= nbDoses) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: DivideAccumulation failed, not enough buffer available", __FILE__,
            __LINE__);
    }
    ImagePtr<float> image;
    try {
        RequireInit(workImages.IsOpen(),
                    "CalibrationGainPoly: DivideAccumulation failed because Init has not run",
                    __FILE__, __LINE__);
        image = workImages.Acquire();
        if (imageCount == 1) {
            *image->GetBuffer() = *accumulation->GetBuffer();
        } else {
            *image->GetBuffer() = *accumulation->GetBuffer() / static_cast<float>(imageCount);
        }
        imageCount = 0;
        image->GetProperties() = accumulation->GetProperties();
        doseImages.push_back(image);
        image.reset();
        framesPerDose.push_back(framesInDose);
        doseWeights.push_back(doseWeight);
        ++doseCount;
        framesInDose = 0;
        accumulation->Fill(0.0f);
    } catch (...) {
        workImages.Release(image);
        LogAndThrow<CalibrationException>("CalibrationGainPoly: DivideAccumulation failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationGainPoly::CalculateGainReference() {
    orvane::detail::LogInfo("CalibrationGainPoly : CalculateGainReference");
    _CalculateGainWithoutDenoise();
    _CompressCoeffToRef();
    orvane::detail::LogInfo("CalibrationGainPoly : CalculateGainReference succeed");
}

void CalibrationGainPoly::_CalculateGainWithoutDenoise() {
    const ImagePtr<unsigned char> dm = defectMap->GetDM();
    const std::vector<ROI> areas = parameters.MeasureAreas;
    if (!defectMap->IsValid()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _CalculateGainWithoutDenoise failed due to invalid DM reference",
            __FILE__, __LINE__);
    }
    if (!accumulation || !accumulation->GetData()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _CalculateGainWithoutDenoise failed due to null pointer", __FILE__,
            __LINE__);
    }
    if (nbDoses > static_cast<int>(doseImages.size())) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _CalculateGainWithoutDenoise failed due to wrong number of acquistion",
            __FILE__, __LINE__);
    }
    try {
        const std::unique_ptr<float[]> levels(new float[areas.size()]);
        float* buffer = accumulation->GetData();
        for (int dose = 0; dose < nbDoses; ++dose) {
            const ImagePtr<float>& image = CheckedAt(doseImages, static_cast<size_t>(dose));
            if (!image || !image->GetData()) {
                LogAndThrow<CalibrationException>(
                    "CalibrationGainPoly: _CalculateGainWithoutDenoise failed due to null pointer",
                    __FILE__, __LINE__);
            }
            std::fill(levels.get(), levels.get() + areas.size(), 0.0f);
            accumulation->Fill(0.0f);
            for (size_t a = 0; a < areas.size(); ++a) {
                int count = 0;
                _ExtractGoodPixelInMeasureArea(image, dm, areas[a], buffer, count);
                levels[a] = _AverageGaussianFit(buffer, count, parameters.GfaSigmas, parameters.GfaTolerance);
                std::fill(buffer, buffer + count, 0.0f);
            }
            float level = 0.0f;
            _AverageMean(levels.get(), static_cast<int>(areas.size()), level);
            doseLevels.push_back(level);
        }
        _ComputePolynomialCoefficients();
    } catch (CalibrationException& failure) {
        // Deliberately not passed on: the host learns of a failed fit from the log.
        orvane::detail::LogError("CalibrationGainPoly: _CalculateGainWithoutDenoise failed : ",
                                 failure.what());
    } catch (...) {
        orvane::detail::LogError("CalibrationGainPoly: _CalculateGainWithoutDenoise failed");
    }
}

void CalibrationGainPoly::_ComputePolynomialCoefficients() {
    const int n = reference->GetGainPolyCoeff();
    const int doses = nbDoses;
    if (n > 0 && n < kEliminatedRows) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _ComputePolynomialCoefficients failed because the store has fewer "
            "than three coefficients",
            __FILE__, __LINE__);
    }
    const size_t count = static_cast<size_t>(n);

    for (ImagePtr<float>& image : coefficients) {
        coefficientImages.Release(image);
    }
    coefficients.clear();
    const ImagePtr<float> first = CheckedAt(doseImages, 0);
    for (int k = 0; k < n; ++k) {
        coefficients.push_back(coefficientImages.Acquire());
        coefficients.back()->GetProperties() = first->GetProperties();
    }

    const size_t d = static_cast<size_t>(std::max(doses, 0));
    if (framesPerDose.size() != d || doseWeights.size() != d || doseLevels.size() != d ||
        doseImages.size() != d) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _ComputePolynomialCoefficients failed due to wrong number of images",
            __FILE__, __LINE__);
    }
    try {
        FitData data;
        for (size_t i = 0; i < d; ++i) {
            data.values.push_back(doseImages[i]->GetData());
            data.numerators.push_back(static_cast<double>(static_cast<float>(framesPerDose[i])) * doseWeights[i]);
        }
        data.levels = doseLevels;
        for (const ImagePtr<float>& image : coefficients) {
            data.outputs.push_back(image->GetData());
        }
        data.pixels = first->GetPixelCount();
        // Pixels are fitted independently: pieces of them run on every core.
        orvane::ParallelFor(data.pixels, 16 * kBlock, [&](int firstPixel, int endPixel) {
            std::vector<float> b(count), c(count);
            if (n == kEliminatedRows) {
                // A local matrix, which the unrolled steps keep in registers.
                float local[kEliminatedRows][kEliminatedRows];
                FitPixels<kEliminatedRows>(data, n, local, b.data(), c.data(), firstPixel, endPixel);
            } else {
                std::vector<std::vector<float>> matrixRows(count, std::vector<float>(count, 0.0f));
                std::vector<float*> matrix(count);
                for (size_t j = 0; j < count; ++j) {
                    matrix[j] = matrixRows[j].data();
                }
                float** rows = matrix.data();
                FitPixels<0>(data, n, rows, b.data(), c.data(), firstPixel, endPixel);
            }
        });
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _ComputePolynomialCoefficients failed",
                                          __FILE__, __LINE__);
    }
    for (ImagePtr<float>& image : doseImages) {
        workImages.Release(image);
    }
    doseImages.clear();
    doseLevels.clear();
}

bool CalibrationGainPoly::_InvertMatrix(float** matrix) {
    return InvertWithoutPivot<0>(matrix, reference->GetGainPolyCoeff());
}

void CalibrationGainPoly::_CompressCoeffToRef() {
    const std::vector<ImagePtr<unsigned short>> stored = reference->GetGainPoly();
    const int n = reference->GetGainPolyCoeff();
    for (int k = 0; k < n; ++k) {
        const size_t index = static_cast<size_t>(k);
        reference->CompressImage(CheckedAt(coefficients, index), k, CheckedAt(stored, index));
        stored[index]->GetProperties() = coefficients[index]->GetProperties();
    }
}

float CalibrationGainPoly::_ComputeClippedAverage(ImagePtr<float> image) {
    if (!image || !image->GetData()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _ComputeClippedAverage failed due to null pointer", __FILE__, __LINE__);
    }
    const float* pixels = image->GetData();
    const int count = image->GetPixelCount();
    double sum = 0.0;
    int kept = 0;
    for (int i = 0; i < count; ++i) {
        if (pixels[i] > parameters.ClipMin && pixels[i] < parameters.ClipMax) {
            sum += pixels[i];
            ++kept;
        }
    }
    return kept == 0 ? 0.0f : static_cast<float>(sum / kept);
}
