// The `orvane` command: simulate a detector, calibrate it from frame files of any
// format, correct frames with the references of a calibration, run all of it as a demo
// against the simulator's ground truth, convert image files between formats, and print
// parameter records.

#include "apps/orvane/CalibrationPipeline.h"
#include "apps/orvane/CorrectionCheck.h"
#include "apps/orvane/DemoPanels.h"
#include "apps/orvane/DetectorSimulator.h"
#include "apps/orvane/Evaluation.h"
#include "apps/orvane/FrameSeries.h"
#include "apps/orvane/GroundTruth.h"
#include "apps/orvane/InputError.h"
#include "apps/orvane/ModelGeometry.h"
#include "apps/orvane/ParameterPrinter.h"
#include "apps/orvane/ReferenceExport.h"
#include "apps/orvane/Progress.h"
#include "apps/orvane/Report.h"
#include "apps/orvane/SeriesCorrection.h"
#include "apps/orvane/StagingFolder.h"
#include "interfaces/logger.h"
#include "io/ImageFiles.h"
#include "tools/Parallel.h"

#include <boost/program_options.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace po = boost::program_options;
using namespace orvane::app;
namespace io = orvane::io;

namespace {

const char* const kUsage =
    "usage: orvane [--threads N] <command> [options]\n"
    "\n"
    "commands:\n"
    "  simulate   write a synthetic series of dark and flat frames with its ground truth\n"
    "  calibrate  compute every calibration of a model from a series of frames\n"
    "  correct    apply the references of a calibration to every frame of a series\n"
    "  convert    write the frames of an image file in another format\n"
    "  demo       simulate, calibrate and correct the \"Birch\" panel and a smaller one, and compare with the truth\n"
    "  params     print the parameter records of every set for a key\n"
    "\n"
    "--threads N  the threads of the parallel work (default: ORVANE_THREADS, else every core\n"
    "             this process may use); results are the same for any number\n"
    "\n"
    "Run 'orvane <command> --help' for the options of a command.\n";


// Bad usage: reported like bad input.
struct UsageError : InputError {
    explicit UsageError(const std::string& problem) : InputError("", problem) {}
};

// Parses the options of a subcommand; true when --help was asked (and printed).
bool Parse(const std::vector<std::string>& args, const po::options_description& options,
           const po::positional_options_description& positional, po::variables_map& values, const char* usage) {
    try {
        po::store(po::command_line_parser(args).options(options).positional(positional).run(), values);
        if (values.count("help")) {
            std::cout << usage << "\n" << options;
            return true;
        }
        po::notify(values);
    } catch (const po::error& error) {
        throw UsageError(std::string(error.what()) + " (see --help)");
    }
    return false;
}

// Library log lines go to <dir>/orvane.log, and with -v to stderr too, while alive.
class LogSinks {
public:
    LogSinks(const std::string& file, bool verbose) : stream(std::make_shared<std::ofstream>(file)) {
        handles.push_back(logger::manager().add_sink([stream = stream](const std::string& line) {
            *stream << line << std::flush;
        }));
        if (verbose) {
            handles.push_back(logger::manager().add_sink([](const std::string& line) { std::cerr << line; }));
        }
    }
    ~LogSinks() {
        for (int handle : handles) logger::manager().remove_sink(handle);
    }

private:
    std::shared_ptr<std::ofstream> stream;
    std::vector<int> handles;
};

std::vector<int> ParseNumbers(const std::string& text, std::size_t count, const char* what) {
    if (text.empty() || text.back() == ',') throw UsageError(std::string("bad ") + what + " \"" + text + "\"");
    std::vector<int> numbers;
    std::stringstream stream(text);
    std::string item;
    while (std::getline(stream, item, ',')) {
        try {
            std::size_t used = 0;
            const int value = std::stoi(item, &used);
            if (used != item.size() || value < 0 || value > 65535) throw std::invalid_argument(item);
            numbers.push_back(value);
        } catch (const std::exception&) {
            throw UsageError(std::string("bad ") + what + " \"" + text + "\"");
        }
    }
    if (numbers.size() != count) throw UsageError(std::string("bad ") + what + " \"" + text + "\"");
    return numbers;
}

// The step names of --only; an empty name (",", "a,,b", a trailing comma) is refused.
std::vector<std::string> SplitList(const std::string& text) {
    std::vector<std::string> items;
    std::stringstream stream(text);
    std::string item;
    while (std::getline(stream, item, ',')) items.push_back(item);
    if (items.empty() || text.back() == ',' ||
        std::find(items.begin(), items.end(), std::string()) != items.end()) {
        throw UsageError("bad --only \"" + text + "\": an empty step name");
    }
    return items;
}

// Says on stderr which steps failed; the exit code of a run: 0, or 3 when one failed.
int FinishedRun(const CalibrationOutputs& outputs) {
    std::string failed;
    for (const StepReport& step : outputs.steps) {
        if (step.status == StepReport::Status::Failed) failed += (failed.empty() ? "" : ", ") + step.name;
    }
    if (failed.empty()) return 0;
    std::cerr << "orvane: finished, but these steps failed: " << failed << '\n';
    return 3;
}

// The frames of `in`, checked against the model's frame size.
FrameSeries ScanForModel(const std::string& in, const io::OpenOptions& options, const ModelGeometry& model) {
    FrameSeries series = ScanFrames(in, options);
    if (series.width != model.width || series.height != model.height) {
        std::ostringstream problem;
        problem << "frame is " << series.width << " x " << series.height << ", model " << model.key << " expects "
                << model.width << " x " << model.height;
        throw InputError(series.darks.empty() ? in : series.darks.front().Name(), problem.str());
    }
    return series;
}

io::ImageFileFormat FormatOption(const std::string& name, bool rawAllowed) {
    try {
        const io::ImageFileFormat format = io::ParseFormatName(name);
        if (format == io::ImageFileFormat::Raw && !rawAllowed) throw std::invalid_argument("raw");
        return format;
    } catch (const std::invalid_argument&) {
        throw UsageError("bad --format \"" + name + "\" (fxd, tiff, fits, hdf5" + (rawAllowed ? ", raw" : "") + ")");
    }
}

io::OpenOptions RawOption(const std::string& layout) {
    io::OpenOptions options;
    if (layout.empty()) return options;
    try {
        options.raw = io::ParseRawLayout(layout);
    } catch (const std::invalid_argument& error) {
        throw UsageError(std::string("bad --raw: ") + error.what());
    }
    return options;
}

// The layouts of a series, for --help.
const char* const kLayouts =
    "\nframes (--in): a folder of frame files  dark-000.EXT, ..., flat-1-000.EXT, flat-2-000.EXT, ...\n"
    "               a folder of stacks       dark.EXT, flat-1.EXT, flat-2.EXT, ... (every frame of a series)\n"
    "               one HDF5 file            datasets /dark, /flat-1, /flat-2, ...; or /exchange/data_dark\n"
    "                                        and /exchange/data_white (one dose); or a folder of one such file\n"
    "EXT: .fxd; .tif .tiff; .fits .fit .fts; .h5 .hdf5 .hdf .nxs; .raw .bin (with --raw WxH:TYPE[:HEADER],\n"
    "     TYPE u8, u16le, u16be, f32le or f32be). Frames must be 16-bit unsigned.\n"
    "metadata: image.time (seconds) and image.temperature: TIFF ImageDescription JSON, FITS TIMEnnnn and\n"
    "     TEMPnnnn, HDF5 attributes image.time and image.temperature of the dataset, .fxd properties.\n";

void PrintSteps(std::ostream& out, const CalibrationOutputs& outputs) {
    for (const StepReport& step : outputs.steps) {
        const char* status = step.status == StepReport::Status::Ran       ? "ran    "
                             : step.status == StepReport::Status::Skipped ? "skipped"
                                                                          : "FAILED ";
        char seconds[32];
        std::snprintf(seconds, sizeof seconds, "%6.1f s", step.seconds);
        out << "  " << status << "  " << step.name << std::string(20 - std::min<std::size_t>(19, step.name.size()), ' ')
            << (step.status == StepReport::Status::Ran ? seconds : "        ") << "  " << step.detail << '\n';
    }
}

Progress MakeProgress() { return Progress(std::cerr, ::isatty(2) != 0); }

int Simulate(const std::vector<std::string>& args) {
    po::options_description options("options");
    std::string model, out, format;
    SimulationOptions simulation;
    options.add_options()("help,h", "show this help")(
        "model", po::value(&model)->required(), "model key, e.g. Birch or Rowan.*.m8")(
        "out", po::value(&out)->required(), "folder to write the frames into (new or empty)")(
        "replace", "replace whatever the --out folder holds")(
        "seed", po::value(&simulation.seed)->default_value(1), "random seed")(
        "darks", po::value(&simulation.darkFrames)->default_value(10), "dark frames")(
        "doses", po::value(&simulation.doses)->default_value(5), "flat-field doses")(
        "frames", po::value(&simulation.framesPerDose)->default_value(10), "flat frames per dose")(
        "format", po::value(&format)->default_value("fxd"),
        "fxd (frame files), tiff, fits, raw (one stack per series) or hdf5 (one file series.h5)");
    po::variables_map values;
    if (Parse(args, options, {}, values, "usage: orvane simulate --model KEY --out DIR [options]")) return 0;
    simulation.format = FormatOption(format, true);
    if (simulation.darkFrames < 2 || simulation.doses < 1 || simulation.framesPerDose < 2) {
        throw UsageError("need at least 2 dark frames, 1 dose and 2 frames per dose");
    }

    const ModelGeometry geometry = FindModel(model);
    simulation.model = geometry.key;
    // Frames beside older ones would make one series under one ground truth.
    const bool replace = values.count("replace") > 0;
    if (!replace && StagingFolder::HasContent(out)) {
        throw InputError(out, "is not empty: give a new or empty folder, or --replace to replace what it holds");
    }
    Progress progress = MakeProgress();
    StagingFolder folder(out);
    WriteSimulatedSeries(simulation, folder.Path(), progress);
    folder.Commit(replace);
    progress.Stage("wrote " + std::to_string(simulation.darkFrames + simulation.doses * simulation.framesPerDose) +
                   " frames of " + std::to_string(geometry.width) + " x " + std::to_string(geometry.height) +
                   " and the ground truth to " + out +
                   (simulation.format == io::ImageFileFormat::Raw
                        ? " (read them with --raw " + std::to_string(geometry.width) + "x" +
                              std::to_string(geometry.height) + ":u16le)"
                        : ""));
    return 0;
}

// How a calibration run reads its frames and writes its references.
struct RunOptions {
    std::vector<std::string> only;
    io::OpenOptions open;
    FrameDefaults defaults;
    io::ImageFileFormat format = io::ImageFileFormat::Fxd;
    bool verbose = false;
    const DefectMapUntypicalParameters* untypicalRow = nullptr;  // see CalibrationRequest
};

// What the demo compares a run with: the simulator's truth, and its frames.
struct DemoCheck {
    const GroundTruth* truth = nullptr;
    const DetectorSimulator* simulator = nullptr;
    Evaluation evaluation;
    CorrectionFigures correction;
    std::vector<ReportPanel> embedded;  // panels whose reports this one takes in
    std::string folder;                 // this panel's folder relative to the report that takes it in
    ReportPanel panel;                  // this panel, as that report takes it in
};

// Runs the calibrations of `model` on the frames in `in`; outputs (stores, report,
// log) into `out`. Given a check, the evaluation and the correction of the middle
// dose go into the report too.
CalibrationOutputs CalibrateInto(const std::string& model, const std::string& in, const std::string& out,
                                 const RunOptions& run, Progress& progress, DemoCheck* check) {
    const std::vector<std::string>& only = run.only;
    for (const std::string& step : only) {
        const std::vector<std::string>& names = CalibrationStepNames();
        if (std::find(names.begin(), names.end(), step) == names.end()) {
            throw UsageError("unknown step \"" + step + "\" in --only (see orvane calibrate --help)");
        }
    }
    const ModelGeometry geometry = FindModel(model);
    const FrameSeries series = ScanForModel(in, run.open, geometry);
    StagingFolder folder(out);
    CalibrationOutputs outputs;
    {
        LogSinks sinks(folder.Path() + "/orvane.log", run.verbose);
        CalibrationRequest request{model, folder.Path(), only, run.defaults, run.untypicalRow};
        outputs = RunCalibrations(request, series, progress);
    }
    if (run.format != io::ImageFileFormat::Fxd) {
        progress.Stage("writing the references as " + io::FormatName(run.format));
        ExportReferences(folder.Path(), outputs, run.format);
    }
    if (check) {
        check->evaluation = Evaluate(*check->truth, outputs, check->simulator);
        check->correction = CheckCorrection(folder.Path(), model, series, *check->simulator, progress);
    }
    progress.Stage("report");
    if (check) {
        check->panel = WriteReport(folder.Path(), model, outputs, &check->evaluation, &check->correction,
                                   check->embedded, check->folder);
    } else {
        WriteReport(folder.Path(), model, outputs, nullptr);
    }
    folder.Commit();
    return outputs;
}

int Calibrate(const std::vector<std::string>& args) {
    po::options_description options("options");
    std::string model, in, out, only, raw, format;
    double interval = 0.0, temperature = 0.0;
    options.add_options()("help,h", "show this help")("model", po::value(&model)->required(), "model key")(
        "in", po::value(&in)->required(), "the frames: a folder or an HDF5 file (see below)")(
        "out", po::value(&out)->required(), "folder for the stores, report.html and summary.json")(
        "only", po::value(&only), "comma-separated steps to run (default: all)")(
        "raw", po::value(&raw), "layout of raw files: WxH:TYPE[:HEADER], e.g. 3121x3121:u16le")(
        "format", po::value(&format)->default_value("fxd"),
        "references also as tiff, fits or hdf5 (the .fxd stores are always written)")(
        "frame-interval", po::value(&interval), "seconds between frames, for frames without image.time")(
        "temperature", po::value(&temperature), "degrees, for frames without image.temperature")(
        "verbose,v", "library log lines on stderr too");
    po::variables_map values;
    if (Parse(args, options, {}, values, "usage: orvane calibrate --model KEY --in PATH --out DIR [options]")) {
        std::cout << "\nsteps:";
        for (const std::string& name : CalibrationStepNames()) std::cout << ' ' << name;
        std::cout << '\n' << kLayouts;
        return 0;
    }
    RunOptions run;
    if (values.count("only")) run.only = SplitList(only);
    run.open = RawOption(raw);
    run.format = FormatOption(format, false);
    if (values.count("frame-interval")) run.defaults.interval = interval;
    if (values.count("temperature")) run.defaults.temperature = temperature;
    run.verbose = values.count("verbose") > 0;
    Progress progress = MakeProgress();
    const CalibrationOutputs outputs = CalibrateInto(model, in, out, run, progress, nullptr);
    PrintSteps(std::cout, outputs);
    std::cout << "report: " << out << "/report.html\n";
    return FinishedRun(outputs);
}

// One panel of the demo: simulates `model` into <out>/frames, calibrates into `out`
// and compares with the truth; prints the steps and the figures. Its report takes in
// `embedded`; `panel` receives it as seen from the folder above under `folder`. The
// exit code of the run.
int DemoPanel(const std::string& model, const std::string& out, const RunOptions& run, Progress& progress,
              const std::vector<ReportPanel>& embedded = {}, const std::string& folder = "",
              ReportPanel* panel = nullptr) {
    SimulationOptions simulation;
    const ModelGeometry geometry = FindModel(model);
    simulation.model = geometry.key;
    // Defects go where every map of the model looks, so that each is findable.
    simulation.plantArea = AreaEveryMapMeasures(geometry);
    const std::string frames = out + "/frames";
    const DetectorSimulator simulator(simulation);  // also renders the frames again, defect-free for the check
    {
        StagingFolder folder(frames);
        WriteSimulatedSeries(simulator, folder.Path(), progress);
        folder.Commit(true);  // the demo's own folder: an earlier run's frames go
    }
    const GroundTruth truth = LoadGroundTruth(frames);
    DemoCheck check;
    check.truth = &truth;
    check.simulator = &simulator;
    check.embedded = embedded;
    check.folder = folder;
    const CalibrationOutputs outputs = CalibrateInto(model, frames, out, run, progress, &check);
    if (panel) *panel = check.panel;
    progress.Stage("done");
    std::cout << model << ":\n";
    PrintSteps(std::cout, outputs);
    std::cout << '\n';
    PrintEvaluation(std::cout, check.evaluation);
    std::cout << '\n';
    PrintCorrection(std::cout, check.correction);
    std::cout << "\nreport: " << out << "/report.html\n\n";
    return FinishedRun(outputs);
}

int Demo(const std::vector<std::string>& args) {
    po::options_description options("options");
    std::string model = "Birch", second = kDemoSecondModel, out = "orvane-demo";
    const std::string secondHelp =
        "model key of a second, smaller panel, run into <out>/" + std::string(kDemoSecondFolder) + "; none for none";
    options.add_options()("help,h", "show this help")(
        "model", po::value(&model)->default_value(model), "model key")(
        "second", po::value(&second)->default_value(second),
        secondHelp.c_str())(
        "out", po::value(&out)->default_value(out), "folder for frames, stores and report")(
        "verbose,v", "library log lines on stderr too");
    po::variables_map values;
    if (Parse(args, options, {}, values, "usage: orvane demo [--model KEY] [--second KEY] [--out DIR]")) return 0;
    FindModel(model);
    if (second != "none") FindModel(second);

    Progress progress = MakeProgress();
    RunOptions run;
    run.verbose = values.count("verbose") > 0;
    // The small panel first, so that the main panel's report takes it in.
    int code = 0;
    std::vector<ReportPanel> embedded(second != "none" ? 1 : 0);
    if (second != "none") {
        // The untypical map has table rows for a few large panels only: the small one
        // takes the demo's own row.
        const ModelGeometry panel = FindModel(second);
        const DefectMapUntypicalParameters untypical = DemoUntypicalRow(panel.width, panel.height);
        RunOptions small = run;
        small.untypicalRow = &untypical;
        code = DemoPanel(second, out + "/" + kDemoSecondFolder, small, progress, {},
                         std::string(kDemoSecondFolder) + "/", &embedded.front());
    }
    return std::max(code, DemoPanel(model, out, run, progress, embedded));
}

int Correct(const std::vector<std::string>& args) {
    po::options_description options("options");
    std::string format, offset, gain, output, raw;
    SeriesCorrectionRequest request;
    options.add_options()("help,h", "show this help")(
        "calibration", po::value(&request.calibration)->required(), "the folder `orvane calibrate` wrote")(
        "in", po::value(&request.in)->required(), "the frames: a folder, an HDF5 file or one image file (see below)")(
        "out", po::value(&request.out)->required(), "folder for the corrected series (new or empty)")(
        "replace", "replace whatever the --out folder holds")(
        "format", po::value(&format), "fxd, tiff, fits, hdf5 or raw (default: the input's)")(
        "offset", po::value(&offset)->default_value("dynamic"),
        "dynamic (offset-dynamic.fxd) or time-grid (offset-time-grid.fxd, blended at each frame's\n"
        "image.temperature and image.time)")(
        "gain", po::value(&gain)->default_value("linear"),
        "linear (gain-linear.fxd), poly (gain-poly.fxd), poly-denoised (gain-poly-denoised.fxd) or none")(
        "no-defects", "leave the pixels of defect-map.fxd as they are")(
        "output", po::value(&output)->default_value("uint16"),
        "uint16 (rounded, clamped to 0 .. 65535) or float32")(
        "marks", "also write the 8-bit plane of replaced pixels per frame, as the series <series>-marks\n"
                 "(0 good, 1 isolated, 2 in a line or column, 3 in a cluster, 255 left unreplaced)")(
        "raw", po::value(&raw), "layout of raw files: WxH:TYPE[:HEADER]");
    po::variables_map values;
    if (Parse(args, options, {}, values, "usage: orvane correct --calibration DIR --in PATH --out DIR [options]")) {
        std::cout << kLayouts;
        return 0;
    }
    if (!format.empty()) request.format = FormatOption(format, true);
    request.choice.offset = ParseOffsetChoice(offset);
    request.choice.gain = ParseGainChoice(gain);
    request.choice.defects = values.count("no-defects") == 0;
    if (output != "uint16" && output != "float32") throw UsageError("bad --output \"" + output + "\" (uint16, float32)");
    request.floatOutput = output == "float32";
    request.marks = values.count("marks") > 0;
    request.replace = values.count("replace") > 0;
    request.open = RawOption(raw);
    Progress progress = MakeProgress();
    for (const SeriesTally& tally : CorrectSeries(request, progress)) {
        std::cout << "  " << tally.name << ": " << tally.frames << " frames, " << tally.clamped << " clamped, "
                  << tally.replaced << " replaced, " << tally.unreplaced << " unreplaced pixels\n";
    }
    std::cout << "corrected series: " << request.out << '\n';
    return 0;
}

// Writes every frame of one image file (or HDF5 dataset) to another file, in the
// format of its extension or of --format, with the frames' metadata.
int Convert(const std::vector<std::string>& args) {
    po::options_description options("options");
    std::string in, out, raw, format, dataset, outDataset;
    options.add_options()("help,h", "show this help")("in", po::value(&in)->required(), "the image file to read")(
        "out", po::value(&out)->required(), "the image file to write (replaced if it exists)")(
        "format", po::value(&format), "fxd, tiff, fits, hdf5 or raw (default: by the extension of OUT)")(
        "raw", po::value(&raw), "layout of a raw IN: WxH:TYPE[:HEADER]")(
        "dataset", po::value(&dataset), "HDF5 IN: the dataset (default: its only image dataset)")(
        "out-dataset", po::value(&outDataset), "HDF5 OUT: the dataset (default: /data)");
    po::positional_options_description positional;
    positional.add("in", 1).add("out", 1);
    po::variables_map values;
    if (Parse(args, options, positional, values, "usage: orvane convert IN OUT [options]")) return 0;
    io::OpenOptions open = RawOption(raw);
    open.dataset = dataset;
    io::ImageFileFormat target = io::ImageFileFormat::Fxd;
    if (!format.empty()) {
        target = FormatOption(format, true);
    } else if (const auto byName = io::FormatOfExtension(out)) {
        target = *byName;
    } else {
        throw UsageError("cannot tell the format of \"" + out + "\" from its extension: give --format");
    }
    Progress progress = MakeProgress();
    try {
        const std::unique_ptr<io::SeriesSource> source = io::OpenSeries(in, open);
        const io::FrameShape shape = source->Shape();
        io::WriteOptions write;
        write.dataset = outDataset;
        write.expectedFrames = shape.frames;
        // Written beside its place, in the staging folder, and moved there when complete.
        const std::filesystem::path place(out);
        StagingFolder folder(place.has_parent_path() ? place.parent_path().string() : ".");
        const std::unique_ptr<io::SeriesWriter> writer =
            io::CreateSeriesWriter(folder.Path() + "/" + place.filename().string(), target, write);
        std::vector<char> pixels(static_cast<std::size_t>(shape.width) * static_cast<std::size_t>(shape.height) *
                                 static_cast<std::size_t>(io::BytesPerPixel(shape.pixel)));
        boost::property_tree::ptree properties;
        progress.Stage("converting " + std::to_string(shape.frames) + " frames of " + io::ShapeText(shape));
        for (int f = 0; f < shape.frames; ++f) {
            source->ReadFrame(f, pixels.data(), properties);
            writer->WriteFrame(pixels.data(), shape.width, shape.height, shape.pixel, properties);
            progress.Step(f + 1, shape.frames);
        }
        writer->Close();
        folder.Commit();
    } catch (const io::ImageFileError& error) {
        throw InputError(error.File(), error.Problem());
    }
    return 0;
}

int Params(const std::vector<std::string>& args) {
    po::options_description options("options");
    std::string key, roiText, sizeText;
    options.add_options()("help,h", "show this help")("key", po::value(&key)->required(), "model key")(
        "roi", po::value(&roiText), "region for the zoom sets: top,left,height,width")(
        "size", po::value(&sizeText), "image size for the zoom sets: width,height");
    po::positional_options_description positional;
    positional.add("key", 1);
    po::variables_map values;
    if (Parse(args, options, positional, values, "usage: orvane params KEY [--roi T,L,H,W | --size W,H]")) return 0;
    if (values.count("roi") && values.count("size")) throw UsageError("give --roi or --size, not both");

    const ModelGeometry geometry = FindModel(key);  // an unknown model has only zero rows
    ROI roi(0, 0, geometry.height, geometry.width);  // by default the whole frame
    if (values.count("roi")) {
        const std::vector<int> n = ParseNumbers(roiText, 4, "--roi");
        roi = ROI(n[0], n[1], n[2], n[3]);
    } else if (values.count("size")) {
        const std::vector<int> n = ParseNumbers(sizeText, 2, "--size");
        roi = ROI(0, 0, n[1], n[0]);
    }
    if (roi.width == 0 || roi.height == 0) throw UsageError("the region of --roi or --size must not be empty");
    PrintParameters(std::cout, key, roi);
    return 0;
}

// The leading "--threads N" (or "--threads=N"), removed from `args` and applied.
void TakeThreads(std::vector<std::string>& args) {
    if (args.empty() || args[0].rfind("--threads", 0) != 0) return;
    std::string text;
    std::size_t used = 1;
    if (args[0] == "--threads") {
        if (args.size() < 2) throw UsageError("--threads needs a number");
        text = args[1];
        used = 2;
    } else if (args[0].rfind("--threads=", 0) == 0) {
        text = args[0].substr(10);
    } else {
        return;
    }
    char* end = nullptr;
    const long threads = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || threads < 1 || threads > 1024) {
        throw UsageError("bad --threads \"" + text + "\" (a number from 1 to 1024)");
    }
    orvane::SetThreadCount(static_cast<int>(threads));
    args.erase(args.begin(), args.begin() + static_cast<std::ptrdiff_t>(used));
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> all(argv + 1, argv + argc);
    try {
        TakeThreads(all);
    } catch (const InputError& error) {
        std::cerr << "orvane: " << error.what() << '\n';
        return 2;
    }
    if (all.empty() || all[0] == "--help" || all[0] == "-h" || all[0] == "help") {
        std::cout << kUsage;
        return all.empty() ? 2 : 0;
    }
    const std::string command = all[0];
    const std::vector<std::string> args(all.begin() + 1, all.end());
    try {
        if (command == "simulate") return Simulate(args);
        if (command == "calibrate") return Calibrate(args);
        if (command == "correct") return Correct(args);
        if (command == "demo") return Demo(args);
        if (command == "convert") return Convert(args);
        if (command == "params") return Params(args);
        throw UsageError("unknown command \"" + command + "\" (see orvane --help)");
    } catch (const InputError& error) {
        std::cerr << "orvane: " << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "orvane: " << command << " failed: " << error.what() << '\n';
        return 1;
    }
}
