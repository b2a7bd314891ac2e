#include "apps/orvane/FrameReader.h"

#include "apps/orvane/InputError.h"

#include <algorithm>

namespace orvane {
namespace app {

namespace {

// Darks and the flats of a dose may come from different stacks, read in turn.
constexpr std::size_t kOpenSources = 4;

}  // namespace

FrameReader::FrameReader(const FrameSeries& series, FrameDefaults defaults) : series(series), defaults(defaults) {}

io::SeriesSource& FrameReader::Source(const FrameRef& frame) {
    const std::string key = frame.file + '\n' + frame.dataset;
    for (std::size_t i = 0; i < open.size(); ++i) {
        if (open[i].first == key) {
            std::rotate(open.begin() + static_cast<std::ptrdiff_t>(i), open.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                        open.end());
            return *open.back().second;
        }
    }
    io::OpenOptions options = series.options;
    options.dataset = frame.dataset;
    std::unique_ptr<io::SeriesSource> source = io::OpenSeries(frame.file, options);
    if (open.size() == kOpenSources) open.erase(open.begin());
    open.emplace_back(key, std::move(source));
    return *open.back().second;
}

ImagePtr<unsigned short> FrameReader::Read(const FrameRef& frame) {
    ImagePtr<unsigned short> image;
    try {
        io::SeriesSource& source = Source(frame);
        const io::FrameShape& shape = source.Shape();
        if (shape.width != series.width || shape.height != series.height || shape.pixel != io::PixelKind::UInt16) {
            throw InputError(frame.Name(), "is " + io::ShapeText(shape) + ", not the series' " +
                                               std::to_string(series.width) + " x " + std::to_string(series.height) +
                                               " 16-bit unsigned");
        }
        image = source.ReadImage<unsigned short>(frame.index);
    } catch (const io::ImageFileError& e) {
        throw InputError(frame.Name(), e.Problem());
    }
    boost::property_tree::ptree& properties = image->GetProperties();
    if (defaults.interval && !properties.get_optional<std::string>("image.time")) {
        properties.put("image.time", static_cast<long long>(frame.ordinal * *defaults.interval));
    }
    if (defaults.temperature && !properties.get_optional<std::string>("image.temperature")) {
        properties.put("image.temperature", *defaults.temperature);
    }
    return image;
}

}  // namespace app
}  // namespace orvane
