#include "calibration/CalibrationDefectMapDark.h"
#include "calibration/CalibrationLifecycle.h"

#include "calibration/DefectMapChecker.h"
#include "calibration/DefectMapSteps.h"
#include "calibration/ImageStatistics.h"
#include "tools/FrameAccumulation.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>

using orvane::detail::RequireInit;

CalibrationDefectMapDark::CalibrationDefectMapDark(const DefectMapDarkParameters& parameters,
                                                   boost::shared_ptr<ReferenceDM> reference)
    : parameters(parameters), reference(reference) {
    const ImagePtr<unsigned char> map = reference->GetDM();
    width = map->GetWidth();
    height = map->GetHeight();
}

const std::string CalibrationDefectMapDark::_GetCalibrationType() {
    return "DMDark";
}

void CalibrationDefectMapDark::Init() {
    orvane::detail::InitZeroedWorkImages(workImages, width, height, 2, {&defects, &work},
                                         "CalibrationDefectMapDark: Init failed", __FILE__, __LINE__);
    accumulated = 0;
}

void CalibrationDefectMapDark::Clear() {
    workImages.Close();
}

void CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge(
    const std::vector<ImagePtr<unsigned short>>& images) {
    if (images.empty()) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge failed due uncorrect number of images",
            __FILE__, __LINE__);
    }
    if (workImages.IsOpen() &&
        orvane::EveryFramePresent(images)) {
        // The series as one pass, block by block: the sums of the loop below.
        try {
            orvane::AccumulateFrames(*work, images, orvane::AddFrame());
        } catch (...) {
            LogAndThrow<CalibrationException>("CalibrationDefectMapDark: AccumulateImg failed", __FILE__,
                                              __LINE__);
        }
        work->GetProperties() = images.back()->GetProperties();
        accumulated += static_cast<int>(images.size());
    } else {
        for (const auto& image : images) {
            _AccumulateImg(image);
        }
    }
    _FinishSeries();
}

void CalibrationDefectMapDark::AccumulateImg(ImagePtr<unsigned short> image) { _AccumulateImg(image); }

void CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge() {
    if (accumulated == 0) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge failed due uncorrect number of images",
            __FILE__, __LINE__);
    }
    _FinishSeries();
}

void CalibrationDefectMapDark::_FinishSeries() {
    _DivideAccumulation();
    _ComputeDefectMapDarkAndMerge();
    // The count is a pass over the frame: taken only when a sink listens.
    LogEntry entry;
    if (entry.Composing()) {
        entry.Stream() << loglevelinfo()
                       << "CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge - Number of detected defects : "
                       << CountPositivePixels(defects) << std::endl;
    }
}

void CalibrationDefectMapDark::_AccumulateImg(ImagePtr<unsigned short> image) {
    try {
        RequireInit(workImages.IsOpen(),
                    "CalibrationDefectMapDark: AccumulateImg failed because Init has not run",
                    __FILE__, __LINE__);
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationDefectMapDark: AccumulateImg failed due to null pointer", __FILE__, __LINE__);
        }
        orvane::AccumulateFrames(*work, {image}, orvane::AddFrame());
        work->GetProperties() = image->GetProperties();
        ++accumulated;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMapDark: AccumulateImg failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationDefectMapDark::_DivideAccumulation() {
    *work->GetBuffer() = *work->GetBuffer() / static_cast<float>(accumulated);
    accumulated = 0;
}

void CalibrationDefectMapDark::_ComputeDefectMapDarkAndMerge() {
    orvane::detail::LogInfo("CalibrationDefectMapDark : DefectMapDark");
    try {
        *defects->GetBuffer() +=
            orvane::Outside(*work->GetBuffer(), parameters.ThresholdMin, parameters.ThresholdMax);
        defects->GetProperties() = work->GetProperties();
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMapDark: DefectMapDark failed", __FILE__,
                                          __LINE__);
    }
    orvane::detail::LogInfo("Defect Map done");
}

void CalibrationDefectMapDark::UpdateDefectMapReference() {
    DefectMapChecker checker;
    orvane::detail::LogInfo("CalibrationDefectMapDark::UpdateDefectMapReference");
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMapDark: UpdateDefectMapDarkReference failed because Init has not run",
                __FILE__, __LINE__);
    try {
        const ImagePtr<unsigned char> map = reference->GetDM();
        orvane::detail::WriteDefectCounts(defects, parameters.Area, map);
        map->SetProperty("info.quantlevels", static_cast<unsigned short>(18));
        checker.UpdateDefectMap(map);
        LogEntry entry;
        if (entry.Composing()) {
            entry.Stream() << loglevelinfo()
                           << "CalibrationDefectMapDark::UpdateDefectMapReference - Number of defects : "
                           << CountPositivePixels(map) << std::endl;
        }
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMapDark: UpdateDefectMapDarkReference failed to check DM", __FILE__,
            __LINE__);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMapDark: UpdateDefectMapDarkReference failed",
                                          __FILE__, __LINE__);
    }
}
