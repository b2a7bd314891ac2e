#include "calibration/CalibrationDefectMap.h"

#include "calibration/CalibrationOptions.h"
#include "calibration/DefectMapChecker.h"
#include "calibration/DefectMapSteps.h"
#include "calibration/HighPassMedian.h"
#include "calibration/CalibrationLifecycle.h"
#include "calibration/ImageStatistics.h"
#include "tools/FrameAccumulation.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/CorrectionGainLinear.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

const char* const kSaveOption = "dm_save_intermediary_sequence";

// The debug name of a stage of dose n: "Dose_<n>_<stage>".
std::string DoseStage(int dose, const char* stage) {
    return "Dose_" + std::to_string(dose) + "_" + stage;
}

}  // namespace

using orvane::detail::RequireInit;

CalibrationDefectMap::CalibrationDefectMap(const DefectMapParameters& parameters,
                                           boost::shared_ptr<ReferenceDM> reference,
                                           boost::shared_ptr<ReferenceGainLinear> gain,
                                           boost::shared_ptr<DefectMapFlag> flag)
    : parameters(parameters), reference(reference), gain(gain), flag(flag) {
    const ImagePtr<unsigned char> map = reference->GetDM();
    width = map->GetWidth();
    height = map->GetHeight();
}

const std::string CalibrationDefectMap::_GetCalibrationType() {
    return "DM6";
}

void CalibrationDefectMap::Init() {
    orvane::detail::InitZeroedWorkImages(workImages, width, height, 3, {&work, &quantised, &defects},
                                         "CalibrationDefectMap: Init failed", __FILE__, __LINE__);
}

void CalibrationDefectMap::Clear() {
    workImages.Close();
}

void CalibrationDefectMap::StoreAndCorrect(ImagePtr<unsigned short> image) {
    try {
        RequireInit(workImages.IsOpen(),
                    "CalibrationDefectMap: StoreAndCorrect failed because Init has not run",
                    __FILE__, __LINE__);
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationDefectMap: StoreAndCorrect failed due to null pointer", __FILE__, __LINE__);
        }
        *work->GetBuffer() = *image->GetBuffer();
        work->GetProperties() = image->GetProperties();
        _CorrectGain();
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMap: StoreAndCorrect failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationDefectMap::DefectMap6(const std::vector<ImagePtr<unsigned short>>& images) {
    const bool save = IsCalibrationOptionSet(kSaveOption);
    if (save) {
        SaveDebugImage(images, _GetCalibrationType(), DoseStage(dose, "input"));
    }
    if (images.empty()) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMap::DefectMap6 failed due uncorrect number of images", __FILE__,
            __LINE__);
    }
    BeginDose();
    if (orvane::EveryFramePresent(images)) {
        // The dose as one pass, block by block: the sums of the loop below.
        try {
            orvane::AccumulateFrames(*work, images, orvane::AddFrame());
        } catch (...) {
            LogAndThrow<CalibrationException>("CalibrationDefectMap: AccumulateImg failed", __FILE__, __LINE__);
        }
        work->GetProperties() = images.back()->GetProperties();
        accumulated += static_cast<int>(images.size());
    } else {
        for (const ImagePtr<unsigned short>& image : images) {
            _AccumulateImg(image);
        }
    }
    _FinishDose(save);
}

void CalibrationDefectMap::BeginDose() {
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMap::DefectMap6 failed because Init has not run",
                __FILE__, __LINE__);
    // A series that failed half-way left its frames in work; zeroing work drops them
    // from the count as well.
    work->Fill(0.0f);
    accumulated = 0;
}

void CalibrationDefectMap::AccumulateDoseImg(ImagePtr<unsigned short> image) {
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMap::DefectMap6 failed because Init has not run",
                __FILE__, __LINE__);
    _AccumulateImg(image);
}

void CalibrationDefectMap::EndDose() {
    if (accumulated == 0) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMap::DefectMap6 failed due uncorrect number of images", __FILE__,
            __LINE__);
    }
    _FinishDose(IsCalibrationOptionSet(kSaveOption));
}

void CalibrationDefectMap::_FinishDose(bool save) {
    _DivideAccumulation();
    if (save) {
        SaveDebugImage(work, _GetCalibrationType(), DoseStage(dose, "input-mean"));
    }
    _CorrectGain();
    if (save) {
        SaveDebugImage(work, _GetCalibrationType(), DoseStage(dose, "mean_Gc"));
    }
    DefectMap6();
}

void CalibrationDefectMap::DefectMap6() {
    const bool save = IsCalibrationOptionSet(kSaveOption);
    orvane::detail::LogInfo("CalibrationDefectMap : DefectMap6");
    ROI area;
    if (!orvane::detail::FitMeasuredArea(parameters, width, height, area)) {
        LogAndThrow<CalibrationException>("CalibrationDefectMap : DefectMap6 failed due to image size",
                                          __FILE__, __LINE__);
    }
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMap : DefectMap6 failed because Init has not run",
                __FILE__, __LINE__);

    _Clipping();
    if (save) {
        SaveDebugImage(work, _GetCalibrationType(), DoseStage(dose, "Clipping"));
    }

    // The area alone decides: GetMinMax only moves the bounds outward.
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
    if (save) {
        SaveDebugImage(quantised, _GetCalibrationType(), DoseStage(dose, "Quantification"));
    }
    _HighPassMedian2(area, slope, offset);
    if (save) {
        SaveDebugImage(work, _GetCalibrationType(), DoseStage(dose, "HighPassMedian"));
    }

    orvane::detail::LogInfo("Defect Map GFA Mean and Sigma");
    float mean = 0.0f;
    float sigma = 0.0f;
    ComputeGFAMeanAndSigma(work, area, parameters.GfaSigmas, parameters.GfaTolerance,
                           static_cast<float>(parameters.GfaMin),
                           static_cast<float>(parameters.GfaMax), mean, sigma);
    orvane::detail::LogInfo("Defect Map Mean : ", mean, " Sigma : ", sigma);
    if (std::isnan(mean) || std::isnan(sigma)) {
        mean = 0.0f;
        sigma = -1.0f;
        orvane::detail::LogInfo("Defect Map Mean Corrected : ", mean, " Sigma Corrected : ", sigma);
    }

    orvane::detail::LogInfo("Defect Map Creating DM");
    _ExcludePixel(area, mean, sigma);
    orvane::detail::LogInfo("CalibrationDefectMap::DefectMap6 - Dose ", dose,
                            " - Number of detected defects : ",
                            orvane::detail::CountPositivePixelsInArea(defects, area));
    ++dose;
    orvane::detail::LogInfo("Defect Map done");
}

void CalibrationDefectMap::UpdateDefectMapReference() {
    const bool save = IsCalibrationOptionSet(kSaveOption);
    DefectMapChecker checker;
    orvane::detail::LogInfo("CalibrationDefectMap: UpdateDefectMapReference");
    RequireInit(workImages.IsOpen(),
                "CalibrationDefectMap: UpdateDefectMapReference failed because Init has not run",
                __FILE__, __LINE__);
    try {
        if (!flag) {
            LogAndThrow<CalibrationException>(
                "CalibrationDefectMap: UpdateDefectMapReference failed due to null pointer", __FILE__,
                __LINE__);
        }
        const ImagePtr<unsigned char> map = reference->GetDM();
        orvane::detail::WriteDefectCounts(defects, orvane::detail::MeasuredArea(parameters), map);
        if (save) {
            SaveDebugImage(map, _GetCalibrationType(), "DM6");
        }
        map->SetProperty("info.quantlevels", static_cast<unsigned short>(18));
        flag->UpdateDefectMap(map);
        if (save) {
            SaveDebugImage(map, _GetCalibrationType(), "DM6-flag");
        }
        checker.UpdateDefectMap(map);
    } catch (CalibrationException&) {
        LogAndThrow<CalibrationException>(
            "CalibrationDefectMap: UpdateDefectMapReference failed to check DM", __FILE__, __LINE__);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMap: UpdateDefectMapReference failed",
                                          __FILE__, __LINE__);
    }
}

void CalibrationDefectMap::_AccumulateImg(ImagePtr<unsigned short> image) {
    try {
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationDefectMap: AccumulateImg failed due to null pointer", __FILE__, __LINE__);
        }
        orvane::AccumulateFrames(*work, {image}, orvane::AddFrame());
        work->GetProperties() = image->GetProperties();
        ++accumulated;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMap: AccumulateImg failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationDefectMap::_DivideAccumulation() {
    *work->GetBuffer() = *work->GetBuffer() / static_cast<float>(accumulated);
    accumulated = 0;
}

void CalibrationDefectMap::_CorrectGain() {
    try {
        CorrectionGainLinear correction(gain);
        correction.Correct(work);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMap::_CorrectGain failed", __FILE__,
                                          __LINE__);
    }
}

void CalibrationDefectMap::_Clipping() {
    try {
        orvane::detail::LogInfo("Defect Map Clipping");
        *work->GetBuffer() = orvane::Clamp(*work->GetBuffer(), parameters.ClipMin, parameters.ClipMax);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMap: Clipping failed", __FILE__, __LINE__);
    }
}

void CalibrationDefectMap::_GetMinMax(ROI area, float& min, float& max) {
    GetMinMax(work, area, min, max);
}

void CalibrationDefectMap::_ComputeScalingQuantification(ROI area, float slope, float offset) {
    ComputeScalingQuantification(work, quantised, area, slope, offset);
}

void CalibrationDefectMap::_HighPassMedian2(ROI area, float slope, float offset) {
    HighPassMedianDivideLog(quantised, work, area, parameters.MedianWidth, parameters.MedianHeight,
                            slope, offset, parameters.QuantLevels, parameters.LogScale);
}

void CalibrationDefectMap::_ExcludePixel(ROI, float mean, float sigma) {
    try {
        const float t = static_cast<float>(static_cast<double>(parameters.ExcludeSigmas) * sigma);
        const float low = static_cast<float>(static_cast<double>(mean) - t);
        const float high = static_cast<float>(static_cast<double>(mean) + t);
        *defects->GetBuffer() += orvane::Outside(*work->GetBuffer(), low, high);
        defects->GetProperties() = work->GetProperties();
        if (IsCalibrationOptionSet(kSaveOption)) {
            SaveDebugImage(defects, _GetCalibrationType(), DoseStage(dose, "Exclu"));
        }
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMap: _ExcludePixel failed", __FILE__,
                                          __LINE__);
    }
}
