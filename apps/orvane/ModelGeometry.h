#ifndef ORVANE_APPS_MODELGEOMETRY_H
#define ORVANE_APPS_MODELGEOMETRY_H

#include "image/ROI.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace orvane {
namespace app {

// The frame size of a detector model key ("Birch", "Rowan.*.m8", ...), as the
// parameter tables imply it (each table's areas lie inside it).
struct ModelGeometry {
    std::string key;
    int width = 0;
    int height = 0;
};

// Every key the program knows, in a stable order.
const std::vector<ModelGeometry>& KnownModels();

// The geometry of `key`; a key with a middle component ("Rowan.A1.m8") is matched as
// "Rowan.*.m8". Unknown keys raise InputError naming the key and listing the known ones.
ModelGeometry FindModel(const std::string& key);

// The overlap of two areas; empty when they do not overlap.
ROI Intersection(const ROI& a, const ROI& b);

// The measured area of a record given by its corner and size (X0, Y0, Width, Height).
template <typename Record>
ROI RecordArea(const Record& record) {
    const auto clip = [](std::int32_t value) {
        return static_cast<unsigned short>(std::max(0, std::min(65535, value)));
    };
    return ROI(clip(record.Y0), clip(record.X0), clip(record.Height), clip(record.Width));
}

// The part of the model's frame that its linear gain and each of its defect maps
// measure (those with rows of the model's own): where a planted defect is findable
// by every one of them.
ROI AreaEveryMapMeasures(const ModelGeometry& model);

}  // namespace app
}  // namespace orvane

#endif
