#include "calibration/CalibrationOffsetBase.h"

#include "calibration/CalibrationLifecycle.h"
#include "tools/FrameAccumulation.h"
#include "tools/LogAndThrow.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/ReferenceException.h"

#include <cstddef>

using orvane::detail::RequireInit;

CalibrationOffsetBase::CalibrationOffsetBase() = default;

CalibrationOffsetBase::~CalibrationOffsetBase() {
    _Clear();
}

void CalibrationOffsetBase::Init() {
    if (!workImages.IsOpen()) {
        workImages.Open(width, height, 1);
    }
}

void CalibrationOffsetBase::Clear() {
    _Clear();
}

void CalibrationOffsetBase::AccumulateOffset(ImagePtr<unsigned short> image) {
    try {
        if (!image) {
            LogAndThrow<CalibrationException>(
                "CalibrationOffsetBase: AccumulateOffset failed due to null pointer", __FILE__,
                __LINE__);
        }
        RequireInit(workImages.IsOpen(),
                    "CalibrationOffsetBase: AccumulateOffset failed because Init has not run",
                    __FILE__, __LINE__);
        if (!accumulation) {
            workImages.AcquireInto(accumulation);
            *accumulation->GetBuffer() = *image->GetBuffer();
        } else {
            orvane::AccumulateFrames(*accumulation, {image}, orvane::AddFrame());
        }
        accumulation->GetProperties() = image->GetProperties();
        ++frameCount;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationOffsetBase: AccumulateOffset failed",
                                          __FILE__, __LINE__);
    }
}

void CalibrationOffsetBase::AccumulateOffsets(const std::vector<ImagePtr<unsigned short>>& images) {
    if (accumulation || !workImages.IsOpen() || !orvane::EveryFramePresent(images) || images.empty()) {
        for (const auto& image : images) {
            AccumulateOffset(image);
        }
        return;
    }
    try {
        workImages.AcquireInto(accumulation);
        orvane::AccumulateFrames(*accumulation, images,
                                 [](std::size_t k, ImageBuffer<float>& sums, ImageBuffer<unsigned short>& frame) {
                                     if (k == 0) {
                                         sums = frame;  // the first frame is a copy
                                     } else {
                                         sums += frame;
                                     }
                                 });
        accumulation->GetProperties() = images.back()->GetProperties();
        frameCount += static_cast<int>(images.size());
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationOffsetBase: AccumulateOffset failed",
                                          __FILE__, __LINE__);
    }
}

void CalibrationOffsetBase::DeleteAccumulation() {
    if (accumulation) {
        _EndSeries();
    }
}

void CalibrationOffsetBase::_Clear() {
    if (accumulation) {
        _EndSeries();
    }
    workImages.Close();
}

void CalibrationOffsetBase::_DivideAccumulationAndUpdate(ImagePtr<unsigned short> target) {
    try {
        if (!accumulation || frameCount == 0) {
            LogAndThrow<CalibrationException>(
                "CalibrationOffsetBase: DivideAccumulationAndUpdate failed because no series is open",
                __FILE__, __LINE__);
        }
        if (!target) {
            LogAndThrow<CalibrationException>(
                "CalibrationOffsetBase: DivideAccumulationAndUpdate failed due to null pointer",
                __FILE__, __LINE__);
        }
        *target->GetBuffer() = *accumulation->GetBuffer() / static_cast<float>(frameCount) + 0.5f;
        target->GetProperties() = accumulation->GetProperties();
        _EndSeries();
    } catch (ReferenceException&) {
        LogAndThrow<CalibrationException>(
            "CalibrationOffsetBase: DivideAccumulationAndUpdate failed due to wrong indice delta time",
            __FILE__, __LINE__);
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationOffsetBase: DivideAccumulationAndUpdate failed",
                                          __FILE__, __LINE__);
    }
}

void CalibrationOffsetBase::_EndSeries() {
    workImages.Release(accumulation);
    frameCount = 0;
}
