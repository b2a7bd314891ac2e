#ifndef ORVANE_CALIBRATION_DEFECTMAPCHECKER_H
#define ORVANE_CALIBRATION_DEFECTMAPCHECKER_H

#include "image/ImageAcquisition.h"

// Rewrites a defect map into its final encoding, in place. Before: a pixel above
// s_ucDefectThreshold is a defect, whatever its value. After:
//   0        good pixel;
//   1 .. 8   defect pixel with 0 .. 7 defect neighbours (class = neighbours + 1);
//   9        defect pixel with all 8 neighbours defect, none of them 9 or more;
//   10 .. 17 such a pixel with 1 .. 8 neighbours of 9 or more (9 + that count).
// Neighbours are the eight pixels around; those outside the image count as good, so
// a corner reaches at most 4, an edge at most 6, and only interior pixels reach 9.
// Classifying a classified map gives the same map again. The map is shared with the
// caller and must not change while it is classified.
class DefectMapChecker {
public:
    // A pixel at most this value is good for every reader of a map.
    static unsigned char s_ucDefectThreshold;

    DefectMapChecker();
    // Stores the map and classifies it.
    explicit DefectMapChecker(ImagePtr<unsigned char> map);
    DefectMapChecker(const DefectMapChecker&) = default;
    DefectMapChecker& operator=(const DefectMapChecker&) = default;
    ~DefectMapChecker() = default;

    // Stores both, classifies nothing.
    void SetDefectMap(ImagePtr<unsigned char> map, bool classified);
    // Classifies the present map: pass 1 writes the classes, pass 2 the meta-classes,
    // each row after row, reading the map as it stands (the neighbours already
    // visited hold their new values). Fails (CalibrationException) without a map or
    // without pixels; a failure leaves the map unclassified.
    void UpdateDefectMap();
    // Stores the map and classifies it.
    void UpdateDefectMap(ImagePtr<unsigned char> map);
    // The stored map, classified or not.
    ImagePtr<unsigned char> GetDefectMap() const;
    // Whether UpdateDefectMap has run to its end on the present map, or what
    // SetDefectMap was told.
    bool IsClassified() const;

private:
    // Pass 1 at (x, y): 0 for a good pixel, else 1 + the defect neighbours.
    static unsigned short _SetDefectClassValue(unsigned char* pixels, int width, int height, int x,
                                               int y);
    // Pass 2 at (x, y): a value of 9 or more becomes 9 + the neighbours of 9 or more.
    static unsigned short _SetDefectMetaClassValue(unsigned char* pixels, int width, int height,
                                                   int x, int y);

    bool classified = false;
    ImagePtr<unsigned char> defectMap;
};

#endif
