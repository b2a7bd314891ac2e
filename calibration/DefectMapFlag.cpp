#include "calibration/DefectMapFlag.h"

#include "tools/LogAndThrow.h"
#include "interfaces/CalibrationException.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace orvane {
namespace detail {
namespace {

// trunc(n * ratio) in double. A product that is not positive (or NaN) gives 0, so
// that a nonsensical ratio cannot wrap into a huge unsigned threshold.
unsigned int FlagThreshold(long long n, float ratio) {
    const double product = static_cast<double>(n) * static_cast<double>(ratio);
    if (!(product > 0.0)) {
        return 0;
    }
    if (product >= 4294967295.0) {
        return 4294967295u;
    }
    return static_cast<unsigned int>(product);
}

// The row and column blocks of an area, inclusive bounds; the seams split them.
struct Blocks {
    int rowBegin1, rowEnd1, rowBegin2, rowEnd2;
    int colBegin1, colEnd1, colBegin2, colEnd2;
};

Blocks AreaBlocks(const ROI& area, const DMFlagParameters& p) {
    const int top = area.top;
    const int left = area.left;
    const int bottom = top + area.height - 1;
    const int right = left + area.width - 1;
    return Blocks{top,
                  p.SplitRows ? p.SplitRow - 1 : bottom,
                  p.SplitRows ? p.SplitRow + 1 : top,
                  bottom,
                  left,
                  p.SplitColumns ? p.SplitColumn - 1 : right,
                  p.SplitColumns ? p.SplitColumn + 1 : left,
                  right};
}

// Whether every place the tests of `p` touch lies in a map of width x height: the
// Area when tested, the DRZ bands when tested, and the seams, which cut every test.
bool FitsMap(const DMFlagParameters& p, int width, int height) {
    const auto within = [](long long first, long long count, int size) {
        return count <= 0 || (first >= 0 && first + count <= size);
    };
    return (!p.TestArea || (within(p.Area.top, p.Area.height, height) && within(p.Area.left, p.Area.width, width))) &&
           (!p.TestDRZLines ||
            (within(p.DRZFirstColumn, p.DRZFirstCount, width) && within(p.DRZSecondColumn, p.DRZSecondCount, width))) &&
           (!p.SplitRows || within(p.SplitRow, 1, height)) && (!p.SplitColumns || within(p.SplitColumn, 1, width));
}

}  // namespace
}  // namespace detail
}  // namespace orvane

DefectMapFlag::DefectMapFlag(const DMFlagParameters& parameters)
    : width(0), parameters(parameters) {}

DefectMapFlag::DefectMapFlag(const DefectMapFlag& other)
    : width(other.width), foundLines(other.foundLines), foundColumns(other.foundColumns),
      parameters(other.parameters) {}

void DefectMapFlag::UpdateDefectMap(ImagePtr<unsigned char> map) {
    if (!map) {
        LogAndThrow<CalibrationException>("DefectMapFlag : UpdateDefectMap failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    if (!orvane::detail::FitsMap(parameters, map->GetWidth(), map->GetHeight())) {
        LogAndThrow<CalibrationException>("DefectMapFlag : UpdateDefectMap failed due to an area outside the map",
                                          __FILE__, __LINE__);
    }
    foundLines.clear();
    foundColumns.clear();
    width = static_cast<std::uint32_t>(map->GetWidth());
    const ROI frame(0, 0, static_cast<unsigned short>(map->GetHeight()),
                    static_cast<unsigned short>(map->GetWidth()));

    if (parameters.TestWholeFrame) {
        _TestHROI(map, frame, parameters.HorizontalRatio);
        _TestVROI(map, frame, parameters.VerticalRatio);
    }
    if (parameters.TestArea) {
        _TestHROI(map, parameters.Area, parameters.AreaHorizontalRatio);
        _TestVROI(map, parameters.Area, parameters.AreaVerticalRatio);
    }
    if (parameters.TestDRZLines) {
        _TestFlagDRZLines(map);
    }
    _FlagFoundAlignment();

    if (parameters.RetestWholeFrame) {
        foundLines.clear();
        foundColumns.clear();
        _TestHROI(map, frame, parameters.RetestHorizontalRatio);
        _TestVROI(map, frame, parameters.RetestVerticalRatio);
        _FlagFoundAlignment();
    }
}

void DefectMapFlag::_TestHROI(const ImagePtr<unsigned char>& map, const ROI& area,
                              const float& ratio) {
    const auto blocks = orvane::detail::AreaBlocks(area, parameters);
    const int length1 = blocks.colEnd1 - blocks.colBegin1 + 1;
    const int length2 = blocks.colEnd2 - blocks.colBegin2 + 1;
    const unsigned int threshold1 = orvane::detail::FlagThreshold(length1, ratio);
    const unsigned int threshold2 = orvane::detail::FlagThreshold(length2, ratio);
    unsigned char* pixels = map->GetData();

    const auto testRows = [&](int first, int last) {
        for (int y = first; y <= last; ++y) {
            unsigned char* row = pixels + static_cast<std::ptrdiff_t>(y) * width;
            _TestLine(row, blocks.colBegin1, length1, threshold1);
            if (parameters.SplitColumns) {
                _TestLine(row, blocks.colBegin2, length2, threshold2);
            }
        }
    };
    testRows(blocks.rowBegin1, blocks.rowEnd1);
    if (parameters.SplitRows) {
        testRows(blocks.rowBegin2, blocks.rowEnd2);
    }
}

void DefectMapFlag::_TestVROI(const ImagePtr<unsigned char>& map, const ROI& area,
                              const float& ratio) {
    const auto blocks = orvane::detail::AreaBlocks(area, parameters);
    const int count = blocks.rowEnd1 - blocks.rowBegin1 + 1;
    const unsigned int threshold = orvane::detail::FlagThreshold(count, ratio);
    // Row block 2 may be shorter than block 1: its segments stop at the last row.
    const int count2 = std::min(count, map->GetHeight() - blocks.rowBegin2);
    unsigned char* pixels = map->GetData();

    for (int x = blocks.colBegin1; x <= blocks.colEnd1; ++x) {
        _TestColumn(pixels + x, blocks.rowBegin1, count, threshold);
        if (parameters.SplitColumns) {
            _TestColumn(pixels + x, blocks.rowBegin2, count2, threshold);
        }
    }
    if (parameters.SplitColumns) {
        for (int x = blocks.colBegin2; x <= blocks.colEnd2; ++x) {
            _TestColumn(pixels + x, blocks.rowBegin1, count, threshold);
            if (parameters.SplitRows) {
                _TestColumn(pixels + x, blocks.rowBegin2, count2, threshold);
            }
        }
    }
}

void DefectMapFlag::_TestFlagDRZLines(const ImagePtr<unsigned char>& map) {
    const int firstCount = std::max(parameters.DRZFirstCount, 0);
    const int secondCount = std::max(parameters.DRZSecondCount, 0);
    std::vector<unsigned short> columns;
    columns.reserve(static_cast<std::size_t>(firstCount) + static_cast<std::size_t>(secondCount));
    for (int i = 0; i < firstCount; ++i) {
        columns.push_back(static_cast<unsigned short>(parameters.DRZFirstColumn + i));
    }
    for (int i = 0; i < secondCount; ++i) {
        columns.push_back(static_cast<unsigned short>(parameters.DRZSecondColumn + i));
    }
    const unsigned int threshold =
        orvane::detail::FlagThreshold(static_cast<long long>(columns.size()), parameters.DRZRatio);
    if (columns.empty()) {
        return;
    }
    const int height = map->GetHeight();
    for (int y = 0; y < height; ++y) {
        unsigned char* row = map->GetData() + static_cast<std::ptrdiff_t>(y) * width;
        unsigned int nonZero = 0;
        for (unsigned short x : columns) {
            nonZero += row[x] != 0;
        }
        if (nonZero > threshold) {
            for (unsigned short x : columns) {
                row[x] = 1;
            }
        }
    }
}

void DefectMapFlag::_TestLine(unsigned char* row, int first, int length, unsigned int threshold) {
    if (!row) {
        LogAndThrow<CalibrationException>("DefectMapFlag : _TestLine failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    if (length <= 0) {
        return;
    }
    unsigned char* start = row + first;
    const auto n = static_cast<unsigned int>(length);
    if (_LineToFlag(start, n, threshold)) {
        foundLines.emplace_back(start, n);
    }
}

void DefectMapFlag::_TestColumn(unsigned char* column, int firstRow, int count,
                                unsigned int threshold) {
    if (!column) {
        LogAndThrow<CalibrationException>("DefectMapFlag : _TestColumn failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    if (count <= 0) {
        return;
    }
    unsigned char* start = column + static_cast<std::ptrdiff_t>(firstRow) * width;
    const auto n = static_cast<unsigned int>(count);
    if (_ColumnToFlag(start, n, threshold)) {
        foundColumns.emplace_back(start, n);
    }
}

bool DefectMapFlag::_LineToFlag(unsigned char* pixels, unsigned int length,
                                unsigned int threshold) {
    if (!pixels) {
        LogAndThrow<CalibrationException>("DefectMapFlag : _LineToFlag failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    unsigned int nonZero = 0;
    for (unsigned int i = 0; i < length; ++i) {
        nonZero += pixels[i] != 0;
    }
    return nonZero > threshold;
}

bool DefectMapFlag::_ColumnToFlag(unsigned char* pixels, unsigned int count,
                                  unsigned int threshold) {
    if (!pixels) {
        LogAndThrow<CalibrationException>(
            "DefectMapFlag : _ColumnToFlag failed due to null pointer", __FILE__, __LINE__);
    }
    unsigned int nonZero = 0;
    std::size_t offset = 0;
    for (unsigned int i = 0; i < count; ++i, offset += width) {
        nonZero += pixels[offset] != 0;
    }
    return nonZero > threshold;
}

void DefectMapFlag::_FlagLine(unsigned char* pixels, unsigned int length) {
    if (!pixels) {
        LogAndThrow<CalibrationException>("DefectMapFlag : _FlagLine failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    std::fill_n(pixels, length, static_cast<unsigned char>(1));
}

void DefectMapFlag::_FlagColumn(unsigned char* pixels, unsigned int count) {
    if (!pixels) {
        LogAndThrow<CalibrationException>("DefectMapFlag : _FlagColumn failed due to null pointer",
                                          __FILE__, __LINE__);
    }
    std::size_t offset = 0;
    for (unsigned int i = 0; i < count; ++i, offset += width) {
        pixels[offset] = 1;
    }
}

void DefectMapFlag::_FlagFoundAlignment() {
    for (const Segment& line : foundLines) {
        _FlagLine(line.first, line.second);
    }
    for (const Segment& column : foundColumns) {
        _FlagColumn(column.first, column.second);
    }
}
