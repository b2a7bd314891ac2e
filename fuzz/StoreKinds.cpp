#include "fuzz/StoreKinds.h"

#include "interfaces/ReferenceClusters.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceEcholine.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"

namespace orvane {
namespace fuzz {

const std::vector<int>& GridDeltaTimes() {
    static const std::vector<int> deltaTimes{500, 1000, 2000};
    return deltaTimes;
}

std::string StoreKindName(StoreKind kind) {
    switch (kind) {
        case StoreKind::OffsetSimple: return "offset-simple";
        case StoreKind::GainLinear: return "gain-linear";
        case StoreKind::GainPoly: return "gain-poly";
        case StoreKind::DefectMap: return "defect-map";
        case StoreKind::Clusters: return "clusters";
        case StoreKind::Echoline: return "echoline";
        case StoreKind::OffsetTimeGrid: return "offset-time-grid";
    }
    return "unknown";
}

std::unique_ptr<Reference> MakeStore(StoreKind kind, const std::string& path) {
    switch (kind) {
        case StoreKind::OffsetSimple: return std::make_unique<ReferenceOffsetSimple>(kStoreWidth, kStoreHeight, path);
        case StoreKind::GainLinear: return std::make_unique<ReferenceGainLinear>(kStoreWidth, kStoreHeight, path);
        case StoreKind::GainPoly:
            return std::make_unique<ReferenceGainPoly>(kStoreWidth, kStoreHeight, kGainPolyCoefficients, path);
        case StoreKind::DefectMap: return std::make_unique<ReferenceDM>(kStoreWidth, kStoreHeight, path);
        case StoreKind::Clusters: return std::make_unique<ReferenceClusters>(path);
        case StoreKind::Echoline: return std::make_unique<ReferenceEcholine>(path);
        case StoreKind::OffsetTimeGrid:
            return std::make_unique<ReferenceOffsetTimeGrid>(kStoreWidth, kStoreHeight, GridDeltaTimes(), path);
    }
    return nullptr;
}

}  // namespace fuzz
}  // namespace orvane
