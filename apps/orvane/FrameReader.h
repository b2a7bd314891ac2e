#ifndef ORVANE_APPS_FRAMEREADER_H
#define ORVANE_APPS_FRAMEREADER_H

#include "apps/orvane/FrameSeries.h"
#include "image/ImageAcquisition.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvane {
namespace app {

// What a frame without metadata is given: "image.time" = its ordinal x interval
// (seconds), "image.temperature" = temperature (degrees). Unset: nothing is added,
// and a step that needs the value says so.
struct FrameDefaults {
    std::optional<double> interval;
    std::optional<double> temperature;
};

// Reads the frames of a series one at a time. It keeps the files it read last open,
// so that the frames of a stack are read in order from one open file.
class FrameReader {
public:
    FrameReader(const FrameSeries& series, FrameDefaults defaults = {});

    // The frame with its properties; InputError naming it when it cannot be read.
    ImagePtr<unsigned short> Read(const FrameRef& frame);

private:
    io::SeriesSource& Source(const FrameRef& frame);

    const FrameSeries& series;
    FrameDefaults defaults;
    // Open sources by file and dataset, the most recently used last.
    std::vector<std::pair<std::string, std::unique_ptr<io::SeriesSource>>> open;
};

}  // namespace app
}  // namespace orvane

#endif
