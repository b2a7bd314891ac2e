#include "apps/orvane/ModelGeometry.h"

#include "apps/orvane/InputError.h"

#include "OrvaneCalibration.h"

#include <algorithm>
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
// (the binned modes are a half or a third of the full panel). HoldEveryArea then
// grows a size where a row of the tables needs more.
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

// Grows a frame size until it holds the areas given to it.
class Extent {
public:
    Extent(int width, int height) : width(width), height(height) {}

    void Hold(long long left, long long top, long long areaWidth, long long areaHeight) {
        width = std::max<long long>(width, left + areaWidth);
        height = std::max<long long>(height, top + areaHeight);
    }
    void Hold(const ROI& area) { Hold(area.left, area.top, area.width, area.height); }
    void Hold(const std::vector<ROI>& areas) {
        for (const ROI& area : areas) Hold(area);
    }

    int Width() const { return static_cast<int>(width); }
    int Height() const { return static_cast<int>(height); }

private:
    long long width;
    long long height;
};

// The rows a calibration run takes for `key` (those lookup gives and that are the
// key's own, not the shared default row) may come from an ancestor key made for a
// larger panel, or give X0 and Y0 swapped; the frame must hold every area of each as
// given, or that step fails on the program's own frames.
void HoldEveryArea(ModelGeometry& model) {
    Extent extent(model.width, model.height);
    const std::string& key = model.key;
    if (s_gainLinearParametersSet.HasOwnRow(key)) {
        const GainLinearParameters& row = s_gainLinearParametersSet.lookup(key);
        extent.Hold(row.X0, row.Y0, row.Width, row.Height);
        extent.Hold(row.MeasureAreas);
    }
    if (s_defectMapParametersSet.HasOwnRow(key)) {
        const DefectMapParameters& row = s_defectMapParametersSet.lookup(key);
        extent.Hold(row.X0, row.Y0, row.Width, row.Height);
    }
    if (s_defectMapGainParametersSet.HasOwnRow(key)) {
        const DefectMapGainParameters& row = s_defectMapGainParametersSet.lookup(key);
        extent.Hold(row.X0, row.Y0, row.Width, row.Height);
    }
    if (s_DefectMapDarkParametersSet.HasOwnRow(key)) extent.Hold(s_DefectMapDarkParametersSet.lookup(key).Area);
    if (s_DefectMapUntypicalParametersSet.HasOwnRow(key)) {
        extent.Hold(s_DefectMapUntypicalParametersSet.lookup(key).Area);
    }
    if (s_automaticDefectParametersSet.HasOwnRow(key)) extent.Hold(s_automaticDefectParametersSet.lookup(key).Area);
    if (s_gainPolyParametersSet.HasOwnRow(key)) {
        const GainPolyParameters& row = s_gainPolyParametersSet.lookup(key);
        extent.Hold(row.MeasureAreas);
        extent.Hold(row.DenoiseAreas);
    }
    if (s_EchoLineParametersSet.HasOwnRow(key)) extent.Hold(s_EchoLineParametersSet.lookup(key).Area);
    if (s_DMFlagParametersSet.HasOwnRow(key)) {
        const DMFlagParameters& row = s_DMFlagParametersSet.lookup(key);
        if (row.TestArea) extent.Hold(row.Area);
        if (row.TestDRZLines) {
            extent.Hold(row.DRZFirstColumn, 0, row.DRZFirstCount, 0);
            extent.Hold(row.DRZSecondColumn, 0, row.DRZSecondCount, 0);
        }
        if (row.SplitRows) extent.Hold(0, row.SplitRow, 0, 1);
        if (row.SplitColumns) extent.Hold(row.SplitColumn, 0, 1, 0);
    }
    model.width = extent.Width();
    model.height = extent.Height();
}

const ModelGeometry* Find(const std::string& key) {
    for (const ModelGeometry& model : KnownModels()) {
        if (model.key == key) return &model;
    }
    return nullptr;
}

}  // namespace

const std::vector<ModelGeometry>& KnownModels() {
    static const std::vector<ModelGeometry> models = [] {
        std::vector<ModelGeometry> built = BuildModels();
        for (ModelGeometry& model : built) HoldEveryArea(model);
        return built;
    }();
    return models;
}

ROI Intersection(const ROI& a, const ROI& b) {
    const int top = std::max(a.top, b.top), left = std::max(a.left, b.left);
    const int bottom = std::min(a.top + a.height, b.top + b.height);
    const int right = std::min(a.left + a.width, b.left + b.width);
    if (bottom <= top || right <= left) return ROI();
    return ROI(static_cast<unsigned short>(top), static_cast<unsigned short>(left),
               static_cast<unsigned short>(bottom - top), static_cast<unsigned short>(right - left));
}

ROI AreaEveryMapMeasures(const ModelGeometry& model) {
    ROI area(0, 0, static_cast<unsigned short>(model.height), static_cast<unsigned short>(model.width));
    const std::string& key = model.key;
    if (s_gainLinearParametersSet.HasOwnRow(key)) {
        area = Intersection(area, RecordArea(s_gainLinearParametersSet.lookup(key)));
    }
    if (s_defectMapParametersSet.HasOwnRow(key)) {
        area = Intersection(area, RecordArea(s_defectMapParametersSet.lookup(key)));
    }
    if (s_defectMapGainParametersSet.HasOwnRow(key)) {
        area = Intersection(area, RecordArea(s_defectMapGainParametersSet.lookup(key)));
    }
    if (s_DefectMapDarkParametersSet.HasOwnRow(key)) {
        area = Intersection(area, s_DefectMapDarkParametersSet.lookup(key).Area);
    }
    return area;
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
