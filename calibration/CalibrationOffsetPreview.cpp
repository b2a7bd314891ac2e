#include "calibration/CalibrationOffsetPreview.h"

#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"

CalibrationOffsetPreview::CalibrationOffsetPreview(boost::shared_ptr<ReferenceOffsetSimple> reference)
    : reference(reference) {
    const ImagePtr<unsigned short> offset = reference->GetOffset();
    width = offset->GetWidth();
    height = offset->GetHeight();
}

CalibrationOffsetPreview::~CalibrationOffsetPreview() = default;

const std::string CalibrationOffsetPreview::_GetCalibrationType() {
    return "OffsetPreview";
}

void CalibrationOffsetPreview::UpdateSingleOffsetRef(ImagePtr<unsigned short> image) {
    orvane::detail::LogInfo("CalibrationOffsetPreview : UpdateSingleOffsetRef");
    const ImagePtr<unsigned short> offset = reference->GetOffset();
    try {
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationOffsetPreview: UpdateSingleOffsetRef failed due to null pointer",
                __FILE__, __LINE__);
        }
        offset->GetProperties() = image->GetProperties();
        *offset->GetBuffer() = *image->GetBuffer();
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationOffsetPreview: UpdateSingleOffsetRef failed",
                                          __FILE__, __LINE__);
    }
    orvane::detail::LogInfo("CalibrationOffsetPreview : UpdateSingleOffsetRef succeed");
}
