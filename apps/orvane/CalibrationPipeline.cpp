#include "apps/orvane/CalibrationPipeline.h"

#include "apps/orvane/Evaluation.h"
#include "apps/orvane/FrameReader.h"
#include "apps/orvane/InputError.h"
#include "apps/orvane/ModelGeometry.h"
#include "OrvaneCalibration.h"
#include "tools/Parallel.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <chrono>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvane {
namespace app {

namespace {

const char* const kStoreExtension = ".fxd";
// Where a frame's time and temperature come from, for the message of a frame without.
const char* const kMetadataHint =
    "(TIFF: ImageDescription JSON; FITS: TIMEnnnn/TEMPnnnn; HDF5: attributes image.time/image.temperature; "
    "or give --frame-interval and --temperature)";
// The first error line the library logs while it lives, without its level and
// source: the cause of a failure, where the exception that ends the step may tell
// only a symptom of it.
class FirstError {
public:
    FirstError()
        : handle(logger::manager().add_sink([this](const std::string& line) {
              if (!text.empty() || line.compare(0, 2, "E ") != 0) return;
              const std::size_t source = line.find("): ");
              text = line.substr(source == std::string::npos ? 2 : source + 3);
              while (!text.empty() && text.back() == '\n') text.pop_back();
          })) {}
    ~FirstError() { logger::manager().remove_sink(handle); }
    FirstError(const FirstError&) = delete;
    FirstError& operator=(const FirstError&) = delete;

    std::string text;

private:
    int handle;
};

// Frame pairs of the automatic defect update.
constexpr int kMaxAutomaticPairs = 3;

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

// Whether the request's model has rows of its own in `set` (not only the default row).
template <auto& set>
bool HasRowsIn(const CalibrationRequest& request) {
    return set.HasOwnRow(request.model);
}

// The untypical map also runs on the request's own row.
bool HasUntypicalRow(const CalibrationRequest& request) {
    return request.untypicalRow != nullptr || s_DefectMapUntypicalParametersSet.HasOwnRow(request.model);
}

class Pipeline;

// What a step needs, besides parameter rows, before it can run.
struct Requirement {
    enum class Kind {
        Ran,        // `step` ran
        NotFailed,  // `step` did not fail (it may have been skipped)
        DefectMap,  // a defect map was made
        FinalMap,   // the final defect map exists
    };
    Kind kind;
    const char* step = nullptr;
};

// One calibration of the run. Adding a step is one entry of Pipeline::Steps().
struct StepDefinition {
    const char* name;
    bool (*hasRows)(const CalibrationRequest& request);  // null: the step runs for every model
    std::vector<Requirement> needs;             // checked in order; the first unmet is reported
    std::string (Pipeline::*body)(StepReport&);  // does the work; returns the report's detail
};

// One run of the calibrations. The stores live here between the steps; every
// calibration object lives only inside its step, so that the work images of the
// shared pool are back before the next step takes them.
class Pipeline {
public:
    // The steps in the order the library requires them to run.
    static const std::vector<StepDefinition>& Steps();

    Pipeline(const CalibrationRequest& request, const FrameSeries& series, Progress& progress)
        : request(request), series(series), progress(progress), reader(series, request.defaults) {}

    CalibrationOutputs Run();

private:
    bool Wanted(const StepDefinition& step) const;
    // The first requirement of `step` that is not met, as the report names it, or "".
    std::string Missing(const StepDefinition& step) const;
    const StepReport& ReportOf(const char* name) const;
    void RunStep(const StepDefinition& step, StepReport& report);
    // The merged map; without a merge, the last map made; null when the merge failed.
    boost::shared_ptr<ReferenceDM> FinalMap() const;

    std::string StorePath(const std::string& name) const;
    void SaveStore(Reference& store, const std::string& name, StepReport& report);
    ImagePtr<unsigned short> Read(const FrameRef& frame) const;
    ImagePtr<unsigned short> ReadCorrected(const FrameRef& frame) const;
    // The "image.time" of a dark frame; a one-line failure when it has none.
    long long DarkTime(int index) const;
    const std::vector<FrameRef>& MiddleDose() const;
    const std::vector<FrameRef>& CheckDose() const;
    int FlatFrameCount() const;
    boost::shared_ptr<DefectMapFlag> MakeFlag() const;
    // Adds a map the step `name` made, which measured `area`.
    void AddDefectStore(const std::string& name, const boost::shared_ptr<ReferenceDM>& store, const ROI& area);
    ROI MeasuredArea(const ROI& area) const;
    ROI FrameArea() const;

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
    std::string GainPolyPlain(StepReport& report) { return GainPoly(report, false); }
    std::string GainPolyDenoised(StepReport& report) { return GainPoly(report, true); }
    std::string Clusters(StepReport& report);
    std::string EchoLines(StepReport& report);
    void FillImages(CalibrationOutputs& outputs) const;

    const CalibrationRequest& request;
    const FrameSeries& series;
    Progress& progress;
    mutable FrameReader reader;
    std::vector<StepReport> reports;  // one per step run so far, in the order of Steps()

    boost::shared_ptr<ReferenceOffsetSimple> offsetStore;
    int offsetFrames = 0;
    boost::shared_ptr<ReferenceOffsetTimeGrid> gridStore;
    std::vector<int> gridEntryFrames;  // frames of each grid entry
    boost::shared_ptr<ReferenceGainLinear> gainStore;
    boost::shared_ptr<ReferenceDM> gainDefectStore;  // dm-gain, which dm-auto extends
    // Defect maps made so far, by step name; dm-auto replaces dm-gain (it holds it).
    std::vector<std::pair<std::string, boost::shared_ptr<ReferenceDM>>> defectStores;
    struct MadeMap {
        std::string step;
        boost::shared_ptr<ReferenceDM> store;
        ROI area;
    };
    std::vector<MadeMap> madeMaps;  // every map, dm-auto too
    boost::shared_ptr<ReferenceDM> mergedMap;
    boost::shared_ptr<ReferenceClusters> clustersStore;
    boost::shared_ptr<ReferenceEcholine> echoStore;
    boost::shared_ptr<ReferenceGainPoly> polyStore;
    boost::shared_ptr<ReferenceGainPoly> polyDenoisedStore;
    ImagePtr<float> flatBefore;
    ImagePtr<float> flatAfter;
};

const std::vector<StepDefinition>& Pipeline::Steps() {
    using Kind = Requirement::Kind;
    static const std::vector<StepDefinition> steps{
        // The dynamic offset's table is one default row, shared by every model.
        {"offset-dynamic", nullptr, {}, &Pipeline::OffsetDynamic},
        {"offset-time-grid", HasRowsIn<s_OffsetTimeGridParametersSet>, {}, &Pipeline::OffsetTimeGrid},
        {"gain-linear", HasRowsIn<s_gainLinearParametersSet>, {{Kind::Ran, "offset-dynamic"}}, &Pipeline::GainLinear},
        {"dm6", HasRowsIn<s_defectMapParametersSet>, {{Kind::Ran, "gain-linear"}}, &Pipeline::DefectMapDoses},
        {"dm-gain", HasRowsIn<s_defectMapGainParametersSet>, {{Kind::Ran, "gain-linear"}},
         &Pipeline::DefectMapGainStep},
        {"dm-dark", HasRowsIn<s_DefectMapDarkParametersSet>, {}, &Pipeline::DefectMapDarkStep},
        {"dm-untypical", HasUntypicalRow, {}, &Pipeline::DefectMapUntypicalStep},
        // dm-auto extends the gain map, or the last map made when dm-gain did not
        // qualify; a dm-gain that was tried and failed leaves it nothing to extend.
        {"dm-auto", HasRowsIn<s_automaticDefectParametersSet>, {{Kind::NotFailed, "dm-gain"}, {Kind::DefectMap}},
         &Pipeline::AutomaticDefect},
        // A merge has no table: it merges whatever maps were made.
        {"dm-merge", nullptr, {{Kind::DefectMap}}, &Pipeline::Merge},
        {"gain-poly", HasRowsIn<s_gainPolyParametersSet>, {{Kind::Ran, "gain-linear"}, {Kind::FinalMap}},
         &Pipeline::GainPolyPlain},
        {"gain-poly-denoised", HasRowsIn<s_gainPolyParametersSet>,
         {{Kind::Ran, "gain-linear"}, {Kind::FinalMap}}, &Pipeline::GainPolyDenoised},
        {"clusters", HasRowsIn<s_clustersCalibrationParametersSet>, {{Kind::Ran, "offset-time-grid"}},
         &Pipeline::Clusters},
        {"echo-lines", HasRowsIn<s_EchoLineParametersSet>, {{Kind::FinalMap}}, &Pipeline::EchoLines},
    };
    return steps;
}

bool Pipeline::Wanted(const StepDefinition& step) const {
    return request.only.empty() ||
           std::find(request.only.begin(), request.only.end(), step.name) != request.only.end();
}

const StepReport& Pipeline::ReportOf(const char* name) const {
    for (const StepReport& report : reports) {
        if (report.name == name) {
            return report;
        }
    }
    throw std::logic_error(std::string("step ") + name + " is required before it runs");
}

std::string Pipeline::Missing(const StepDefinition& step) const {
    for (const Requirement& need : step.needs) {
        switch (need.kind) {
            case Requirement::Kind::Ran:
                if (ReportOf(need.step).status != StepReport::Status::Ran) return need.step;
                break;
            case Requirement::Kind::NotFailed:
                if (ReportOf(need.step).status == StepReport::Status::Failed) return need.step;
                break;
            case Requirement::Kind::DefectMap:
                if (defectStores.empty()) return "a defect map";
                break;
            case Requirement::Kind::FinalMap:
                // A failed merge leaves no final map; otherwise no defect step ran at all.
                if (!FinalMap()) {
                    return ReportOf("dm-merge").status == StepReport::Status::Failed ? "dm-merge" : "a defect map";
                }
                break;
        }
    }
    return "";
}

boost::shared_ptr<ReferenceDM> Pipeline::FinalMap() const {
    const StepReport::Status merge = ReportOf("dm-merge").status;
    if (merge != StepReport::Status::Skipped) {
        return mergedMap;
    }
    return defectStores.empty() ? nullptr : defectStores.back().second;
}

void Pipeline::RunStep(const StepDefinition& step, StepReport& report) {
    report.name = step.name;
    if (!Wanted(step)) {
        report.detail = "not requested";
        return;
    }
    if (step.hasRows != nullptr && !step.hasRows(request)) {
        report.detail = "no parameter rows for " + request.model;
        return;
    }
    const std::string missing = Missing(step);
    if (!missing.empty()) {
        report.detail = "needs " + missing;
        return;
    }
    progress.Stage(report.name);
    const auto start = std::chrono::steady_clock::now();
    FirstError firstError;
    try {
        report.detail = (this->*step.body)(report);
        report.status = StepReport::Status::Ran;
    } catch (const std::exception& e) {
        report.status = StepReport::Status::Failed;
        report.detail = firstError.text.empty() ? e.what() : firstError.text;
    } catch (...) {
        report.status = StepReport::Status::Failed;
        report.detail = firstError.text.empty() ? "unknown failure" : firstError.text;
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

ImagePtr<unsigned short> Pipeline::Read(const FrameRef& frame) const { return reader.Read(frame); }

ImagePtr<unsigned short> Pipeline::ReadCorrected(const FrameRef& source) const {
    ImagePtr<unsigned short> frame = Read(source);
    const ImagePtr<unsigned short>& offset = offsetStore->GetOffset();
    // max(0, raw - dark) of two 16-bit words is exact in integers: a saturating
    // subtraction, which vectorises to one instruction per register. Pixels are
    // independent: blocks of them run on every core.
    const int count = std::min(frame->GetPixelCount(), offset->GetPixelCount());
    unsigned short* pixels = frame->GetData();
    const unsigned short* dark = offset->GetData();
    orvane::ParallelFor(count, 65536, [pixels, dark](int begin, int end) {
        for (int i = begin; i < end; ++i) {
            pixels[i] = static_cast<unsigned short>(pixels[i] > dark[i] ? pixels[i] - dark[i] : 0);
        }
    });
    return frame;
}

// Reads the whole frame: not every format keeps its metadata apart from its pixels.
long long Pipeline::DarkTime(int index) const {
    const FrameRef& dark = series.darks[static_cast<std::size_t>(index)];
    const auto time = Read(dark)->GetProperties().get_optional<long long>("image.time");
    if (!time) throw std::runtime_error(dark.Name() + " has no image.time " + kMetadataHint);
    return *time;
}

const std::vector<FrameRef>& Pipeline::MiddleDose() const {
    if (series.doses.empty() || series.doses[series.doses.size() / 2].empty()) {
        throw std::runtime_error("the series has no flat frames");
    }
    return series.doses[series.doses.size() / 2];
}

// The dose above the middle one (below it when there is none above; the middle one
// itself when it is the only dose).
const std::vector<FrameRef>& Pipeline::CheckDose() const {
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

void Pipeline::AddDefectStore(const std::string& name, const boost::shared_ptr<ReferenceDM>& store, const ROI& area) {
    defectStores.emplace_back(name, store);
    madeMaps.push_back({name, store, MeasuredArea(area)});
}

ROI Pipeline::FrameArea() const {
    return ROI(0, 0, static_cast<unsigned short>(series.height), static_cast<unsigned short>(series.width));
}

// `area` clipped to the frame.
ROI Pipeline::MeasuredArea(const ROI& area) const { return Intersection(area, FrameArea()); }

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
    offsetFrames = total;

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
    const long long start = DarkTime(0);
    std::vector<int> deltaTimes;
    for (int first : firsts) {
        int delta = static_cast<int>((DarkTime(first) - start) / 60);
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
            if (!frame->GetProperties().get_optional<double>("image.temperature")) {  // the grid keeps it
                throw std::runtime_error(series.darks[i].Name() + " has no image.temperature " + kMetadataHint);
            }
            calibration.AccumulateOffset(frame);
            progress.Step(i + 1, total);
        }
        calibration.DivideAccumulationAndUpdate(deltaTimes[g]);
        gridEntryFrames.push_back(end - firsts[g]);
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
    const std::vector<FrameRef>& dose = MiddleDose();
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

    const FlatCheck check = MakeFlatCheck(CheckDose(), reader, *offsetStore->GetOffset(), store);
    flatBefore = check.before;
    flatAfter = check.after;

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
// offset-subtracted, fed one frame at a time; the calibration divides each dose's mean
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
    const auto runDose = [&](const std::vector<FrameRef>& paths, bool flat, const std::string& name) {
        if (paths.empty()) return;
        calibration.BeginDose();
        for (std::size_t i = 0; i < paths.size(); ++i) {
            const ImagePtr<unsigned short> frame = flat ? ReadCorrected(paths[i]) : Read(paths[i]);
            progress.Step(++done, total);
            // A dose whose mean level reaches the clipping bound is flat once clipped:
            // it shows nothing and its statistic breaks down. Its other frames are not read.
            if (i == 0 && flat && frame->GetPixelCount() > 0 && MeanLevel(*frame) >= record.ClipMax) {
                skipped += (skipped.empty() ? "" : ", ") + name;
                done += static_cast<int>(paths.size()) - 1;
                return;
            }
            calibration.AccumulateDoseImg(frame);
        }
        calibration.EndDose();
        ++used;
    };
    runDose(series.darks, false, "darks");
    for (std::size_t d = 0; d < series.doses.size(); ++d) {
        runDose(series.doses[d], true, std::to_string(d + 1));
    }
    calibration.UpdateDefectMapReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "dm6", report);
    AddDefectStore("dm6", store, RecordArea(record));
    return std::to_string(DefectCount(store)) + " defective pixels from the darks and " + std::to_string(used - 1) +
           " doses" + (skipped.empty() ? "" : " (above the clipping level: dose " + skipped + ")");
}

std::string Pipeline::DefectMapGainStep(StepReport& report) {
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("dm-gain"));
    const DefectMapGainParameters& record = s_defectMapGainParametersSet.lookup(request.model);
    CalibrationDefectMapGain calibration(record, store, gainStore, MakeFlag());
    calibration.Init();
    calibration.DefectMapGain();
    calibration.UpdateDefectMapReference();  // marks the store valid
    calibration.Clear();
    SaveStore(*store, "dm-gain", report);
    gainDefectStore = store;
    // The linear gain it examines is measured on its own area only.
    AddDefectStore("dm-gain", store,
                   Intersection(RecordArea(record), RecordArea(s_gainLinearParametersSet.lookup(request.model))));
    return std::to_string(DefectCount(store)) + " defective pixels";
}

// All darks as one series: the band test counts once per series.
std::string Pipeline::DefectMapDarkStep(StepReport& report) {
    if (series.darks.empty()) {
        throw std::runtime_error("the series has no dark frames");
    }
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("dm-dark"));
    const DefectMapDarkParameters& record = s_DefectMapDarkParametersSet.lookup(request.model);
    CalibrationDefectMapDark calibration(record, store);
    calibration.Init();
    const int total = static_cast<int>(series.darks.size());
    for (int i = 0; i < total; ++i) {
        calibration.AccumulateImg(Read(series.darks[i]));
        progress.Step(i + 1, total);
    }
    calibration.ComputeDefectMapDarkAndMerge();
    calibration.UpdateDefectMapReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "dm-dark", report);
    AddDefectStore("dm-dark", store, record.Area);
    return std::to_string(DefectCount(store)) + " defective pixels";
}

// Each raw frame of the middle dose on its own.
std::string Pipeline::DefectMapUntypicalStep(StepReport& report) {
    const std::vector<FrameRef>& dose = MiddleDose();
    auto store = boost::make_shared<ReferenceDM>(series.width, series.height, StorePath("dm-untypical"));
    // The table's row when the model has one, else the request's.
    const bool ownRow = s_DefectMapUntypicalParametersSet.HasOwnRow(request.model) || !request.untypicalRow;
    const DefectMapUntypicalParameters& record =
        ownRow ? s_DefectMapUntypicalParametersSet.lookup(request.model) : *request.untypicalRow;
    CalibrationDefectMapUntypical calibration(record, store);
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
    AddDefectStore("dm-untypical", store, record.Area);
    return std::to_string(DefectCount(store)) + " defective pixels";
}

// A copy of the gain defect map (or of the last map made, when dm-gain did not run),
// extended from the pairs (0, 1), (2, 3), ... of the raw frames of the middle dose;
// the calibration saves its store itself. It then stands in for that map in the merge.
std::string Pipeline::AutomaticDefect(StepReport& report) {
    const std::vector<FrameRef>& dose = MiddleDose();
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
    madeMaps.push_back({"dm-auto", store, MeasuredArea(s_automaticDefectParametersSet.lookup(request.model).Area)});
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
    mergedMap = store;
    madeMaps.push_back({"dm-merge", store, FrameArea()});
    return std::to_string(DefectCount(store)) + " defective pixels from " + names;
}

// Every dose, offset-subtracted, weight 1; the fit reads the final defect map.
std::string Pipeline::GainPoly(StepReport& report, bool denoised) {
    const std::string name = denoised ? "gain-poly-denoised" : "gain-poly";
    const int total = FlatFrameCount();
    auto store = boost::make_shared<ReferenceGainPoly>(series.width, series.height, 3, StorePath(name));
    CalibrationGainPoly calibration(s_gainPolyParametersSet.lookup(request.model), store, gainStore, FinalMap(),
                                    static_cast<int>(series.doses.size()));
    calibration.Init();
    int done = 0;
    for (const auto& dose : series.doses) {
        for (const FrameRef& frame : dose) {
            calibration.AccumulateGainImg(ReadCorrected(frame));
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
    (denoised ? polyDenoisedStore : polyStore) = store;
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
    clustersStore = store;
    return std::to_string(store->GetClusters().size()) + " clusters";
}

std::string Pipeline::EchoLines(StepReport& report) {
    auto store = boost::make_shared<ReferenceEcholine>(StorePath("echo-lines"));
    CalibrationEcholine calibration(s_EchoLineParametersSet.lookup(request.model), store, FinalMap());
    calibration.Init();
    calibration.CalculateEcholineReference();
    calibration.FillEcholineReference();
    calibration.Clear();
    store->SetValid(true);
    SaveStore(*store, "echo-lines", report);
    echoStore = store;
    return std::to_string(store->singleLines.size()) + " single and " + std::to_string(store->doubleLines.size()) +
           " double echo lines";
}

// The images of the outputs, and the non-uniformity of the check flat before and
// after the gain.
void Pipeline::FillImages(CalibrationOutputs& outputs) const {
    const boost::shared_ptr<ReferenceDM> finalMap = FinalMap();
    if (offsetStore) {
        outputs.offset = CopyImage<float>(*offsetStore->GetOffset());
        outputs.offsetFrames = offsetFrames;
    }
    outputs.offsetGrid = gridStore;
    outputs.gridEntryFrames = gridEntryFrames;
    if (finalMap) {
        outputs.defects = CopyImage<unsigned char>(*finalMap->GetDM());
    }
    for (const MadeMap& made : madeMaps) {
        outputs.maps.push_back({made.step, CopyImage<unsigned char>(*made.store->GetDM()), made.area});
    }
    outputs.polyGain = polyStore;
    outputs.polyGainDenoised = polyDenoisedStore;
    if (echoStore) {
        outputs.singleEchoLines = echoStore->singleLines;
        outputs.doubleEchoLines = echoStore->doubleLines;
    }
    if (clustersStore) {
        for (const ImagePtr<unsigned short>& cluster : clustersStore->GetClusters()) {
            const auto& properties = cluster->GetProperties();
            outputs.clusterPlaces.push_back(
                {properties.get<int>("image.pixelcluster.pos.x"), properties.get<int>("image.pixelcluster.pos.y")});
        }
    }
    if (!gainStore) {
        return;
    }
    outputs.gain = boost::make_shared<ImageAcquisition<float>>(series.width, series.height);
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
    if (!flatBefore) {  // the gain was saved, but its check flat could not be made
        return;
    }
    const GainLinearParameters& record = s_gainLinearParametersSet.lookup(request.model);
    const ImageAcquisition<unsigned char>* defects = finalMap ? finalMap->GetDM().get() : nullptr;
    const ImageAcquisition<unsigned short>& codes = *gainStore->GetGainLinear();
    outputs.nonUniformityBefore = NonUniformity(*flatBefore, codes, defects, record);
    outputs.nonUniformityAfter = NonUniformity(*flatAfter, codes, defects, record);
}

CalibrationOutputs Pipeline::Run() {
    reports.reserve(Steps().size());
    for (const StepDefinition& step : Steps()) {
        reports.emplace_back();
        RunStep(step, reports.back());
    }
    CalibrationOutputs outputs;
    outputs.steps = reports;
    FillImages(outputs);
    return outputs;
}

}  // namespace

const std::vector<std::string>& CalibrationStepNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const StepDefinition& step : Pipeline::Steps()) {
            list.emplace_back(step.name);
        }
        return list;
    }();
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
