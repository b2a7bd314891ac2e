#include "calibration/CalibrationOffsetTimeGrid.h"

#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/ReferenceException.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

CalibrationOffsetTimeGrid::CalibrationOffsetTimeGrid(const OffsetParameters& parameters,
                                                     boost::shared_ptr<ReferenceOffsetTimeGrid> reference,
                                                     unsigned short standbyDeltaTime)
    : parameters(parameters), reference(reference), standbyDeltaTime(standbyDeltaTime) {
    const ImagePtr<unsigned short> first = reference->GetAt(0);
    width = first->GetWidth();
    height = first->GetHeight();
}

CalibrationOffsetTimeGrid::~CalibrationOffsetTimeGrid() = default;

const std::string CalibrationOffsetTimeGrid::_GetCalibrationType() {
    return "OffsetTimeGrid";
}

void CalibrationOffsetTimeGrid::DivideAccumulationAndUpdate(int deltaTime) {
    try {
        _DivideAccumulationAndUpdate(reference->Get(deltaTime));
    } catch (ReferenceException&) {
        LogAndThrow<CalibrationException>(
            "CalibrationOffsetTimeGrid: DivideAccumulationAndUpdate failed due to wrong indice delta time",
            __FILE__, __LINE__);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationOffsetTimeGrid: DivideAccumulationAndUpdate failed",
                                          __FILE__, __LINE__);
    }
}

void CalibrationOffsetTimeGrid::InitOffsetStandBy() {
    const ImagePtr<unsigned short> standby = reference->GetStandbyOffset();
    const ImagePtr<unsigned short> source = reference->Get(standbyDeltaTime);
    *standby->GetBuffer() = *source->GetBuffer();
    standby->GetProperties() = source->GetProperties();
}

void CalibrationOffsetTimeGrid::UpdateSingleOffsetRef(int deltaTime, ImagePtr<unsigned short> image,
                                                      bool useStandby) {
    orvane::detail::LogInfo("CalibrationOffsetTimeGrid : UpdateSingleOffsetRef");
    const ImagePtr<unsigned short> standby = reference->GetStandbyOffset();
    const ImagePtr<unsigned short> grid = reference->Get(deltaTime);
    try {
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationOffsetTimeGrid: UpdateSingleOffsetRef failed due to null pointer",
                __FILE__, __LINE__);
        }
        const ImagePtr<unsigned short>& target =
            (deltaTime == standbyDeltaTime && useStandby) ? standby : grid;

        // Both distances are read before the frame's properties replace the target's.
        const float deltaTemperature = std::fabs(image->GetProperty<float>("image.temperature") -
                                                 target->GetProperty<float>("image.temperature"));
        const std::int64_t timeDifference =
            image->GetProperty<std::int64_t>("image.time") - target->GetProperty<std::int64_t>("image.time");
        const std::int32_t timeDifference32 =
            static_cast<std::int32_t>(static_cast<std::uint32_t>(timeDifference));
        const int deltaTime60 = static_cast<int>(std::llabs(timeDifference32) / 60);
        const float coefficient = _CalculCoeffForDelta(deltaTemperature, deltaTime60);

        target->GetProperties() = image->GetProperties();
        const float remainder = static_cast<float>(1.0 - coefficient);
        *target->GetBuffer() = *image->GetBuffer() * coefficient + *target->GetBuffer() * remainder;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationOffsetTimeGrid: UpdateSingleOffsetRef failed",
                                          __FILE__, __LINE__);
    }
    orvane::detail::LogInfo("CalibrationOffsetTimeGrid : UpdateSingleOffsetRef succeed");
}

namespace {

// The coefficient of the class of `delta` among ascending `limits`: 0.1 up to the
// first limit, coefficients[i + 1] in (limits[i], limits[i + 1]], and the last
// coefficient above the last-but-one limit. The last limit is never read; a list
// shorter than two raises std::out_of_range.
template <typename Limit, typename Delta>
float CoefficientOfClass(const std::vector<Limit>& limits, const std::vector<float>& coefficients,
                         Delta delta) {
    const size_t n = limits.size();
    if (delta > limits.at(n - 2)) {
        return coefficients.at(coefficients.size() - 1);
    }
    float coefficient = 0.1f;
    if (delta > limits.at(0)) {
        for (size_t i = 0; i + 3 <= n; ++i) {
            if (limits[i] < delta && delta <= limits[i + 1]) {
                coefficient = coefficients.at(i + 1);
            }
        }
    }
    return coefficient;
}

}  // namespace

float CalibrationOffsetTimeGrid::_CalculCoeffForDelta(double deltaTemperature, int deltaTime) {
    const float byTemperature =
        CoefficientOfClass(parameters.TemperatureSteps, parameters.Coefficients, deltaTemperature);
    const float byTime = CoefficientOfClass(parameters.TimeSteps, parameters.Coefficients, deltaTime);
    return std::max(byTime, byTemperature);
}
