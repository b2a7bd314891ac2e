#include "calibration/CalibrationGain.h"

#include "calibration/DefectMapChecker.h"
#include "calibration/ImageStatistics.h"
#include "tools/LogAndThrow.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>
#include <cstddef>

CalibrationGain::CalibrationGain() = default;

CalibrationGain::~CalibrationGain() = default;

bool CalibrationGain::_EffectivePixel(const ImagePtr<unsigned char>& defectMap, int index) {
    if (!defectMap || !defectMap->GetData()) {
        LogAndThrow<CalibrationException>("CalibrationGain: _EffectivePixel failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    if (index < 0 || index >= defectMap->GetWidth() * defectMap->GetHeight()) {
        return false;
    }
    return defectMap->GetData()[index] <= DefectMapChecker::s_ucDefectThreshold;
}

void CalibrationGain::_ExtractGoodPixelInMeasureArea(const ImagePtr<float>& image,
                                                     const ImagePtr<unsigned char>& defectMap,
                                                     ROI area, float* goodPixels, int& goodCount) {
    if (goodPixels == nullptr || !image || !image->GetData()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGain: _ExtractGoodPixelInMeasureArea failed due to null pointer", __FILE__,
            __LINE__);
    }
    try {
        const int width = image->GetWidth();
        if (area.left + area.width > width || area.top + area.height > image->GetHeight()) {
            LogAndThrow<CalibrationException>(
                "CalibrationGain: _ExtractGoodPixelInMeasureArea failed because the area leaves the image",
                __FILE__, __LINE__);
        }
        const float* pixels = image->GetData();
        int count = 0;
        for (int row = area.top; row < area.top + area.height; ++row) {
            for (int column = area.left; column < area.left + area.width; ++column) {
                const int index = row * width + column;
                if (_EffectivePixel(defectMap, index)) {
                    goodPixels[count++] = pixels[index];
                }
            }
        }
        goodCount = count;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationGain: _ExtractGoodPixelInMeasureArea failed",
                                          __FILE__, __LINE__);
    }
}

float CalibrationGain::_AverageGaussianFit(float* values, int count, int sigmaFactor, float tolerance) {
    return ClippedMean(values, count, sigmaFactor, tolerance);
}

void CalibrationGain::_AverageMean(float* values, int count, float& mean) {
    if (values == nullptr) {
        LogAndThrow<CalibrationException>("CalibrationGain: _AverageMean failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    float sum = 0.0f;
    for (int i = 0; i < count; ++i) {
        sum += values[i];
    }
    if (count != 0) {
        mean = static_cast<float>(static_cast<double>(sum) / count);
    }
}

void CalibrationGain::_Normalizing(const ImagePtr<float>& source, float mean, QuadPart& area,
                                   const ImagePtr<float>& target) {
    if (!source || !target || !source->GetData() || !target->GetData()) {
        LogAndThrow<CalibrationException>("CalibrationGain: _Normalizing failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    if (source->GetWidth() != target->GetWidth() || source->GetHeight() != target->GetHeight()) {
        LogAndThrow<CalibrationException>("CalibrationGain: _Normalizing failed due to wrong image size",
                                          __FILE__, __LINE__);
    }
    float* out = target->GetData();
    target->Fill(1.0f);
    if (mean == 0.0f) {
        return;
    }
    const int width = target->GetWidth();
    const int columnEnd = std::min<int>(area.columnEnd, width);
    const int rowEnd = std::min<int>(area.rowEnd, target->GetHeight());
    const float* in = source->GetData();
    for (int row = area.rowBegin; row < rowEnd; ++row) {
        const std::ptrdiff_t line = static_cast<std::ptrdiff_t>(row) * width;
        for (int column = area.columnBegin; column < columnEnd; ++column) {
            out[line + column] = in[line + column] / mean;
        }
    }
}
