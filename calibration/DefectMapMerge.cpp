#include "calibration/DefectMapMerge.h"
#include "calibration/CalibrationLifecycle.h"

#include "calibration/DefectMapChecker.h"
#include "tools/LogAndThrow.h"
#include "image/ImageCollectorRegistry.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>
#include <mutex>

using orvane::detail::RequireInit;

namespace {

// Runs a pool operation under the pool's lock, as WorkImages does for the calibrations,
// so that a merge may run beside calibrations on other threads.
template <typename Operation>
auto Locked(Operation operation) -> decltype(operation()) {
    std::lock_guard<std::mutex> lock(orvane::detail::PoolMutex());
    return operation();
}

}  // namespace

DefectMapMerge::DefectMapMerge(boost::shared_ptr<ReferenceDM> reference,
                               boost::shared_ptr<DefectMapFlag> flag)
    : reference(reference), flag(flag) {
    const ImagePtr<unsigned char> map = reference->GetDM();
    width = map->GetWidth();
    height = map->GetHeight();
}

void DefectMapMerge::Init() {
    if (initialized) {
        return;
    }
    try {
        std::lock_guard<std::mutex> lock(orvane::detail::PoolMutex());
        ImageCollectorRegistry& registry = ImageCollectorRegistry::Instance();
        byteCollection = registry.GetCollection<unsigned char>(width, height, false);
        shortCollection = registry.GetCollection<unsigned short>(width, height, false);
        byteCollection->Reserve(1);
        shortCollection->Reserve(1);
        initialized = true;
    } catch (...) {
        LogAndThrow<CalibrationException>("CalibrationDefectMap: Init failed", __FILE__, __LINE__);
    }
}

void DefectMapMerge::Clear() {
    if (!initialized) {
        return;
    }
    std::lock_guard<std::mutex> lock(orvane::detail::PoolMutex());
    byteCollection->Close();
    shortCollection->Close();
    initialized = false;
}

void DefectMapMerge::Merge(const boost::shared_ptr<ReferenceDM>& other) {
    try {
        if (!other) {
            LogAndThrow<CalibrationException>("DefectMapMerge: Merge failed due to null pointer",
                                              __FILE__, __LINE__);
        }
        _MergeImage<unsigned char>(other->GetDM());
    } catch (...) {
        LogAndThrow<CalibrationException>("DefectMapMerge: Merge failed", __FILE__, __LINE__);
    }
}

void DefectMapMerge::Merge(const std::vector<boost::shared_ptr<ReferenceDM>>& others) {
    for (const auto& other : others) {
        Merge(other);
    }
}

void DefectMapMerge::MergeExternalDM() {
    RequireInit(initialized, "DefectMapMerge: MergeExternalDM failed because Init has not run",
                __FILE__, __LINE__);
    const ImagePtr<unsigned char> image = Locked([&] { return byteCollection->Acquire(); });
    try {
        reference->LoadMergeDM(image);
    } catch (...) {
        Locked([&] { byteCollection->Release(image); });
        LogAndThrow<CalibrationException>("DefectMapMerge: MergeExternalDM failed", __FILE__,
                                          __LINE__);
    }
    Locked([&] { byteCollection->Release(image); });
}

void DefectMapMerge::MergeFactoryDM(boost::function<void(ImagePtr<unsigned short>&)> loader) {
    RequireInit(initialized, "DefectMapMerge: MergeFactory failed because Init has not run",
                __FILE__, __LINE__);
    // The loader may repoint `image`; the pool gets back the image it lent.
    const ImagePtr<unsigned short> lent = Locked([&] { return shortCollection->Acquire(); });
    try {
        ImagePtr<unsigned short> image = lent;
        image->Fill(0);
        image->GetProperties().clear();
        loader(image);
        if (!image) {
            LogAndThrow<CalibrationException>(
                "DefectMapMerge: MergeFactory failed due to null pointer", __FILE__, __LINE__);
        }
        _MergeImage<unsigned short>(image);
        reference->GetDM()->GetProperties() = image->GetProperties();
    } catch (...) {
        Locked([&] { shortCollection->Release(lent); });
        LogAndThrow<CalibrationException>("DefectMapMerge: MergeFactory failed", __FILE__, __LINE__);
    }
    Locked([&] { shortCollection->Release(lent); });
}

void DefectMapMerge::UpdateDefectMapReference() {
    try {
        DefectMapChecker checker;
        if (!flag) {
            LogAndThrow<CalibrationException>(
                "DefectMapMerge: UpdateDefectMapReference failed due to null pointer", __FILE__,
                __LINE__);
        }
        flag->UpdateDefectMap(reference->GetDM());
        checker.UpdateDefectMap(reference->GetDM());
    } catch (...) {
        LogAndThrow<CalibrationException>("DefectMapMerge: UpdateDefectMapReference failed",
                                          __FILE__, __LINE__);
    }
}

template <typename T>
void DefectMapMerge::_MergeImage(const ImagePtr<T>& source) {
    const ImagePtr<unsigned char> target = reference->GetDM();
    if (!source || !target) {
        LogAndThrow<CalibrationException>("DefectMapMerge: _MergeImage failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    *target->GetBuffer() = *source->GetBuffer() + *target->GetBuffer();
}

template void DefectMapMerge::_MergeImage<unsigned char>(const ImagePtr<unsigned char>&);
template void DefectMapMerge::_MergeImage<unsigned short>(const ImagePtr<unsigned short>&);
