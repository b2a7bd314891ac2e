#ifndef ORVANE_IMAGE_QUADPART_H
#define ORVANE_IMAGE_QUADPART_H

// A half-open rectangle: columns [columnBegin, columnEnd), rows [rowBegin, rowEnd).
// Unlike ROI it begins with columns and gives ends instead of sizes.
class QuadPart {
public:
    QuadPart() = default;
    QuadPart(unsigned short columnBegin, unsigned short columnEnd, unsigned short rowBegin,
             unsigned short rowEnd)
        : columnBegin(columnBegin), columnEnd(columnEnd), rowBegin(rowBegin), rowEnd(rowEnd) {}

    unsigned short columnBegin = 0;
    unsigned short columnEnd = 0;
    unsigned short rowBegin = 0;
    unsigned short rowEnd = 0;

    bool operator==(const QuadPart& other) const {
        return columnBegin == other.columnBegin && columnEnd == other.columnEnd &&
               rowBegin == other.rowBegin && rowEnd == other.rowEnd;
    }
    bool operator!=(const QuadPart& other) const { return !(*this == other); }
};

#endif
