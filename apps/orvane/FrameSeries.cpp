#include "apps/orvane/FrameSeries.h"

#include "apps/orvane/InputError.h"
#include "io/Hdf5File.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <system_error>

namespace fs = std::filesystem;

namespace orvane {
namespace app {

namespace {

// The digits of `text` (all of it) as a number; -1 if it is empty or not all digits.
int Number(const std::string& text) {
    if (text.empty() || text.size() > 6) return -1;
    int value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

std::string ThreeDigits(int index) {
    char text[16];
    std::snprintf(text, sizeof text, "%03d", index);
    return text;
}

std::string SizeText(int width, int height) { return std::to_string(width) + " x " + std::to_string(height); }

// What a file name says it holds.
struct NameParts {
    enum class Kind { None, DarkFrame, FlatFrame, DarkStack, FlatStack };
    Kind kind = Kind::None;
    int dose = 0;
    int index = 0;
};

NameParts Parse(const std::string& name) {
    using Kind = NameParts::Kind;
    if (!io::FormatOfExtension(name)) return {};
    const std::string stem = fs::path(name).stem().string();
    if (stem == "dark") return {Kind::DarkStack, 0, 0};
    if (stem.compare(0, 5, "dark-") == 0) {
        const int index = Number(stem.substr(5));
        return index >= 0 ? NameParts{Kind::DarkFrame, 0, index} : NameParts{};
    }
    if (stem.compare(0, 5, "flat-") != 0) return {};
    const std::string rest = stem.substr(5);
    const std::size_t dash = rest.find('-');
    if (dash == std::string::npos) {
        const int dose = Number(rest);
        return dose >= 0 ? NameParts{Kind::FlatStack, dose, 0} : NameParts{};
    }
    const int dose = Number(rest.substr(0, dash)), index = Number(rest.substr(dash + 1));
    return dose >= 0 && index >= 0 ? NameParts{Kind::FlatFrame, dose, index} : NameParts{};
}

// Where the frames of one series (the darks, or one dose) are: numbered frame files,
// or one stack.
struct SeriesFiles {
    std::map<int, std::string> frames;
    std::string stack;
};

// Adds the frames of `file` (`dataset`) to `target`, checking that they are 16-bit
// and of the series' size (the first file sets it). A frame file holds one frame.
class SeriesCollector {
public:
    SeriesCollector(FrameSeries& series) : series(series) {}

    void Add(const std::string& file, const std::string& dataset, bool frameFile, std::vector<FrameRef>& target) {
        try {
            io::OpenOptions options = series.options;
            options.dataset = dataset;
            const std::unique_ptr<io::SeriesSource> source = io::OpenSeries(file, options);
            const io::FrameShape& shape = source->Shape();
            const std::string name = dataset.empty() ? file : file + ":" + dataset;
            if (shape.pixel != io::PixelKind::UInt16) {
                throw InputError(name, "holds " + io::PixelKindName(shape.pixel) +
                                           " pixels; frames must be 16-bit unsigned");
            }
            if (frameFile && shape.frames != 1) {
                throw InputError(name, "holds " + std::to_string(shape.frames) + " frames, expected 1");
            }
            if (shape.frames == 0) throw InputError(name, "holds no frame");
            if (first.empty()) {
                first = name, series.width = shape.width, series.height = shape.height;
            } else if (shape.width != series.width || shape.height != series.height) {
                throw InputError(name, "frame is " + SizeText(shape.width, shape.height) + ", but " + first + " is " +
                                           SizeText(series.width, series.height));
            }
            for (int i = 0; i < shape.frames; ++i) target.push_back(FrameRef{file, dataset, i, 0, shape.frames == 1});
        } catch (const io::ImageFileError& e) {
            throw InputError(e.File(), e.Problem());
        }
    }

    void AddFiles(const SeriesFiles& files, std::vector<FrameRef>& target) {
        if (!files.stack.empty()) Add(files.stack, "", false, target);
        for (const auto& frame : files.frames) Add(frame.second, "", true, target);
    }

private:
    FrameSeries& series;
    std::string first;
};

void AssignOrdinals(FrameSeries& series) {
    int ordinal = 0;
    for (FrameRef& frame : series.darks) frame.ordinal = ordinal++;
    for (auto& dose : series.doses) {
        for (FrameRef& frame : dose) frame.ordinal = ordinal++;
    }
}

FrameSeries ScanHdf5(const std::string& file, const io::OpenOptions& options) {
    std::vector<std::string> datasets;
    try {
        datasets = io::Hdf5ImageDatasets(file);
    } catch (const io::ImageFileError& e) {
        throw InputError(e.File(), e.Problem());
    }
    const auto has = [&](const std::string& name) {
        return std::find(datasets.begin(), datasets.end(), name) != datasets.end();
    };
    FrameSeries series;
    series.options = options;
    SeriesCollector collector(series);
    if (has("/dark")) {
        collector.Add(file, "/dark", false, series.darks);
        for (int dose = 1; has("/flat-" + std::to_string(dose)); ++dose) {
            series.doses.emplace_back();
            collector.Add(file, "/flat-" + std::to_string(dose), false, series.doses.back());
        }
        const int next = static_cast<int>(series.doses.size()) + 1;
        for (const std::string& name : datasets) {
            const NameParts parts = Parse(name.substr(1) + ".h5");
            if (parts.kind == NameParts::Kind::FlatStack && parts.dose > next) {
                throw InputError(file, "has no dataset /flat-" + std::to_string(next) + ", but " + name);
            }
        }
    } else if (has("/exchange/data_dark") && has("/exchange/data_white")) {
        collector.Add(file, "/exchange/data_dark", false, series.darks);
        series.doses.emplace_back();
        collector.Add(file, "/exchange/data_white", false, series.doses.back());
    } else {
        std::string names;
        for (const std::string& name : datasets) names += (names.empty() ? "" : ", ") + name;
        throw InputError(file, "has neither the datasets /dark, /flat-1, ... nor /exchange/data_dark and "
                               "/exchange/data_white (it has: " + (names.empty() ? "none" : names) + ")");
    }
    AssignOrdinals(series);
    return series;
}

}  // namespace

std::string FrameRef::Name() const {
    const std::string where = dataset.empty() ? file : file + ":" + dataset;
    return single ? where : where + " frame " + std::to_string(index);
}

std::string DarkFileName(int index, const std::string& extension) { return "dark-" + ThreeDigits(index) + extension; }

std::string FlatFileName(int dose, int index, const std::string& extension) {
    return "flat-" + std::to_string(dose) + "-" + ThreeDigits(index) + extension;
}

std::string DarkStackName(const std::string& extension) { return "dark" + extension; }

std::string FlatStackName(int dose, const std::string& extension) { return "flat-" + std::to_string(dose) + extension; }

FrameSeries ScanFrames(const std::string& in, const io::OpenOptions& options) {
    std::error_code error;
    if (!fs::exists(in, error)) throw InputError(in, "folder does not exist");
    if (fs::is_regular_file(in, error)) {
        if (io::FormatOfExtension(in) != io::ImageFileFormat::Hdf5) {
            throw InputError(in, "is a file; give a folder of frames or one HDF5 file");
        }
        return ScanHdf5(in, options);
    }
    if (!fs::is_directory(in, error)) throw InputError(in, "is not a folder");

    SeriesFiles darks;
    std::map<int, SeriesFiles> flats;  // by dose
    std::vector<std::string> hdf5Files;  // of other names
    bool anyFile = false;
    fs::directory_iterator it(in, error);
    if (error) throw InputError(in, "folder cannot be read: " + error.message());
    for (const fs::directory_entry& entry : it) {
        anyFile = true;
        const NameParts parts = Parse(entry.path().filename().string());
        if (parts.kind == NameParts::Kind::None) {
            if (io::FormatOfExtension(entry.path().string()) == io::ImageFileFormat::Hdf5) {
                hdf5Files.push_back(entry.path().string());
            }
            continue;
        }
        const std::string path = entry.path().string();
        SeriesFiles& files = parts.kind == NameParts::Kind::DarkFrame || parts.kind == NameParts::Kind::DarkStack
                                 ? darks
                                 : flats[parts.dose];
        const bool stack = parts.kind == NameParts::Kind::DarkStack || parts.kind == NameParts::Kind::FlatStack;
        std::string& slot = stack ? files.stack : files.frames[parts.index];
        if (!slot.empty()) {
            throw InputError(in, "holds both " + fs::path(std::min(slot, path)).filename().string() + " and " +
                                     fs::path(std::max(slot, path)).filename().string() + " for one " +
                                     (stack ? "series" : "frame") + "; keep one");
        }
        slot = path;
        if (!files.stack.empty() && !files.frames.empty()) {
            throw InputError(in, "holds both the stack " + fs::path(files.stack).filename().string() +
                                     " and frame files such as " +
                                     fs::path(files.frames.begin()->second).filename().string() + "; keep one");
        }
    }
    if (!anyFile) throw InputError(in, "folder is empty");
    if (darks.frames.empty() && darks.stack.empty() && flats.empty() && hdf5Files.size() == 1) {
        return ScanHdf5(hdf5Files.front(), options);
    }
    if (darks.frames.empty() && darks.stack.empty()) {
        throw InputError(in, "no dark frames (dark-000.<ext>, ... or dark.<ext>) in the folder");
    }
    int expectedDose = 1;
    for (const auto& dose : flats) {
        if (dose.first != expectedDose) {
            throw InputError(in, "no flat frames of dose " + std::to_string(expectedDose) + " (" +
                                     FlatFileName(expectedDose, 0, ".<ext>") + ", ... or " +
                                     FlatStackName(expectedDose, ".<ext>") + "), but of dose " +
                                     std::to_string(dose.first));
        }
        ++expectedDose;
    }

    // Headers only: each reader checks what it can of its file without the pixels.
    FrameSeries series;
    series.options = options;
    SeriesCollector collector(series);
    collector.AddFiles(darks, series.darks);
    for (const auto& dose : flats) {
        series.doses.emplace_back();
        collector.AddFiles(dose.second, series.doses.back());
    }
    AssignOrdinals(series);
    return series;
}

}  // namespace app
}  // namespace orvane
