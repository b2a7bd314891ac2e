// The denoised road of CalibrationGainPoly: linear correction of the dose images,
// robust moving averages over the denoise areas, and the coefficients folded back
// for undivided pixel values.

#include "calibration/CalibrationGainPoly.h"

#include "calibration/ImageStatistics.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "tools/Parallel.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <vector>

using orvane::detail::CheckedAt;

namespace {

// The area buffers held for a run: four of _DenoisingArea, one of _CreatingROIMask.
constexpr size_t kAreaBuffers = 5;

// The checks of every copy between an image's area and a flat buffer: both hold
// pixels, and the half-open area lies inside the image.
template <typename T, typename B>
void CheckAreaCopy(const ImagePtr<T>& image, const B* buffer, const QuadPart& area,
                   const char* nullMessage, const char* outsideMessage) {
    if (!image || !image->GetData() || buffer == nullptr) {
        LogAndThrow<CalibrationException>(nullMessage, __FILE__, __LINE__);
    }
    if (!(area.columnBegin <= area.columnEnd && area.columnEnd <= image->GetWidth() &&
          area.rowBegin <= area.rowEnd && area.rowEnd <= image->GetHeight())) {
        LogAndThrow<CalibrationException>(outsideMessage, __FILE__, __LINE__);
    }
}

}  // namespace

void CalibrationGainPoly::CalculateDenoisedGainReference() {
    _ComputeLinearCoefficients();
    _DenoisingCalibrationImage();
    _CalculateGainWithoutDenoise();
    _FormattingCoefficient();
    _CompressCoeffToRef();
}

void CalibrationGainPoly::_ComputeLinearCoefficients() {
    if (!linearGain || !linearGain->GetData()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: ComputeLinearCoefficients failed due to null buffer", __FILE__, __LINE__);
    }
    const ImagePtr<unsigned short> stored = linearReference->GetGainLinear();
    linearReference->DeCompressImage(stored, accumulation);
    *linearGain->GetBuffer() = *accumulation->GetBuffer();
}

void CalibrationGainPoly::_ApplyLinearCorrection(int dose) {
    const ImagePtr<float> image = CheckedAt(doseImages, static_cast<size_t>(dose));
    if (!image || !image->GetData() || !linearGain || !linearGain->GetData() || !correctedImage ||
        !correctedImage->GetData()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _ApplyLinearCorrection failed due to null pointer", __FILE__, __LINE__);
    }
    float* pixels = image->GetData();
    float* corrected = correctedImage->GetData();
    const float* gain = linearGain->GetData();
    const int count = std::min({image->GetPixelCount(), linearGain->GetPixelCount(),
                                correctedImage->GetPixelCount()});
    for (int i = 0; i < count; ++i) {
        const float g = gain[i];
        if (g != 0.0f) {
            // A float quotient is the double quotient rounded to float.
            const float quotient = pixels[i] / g;
            pixels[i] = quotient;
            corrected[i] = quotient;
        } else {
            pixels[i] = 0.0f;
        }
    }
}

void CalibrationGainPoly::_FormattingCoefficient() {
    if (!linearGain || !linearGain->GetData()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _FormattingCoefficient failed due to null pointer", __FILE__, __LINE__);
    }
    const float* gain = linearGain->GetData();
    const int n = reference->GetGainPolyCoeff();
    for (int k = 0; k < n; ++k) {
        const ImagePtr<float>& coefficient = CheckedAt(coefficients, static_cast<size_t>(k));
        if (!coefficient || !coefficient->GetData()) {
            LogAndThrow<CalibrationException>(
                "CalibrationGainPoly: _FormattingCoefficient failed due to null pointer", __FILE__, __LINE__);
        }
        float* values = coefficient->GetData();
        const int count = std::min(coefficient->GetPixelCount(), linearGain->GetPixelCount());
        for (int i = 0; i < count; ++i) {
            const float g = gain[i];
            if (g == 0.0f) {
                values[i] = 0.0f;
                continue;
            }
            // g^(k+1) as a double product, rounded to float (within an ulp of pow).
            double power = g;
            for (int e = 0; e < k; ++e) {
                power *= g;
            }
            values[i] = values[i] / static_cast<float>(power);
        }
    }
}

void CalibrationGainPoly::_AddMaskPixel(ImagePtr<float> first, ImagePtr<float> second,
                                        ImagePtr<unsigned char> mask, ImagePtr<float> target) {
    if (!first || !second || !mask || !target || !first->GetData() || !second->GetData() ||
        !mask->GetData() || !target->GetData()) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _AddMaskPixel failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    const int width = first->GetWidth();
    if (second->GetWidth() != width || mask->GetWidth() != width || target->GetWidth() != width) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _AddMaskPixel failed due to different size X", __FILE__, __LINE__);
    }
    const int height = first->GetHeight();
    if (second->GetHeight() != height || mask->GetHeight() != height || target->GetHeight() != height) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _AddMaskPixel failed due to different size Y", __FILE__, __LINE__);
    }
    const float* kept = first->GetData();
    const float* estimated = second->GetData();
    const unsigned char* chosen = mask->GetData();
    float* out = target->GetData();
    const int count = first->GetPixelCount();
    for (int i = 0; i < count; ++i) {
        out[i] = chosen[i] != 0 ? estimated[i] : kept[i];
    }
}

void CalibrationGainPoly::_DenoisingCalibrationImage() {
    const std::vector<ROI> areas = parameters.DenoiseAreas;
    if (doseImages.empty()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _DenoisingCalibrationImage failed due to empty calibration stack",
            __FILE__, __LINE__);
    }
    // Gives the area buffers back on every way out.
    struct ScratchRelease {
        orvane::detail::PixelVector<float>& scratch;
        ~ScratchRelease() { orvane::detail::PixelVector<float>().swap(scratch); }
    } release{areaScratch};
    try {
        size_t largest = 0;
        for (const ROI& area : areas) {
            largest = std::max(largest, static_cast<size_t>(area.height) * area.width);
        }
        areaScratch.assign(kAreaBuffers * largest, 0.0f);
        const auto areaPixels = orvane::detail::AllocatePixels<float>(largest);
        const auto denoised = orvane::detail::AllocatePixels<float>(largest);
        const auto areaMask = orvane::detail::AllocatePixels<unsigned char>(largest);
        for (int dose = 0; dose < nbDoses; ++dose) {
            _ApplyLinearCorrection(dose);
            const ImagePtr<float> image = CheckedAt(doseImages, static_cast<size_t>(dose));
            for (const ROI& area : areas) {
                QuadPart quad(area.left, static_cast<unsigned short>(area.left + area.width), area.top,
                              static_cast<unsigned short>(area.top + area.height));
                std::fill(areaPixels.get(), areaPixels.get() + largest, 0.0f);
                std::fill(denoised.get(), denoised.get() + largest, 0.0f);
                std::fill(areaMask.get(), areaMask.get() + largest, static_cast<unsigned char>(0));
                _ExtractingUsedArea(image, quad, areaPixels.get());
                _DenoisingArea(areaPixels.get(), area.height, area.width, denoised.get(), areaMask.get());
                _ReplacingArea(denoised.get(), quad, image);
                _ReplacingMaskArea(areaMask.get(), quad, maskImage);
                _AddMaskPixel(correctedImage, image, maskImage, image);
            }
        }
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _DenoisingCalibrationImage failed",
                                          __FILE__, __LINE__);
    } catch (...) {
        // Deliberately not a failure: the next step works on what the images hold.
        orvane::detail::LogError("CalibrationGainPoly: _DenoisingCalibrationImage failed");
    }
}

void CalibrationGainPoly::_DenoisingArea(float* pixels, int rows, int columns, float* denoised,
                                         unsigned char* mask) {
    if (pixels == nullptr) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _DenoisingArea failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    try {
        const int n = rows > 0 && columns > 0 ? rows * columns : 0;
        const size_t size = static_cast<size_t>(n);
        std::unique_ptr<float[]> own;
        float* goodMask = nullptr;
        if (!areaScratch.empty() && areaScratch.size() >= 4 * size) {
            goodMask = areaScratch.data();
        } else {
            own.reset(new float[4 * size]);
            goodMask = own.get();
        }
        std::fill(goodMask, goodMask + 4 * size, 0.0f);
        float* firstAverage = goodMask + size;
        float* residual = firstAverage + size;
        float* secondAverage = residual + size;

        _DetectingBadPixels(pixels, rows, columns, false, goodMask);
        _RobustMovingAverage(pixels, rows, columns, false, goodMask, firstAverage);
        _Sub(pixels, firstAverage, residual, n);
        std::fill(goodMask, goodMask + size, 0.0f);
        _DetectingBadPixels(residual, rows, columns, true, goodMask);
        _RobustMovingAverage(residual, rows, columns, true, goodMask, secondAverage);
        _Add(firstAverage, secondAverage, denoised, n);
        // goodMask now holds the differences between the pixels and their estimate.
        std::fill(goodMask, goodMask + size, 0.0f);
        _Sub(pixels, denoised, goodMask, n);
        _CreatingROIMask(goodMask, mask, n);
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _DenoisingArea failed", __FILE__, __LINE__);
    } catch (...) {
        orvane::detail::LogError("CalibrationGainPoly: _DenoisingArea failed");
    }
}

void CalibrationGainPoly::_DetectingBadPixels(float* pixels, int rows, int columns, bool alongRows,
                                              float* goodMask) {
    if (pixels == nullptr || goodMask == nullptr) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _DetectingBadPixels failed due to null pointer", __FILE__, __LINE__);
    }
    try {
        const int length = std::max(alongRows ? columns : rows, 0);
        const int lines = alongRows ? rows : columns;
        const int factor = alongRows ? parameters.RowSigmaFactor : parameters.ColumnSigmaFactor;
        // Lines are independent: pieces of them run on every core.
        orvane::ParallelFor(lines, 16, [&](int firstLine, int endLine) {
            const std::unique_ptr<float[]> line(new float[static_cast<size_t>(length)]);
            for (int l = firstLine; l < endLine; ++l) {
                const size_t first = static_cast<size_t>(l) * static_cast<size_t>(length);
                const float* samples = pixels + first;
                float* good = goodMask + first;
                std::copy(samples, samples + length, line.get());
                float center = 0.0f;
                float spread = 0.0f;
                _MedianAndSigma(line.get(), length, &center, &spread);
                const float limit = static_cast<float>(
                    static_cast<double>(static_cast<float>(factor * 3)) * spread * 0.5);
                for (int i = 0; i < length; ++i) {
                    const float difference = static_cast<float>(static_cast<double>(samples[i]) - center);
                    good[i] = limit >= std::fabs(difference) ? 1.0f : 0.0f;
                }
            }
        });
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _DetectingBadPixels failed", __FILE__,
                                          __LINE__);
    } catch (...) {
        orvane::detail::LogError("CalibrationGainPoly: _DetectingBadPixels failed");
    }
}

void CalibrationGainPoly::_RobustMovingAverage(float* pixels, int rows, int columns, bool alongRows,
                                               float* goodMask, float* average) {
    if (pixels == nullptr || average == nullptr || goodMask == nullptr) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _RobustMovingAverage failed due to null pointer", __FILE__, __LINE__);
    }
    const long length = std::max(alongRows ? columns : rows, 0);
    const int lines = alongRows ? rows : columns;
    const long half = ((alongRows ? parameters.RowWindow : parameters.ColumnWindow) - 1) / 2;
    // Lines are independent: pieces of them run on every core.
    orvane::ParallelFor(lines, 16, [&](int firstLine, int endLine) {
        for (int l = firstLine; l < endLine; ++l) {
            const size_t first = static_cast<size_t>(l) * static_cast<size_t>(length);
            const float* samples = pixels + first;
            const float* good = goodMask + first;
            float* out = average + first;
            if (half < 0) {
                std::fill(out, out + length, 0.0f);
                continue;
            }
            double sum = 0.0;
            int kept = 0;
            for (long s = 0; s <= std::min(half, length - 1); ++s) {
                if (good[s] == 1.0f) {
                    sum += samples[s];
                    ++kept;
                }
            }
            for (long i = 0; i < length; ++i) {
                out[i] = kept > 0 ? static_cast<float>(static_cast<double>(static_cast<float>(sum)) /
                                                       static_cast<float>(kept))
                                  : 0.0f;
                const long leaving = i - half;
                if (leaving >= 0 && good[leaving] == 1.0f) {
                    sum -= samples[leaving];
                    --kept;
                }
                const long entering = i + 1 + half;
                if (entering < length && good[entering] == 1.0f) {
                    sum += samples[entering];
                    ++kept;
                }
            }
        }
    });
}

void CalibrationGainPoly::_MedianAndSigma(float* samples, int count, float* center, float* spread) {
    if (samples == nullptr || center == nullptr || spread == nullptr) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _MedianAndSigma failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    // Not MeanAndSigma: here the sum is rounded to float before the division.
    double sum = 0.0;
    for (int i = 0; i < count; ++i) {
        sum += samples[i];
    }
    const float mean =
        static_cast<float>(static_cast<double>(static_cast<float>(sum)) / static_cast<float>(count));
    double squares = 0.0;
    for (int i = 0; i < count; ++i) {
        const double deviation = static_cast<float>(static_cast<double>(samples[i]) - mean);
        squares += deviation * deviation;
    }
    *center = mean;
    *spread = static_cast<float>(std::sqrt(squares / count));
}

void CalibrationGainPoly::_CreatingROIMask(float* differences, unsigned char* mask, int count) {
    if (differences == nullptr || mask == nullptr) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainPoly: _CreatingROIMask failed due to null pointer", __FILE__, __LINE__);
    }
    const size_t size = static_cast<size_t>(std::max(count, 0));
    // ClippedSigma reorders and shortens its values, so it works on a copy: at the
    // end of the area buffers when they are held (past the four of _DenoisingArea),
    // else in a buffer of its own.
    std::vector<float> own;
    float* copy = nullptr;
    if (!areaScratch.empty() && areaScratch.size() >= kAreaBuffers * size) {
        copy = areaScratch.data() + (areaScratch.size() - size);
    } else {
        own.resize(size);
        copy = own.data();
    }
    std::copy(differences, differences + size, copy);
    const float noise = ClippedSigma(copy, count, parameters.GfaSigmas, parameters.GfaTolerance);
    const double band = static_cast<double>(static_cast<float>(parameters.MaskSigmas)) * noise;
    for (size_t i = 0; i < size; ++i) {
        mask[i] = band >= std::fabs(static_cast<double>(differences[i])) ? 1 : 0;
    }
}

void CalibrationGainPoly::_Add(float* a, float* b, float* result, int count) {
    if (a == nullptr || b == nullptr || result == nullptr) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _Add failed due to null pointer", __FILE__,
                                          __LINE__);
    }
    ImageBuffer<float> left(a, count), right(b, count), out(result, count);
    out = left + right;
}

void CalibrationGainPoly::_Sub(float* a, float* b, float* result, int count) {
    if (a == nullptr || b == nullptr || result == nullptr) {
        LogAndThrow<CalibrationException>("CalibrationGainPoly: _Sub failed due to null pointer", __FILE__,
                                          __LINE__);
    }
    ImageBuffer<float> left(a, count), right(b, count), out(result, count);
    out = left - right;
}

void CalibrationGainPoly::_ExtractingUsedArea(ImagePtr<float> image, QuadPart& area, float* pixels) {
    CheckAreaCopy(image, pixels, area,
                  "CalibrationGainPoly: _ExtractingUsedArea failed due to null pointer",
                  "CalibrationGainPoly: _ExtractingUsedArea failed because the area leaves the image");
    const int columns = area.columnEnd - area.columnBegin;
    const int rows = area.rowEnd - area.rowBegin;
    if (columns == 0 || rows == 0) {
        return;
    }
    ImageBuffer<float> flat(pixels, columns * rows);
    flat = image->GetBuffer()->Extract(area.columnBegin, area.rowBegin, columns, rows, image->GetWidth(),
                                       image->GetHeight());
}

void CalibrationGainPoly::_ReplacingArea(float* pixels, QuadPart& area, ImagePtr<float> image) {
    CheckAreaCopy(image, pixels, area,
                  "CalibrationGainPoly: _ReplacingArea failed due to null pointer",
                  "CalibrationGainPoly: _ReplacingArea failed because the area leaves the image");
    const int columns = area.columnEnd - area.columnBegin;
    const int rows = area.rowEnd - area.rowBegin;
    if (columns == 0 || rows == 0) {
        return;
    }
    ImageBuffer<float> flat(pixels, columns * rows);
    ImagePixelRect<float> rectangle = image->GetPixelRect(area.columnBegin, area.rowBegin, columns, rows);
    rectangle = flat.Extract(0, 0, columns, rows, columns, rows);
}

void CalibrationGainPoly::_ReplacingMaskArea(unsigned char* mask, QuadPart& area,
                                             ImagePtr<unsigned char> image) {
    // A null mask is reported under the name of the float copy, as it always was.
    CheckAreaCopy(image, mask, area,
                  "CalibrationGainPoly: _ReplacingArea failed due to null pointer",
                  "CalibrationGainPoly: _ReplacingMaskArea failed because the area leaves the image");
    const int columns = area.columnEnd - area.columnBegin;
    const size_t stride = static_cast<size_t>(image->GetWidth());
    unsigned char* first = image->GetData() + area.columnBegin;
    for (int row = area.rowBegin; row < area.rowEnd; ++row, mask += columns) {
        // A sum of two byte buffers keeps its low 8 bits.
        ImageBuffer<unsigned char> target(first + static_cast<size_t>(row) * stride, columns);
        ImageBuffer<unsigned char> added(mask, columns);
        target = target + added;
    }
}
