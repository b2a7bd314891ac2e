#ifndef ORVANE_CALIBRATION_CALIBRATIONAUTOMATICDEFECT_H
#define ORVANE_CALIBRATION_CALIBRATIONAUTOMATICDEFECT_H

#include "calibration/CalibrationBase.h"
#include "calibration/DefectMapFlag.h"
#include "image/ImageAcquisition.h"
#include "image/WorkImages.h"
#include "interfaces/ReferenceDM.h"
#include "parameters/AutomaticDefectParameters.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <string>

// Adds newly found defects to the existing map of a valid ReferenceDM, and saves the
// store. Each pair of frames gives difference = second - first (float, exact); a
// pixel of parameters.Area is a hit of that pair when its difference minus the
// median of the k x k window around it (k = WindowSize, the window reflected inside
// the Area without repeating the edge) is above ThresholdHigh or below ThresholdLow,
// that float difference compared exactly with the integer thresholds: a value on a
// threshold is no hit. UpdateDefectMap sets to 1 every pixel of the Area that is 0 in
// the map and has at least min(pairs, MinHits) hits, then flags and classifies the
// map. Defects are only ever added. On an invalid store every operation logs and
// does nothing. Two float and one 8-bit work image come from the pool between Init
// and Clear; hits and pairs build up from Init to Clear, across UpdateDefectMap.
//
// Checks beyond the failures of the calling order: the Area must lie inside the map
// and, unless empty, be at least WindowSize / 2 + 1 rows and columns large (so that
// the reflection stays inside it), and WindowSize must be at least 1 with its square
// at most WindowPixels; otherwise the operation that would read outside an image
// fails. Frames of another size than the map are not refused: the difference covers
// the pixels that the three images have in common, the rest of it keeps its values.
class CalibrationAutomaticDefect : public CalibrationBase {
public:
    CalibrationAutomaticDefect(const AutomaticDefectParameters& parameters,
                               boost::shared_ptr<ReferenceDM> reference,
                               boost::shared_ptr<DefectMapFlag> flag);
    ~CalibrationAutomaticDefect() override;

    // Takes the work images, zero-filled, and the median scratch array; resets pairs.
    // A second call without Clear only logs: the hits are kept.
    void Init() override;
    void Clear() override;

    // Counts the hits of one pair. A pair that fails is not counted, but the hits it
    // added before the failure stand.
    void ProcessReferenceAndCumul(ImagePtr<unsigned short> first, ImagePtr<unsigned short> second);
    // On a merged store: Load, update, flag, check, Save, LoadMergeDM and, if that
    // merged, flag and check again; otherwise update, flag, check, Save. Before any
    // pair, no pixel stood out and none is added (the rest runs as usual). A failure
    // leaves the map as far as it came.
    void UpdateDefectMap();

private:
    const std::string _GetCalibrationType() override;

    void _MovingMedianDiffThresholdAndCumul();
    void _Clear();

    const AutomaticDefectParameters& parameters;
    std::int32_t width = 0;
    std::int32_t height = 0;
    ImagePtr<unsigned char> mergeImage;
    ImagePtr<float> difference;
    ImagePtr<float> hits;
    orvane::detail::WorkImages<float> floatImages;         // holds difference and hits
    orvane::detail::WorkImages<unsigned char> byteImages;  // holds mergeImage
    boost::shared_ptr<ReferenceDM> reference;
    boost::shared_ptr<DefectMapFlag> flag;
    std::unique_ptr<float[]> medianScratch;
    std::int32_t pairs = 0;
};

#endif
