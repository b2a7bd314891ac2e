#include "apps/orvane/ModelGeometry.h"

#include "apps/orvane/InputError.h"

#include <initializer_list>

namespace orvane {
namespace app {

namespace {

void Add(std::vector<ModelGeometry>& models, std::initializer_list<const char*> keys, int width, int height) {
    for (const char* key : keys) models.push_back(ModelGeometry{key, width, height});
}

// Adds "<family>.*.m<n>" for each mode number.
void AddModes(std::vector<ModelGeometry>& models, const std::string& family, std::initializer_list<int> modes,
              int width, int height) {
    for (int mode : modes) models.push_back(ModelGeometry{family + ".*.m" + std::to_string(mode), width, height});
}

// Sizes are those of the full panel of each model, and for the reduced modes the
// size that holds every measure area and normalising area of the parameter tables
// (the binned modes are a half or a third of the full panel).
std::vector<ModelGeometry> BuildModels() {
    std::vector<ModelGeometry> models;
    Add(models, {"Birch"}, 3121, 3121);
    Add(models, {"Cedar", "LarchA", "LarchB", "CedarTa", "CedarTb"}, 2880, 2880);
    Add(models, {"Cedar.*.m8"}, 960, 960);
    Add(models, {"Maple", "MapleK"}, 3000, 2400);
    Add(models, {"MapleQ", "MapleQa", "MapleQb"}, 2400, 2880);
    Add(models, {"MapleQ.*.m8", "MapleQa.*.m8", "MapleQb.*.m8"}, 800, 960);
    Add(models, {"Rowan"}, 1920, 1560);
    Add(models, {"Rowan.*.m8"}, 640, 520);
    for (const char* family : {"Hazel", "HazelW"}) {
        Add(models, {family}, 1800, 1500);
        AddModes(models, family, {1, 2, 6, 8}, 1800, 1500);
        AddModes(models, family, {3, 4, 5, 7, 9}, 900, 780);
    }
    Add(models, {"Aspen"}, 2640, 1980);
    AddModes(models, "Aspen", {1, 2, 3, 4, 11, 12}, 2640, 1980);
    AddModes(models, "Aspen", {5, 6, 7, 8, 13, 14}, 1320, 1020);
    AddModes(models, "Aspen", {9, 10, 15, 16}, 880, 700);
    Add(models, {"CedarHi"}, 2880, 2880);
    AddModes(models, "CedarHi", {1}, 2880, 2880);
    AddModes(models, "CedarHi", {2, 5}, 2880, 2868);
    AddModes(models, "CedarHi", {3, 9}, 1440, 1440);
    AddModes(models, "CedarHi", {4, 6}, 1440, 1428);
    AddModes(models, "CedarHi", {7, 10}, 960, 960);
    AddModes(models, "CedarHi", {8}, 960, 948);
    AddModes(models, "CedarHi", {11}, 960, 920);
    Add(models, {"Willow"}, 1368, 1404);
    AddModes(models, "Willow", {1, 2, 4, 8}, 1368, 1404);
    AddModes(models, "Willow", {3, 5, 9, 11}, 684, 732);
    AddModes(models, "Willow", {10}, 456, 508);
    AddModes(models, "Willow", {12}, 342, 396);
    return models;
}

const ModelGeometry* Find(const std::string& key) {
    for (const ModelGeometry& model : KnownModels()) {
        if (model.key == key) return &model;
    }
    return nullptr;
}

}  // namespace

const std::vector<ModelGeometry>& KnownModels() {
    static const std::vector<ModelGeometry> models = BuildModels();
    return models;
}

ModelGeometry FindModel(const std::string& key) {
    if (const ModelGeometry* model = Find(key)) return *model;
    // "<model>.<anything>.<mode>" is looked up as "<model>.*.<mode>".
    const std::size_t first = key.find('.');
    const std::size_t last = key.rfind('.');
    if (first != std::string::npos && last != first && key.find('.', first + 1) == last) {
        if (const ModelGeometry* model = Find(key.substr(0, first) + ".*" + key.substr(last))) return *model;
    }
    // The bare family names only: the mode keys would make the message unreadable.
    std::string known;
    for (const ModelGeometry& model : KnownModels()) {
        if (model.key.find('.') != std::string::npos) continue;
        known += known.empty() ? "" : ", ";
        known += model.key;
    }
    throw InputError(key, "unknown model; known models: " + known + " (modes as in Rowan.*.m8)");
}

}  // namespace app
}  // namespace orvane
