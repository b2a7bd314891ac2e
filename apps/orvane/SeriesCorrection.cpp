#include "apps/orvane/SeriesCorrection.h"

#include "apps/orvane/FrameReader.h"
#include "apps/orvane/FrameSeries.h"
#include "apps/orvane/InputError.h"
#include "apps/orvane/StagingFolder.h"

#include <boost/make_shared.hpp>

#include <filesystem>
#include <memory>
#include <system_error>

namespace fs = std::filesystem;

namespace orvane {
namespace app {

namespace {

// One series of the input, by the name it keeps in the output.
struct InputSeries {
    std::string name;
    std::vector<FrameRef> frames;
};

// The frames at `in`: the series of a folder or HDF5 file (ScanFrames), or every
// frame of one other image file as a series named after it.
FrameSeries ScanInput(const std::string& in, const io::OpenOptions& open, std::vector<InputSeries>& list) {
    std::error_code error;
    if (fs::is_regular_file(in, error) && io::FormatOfExtension(in) != io::ImageFileFormat::Hdf5) {
        FrameSeries series;
        series.options = open;
        try {
            const io::FrameShape shape = io::OpenSeries(in, open)->Shape();
            if (shape.pixel != io::PixelKind::UInt16) {
                throw InputError(in, "holds " + io::PixelKindName(shape.pixel) + " pixels; frames must be 16-bit unsigned");
            }
            if (shape.frames == 0) throw InputError(in, "holds no frame");
            series.width = shape.width;
            series.height = shape.height;
            for (int i = 0; i < shape.frames; ++i) series.darks.push_back(FrameRef{in, "", i, i, shape.frames == 1});
        } catch (const io::ImageFileError& e) {
            throw InputError(e.File(), e.Problem());
        }
        list.push_back({fs::path(in).stem().string(), series.darks});
        return series;
    }
    FrameSeries series = ScanFrames(in, open);
    list.push_back({"dark", series.darks});
    for (std::size_t d = 0; d < series.doses.size(); ++d) {
        list.push_back({"flat-" + std::to_string(d + 1), series.doses[d]});
    }
    return series;
}

// The name of a marks file of a frame file: "dark-007" -> "dark-marks-007".
std::string MarksStem(const std::string& stem, const std::string& series) {
    if (stem.compare(0, series.size(), series) == 0) return series + "-marks" + stem.substr(series.size());
    return stem + "-marks";
}

// Where each series goes in the staging folder, and in which layout.
class OutputLayout {
public:
    OutputLayout(const std::string& dir, io::ImageFileFormat format, const std::string& in, bool singleFile)
        : dir(dir), format(format), extension(io::FormatExtension(format)) {
        if (format == io::ImageFileFormat::Hdf5) {
            std::error_code error;
            const bool hdf5In = fs::is_regular_file(in, error) && io::FormatOfExtension(in) == io::ImageFileFormat::Hdf5;
            hdf5Stem = hdf5In ? fs::path(in).stem().string() : singleFile ? fs::path(in).stem().string() : "series";
        }
    }

    // Frame files when every frame of the series is a file of its own (and the
    // output is not one HDF5 file).
    bool PerFrame(const InputSeries& series) const {
        if (format == io::ImageFileFormat::Hdf5) return false;
        for (const FrameRef& frame : series.frames) {
            if (!frame.single || !frame.dataset.empty()) return false;
        }
        return true;
    }

    std::unique_ptr<io::SeriesWriter> Create(const InputSeries& series, int index, bool marks) const {
        io::WriteOptions options;
        options.expectedFrames = static_cast<int>(series.frames.size());
        if (format == io::ImageFileFormat::Hdf5) {
            const std::string& dataset = series.frames.front().dataset;
            options.dataset = dataset.empty() ? "/" + series.name : dataset;
            return io::CreateSeriesWriter(dir + "/" + hdf5Stem + (marks ? "-marks" : "") + extension, format, options);
        }
        std::string stem = series.name;
        if (PerFrame(series)) {
            options.expectedFrames = 1;
            stem = fs::path(series.frames[static_cast<std::size_t>(index)].file).stem().string();
            if (marks) stem = MarksStem(stem, series.name);
        } else if (marks) {
            stem += "-marks";
        }
        return io::CreateSeriesWriter(dir + "/" + stem + extension, format, options);
    }

private:
    std::string dir;
    io::ImageFileFormat format;
    std::string extension;
    std::string hdf5Stem;
};

// The frames of a series through the chain into its writers.
class SeriesCorrector {
public:
    SeriesCorrector(const SeriesCorrectionRequest& request, const FrameSeries& series, CorrectionReferences& references)
        : reader(series), references(references) {
        const int width = series.width, height = series.height;
        if (request.floatOutput) {
            floatFrame = boost::make_shared<ImageAcquisition<float>>(width, height);
        } else {
            shortFrame = boost::make_shared<ImageAcquisition<unsigned short>>(width, height);
        }
        if (request.marks) marks = boost::make_shared<ImageAcquisition<unsigned char>>(width, height);
    }

    SeriesTally Run(const InputSeries& series, const OutputLayout& layout, Progress& progress) {
        SeriesTally tally;
        tally.name = series.name;
        const bool perFrame = layout.PerFrame(series);
        const int total = static_cast<int>(series.frames.size());
        std::unique_ptr<io::SeriesWriter> writer, marksWriter;
        progress.Stage("correcting " + std::to_string(total) + " frames of " + series.name);
        for (int i = 0; i < total; ++i) {
            const FrameRef& frame = series.frames[static_cast<std::size_t>(i)];
            if (perFrame || i == 0) {
                writer = layout.Create(series, i, false);
                if (marks) marksWriter = layout.Create(series, i, true);
            }
            const ImagePtr<unsigned short> raw = reader.Read(frame);
            CorrectionChain& chain = references.ChainFor(*raw, frame.Name());
            CorrectionChain::Result result;
            if (floatFrame) {
                result = chain.Correct(raw, floatFrame, marks);
                writer->WriteImage(*floatFrame);
            } else {
                result = chain.Correct(raw, shortFrame, marks);
                writer->WriteImage(*shortFrame);
            }
            if (marks) {
                marks->GetProperties() = raw->GetProperties();
                marksWriter->WriteImage(*marks);
            }
            if (perFrame || i + 1 == total) {
                writer->Close();
                if (marksWriter) marksWriter->Close();
            }
            ++tally.frames;
            tally.clamped += result.clamped;
            tally.replaced += result.defects.replacedIsolated + result.defects.replacedInRuns +
                              result.defects.replacedInClusters;
            tally.unreplaced += result.defects.unreplaced;
            progress.Step(i + 1, total);
        }
        return tally;
    }

private:
    FrameReader reader;
    CorrectionReferences& references;
    ImagePtr<float> floatFrame;
    ImagePtr<unsigned short> shortFrame;
    ImagePtr<unsigned char> marks;
};

}  // namespace

std::vector<SeriesTally> CorrectSeries(const SeriesCorrectionRequest& request, Progress& progress) {
    // The same rule as `simulate`: corrected frames beside others would mix two runs.
    if (!request.replace && StagingFolder::HasContent(request.out)) {
        throw InputError(request.out, "is not empty: give a new or empty folder, or --replace to replace what it holds");
    }
    std::vector<InputSeries> list;
    const FrameSeries series = ScanInput(request.in, request.open, list);
    io::ImageFileFormat format = io::ImageFileFormat::Fxd;
    try {
        format = request.format ? *request.format : io::DetectFormat(list.front().frames.front().file);
    } catch (const io::ImageFileError& e) {
        throw InputError(e.File(), e.Problem());
    }
    CorrectionReferences references(request.calibration, request.choice, series.width, series.height);

    std::error_code error;
    const bool singleFile = fs::is_regular_file(request.in, error);
    std::vector<SeriesTally> tallies;
    StagingFolder folder(request.out);
    try {
        const OutputLayout layout(folder.Path(), format, request.in, singleFile);
        SeriesCorrector corrector(request, series, references);
        for (const InputSeries& input : list) {
            if (!input.frames.empty()) tallies.push_back(corrector.Run(input, layout, progress));
        }
    } catch (const io::ImageFileError& e) {
        throw InputError(e.File(), e.Problem());
    }
    folder.Commit(request.replace);
    return tallies;
}

}  // namespace app
}  // namespace orvane
