#include "calibration/CalibrationDefectMapGain.h"

#include "calibration/DefectMapChecker.h"
#include "calibration/DefectMapSteps.h"
#include "calibration/HighPassMedian.h"
#include "calibration/CalibrationLifecycle.h"
#include "calibration/ImageStatistics.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>

using orvane::detail::RequireInit;

CalibrationDefectMapGain::CalibrationDefectMapGain(const DefectMapGainParameters& parameters,
                                                   boost::shared_ptr<ReferenceDM> reference,
                                                   boost::shared_ptr<ReferenceGainLinear> gain,
                                                   boost::shared_ptr<DefectMapFlag> flag)
    : parameters(parameters), reference(reference), gain(gain), flag(flag) {
    const ImagePtr<unsigned char> map = reference->GetDM();
    width = map->GetWidth();
    height = map->GetHeight();
}

const std::string CalibrationDefectMapGain::_GetCalibrationType() {
    return "DMGain";
}

void CalibrationDefectMapGain::Init() {
    orvane::detail::InitZeroedWorkImages(workImages, width, height, 3, {&work, &quantised, &defects},
                                         "CalibrationDefectMapGain: Init failed", __FILE__, __LINE__);
}

void CalibrationDefectMapGain::Clear() {
    workImages.Close();
}

void CalibrationDefectMapGain::DefectMapGain() {
    orvane::detail::LogInfo("CalibrationDefectMapGain : DefectMapGain");
    ROI area;
    if (!orvane::detail::FitMeasuredArea(parameters, width, height, area)) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMapGain : DefectMapGain failed due to image size", __FILE__, __LINE__);
    }
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMapGain : DefectMapGain failed because Init has not run",
                __FILE__, __LINE__);

    const ImagePtr<unsigned short> stored = gain->GetGainLinear();
    gain->DeCompressImage(stored, work);
    work->GetProperties() = stored->GetProperties();

    _ClipAndDetect();

    float min = parameters.ClipMax;
    float max = parameters.ClipMin;
    _GetMinMax(area, min, max);
    if (min >= max) {
        max = min + 1.0f;
    }
    orvane::detail::LogInfo("Defect Map Min ", min, " Max ", max);

    float slope = 0.0f;
    float offset = 0.0f;
    ComputeScalingParameters(parameters.QuantLevels, min, max, slope, offset);
    _ComputeScalingQuantification(area, slope, offset);
    HighPassMedianDivide(quantised, work, area, parameters.MedianWidth, parameters.MedianHeight, slope,
                         offset, parameters.QuantLevels);

    _ThresholdAndMerge();
    orvane::detail::LogInfo("CalibrationDefectMapGain::DefectMapGain - Number of detected defects : ",
                            CountPositivePixels(defects));
    orvane::detail::LogInfo("Defect Map Gain done");
}

void CalibrationDefectMapGain::UpdateDefectMapReference() {
    DefectMapChecker checker;
    orvane::detail::LogInfo("CalibrationDefectMapGain: UpdateDefectMapReference");
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMapGain: UpdateDefectMapReference failed because Init has not run",
                __FILE__, __LINE__);
    try {
        if (!flag) {
            LogAndThrow<CalibrationException>(
                "CalibrationDefectMapGain: UpdateDefectMapReference failed due to null pointer",
                __FILE__, __LINE__);
        }
        const ImagePtr<unsigned char> map = reference->GetDM();
        orvane::detail::WriteDefectCounts(defects, orvane::detail::MeasuredArea(parameters), map);
        map->SetProperty("info.quantlevels", static_cast<unsigned short>(18));
        flag->UpdateDefectMap(map);
        checker.UpdateDefectMap(map);
        reference->SetValid(true);
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMapGain: UpdateDefectMapReference failed to check DM", __FILE__,
            __LINE__);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMapGain: UpdateDefectMapReference failed",
                                          __FILE__, __LINE__);
    }
}

void CalibrationDefectMapGain::_ClipAndDetect() {
    try {
        orvane::detail::LogInfo("Clip and detec pixel out of range");
        // Assigned, not added: this is what wipes the result of an earlier run.
        *defects->GetBuffer() =
            orvane::AtOrBeyond(*work->GetBuffer(), parameters.ClipMin, parameters.ClipMax);
        *work->GetBuffer() = orvane::Clamp(*work->GetBuffer(), parameters.ClipMin, parameters.ClipMax);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMapGain: Clipping failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationDefectMapGain::_GetMinMax(ROI area, float& min, float& max) {
    GetMinMax(work, area, min, max);
}

void CalibrationDefectMapGain::_ComputeScalingQuantification(ROI area, float slope, float offset) {
    ComputeScalingQuantification(work, quantised, area, slope, offset);
}

void CalibrationDefectMapGain::_ThresholdAndMerge() {
    try {
        orvane::detail::LogInfo("Defect Map threshold and merge");
        *defects->GetBuffer() +=
            orvane::Outside(*work->GetBuffer(), parameters.ThresholdMin, parameters.ThresholdMax);
        defects->GetProperties() = work->GetProperties();
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMapGain: Threshold failed", __FILE__,
                                          __LINE__);
    }
}
