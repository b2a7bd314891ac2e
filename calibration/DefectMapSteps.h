#ifndef ORVANE_CALIBRATION_DEFECTMAPSTEPS_H
#define ORVANE_CALIBRATION_DEFECTMAPSTEPS_H

// Steps shared by the defect maps that count failed tests per pixel in a float image
// and write the counts of an area into the 8-bit map of a ReferenceDM.

#include "image/ImageAcquisition.h"
#include "image/ROI.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace orvane {
namespace detail {

// The measured area of a record, ROI(Y0, X0, Height, Width), each field narrowed to
// 16 bits. Returns false when it does not lie in an image of width x height:
// first the record's own test, height < Y0 + Height or width < X0 + Width compared
// as unsigned 32-bit values; then the same for the narrowed area, which a negative
// or oversized field could otherwise carry outside the image past the first test.
template <typename Record>
bool FitMeasuredArea(const Record& record, int width, int height, ROI& area) {
    const std::uint32_t bottom =
        static_cast<std::uint32_t>(record.Y0) + static_cast<std::uint32_t>(record.Height);
    const std::uint32_t right =
        static_cast<std::uint32_t>(record.X0) + static_cast<std::uint32_t>(record.Width);
    if (static_cast<std::uint32_t>(height) < bottom || static_cast<std::uint32_t>(width) < right) {
        return false;
    }
    area = ROI(static_cast<unsigned short>(record.Y0), static_cast<unsigned short>(record.X0),
               static_cast<unsigned short>(record.Height), static_cast<unsigned short>(record.Width));
    return area.top + area.height <= height && area.left + area.width <= width;
}

// The pixels of the area above 0 (NaN does not count). The area lies in the image.
inline unsigned long CountPositivePixelsInArea(const ImagePtr<float>& image, ROI area) {
    unsigned long count = 0;
    for (int row = 0; row < area.height; ++row) {
        const float* line = image->GetData() +
                            static_cast<std::ptrdiff_t>(area.top + row) * image->GetWidth() + area.left;
        count += static_cast<unsigned long>(
            std::count_if(line, line + area.width, [](float v) { return v > 0.0f; }));
    }
    return count;
}

// The record's measured area, ROI(Y0, X0, Height, Width), each field narrowed to 16 bits.
template <typename Record>
ROI MeasuredArea(const Record& record) {
    return ROI(static_cast<unsigned short>(record.Y0), static_cast<unsigned short>(record.X0),
               static_cast<unsigned short>(record.Height), static_cast<unsigned short>(record.Width));
}

// The write that ends a defect calibration before classification: the rectangle
// `area` of the float counts replaces the same rectangle of the 8-bit map, each count
// truncated toward zero with its low 8 bits kept (no saturation); the rest of the map
// is untouched. The map then takes the properties of the counts. Both images must
// have the map's size; an area that does not lie inside it throws std::out_of_range
// (Extract, GetPixelRect) before anything changes. An empty area writes no pixel.
inline void WriteDefectCounts(const ImagePtr<float>& counts, const ROI& area,
                              const ImagePtr<unsigned char>& map) {
    const int width = map->GetWidth();
    const int height = map->GetHeight();
    const auto extract =
        counts->GetBuffer()->Extract(area.left, area.top, area.width, area.height, width, height);
    map->GetPixelRect(area.left, area.top, area.width, area.height) = extract;
    map->GetProperties() = counts->GetProperties();
}

}  // namespace detail
}  // namespace orvane

#endif
