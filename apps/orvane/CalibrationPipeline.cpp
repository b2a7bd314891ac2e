#include "apps/orvane/CalibrationPipeline.h"

#include "apps/orvane/InputError.h"
#include "OrvaneCalibration.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvane {
namespace app {

namespace {

enum Step {
    kOffsetDynamic,
    kOffsetTimeGrid,
    kGainLinear,
    kDm6,
    kDmGain,
    kDmDark,
    kDmUntypical,
    kDmAuto,
    kDmMerge,
    kGainPoly,
    kGainPolyDenoised,
    kClusters,
    kEchoLines,
    kStepCount
};

const char* const kStoreExtension = ".fxd";
// Frame pairs of the automatic defect update.
constexpr int kMaxAutomaticPairs = 3;

// Whether the nearest-key search gives `key` a row of its own: an exact row or an
// ancestor row, but not the default "" row, which only carries shared scalars or
// empty areas in these tables.
template <typename R>
bool HasOwnRow(const ParametersSet<R>& set, const std::string& key) {
    const auto& rows = set.GetBaseRows();
    const auto exact = rows.find(key);
    const R* found = exact != rows.end() ? &exact->second : ParametersSet<R>::find_nearest(rows, key);
    if (found == nullptr) {
        return false;
    }
    const auto fallback = rows.find("");
    return fallback == rows.end() || found != &fallback->second;
}

std::string Figure(double value, int precision = 4) {
    std::ostringstream out;
    out.precision(precision);
    out << value;
    return out.str();
}

// The mean pixel value, summed in double.
template <typename T>
double MeanLevel(const ImageAcquisition<T>& image) {
    const T* pixels = image.GetData();
    const int count = image.GetPixelCount();
    double sum = 0.0;
    for (int i = 0; i < count; ++i) {
        sum += pixels[i];
    }
    return count > 0 ? sum / count : 0.0;
}

// A new image of type T holding the pixels (converted) and properties of `source`.
template <typename T, typename S>
ImagePtr<T> CopyImage(const ImageAcquisition<S>& source) {
    auto copy = boost::make_shared<ImageAcquisition<T>>(source.GetWidth(), source.GetHeight());
    *copy->GetBuffer() = *source.GetBuffer();
    copy->GetProperties() = source.GetProperties();
    return copy;
}

long DefectCount(const boost::shared_ptr<ReferenceDM>& store) {
    return static_cast<long>(CountPositivePixels<unsigned char>(store->GetDM()));
}

// Robust sigma / mean of `values` (3-sigma rejection); `scratch` has room for them.
double NonUniformity(const std::vector<float>& values, std::vector<float>& scratch) {
    if (values.empty()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    float mean = 0.0f;
    float sigma = 0.0f;
    ComputeGFAMeanAndSigma(values.data(), scratch.data(), static_cast<unsigned>(values.size()), 3, 0.001f,
                           -std::numeric_limits<float>::max(), std::numeric_limits<float>::max(), mean,
                           sigma);
    return mean != 0.0f ? static_cast<double>(sigma) / mean : std::numeric_limits<double>::quiet_NaN();
}

// One run of the calibrations. The stores live here between the steps; every
// calibration object lives only inside its step, so that the work images of the
// shared pool are back before the next step takes them.
class Pipeline {
public:
    Pipeline(const CalibrationRequest& request, const FrameSeries& series, Progress& progress)
        : request(request), series(series), progress(progress) {}

    CalibrationOutputs Run();

private:
    using Body = std::function<std::string(StepReport&)>;

    bool Wanted(Step step) const;
    bool HasRows(Step step) const;
    // The step that `step` waits for and that did not run, or "" when none.
    std::string MissingDependency(Step step) const;
    void RunStep(Step step, StepReport& report, const Body& body);

    std::string StorePath(const std::string& name) const;
    void SaveStore(Reference& store, const std::string& name, StepReport& report);
    ImagePtr<unsigned short> Read(const std::string& path) const;
    ImagePtr<unsigned short> ReadCorrected(const std::string& path) const;
    const std::vector<std::string>& MiddleDose() const;
    const std::vector<std::string>& CheckDose() const;
    int FlatFrameCount() const;
    boost::shared_ptr<DefectMapFlag> MakeFlag() const;
    void AddDefectStore(const std::string& name, const boost::shared_ptr<ReferenceDM>& store);

    std::string OffsetDynamic(StepReport& report);
    std::string OffsetTimeGrid(StepReport& report);
    std::string GainLinear(StepReport& report);
    std::string DefectMapDoses(StepReport& report);
    std::string DefectMapGainStep(StepReport& report);
    std::string DefectMapDarkStep(StepReport& report);
    std::string DefectMapUntypicalStep(StepReport& report);
    std::string AutomaticDefect(StepReport& report);
    std::string Merge(StepReport& report);
    std::string GainPoly(StepReport& report, bool denoised);
    std::string Clusters(StepReport& report);
    std::string EchoLines(StepReport& report);
    void FillImages(CalibrationOutputs& outputs) const;

    const CalibrationRequest& request;
    const FrameSeries& series;
    Progress& progress;
    std::array<StepReport, kStepCount> reports;

    boost::shared_ptr<ReferenceOffsetSimple> offsetStore;
    boost::shared_ptr<ReferenceOffsetTimeGrid> gridStore;
    boost::shared_ptr<ReferenceGainLinear> gainStore;
    boost::shared_ptr<ReferenceDM> gainDefectStore;  // dm-gain, which dm-auto extends
    // Defect maps made so far, by step name; dm-auto replaces dm-gain (it holds it).
    std::vector<std::pair<std::string, boost::shared_ptr<ReferenceDM>>> defectStores;
    boost::shared_ptr<ReferenceDM> finalMap;
    ImagePtr<float> flatBefore;
    ImagePtr<float> flatAfter;
};

bool Pipeline::Wanted(Step step) const {
    const std::string& name = CalibrationStepNames()[step];
    return request.only.empty() ||
           std::find(request.only.begin(), request.only.end(), name) != request.only.end();
}

bool Pipeline::HasRows(Step step) const {
    const std::string& key = request.model;
    switch (step) {
        // The dynamic offset's table is a single row for every model, its default row.
        case kOffsetDynamic: return true;
        case kOffsetTimeGrid: return HasOwnRow(s_OffsetTimeGridParametersSet, key);
        case kGainLinear: return HasOwnRow(s_gainLinearParametersSet, key);
        case kDm6: return HasOwnRow(s_defectMapParametersSet, key);
        case kDmGain: return HasOwnRow(s_defectMapGainParametersSet, key);
        case kDmDark: return HasOwnRow(s_DefectMapDarkParametersSet, key);
        case kDmUntypical: return HasOwnRow(s_DefectMapUntypicalParametersSet, key);
        case kDmAuto: return HasOwnRow(s_automaticDefectParametersSet, key);
        // A merge has no table: it merges whatever maps were made.
        case kDmMerge: return true;
        case kGainPoly:
        case kGainPolyDenoised: return HasOwnRow(s_gainPolyParametersSet, key);
        case kClusters: return HasOwnRow(s_clustersCalibrationParametersSet, key);
        case kEchoLines: return HasOwnRow(s_EchoLineParametersSet, key);
        case kStepCount: break;
    }
    return false;
}

std::string Pipeline::MissingDependency(Step step) const {
    Step need = kStepCount;  // the step whose result this one reads, if any
    bool needsMap = false;
    switch (step) {
        case kGainLinear: need = kOffsetDynamic; break;
        case kDm6:
        case kDmGain: need = kGainLinear; break;
        case kDmAuto:
            // dm-auto extends the gain map, or the last map made when dm-gain did not
            // qualify; a dm-gain that was tried and failed leaves it nothing to extend.
            if (reports[kDmGain].status == StepReport::Status::Failed) {
                need = kDmGain;
            } else if (defectStores.empty()) {
                return "a defect map";
            }
            break;
        case kGainPoly:
        case kGainPolyDenoised: need = kGainLinear; needsMap = true; break;
        case kClusters: need = kOffsetTimeGrid; break;
        case kEchoLines: needsMap = true; break;
        default: break;
    }
    if (need != kStepCount && reports[need].status != StepReport::Status::Ran) {
        return CalibrationStepNames()[need];
    }
    if (needsMap && !finalMap) {
        // A failed merge leaves no final map; otherwise no defect step ran at all.
        return reports[kDmMerge].status == StepReport::Status::Failed ? "dm-merge" : "a defect map";
    }
    if (step == kDmMerge && defectStores.empty()) {
        return "a defect map";
    }
    return "";
}

void Pipeline::RunStep(Step step, StepReport& report, const Body& body) {
    report.name = CalibrationStepNames()[step];
    if (!Wanted(step)) {
        report.detail = "not requested";
        return;
    }
    if (!HasRows(step)) {
        report.detail = "no parameter rows for " + request.model;
        return;
    }
    const std::string missing = MissingDependency(step);
    if (!missing.empty()) {
        report.detail = "needs " + missing;
        return;
    }
    progress.Stage(report.name);
    const auto start = std::chrono::steady_clock::now();
    try {
        report.detail = body(report);
        report.status = StepReport::Status::Ran;
    } catch (const std::exception& e) {
        report.status = StepReport::Status::Failed;
        report.detail = e.what();
    } catch (...) {
        report.status = StepReport::Status::Failed;
        report.detail = "unknown failure";
    }
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Pipeline::StorePath(const std::string& name) const {
    std::string dir = request.outDir.empty() ? "." : request.outDir;
    if (dir.back() != '/') {
        dir += '/';
    }
    return dir + name + kStoreExtension;
}

void Pipeline::SaveStore(Reference& store, const std::string& name, StepReport& report) {
    store.Save();
    report.files.push_back(name + kStoreExtension);
}

ImagePtr<unsigned short> Pipeline::Read(const std::string& path) const {
    return ReadFrame(path, series.width, series.height);
}

ImagePtr<unsigned short> Pipeline::ReadCorrected(const std::string& path) const {
    ImagePtr<unsigned short> frame = Read(path);
    *frame->GetBuffer() = Max(0.0f, *frame->GetBuffer() - *offsetStore->GetOffset()->GetBuffer());
    return frame;
}

const std::vector<std::string>& Pipeline::MiddleDose() const {
    if (series.doses.empty() || series.doses[series.doses.size() / 2].empty()) {
        throw std::runtime_error("the series has no flat frames");
    }
    return series.doses[series.doses.size() / 2];
}

// The dose above the middle one (below it when there is none above; the middle one
// itself when it is the only dose).
const std::vector<std::string>& Pipeline::CheckDose() const {
    const std::size_t middle = series.doses.size() / 2;
    const std::size_t check = middle + 1 < series.doses.size() ? middle + 1 : middle > 0 ? middle - 1 : middle;
    if (series.doses[check].empty()) {
        throw std::runtime_error("the series has no flat frames");
    }
    return series.doses[check];
}

int Pipeline::FlatFrameCount() const {
    int count = 0;
    for (const auto& dose : series.doses) {
        count += static_cast<int>(dose.size());
    }
    if (count == 0) {
        throw std::runtime_error("the series has no flat frames");
    }
    return count;
}

boost::shared_ptr<DefectMapFlag> Pipeline::MakeFlag() const {
    return boost::make_shared<DefectMapFlag>(s_DMFlagParametersSet.lookup(request.model));
}

void Pipeline::AddDefectStore(const std::string& name, const boost::shared_ptr<ReferenceDM>& store) {
    defectStores.emplace_back(name, store);
}

// The rounded mean of every dark frame.
std::string Pipeline::OffsetDynamic(StepReport& report) {
    if (series.darks.empty()) {
        throw std::runtime_error("the series has no dark frames");
    }
    auto store = boost::make_shared<ReferenceOffsetSimple>(series.width, series.height,
                                                           StorePath("offset-dynamic"));
    CalibrationOffsetDynamic calibration(s_OffsetDynamicParametersSet.lookup(request.model), store);
    calibration.Init();
    const int total = static_cast<int>(series.darks.size());
    for (int i = 0; i < total; ++i) {
        calibration.AccumulateOffset(Read(series.darks[i]));
        progress.Step(i + 1, total);
    }
    calibration.DivideAccumulationAndUpdate();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "offset-dynamic", report);
    offsetStore = store;

    return "mean offset " + Figure(MeanLevel(*store->GetOffset())) + " from " + std::to_string(total) +
           " dark frames";
}

// The darks, in time order, split into up to three series; each fills the grid entry
// of its delta time: the minutes ("image.time" / 60) from the first dark to the
// series' first frame, kept strictly ascending. The stand-by image is the first entry.
std::string Pipeline::OffsetTimeGrid(StepReport& report) {
    const int total = static_cast<int>(series.darks.size());
    if (total == 0) {
        throw std::runtime_error("the series has no dark frames");
    }
    const int groups = total >= 6 ? 3 : std::min(total, 2);
    std::vector<int> firsts;  // index of each series' first frame
    for (int g = 0; g < groups; ++g) {
        firsts.push_back(g * total / groups);
    }
    // Only the header and properties of a file are read here.
    const auto timeOf = [this](int index) {
        ImageFxdFileIn file(series.darks[index]);
        return file.GetProperties(0).get<long long>("image.time");
    };
    const long long start = timeOf(0);
    std::vector<int> deltaTimes;
    for (int first : firsts) {
        int delta = static_cast<int>((timeOf(first) - start) / 60);
        if (!deltaTimes.empty() && delta <= deltaTimes.back()) {
            delta = deltaTimes.back() + 1;
        }
        deltaTimes.push_back(delta);
    }

    auto store = boost::make_shared<ReferenceOffsetTimeGrid>(series.width, series.height, deltaTimes,
                                                             StorePath("offset-time-grid"));
    CalibrationOffsetTimeGrid calibration(s_OffsetTimeGridParametersSet.lookup(request.model), store,
                                          static_cast<unsigned short>(deltaTimes.front()));
    calibration.Init();
    for (int g = 0; g < groups; ++g) {
        const int end = g + 1 < groups ? firsts[g + 1] : total;
        for (int i = firsts[g]; i < end; ++i) {
            ImagePtr<unsigned short> frame = Read(series.darks[i]);
            frame->GetProperty<double>("image.temperature");  // the grid keeps it: it must be there
            calibration.AccumulateOffset(frame);
            progress.Step(i + 1, total);
        }
        calibration.DivideAccumulationAndUpdate(deltaTimes[g]);
    }
    calibration.InitOffsetStandBy();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "offset-time-grid", report);
    gridStore = store;

    std::string times;
    for (int delta : deltaTimes) {
        times += (times.empty() ? "" : ", ") + std::to_string(delta);
    }
    return std::to_string(groups) + " grid entries, delta times " + times;
}

// The middle dose, offset-subtracted, averaged by the calibration. The flat that
// checks the gain comes from another dose (CheckDose), so that flatAfter shows what
// the gain leaves on frames it was not measured from: noise, the response's
// non-linearity and the gain's own error. No defect map exists yet: every pixel
// counts as good.
std::string Pipeline::GainLinear(StepReport& report) {
    const std::vector<std::string>& dose = MiddleDose();
    auto store = boost::make_shared<ReferenceGainLinear>(series.width, series.height, StorePath("gain-linear"));
    auto noDefects = boost::make_shared<ReferenceDM>(series.width, series.height);
    noDefects->SetValid(true);
    CalibrationGainLinear calibration(s_gainLinearParametersSet.lookup(request.model), store, noDefects);
    calibration.Init();
    const int total = static_cast<int>(dose.size());
    for (int f = 0; f < total; ++f) {
        calibration.AccumulateGainImg(ReadCorrected(dose[f]));
        progress.Step(f + 1, total);
    }
    calibration.DivideAccumulation();
    calibration.CalculateGainReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "gain-linear", report);
    gainStore = store;

    // The check flat: the mean of the other dose, offset-subtracted in float.
    const std::vector<std::string>& check = CheckDose();
    auto mean = boost::make_shared<ImageAcquisition<float>>(series.width, series.height);
    const ImageBuffer<unsigned short>& offset = *offsetStore->GetOffset()->GetBuffer();
    for (const std::string& path : check) {
        *mean->GetBuffer() += *Read(path)->GetBuffer() - offset;
    }
    *mean->GetBuffer() = *mean->GetBuffer() * (1.0f / static_cast<float>(check.size()));
    flatBefore = mean;
    flatAfter = CopyImage<float>(*mean);
    CorrectionGainLinear(store).Correct(flatAfter);

    const unsigned short* codes = store->GetGainLinear()->GetData();
    const int count = store->GetGainLinear()->GetPixelCount();
    unsigned short low = 65535;
    unsigned short high = 0;
    for (int i = 0; i < count; ++i) {
        low = std::min(low, codes[i]);
        high = std::max(high, codes[i]);
    }
    return std::string(store->GetGainInversion() ? "inverted gain" : "gain") + " in [" +
           Figure(ReferenceGainLinear::DeCompress(low)) + ", " + Figure(ReferenceGainLinear::DeCompress(high)) +
           "] from " + std::to_string(total) + " frames of dose " + std::to_string(series.doses.size() / 2 + 1);
}

// The raw darks as a first dose (where hot pixels stand out), then every flat dose
// offset-subtracted, one dose of frames held at a time; the calibration divides each
// by the measured linear gain.
std::string Pipeline::DefectMapDoses(StepReport& report) {
    const DefectMapParameters& record = s_defectMapParametersSet.lookup(request.model);
    const int total = static_cast<int>(series.darks.size()) + FlatFrameCount();
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("dm6"));
    CalibrationDefectMap calibration(record, store, gainStore, MakeFlag());
    calibration.Init();
    int done = 0;
    int used = 0;
    std::string skipped;
    const auto runDose = [&](const std::vector<std::string>& paths, bool flat, const std::string& name) {
        std::vector<ImagePtr<unsigned short>> frames;
        frames.reserve(paths.size());
        for (const std::string& path : paths) {
            frames.push_back(flat ? ReadCorrected(path) : Read(path));
            progress.Step(++done, total);
            // A dose whose mean level reaches the clipping bound is flat once clipped:
            // it shows nothing and its statistic breaks down. Its other frames are not read.
            if (frames.size() == 1 && flat && frames[0]->GetPixelCount() > 0 &&
                MeanLevel(*frames[0]) >= record.ClipMax) {
                skipped += (skipped.empty() ? "" : ", ") + name;
                done += static_cast<int>(paths.size()) - 1;
                return;
            }
        }
        if (!frames.empty()) {
            calibration.DefectMap6(frames);
            ++used;
        }
    };
    runDose(series.darks, false, "darks");
    for (std::size_t d = 0; d < series.doses.size(); ++d) {
        runDose(series.doses[d], true, std::to_string(d + 1));
    }
    calibration.UpdateDefectMapReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "dm6", report);
    AddDefectStore("dm6", store);
    return std::to_string(DefectCount(store)) + " defective pixels from the darks and " + std::to_string(used - 1) +
           " doses" + (skipped.empty() ? "" : " (above the clipping level: dose " + skipped + ")");
}

std::string Pipeline::DefectMapGainStep(StepReport& report) {
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("dm-gain"));
    CalibrationDefectMapGain calibration(s_defectMapGainParametersSet.lookup(request.model), store, gainStore,
                                         MakeFlag());
    calibration.Init();
    calibration.DefectMapGain();
    calibration.UpdateDefectMapReference();  // marks the store valid
    calibration.Clear();
    SaveStore(*store, "dm-gain", report);
    gainDefectStore = store;
    AddDefectStore("dm-gain", store);
    return std::to_string(DefectCount(store)) + " defective pixels";
}

// All darks as one series: the band test counts once per series.
std::string Pipeline::DefectMapDarkStep(StepReport& report) {
    if (series.darks.empty()) {
        throw std::runtime_error("the series has no dark frames");
    }
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("dm-dark"));
    CalibrationDefectMapDark calibration(s_DefectMapDarkParametersSet.lookup(request.model), store);
    calibration.Init();
    std::vector<ImagePtr<unsigned short>> frames;
    const int total = static_cast<int>(series.darks.size());
    for (int i = 0; i < total; ++i) {
        frames.push_back(Read(series.darks[i]));
        progress.Step(i + 1, total);
    }
    calibration.ComputeDefectMapDarkAndMerge(frames);
    frames.clear();
    calibration.UpdateDefectMapReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "dm-dark", report);
    AddDefectStore("dm-dark", store);
    return std::to_string(DefectCount(store)) + " defective pixels";
}

// Each raw frame of the middle dose on its own.
std::string Pipeline::DefectMapUntypicalStep(StepReport& report) {
    const std::vector<std::string>& dose = MiddleDose();
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("dm-untypical"));
    CalibrationDefectMapUntypical calibration(s_DefectMapUntypicalParametersSet.lookup(request.model), store);
    calibration.Init();
    const int total = static_cast<int>(dose.size());
    for (int i = 0; i < total; ++i) {
        calibration.ComputeDefectMapUntypicalAndMerge(Read(dose[i]));
        progress.Step(i + 1, total);
    }
    calibration.UpdateDefectMapReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "dm-untypical", report);
    AddDefectStore("dm-untypical", store);
    return std::to_string(DefectCount(store)) + " defective pixels";
}

// A copy of the gain defect map (or of the last map made, when dm-gain did not run),
// extended from the pairs (0, 1), (2, 3), ... of the raw frames of the middle dose;
// the calibration saves its store itself. It then stands in for that map in the merge.
std::string Pipeline::AutomaticDefect(StepReport& report) {
    const std::vector<std::string>& dose = MiddleDose();
    if (dose.size() < 2) {
        throw std::runtime_error("the middle dose has fewer than two frames");
    }
    const auto base = gainDefectStore ? std::make_pair(std::string("dm-gain"), gainDefectStore) : defectStores.back();
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("dm-auto"));
    *store->GetDM()->GetBuffer() = *base.second->GetDM()->GetBuffer();
    store->GetDM()->GetProperties() = base.second->GetDM()->GetProperties();
    store->SetValid(true);
    const long before = DefectCount(store);

    CalibrationAutomaticDefect calibration(s_automaticDefectParametersSet.lookup(request.model), store, MakeFlag());
    calibration.Init();
    // Each pair costs a full-frame moving median: a few disjoint pairs are enough.
    const int pairs = std::min(kMaxAutomaticPairs, static_cast<int>(dose.size()) / 2);
    for (int i = 0; i < pairs; ++i) {
        calibration.ProcessReferenceAndCumul(Read(dose[2 * i]), Read(dose[2 * i + 1]));
        progress.Step(i + 1, pairs);
    }
    calibration.UpdateDefectMap();  // saves the store
    calibration.Clear();
    report.files.push_back(std::string("dm-auto") + kStoreExtension);
    for (auto& entry : defectStores) {
        if (entry.second == base.second) {
            entry = {"dm-auto", store};
        }
    }
    return std::to_string(DefectCount(store) - before) + " pixels added to the " + std::to_string(before) +
           " of " + base.first + ", " + std::to_string(pairs) + " pairs";
}

std::string Pipeline::Merge(StepReport& report) {
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("defect-map"));
    DefectMapMerge merge(store, MakeFlag());
    merge.Init();
    std::vector<boost::shared_ptr<ReferenceDM>> sources;
    std::string names;
    for (const auto& entry : defectStores) {
        sources.push_back(entry.second);
        names += (names.empty() ? "" : ", ") + entry.first;
    }
    merge.Merge(sources);
    merge.UpdateDefectMapReference();
    merge.Clear();
    store->SetValid(true);
    SaveStore(*store, "defect-map", report);
    finalMap = store;
    return std::to_string(DefectCount(store)) + " defective pixels from " + names;
}

// Every dose, offset-subtracted, weight 1; the fit reads the final defect map.
std::string Pipeline::GainPoly(StepReport& report, bool denoised) {
    const std::string name = denoised ? "gain-poly-denoised" : "gain-poly";
    const int total = FlatFrameCount();
    auto store = boost::make_shared<ReferenceGainPoly>(series.width, series.height, 3, StorePath(name));
    CalibrationGainPoly calibration(s_gainPolyParametersSet.lookup(request.model), store, gainStore, finalMap,
                                    static_cast<int>(series.doses.size()));
    calibration.Init();
    int done = 0;
    for (const auto& dose : series.doses) {
        for (const std::string& path : dose) {
            calibration.AccumulateGainImg(ReadCorrected(path));
            progress.Step(++done, total);
        }
        calibration.DivideAccumulation(1.0f);
    }
    if (denoised) {
        calibration.CalculateDenoisedGainReference();
    } else {
        calibration.CalculateGainReference();
    }
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, name, report);
    std::string scales;
    for (int k = 0; k < store->GetGainPolyCoeff(); ++k) {
        scales += (k == 0 ? "" : ", ") + Figure(store->GetScale(k));
    }
    return "coefficient scales " + scales;
}

std::string Pipeline::Clusters(StepReport& report) {
    auto store = boost::make_shared<ReferenceClusters>(StorePath("clusters"));
    CalibrationClusters calibration(s_clustersCalibrationParametersSet.lookup(request.model), store, gridStore);
    calibration.Init();
    calibration.CalculateClustersReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "clusters", report);
    return std::to_string(store->GetClusters().size()) + " clusters";
}

std::string Pipeline::EchoLines(StepReport& report) {
    auto store = boost::make_shared<ReferenceEcholine>(StorePath("echo-lines"));
    CalibrationEcholine calibration(s_EchoLineParametersSet.lookup(request.model), store, finalMap);
    calibration.Init();
    calibration.CalculateEcholineReference();
    calibration.FillEcholineReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "echo-lines", report);
    return std::to_string(store->singleLines.size()) + " single and " + std::to_string(store->doubleLines.size()) +
           " double echo lines";
}

// The images of the outputs, and the non-uniformity of the flat before and after the
// gain over the good pixels (0 in the final map, a usable gain code) of the gain's
// normalising area, or of the whole frame when that area is empty.
void Pipeline::FillImages(CalibrationOutputs& outputs) const {
    const int width = series.width;
    const int height = series.height;
    if (offsetStore) {
        outputs.offset = CopyImage<float>(*offsetStore->GetOffset());
    }
    if (finalMap) {
        outputs.defects = CopyImage<unsigned char>(*finalMap->GetDM());
    }
    if (!gainStore) {
        return;
    }
    outputs.gain = boost::make_shared<ImageAcquisition<float>>(width, height);
    gainStore->DeCompressImage(gainStore->GetGainLinear(), outputs.gain);
    if (gainStore->GetGainInversion()) {  // the response itself, not its reciprocal
        float* gain = outputs.gain->GetData();
        const int count = outputs.gain->GetPixelCount();
        for (int i = 0; i < count; ++i) {
            gain[i] = gain[i] != 0.0f ? 1.0f / gain[i] : 0.0f;
        }
    }
    outputs.flatBefore = flatBefore;
    outputs.flatAfter = flatAfter;

    const GainLinearParameters& record = s_gainLinearParametersSet.lookup(request.model);
    int x0 = std::max(0, static_cast<int>(static_cast<std::uint16_t>(record.X0)));
    int y0 = std::max(0, static_cast<int>(static_cast<std::uint16_t>(record.Y0)));
    int x1 = std::min(width, x0 + static_cast<int>(static_cast<std::uint16_t>(record.Width)));
    int y1 = std::min(height, y0 + static_cast<int>(static_cast<std::uint16_t>(record.Height)));
    if (x1 <= x0 || y1 <= y0) {
        x0 = 0;
        y0 = 0;
        x1 = width;
        y1 = height;
    }
    const std::size_t room = static_cast<std::size_t>(x1 - x0) * static_cast<std::size_t>(y1 - y0);
    std::vector<float> before;
    std::vector<float> after;
    before.reserve(room);
    after.reserve(room);
    const unsigned char* map = finalMap ? finalMap->GetDM()->GetData() : nullptr;
    const unsigned short* codes = gainStore->GetGainLinear()->GetData();
    const float* flat = flatBefore->GetData();
    const float* corrected = flatAfter->GetData();
    for (int y = y0; y < y1; ++y) {
        const int row = y * width;
        for (int i = row + x0; i < row + x1; ++i) {
            if ((map == nullptr || map[i] == 0) && codes[i] != 0) {
                before.push_back(flat[i]);
                after.push_back(corrected[i]);
            }
        }
    }
    std::vector<float> scratch(before.size());
    outputs.nonUniformityBefore = NonUniformity(before, scratch);
    outputs.nonUniformityAfter = NonUniformity(after, scratch);
}

CalibrationOutputs Pipeline::Run() {
    RunStep(kOffsetDynamic, reports[kOffsetDynamic], [this](StepReport& r) { return OffsetDynamic(r); });
    RunStep(kOffsetTimeGrid, reports[kOffsetTimeGrid], [this](StepReport& r) { return OffsetTimeGrid(r); });
    RunStep(kGainLinear, reports[kGainLinear], [this](StepReport& r) { return GainLinear(r); });
    RunStep(kDm6, reports[kDm6], [this](StepReport& r) { return DefectMapDoses(r); });
    RunStep(kDmGain, reports[kDmGain], [this](StepReport& r) { return DefectMapGainStep(r); });
    RunStep(kDmDark, reports[kDmDark], [this](StepReport& r) { return DefectMapDarkStep(r); });
    RunStep(kDmUntypical, reports[kDmUntypical], [this](StepReport& r) { return DefectMapUntypicalStep(r); });
    RunStep(kDmAuto, reports[kDmAuto], [this](StepReport& r) { return AutomaticDefect(r); });
    RunStep(kDmMerge, reports[kDmMerge], [this](StepReport& r) { return Merge(r); });
    // Without a merge, the final map is the last one made.
    if (!finalMap && reports[kDmMerge].status != StepReport::Status::Failed && !defectStores.empty()) {
        finalMap = defectStores.back().second;
    }
    RunStep(kGainPoly, reports[kGainPoly], [this](StepReport& r) { return GainPoly(r, false); });
    RunStep(kGainPolyDenoised, reports[kGainPolyDenoised], [this](StepReport& r) { return GainPoly(r, true); });
    RunStep(kClusters, reports[kClusters], [this](StepReport& r) { return Clusters(r); });
    RunStep(kEchoLines, reports[kEchoLines], [this](StepReport& r) { return EchoLines(r); });

    CalibrationOutputs outputs;
    outputs.steps.assign(reports.begin(), reports.end());
    FillImages(outputs);
    return outputs;
}

}  // namespace

const std::vector<std::string>& CalibrationStepNames() {
    static const std::vector<std::string> names{
        "offset-dynamic", "offset-time-grid", "gain-linear", "dm6",      "dm-gain",
        "dm-dark",        "dm-untypical",     "dm-auto",     "dm-merge", "gain-poly",
        "gain-poly-denoised", "clusters",     "echo-lines"};
    return names;
}

CalibrationOutputs RunCalibrations(const CalibrationRequest& request, const FrameSeries& series,
                                   Progress& progress) {
    const std::vector<std::string>& names = CalibrationStepNames();
    for (const std::string& wanted : request.only) {
        if (std::find(names.begin(), names.end(), wanted) == names.end()) {
            std::string list;
            for (const std::string& name : names) {
                list += (list.empty() ? "" : ", ") + name;
            }
            throw InputError("", "unknown calibration step \"" + wanted + "\"; the steps are " + list);
        }
    }
    Pipeline pipeline(request, series, progress);
    return pipeline.Run();
}

}  // namespace app
}  // namespace orvane
