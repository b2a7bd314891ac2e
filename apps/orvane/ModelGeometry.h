#ifndef ORVANE_APPS_MODELGEOMETRY_H
#define ORVANE_APPS_MODELGEOMETRY_H

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

}  // namespace app
}  // namespace orvane

#endif
