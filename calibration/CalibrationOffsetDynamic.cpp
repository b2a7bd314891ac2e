#include "calibration/CalibrationOffsetDynamic.h"

#include "calibration/CalibrationOptions.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/ReferenceException.h"

CalibrationOffsetDynamic::CalibrationOffsetDynamic(const OffsetDynamicParameters& parameters,
                                                   boost::shared_ptr<ReferenceOffsetSimple> reference)
    : parameters(parameters), reference(reference) {
    const ImagePtr<unsigned short> offset = reference->GetOffset();
    width = offset->GetWidth();
    height = offset->GetHeight();
}

CalibrationOffsetDynamic::~CalibrationOffsetDynamic() = default;

const std::string CalibrationOffsetDynamic::_GetCalibrationType() {
    return "OffsetDynamic";
}

void CalibrationOffsetDynamic::CalculateOffsetReference(
    const std::vector<ImagePtr<unsigned short>>& images) {
    const bool saveDebugImages = IsCalibrationOptionSet("offset_save_intermediary_sequence");
    if (saveDebugImages) {
        SaveDebugImage(images, _GetCalibrationType(), "input");
    }
    if (images.empty()) {
        LogAndThrow<CalibrationException>(
            "CalibrationOffsetDynamic::CalculateOffsetReference failed due uncorrect number of images",
            __FILE__, __LINE__);
    }
    AccumulateOffsets(images);
    if (saveDebugImages) {
        SaveDebugImage(accumulation, _GetCalibrationType(), "Accumulation");
    }
    DivideAccumulationAndUpdate();
    if (saveDebugImages) {
        SaveDebugImage(reference->GetOffset(), _GetCalibrationType(), "Offset");
    }
}

void CalibrationOffsetDynamic::DivideAccumulationAndUpdate() {
    orvane::detail::LogInfo("CalibrationOffsetDynamic: DivideAccumulationAndUpdate");
    try {
        _DivideAccumulationAndUpdate(reference->GetOffset());
    } catch (ReferenceException&) {
        LogAndThrow<CalibrationException>("CalibrationOffsetDynamic: DivideAccumulationAndUpdate failed",
                                          __FILE__, __LINE__);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationOffsetDynamic: DivideAccumulationAndUpdate failed",
                                          __FILE__, __LINE__);
    }
}

void CalibrationOffsetDynamic::UpdateSingleOffsetRef(ImagePtr<unsigned short> image) {
    orvane::detail::LogInfo("CalibrationOffsetDynamic : UpdateSingleOffsetRef");
    const ImagePtr<unsigned short> offset = reference->GetOffset();
    try {
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationOffsetDynamic: UpdateSingleOffsetRef failed due to null pointer",
                __FILE__, __LINE__);
        }
        offset->GetProperties() = image->GetProperties();
        const float weight = parameters.Weight;
        const float remainder = static_cast<float>(1.0 - weight);
        *offset->GetBuffer() = *image->GetBuffer() * weight + *offset->GetBuffer() * remainder;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationOffsetDynamic: UpdateSingleOffsetRef failed",
                                          __FILE__, __LINE__);
    }
    orvane::detail::LogInfo("CalibrationOffsetDynamic : UpdateSingleOffsetRef succeed");
}
