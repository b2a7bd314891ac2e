#include "calibration/DefectMapChecker.h"

#include "tools/LogAndThrow.h"
#include "interfaces/CalibrationException.h"

#include <cstddef>

unsigned char DefectMapChecker::s_ucDefectThreshold = 0;

namespace orvane {
namespace detail {
namespace {

const unsigned char kMetaClass = 9;

// How many of the up to eight pixels around (x, y) that lie in the image pass `test`.
template <typename Test>
unsigned short CountNeighbours(const unsigned char* pixels, int width, int height, int x, int y,
                               Test test) {
    const int left = x > 0 ? x - 1 : x;
    const int right = x + 1 < width ? x + 1 : x;
    const int top = y > 0 ? y - 1 : y;
    const int bottom = y + 1 < height ? y + 1 : y;
    unsigned short count = 0;
    for (int row = top; row <= bottom; ++row) {
        const unsigned char* line = pixels + static_cast<std::ptrdiff_t>(row) * width;
        for (int column = left; column <= right; ++column) {
            if ((column != x || row != y) && test(line[column])) {
                ++count;
            }
        }
    }
    return count;
}

}  // namespace
}  // namespace detail
}  // namespace orvane

DefectMapChecker::DefectMapChecker() = default;

DefectMapChecker::DefectMapChecker(ImagePtr<unsigned char> map) {
    UpdateDefectMap(map);
}

void DefectMapChecker::SetDefectMap(ImagePtr<unsigned char> map, bool classified) {
    defectMap = map;
    this->classified = classified;
}

void DefectMapChecker::UpdateDefectMap() {
    classified = false;
    if (!defectMap) {
        LogAndThrow<CalibrationException>(
            "DefectMapChecker :UpdateDefectMap failed due to undefined defect map", __FILE__,
            __LINE__);
    }
    unsigned char* pixels = defectMap->GetData();
    if (!pixels) {
        LogAndThrow<CalibrationException>(
            "DefectMapChecker :UpdateDefectMap failed due to undefined image buffer", __FILE__,
            __LINE__);
    }
    const int width = defectMap->GetWidth();
    const int height = defectMap->GetHeight();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            _SetDefectClassValue(pixels, width, height, x, y);
        }
    }
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            _SetDefectMetaClassValue(pixels, width, height, x, y);
        }
    }
    classified = true;
}

void DefectMapChecker::UpdateDefectMap(ImagePtr<unsigned char> map) {
    SetDefectMap(map, false);
    UpdateDefectMap();
}

ImagePtr<unsigned char> DefectMapChecker::GetDefectMap() const {
    return defectMap;
}

bool DefectMapChecker::IsClassified() const {
    return classified;
}

unsigned short DefectMapChecker::_SetDefectClassValue(unsigned char* pixels, int width,
                                                      int height, int x, int y) {
    unsigned char& pixel = pixels[static_cast<std::ptrdiff_t>(y) * width + x];
    const unsigned char threshold = s_ucDefectThreshold;
    if (pixel <= threshold) {
        pixel = 0;
        return 0;
    }
    const unsigned short value =
        1 + orvane::detail::CountNeighbours(pixels, width, height, x, y,
                                            [threshold](unsigned char v) { return v > threshold; });
    pixel = static_cast<unsigned char>(value);
    return value;
}

unsigned short DefectMapChecker::_SetDefectMetaClassValue(unsigned char* pixels, int width,
                                                          int height, int x, int y) {
    using orvane::detail::kMetaClass;
    unsigned char& pixel = pixels[static_cast<std::ptrdiff_t>(y) * width + x];
    if (pixel < kMetaClass) {
        return pixel;
    }
    const auto isMeta = [](unsigned char v) { return v >= kMetaClass; };
    const unsigned short value =
        kMetaClass + orvane::detail::CountNeighbours(pixels, width, height, x, y, isMeta);
    pixel = static_cast<unsigned char>(value);
    return value;
}
