#include "calibration/CalibrationOffsetBase.h"

#include "tools/LogAndThrow.h"
#include "image/ImageCollectorRegistry.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/ReferenceException.h"

CalibrationOffsetBase::CalibrationOffsetBase() = default;

CalibrationOffsetBase::~CalibrationOffsetBase() {
    _Clear();
}

void CalibrationOffsetBase::Init() {
    if (initialized) {
        return;
    }
    collection = ImageCollectorRegistry::Instance().GetCollection<float>(width, height, false);
    collection->Reserve(1);
    initialized = true;
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
        if (!collection) {
            LogAndThrow<CalibrationException>(
                "CalibrationOffsetBase: AccumulateOffset failed because Init has not run",
                __FILE__, __LINE__);
        }
        if (!accumulation) {
            accumulation = collection->Acquire();
            *accumulation->GetBuffer() = *image->GetBuffer();
        } else {
            *accumulation->GetBuffer() += *image->GetBuffer();
        }
        accumulation->GetProperties() = image->GetProperties();
        ++frameCount;
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
    if (!initialized) {
        return;
    }
    if (collection) {
        if (accumulation) {
            _EndSeries();
        }
        collection->Close();
        collection.reset();
    }
    initialized = false;
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
    collection->Release(accumulation);
    accumulation.reset();
    frameCount = 0;
}
