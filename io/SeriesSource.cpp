#include "io/SeriesSource.h"

namespace orvane {
namespace io {

void SeriesSource::CheckIndex(int index) const {
    if (index < 0 || index >= shape.frames) {
        throw ImageFileError(name, "has " + std::to_string(shape.frames) + " frames, no frame " +
                                       std::to_string(index));
    }
}

}  // namespace io
}  // namespace orvane
