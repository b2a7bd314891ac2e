#ifndef ORVANE_FUZZ_STOREKINDS_H
#define ORVANE_FUZZ_STOREKINDS_H

#include "interfaces/Reference.h"

#include <memory>
#include <string>
#include <vector>

namespace orvane {
namespace fuzz {

// The reference stores whose Load reads a file; the first byte of a store-load input
// is one of these (modulo their count).
enum class StoreKind { OffsetSimple, GainLinear, GainPoly, DefectMap, Clusters, Echoline, OffsetTimeGrid };
constexpr int kStoreKinds = 7;

// The shape of every store made here, seeds and loads alike.
constexpr int kStoreWidth = 6;
constexpr int kStoreHeight = 4;
constexpr int kGainPolyCoefficients = 3;
const std::vector<int>& GridDeltaTimes();  // of the OffsetTimeGrid stores

std::string StoreKindName(StoreKind kind);  // "offset-simple", "gain-linear", ...

// An empty store of `kind` with the path `path`.
std::unique_ptr<Reference> MakeStore(StoreKind kind, const std::string& path);

}  // namespace fuzz
}  // namespace orvane

#endif
