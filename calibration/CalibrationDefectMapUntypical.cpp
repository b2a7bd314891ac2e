#include "calibration/CalibrationDefectMapUntypical.h"
#include "calibration/CalibrationLifecycle.h"

#include "calibration/DefectMapChecker.h"
#include "calibration/DefectMapSteps.h"
#include "calibration/HighPassMedian.h"
#include "calibration/ImageStatistics.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>
#include <limits>

using orvane::detail::RequireInit;

CalibrationDefectMapUntypical::CalibrationDefectMapUntypical(
    const DefectMapUntypicalParameters& parameters, boost::shared_ptr<ReferenceDM> reference)
    : parameters(parameters), reference(reference) {
    const ImagePtr<unsigned char> map = reference->GetDM();
    width = map->GetWidth();
    height = map->GetHeight();
}

const std::string CalibrationDefectMapUntypical::_GetCalibrationType() {
    return "DMUntypical";
}

void CalibrationDefectMapUntypical::Init() {
    orvane::detail::InitZeroedWorkImages(workImages, width, height, 3, {&defects},
                                         "CalibrationDefectMapUntypical: Init failed", __FILE__, __LINE__);
}

void CalibrationDefectMapUntypical::Clear() {
    workImages.Close();
}

void CalibrationDefectMapUntypical::ComputeDefectMapUntypicalAndMerge(
    const std::vector<ImagePtr<unsigned short>>& images) {
    if (images.empty()) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMapUntypical::ComputeDefectMapUntypicalAndMerge failed due uncorrect number of images",
            __FILE__, __LINE__);
    }
    for (const auto& image : images) {
        ComputeDefectMapUntypicalAndMerge(image);
    }
}

void CalibrationDefectMapUntypical::ComputeDefectMapUntypicalAndMerge(
    const ImagePtr<unsigned short>& image) {
    orvane::detail::LogInfo("CalibrationDefectMapUntypical : DefectMapUntypical");
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMapUntypical: DefectMapUntypical failed because Init has not run",
                __FILE__, __LINE__);
    ImagePtr<float> a = workImages.Acquire();
    ImagePtr<float> b = workImages.Acquire();
    try {
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationDefectMapUntypical: DefectMapUntypical failed due to null pointer", __FILE__,
                __LINE__);
        }
        const ROI& area = parameters.Area;
        if (area.left + area.width > width || area.top + area.height > height) {
            LogAndThrow<CalibrationException>(
                "CalibrationDefectMapUntypical: DefectMapUntypical failed due to area out of image",
                __FILE__, __LINE__);
        }
        // A recycled image keeps its last user's pixels: what a shorter frame does not
        // cover is set to 0 so that the statistic sees no stale values.
        *a->GetBuffer() = *image->GetBuffer();
        std::fill(a->GetData() + std::min(image->GetPixelCount(), a->GetPixelCount()),
                  a->GetData() + a->GetPixelCount(), 0.0f);
        orvane::detail::LogInfo("Defect Map Untypical: HPM subtract");

        // Both extremes start at 0, so 0 is always inside the scaled range.
        float min = 0.0f;
        float max = 0.0f;
        GetMinMax(a, area, min, max);
        if (min >= max) {
            max = static_cast<float>(static_cast<double>(min) + 1.0);
        }
        float slope = 0.0f;
        float offset = 0.0f;
        ComputeScalingParameters(parameters.QuantLevels, min, max, slope, offset);
        ComputeScalingQuantification(a, b, area, slope, offset);
        HighPassMedianSubtract(b, a, area, parameters.MedianWidth, parameters.MedianHeight, slope,
                               offset, parameters.QuantLevels);

        orvane::detail::LogInfo("Defect Map Untypical: GFA Mean and Sigma");
        const float largest = std::numeric_limits<float>::max();
        float mean = 0.0f;
        float sigma = 0.0f;
        ComputeGFAMeanAndSigma(a->GetData(), b->GetData(), static_cast<unsigned>(a->GetPixelCount()),
                               parameters.GfaSigmas, parameters.GfaTolerance, -largest, largest,
                               mean, sigma);
        orvane::detail::LogInfo("Defect Map Untypical: Mean = ", mean, " Sigma = ", sigma);

        orvane::detail::LogInfo("Defect Map Untypical: Flagging Defective Pixels & Merge");
        const float t = static_cast<float>(static_cast<double>(static_cast<float>(parameters.ExcludeSigmas)) * sigma);
        const float low = static_cast<float>(static_cast<double>(mean) - t);
        const float high = static_cast<float>(static_cast<double>(mean) + t);
        *defects->GetBuffer() += orvane::Outside(*a->GetBuffer(), low, high);
        defects->GetProperties() = image->GetProperties();
        workImages.Release(a);
        workImages.Release(b);
    } catch (...) {
        workImages.Release(a);
        workImages.Release(b);
        LogAndThrow<CalibrationException>("CalibrationDefectMapUntypical: DefectMapUntypical failed",
                                          __FILE__, __LINE__);
    }
    orvane::detail::LogInfo("Defect Map Untypical done");
}

void CalibrationDefectMapUntypical::UpdateDefectMapReference() {
    DefectMapChecker checker;
    orvane::detail::LogInfo("CalibrationDefectMapUntypical : UpdateDefectMapReference");
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed because Init has not run",
                __FILE__, __LINE__);
    try {
        const ImagePtr<unsigned char> map = reference->GetDM();
        orvane::detail::WriteDefectCounts(defects, parameters.Area, map);
        map->SetProperty("info.quantlevels", static_cast<unsigned short>(18));
        checker.UpdateDefectMap(map);
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed to check DM",
            __FILE__, __LINE__);
    } catch (...) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMapUntypical: UpdateDefectMapUntypicalReference failed", __FILE__,
            __LINE__);
    }
    orvane::detail::LogInfo("CalibrationDefectMapUntypical : UpdateDefectMapReference done");
}
