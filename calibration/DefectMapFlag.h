#ifndef ORVANE_CALIBRATION_DEFECTMAPFLAG_H
#define ORVANE_CALIBRATION_DEFECTMAPFLAG_H

#include "image/ImageAcquisition.h"
#include "image/ROI.h"
#include "parameters/DMFlagParameters.h"

#include <cstdint>
#include <deque>
#include <utility>

// Marks whole row and column segments of a raw defect map (before DefectMapChecker)
// as defect when many of their pixels already are: a segment of n pixels whose
// count of non-zero pixels is above trunc(n * ratio) has all its pixels set to 1.
// Ratios are floats; n * ratio is computed in double and truncated toward zero (a
// negative or NaN product counts as 0). Which tests run, with which ratios, on which
// area and with which seams comes from the DMFlagParameters record; the seam row and
// seam column belong to no segment of either side. The record's areas, seams and DRZ
// bands must lie inside the map: they are not checked. The record is held by
// reference and must outlive the object.
class DefectMapFlag {
public:
    // A found segment: its first pixel in the current map and its length.
    using Segment = std::pair<unsigned char*, unsigned int>;

    explicit DefectMapFlag(const DMFlagParameters& parameters);
    DefectMapFlag(const DefectMapFlag& other);
    DefectMapFlag& operator=(const DefectMapFlag&) = delete;

    // The whole job, in place: the whole-frame tests, then the Area tests, all on the
    // map as it came in; then the DRZ test, which flags at once; then the flagging of
    // what the row and column tests found; then, with RetestWholeFrame, the
    // whole-frame tests again on the flagged map, and their flagging. A null map fails
    // with CalibrationException "DefectMapFlag : UpdateDefectMap failed due to null
    // pointer" and leaves the object as it was; so does an Area or DRZ band that is
    // tested, or a seam, outside the map: "DefectMapFlag : UpdateDefectMap failed due
    // to an area outside the map". Nothing else is caught.
    void UpdateDefectMap(ImagePtr<unsigned char> map);

private:
    // Row test on an area: each row of row block 1, and with SplitRows of row block 2,
    // as one segment left of the seam column and, with SplitColumns, one right of it.
    void _TestHROI(const ImagePtr<unsigned char>& map, const ROI& area, const float& ratio);
    // Column test on an area: segments of the rows of row block 1 (count and threshold
    // of block 1 for every segment). Row block 2 takes part only with SplitColumns; a
    // segment starting in block 2 stops at the map's last row.
    void _TestVROI(const ImagePtr<unsigned char>& map, const ROI& area, const float& ratio);
    // The two DRZ column bands, as one unit per row, flagged at once.
    void _TestFlagDRZLines(const ImagePtr<unsigned char>& map);
    // Adds the segment of `length` pixels at row + first to foundLines if it is to be
    // flagged; a length of 0 or less is never flagged.
    void _TestLine(unsigned char* row, int first, int length, unsigned int threshold);
    // Adds the segment of `count` pixels from column + width * firstRow, stepping by
    // width, to foundColumns if it is to be flagged; a count of 0 or less never is.
    void _TestColumn(unsigned char* column, int firstRow, int count, unsigned int threshold);
    // Whether more than `threshold` of `length` consecutive pixels are non-zero.
    bool _LineToFlag(unsigned char* pixels, unsigned int length, unsigned int threshold);
    // The same for `count` pixels a step of width apart.
    bool _ColumnToFlag(unsigned char* pixels, unsigned int count, unsigned int threshold);
    void _FlagLine(unsigned char* pixels, unsigned int length);
    void _FlagColumn(unsigned char* pixels, unsigned int count);
    // Flags every found line, then every found column, in order of finding.
    void _FlagFoundAlignment();

    std::uint32_t width;
    // Point into the current map: valid only during UpdateDefectMap.
    std::deque<Segment> foundLines;
    std::deque<Segment> foundColumns;
    const DMFlagParameters& parameters;
};

#endif
