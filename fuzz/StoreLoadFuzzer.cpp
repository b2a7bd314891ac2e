// Load of every reference store: the first fuzz byte chooses the store kind, the rest
// is the store's file. A load either refuses with ReferenceException and leaves the
// store as it was, or leaves a store whose images have the store's size and that
// saves a file the same kind of store loads.

#include "fuzz/ScratchFile.h"
#include "fuzz/StoreKinds.h"
#include "interfaces/ReferenceClusters.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceEcholine.h"
#include "interfaces/ReferenceException.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"

#include <boost/make_shared.hpp>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using orvane::fuzz::kStoreHeight;
using orvane::fuzz::kStoreWidth;
using orvane::fuzz::StoreKind;

namespace {

[[noreturn]] void Broken(StoreKind kind, const std::string& what) {
    std::fprintf(stderr, "%s store after Load: %s\n", orvane::fuzz::StoreKindName(kind).c_str(), what.c_str());
    std::abort();
}

template <typename T>
void ExpectStoreSize(StoreKind kind, const ImagePtr<T>& image) {
    if (!image || image->GetWidth() != kStoreWidth || image->GetHeight() != kStoreHeight) {
        Broken(kind, "an image that is not the store's size");
    }
}

// What every kind promises after a Load, whether it succeeded or not; `loaded` tells
// which. A store that refused must still be the empty store it was made as.
void CheckStore(StoreKind kind, Reference& store, bool loaded) {
    if (!loaded && store.IsValid()) Broken(kind, "a refused load set the valid flag");
    switch (kind) {
        case StoreKind::OffsetSimple: {
            auto& offset = static_cast<ReferenceOffsetSimple&>(store);
            ExpectStoreSize(kind, offset.GetOffset());
            break;
        }
        case StoreKind::GainLinear: {
            auto& gain = static_cast<ReferenceGainLinear&>(store);
            ExpectStoreSize(kind, gain.GetGainLinear());
            if (!loaded && gain.GetGainInversion()) Broken(kind, "a refused load set the inversion");
            break;
        }
        case StoreKind::GainPoly: {
            auto& gain = static_cast<ReferenceGainPoly&>(store);
            if (gain.GetGainPolyCoeff() != orvane::fuzz::kGainPolyCoefficients) Broken(kind, "another coefficient count");
            for (int k = 0; k < gain.GetGainPolyCoeff(); ++k) {
                ExpectStoreSize(kind, gain.GetGainPoly()[size_t(k)]);
                const float scale = gain.GetScale(k);
                if (!std::isfinite(scale) || scale < 0 || (!loaded && scale != 0)) Broken(kind, "a bad scale");
            }
            break;
        }
        case StoreKind::DefectMap: {
            auto& map = static_cast<ReferenceDM&>(store);
            ExpectStoreSize(kind, map.GetDM());
            if (!loaded && (map.HasExternalDM() || map.IsMerged())) Broken(kind, "a refused load changed the flags");
            if (map.HasExternalDM()) {
                map.LoadMergeDM(boost::make_shared<ImageAcquisition<unsigned char>>(kStoreWidth, kStoreHeight));
            }
            break;
        }
        case StoreKind::Clusters: {
            auto& clusters = static_cast<ReferenceClusters&>(store);
            const auto& held = clusters.GetClusters();
            if (!loaded && !held.empty()) Broken(kind, "a refused load left clusters");
            for (const auto& cluster : held) {
                if (!cluster || cluster->GetWidth() != held.front()->GetWidth() ||
                    cluster->GetHeight() != held.front()->GetHeight()) {
                    Broken(kind, "clusters of different sizes");
                }
            }
            break;
        }
        case StoreKind::Echoline: {
            auto& lines = static_cast<ReferenceEcholine&>(store);
            if (!loaded && (!lines.singleLines.empty() || !lines.doubleLines.empty())) {
                Broken(kind, "a refused load left lines");
            }
            break;
        }
        case StoreKind::OffsetTimeGrid: {
            auto& grid = static_cast<ReferenceOffsetTimeGrid&>(store);
            if (grid.GetDeltaTimes() != orvane::fuzz::GridDeltaTimes()) Broken(kind, "another grid");
            for (int i = 0; i < grid.GetNbReferences(); ++i) ExpectStoreSize(kind, grid.GetAt(i));
            ExpectStoreSize(kind, grid.GetStandbyOffset());
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static orvane::fuzz::ScratchFile file("store.fxd");
    if (size == 0) return 0;
    const auto kind = static_cast<StoreKind>(data[0] % orvane::fuzz::kStoreKinds);
    file.Write(data + 1, size - 1);
    const auto store = orvane::fuzz::MakeStore(kind, file.Path());
    bool loaded = true;
    try {
        store->Load();
    } catch (const ReferenceException&) {
        loaded = false;  // refused, as documented
    }
    CheckStore(kind, *store, loaded);
    if (loaded) {
        // What was loaded saves (over the input) and loads again.
        store->Save();
        const auto again = orvane::fuzz::MakeStore(kind, file.Path());
        again->Load();
        CheckStore(kind, *again, true);
        if (again->IsValid() != store->IsValid()) Broken(kind, "the valid flag does not survive a save");
    }
    return 0;
}
