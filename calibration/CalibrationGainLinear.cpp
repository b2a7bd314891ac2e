#include "calibration/CalibrationGainLinear.h"

#include "calibration/CalibrationLifecycle.h"
#include "tools/FrameAccumulation.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/ReferenceException.h"

#include <algorithm>
#include <memory>

using orvane::detail::RequireInit;

CalibrationGainLinear::CalibrationGainLinear(const GainLinearParameters& parameters,
                                             boost::shared_ptr<ReferenceGainLinear> reference,
                                             boost::shared_ptr<ReferenceDM> defectMap)
    : parameters(parameters), reference(reference), defectMap(defectMap) {
    const ImagePtr<unsigned short> stored = reference->GetGainLinear();
    width = stored->GetWidth();
    height = stored->GetHeight();
}

const std::string CalibrationGainLinear::_GetCalibrationType() {
    return "GainLinear";
}

void CalibrationGainLinear::Init() {
    if (workImages.IsOpen()) {
        return;
    }
    workImages.Open(width, height, 2, {&accumulation, &gainImage});
    workImages.FillSlots(0.0f);
}

void CalibrationGainLinear::Clear() {
    workImages.Close();
}

void CalibrationGainLinear::AccumulateGainImg(ImagePtr<unsigned short> frame) {
    try {
        RequireInit(workImages.IsOpen(),
                    "CalibrationGainLinear: AccumulateGainImg failed because Init has not run",
                    __FILE__, __LINE__);
        if (!frame) {
            LogAndThrow<CalibrationException>(
                "CalibrationGainLinear: AccumulateGainImg failed due to null pointer", __FILE__,
                __LINE__);
        }
        orvane::AccumulateFrames(*accumulation, {frame}, orvane::AddFrameAtLeastZero());
        accumulation->GetProperties() = frame->GetProperties();
        ++imageCount;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationGainLinear: AccumulateGainImg failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationGainLinear::DivideAccumulation() {
    RequireInit(workImages.IsOpen(),
                "CalibrationGainLinear: DivideAccumulation failed because Init has not run",
                __FILE__, __LINE__);
    *accumulation->GetBuffer() = *accumulation->GetBuffer() / static_cast<float>(imageCount);
    imageCount = 0;
}

void CalibrationGainLinear::CalculateGainReference(const std::vector<ImagePtr<unsigned short>>& frames) {
    if (frames.empty()) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainLinear::CalculateGainReference failed due uncorrect number of images",
            __FILE__, __LINE__);
    }
    if (workImages.IsOpen() && accumulation &&
        orvane::EveryFramePresent(frames)) {
        // The frames as one pass, block by block: the sums of AccumulateGainImg.
        try {
            orvane::AccumulateFrames(*accumulation, frames, orvane::AddFrameAtLeastZero());
        } catch (...) {
            LogAndThrow<CalibrationException>("CalibrationGainLinear: AccumulateGainImg failed", __FILE__,
                                              __LINE__);
        }
        accumulation->GetProperties() = frames.back()->GetProperties();
        imageCount += static_cast<int>(frames.size());
    } else {
        for (const auto& frame : frames) {
            AccumulateGainImg(frame);
        }
    }
    DivideAccumulation();
    CalculateGainReference();
}

void CalibrationGainLinear::CalculateGainReference() {
    orvane::detail::LogInfo("CalibrationGainLinear : CalculateGainReference");
    const ImagePtr<unsigned char> dm = defectMap->GetDM();
    const std::vector<ROI> areas = parameters.MeasureAreas;
    // new float[0] is not null: with no measure area the mean stays 0, no failure.
    const std::unique_ptr<float[]> levels(new float[areas.size()]);
    float mean = 0.0f;
    if (!accumulation || !gainImage) {
        LogAndThrow<CalibrationException>(
            "CalibrationGainLinear: CalculateGainReference failed due to null pointer", __FILE__,
            __LINE__);
    }
    try {
        std::fill(levels.get(), levels.get() + areas.size(), 0.0f);
        float* buffer = gainImage->GetData();
        for (size_t i = 0; i < areas.size(); ++i) {
            int count = 0;
            _ExtractGoodPixelInMeasureArea(accumulation, dm, areas[i], buffer, count);
            levels[i] = _AverageGaussianFit(buffer, count, parameters.GfaSigmas, parameters.GfaTolerance);
            std::fill(buffer, buffer + count, 0.0f);
        }
        _AverageMean(levels.get(), static_cast<int>(areas.size()), mean);
        orvane::detail::LogInfo("GainLinear AverageMean : ", mean);
        QuadPart area(static_cast<unsigned short>(parameters.X0),
                      static_cast<unsigned short>(parameters.X0 + parameters.Width),
                      static_cast<unsigned short>(parameters.Y0),
                      static_cast<unsigned short>(parameters.Y0 + parameters.Height));
        _Normalizing(accumulation, mean, area, gainImage);
        _Clipping(gainImage);
        const ImagePtr<unsigned short> stored = reference->GetGainLinear();
        stored->GetProperties() = accumulation->GetProperties();
        if (parameters.InvertGain) {
            _Inversion(gainImage);
            reference->SetGainInversion(true);
        }
        reference->CompressImage(gainImage, stored);
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>("CalibrationGainLinear: CalculateGainReference failed",
                                          __FILE__, __LINE__);
    } catch (ReferenceException&) {
        LogAndThrow<CalibrationException>("CalibrationGainLinear: CalculateGainReference failed",
                                          __FILE__, __LINE__);
    } catch (...) {
        // Deliberately not a failure of the operation: it logs and goes on.
        orvane::detail::LogError("CalibrationGainLinear: CalculateGainReference failed");
    }
    orvane::detail::LogInfo("CalibrationGainLinear : CalculateGainReference succeed");
}

void CalibrationGainLinear::_Clipping(ImagePtr<float> image) {
    if (!image || !image->GetData()) {
        LogAndThrow<CalibrationException>("CalibrationGainLinear: _Clipping failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    *image->GetBuffer() = orvane::Clamp(*image->GetBuffer(), parameters.ClipMin, parameters.ClipMax);
}

void CalibrationGainLinear::_Inversion(ImagePtr<float> image) {
    try {
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationGainLinear: _Inversion failed due to null pointer", __FILE__, __LINE__);
        }
        *image->GetBuffer() = 1.0f / *image->GetBuffer();
        image->SetProperty("image.reference.invert", true);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationGainLinear: _Inversion failed", __FILE__, __LINE__);
    }
}
