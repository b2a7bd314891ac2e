#ifndef ORVANE_CALIBRATION_CALIBRATIONCLUSTERS_H
#define ORVANE_CALIBRATION_CALIBRATIONCLUSTERS_H

#include "calibration/CalibrationBase.h"
#include "image/Coordinates.h"
#include "image/ImageAcquisition.h"
#include "image/WorkImages.h"
#include "interfaces/ReferenceClusters.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"
#include "parameters/CalibrationClustersParameters.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

// The pixel clusters of a ReferenceClusters, cut from the change between the first
// and the last offset image of a ReferenceOffsetTimeGrid. The change (last - first,
// rounded to float) is opened and closed, cut at Threshold and eroded so that a
// pixel stays only where its left and right neighbours are set. Each column searches
// that mask from the top down to the middle and from the bottom up to the middle;
// its first set pixel in each half is a place. Per place, a strip of P = 2 N + 3
// columns centred on it (N = PatchMargin) and h = height / 2 rows of the change,
// rows 0 .. h - 1 for the upper half and h + 1 .. 2 h for the lower, is flattened
// along its columns: median then average of window MedianSize / AverageSize, gaps
// filled from the side, subtracted from every column but the two border ones. The
// strip + 1000, saturated into 16 bits, goes to the store with the first offset
// image's properties and the place.
//
// Numbers: every subtraction and the lift by 1000 compute in double and round to
// float; the 16-bit value is 0 at or below 0, 65535 at or above 65535, else the
// float truncated toward zero.
//
// For an even height the last row of a lower strip, 2 h, lies below the frame: it
// is never read, and that strip row repeats the frame's last row.
//
// The failures of the stores and of the filters pass through unchanged; a run that
// fails leaves the clusters added so far in the store. Its own checks, which keep
// the run inside its images, fail with a CalibrationException: Init with PatchMargin
// outside 0 .. 32767, CalculateClustersReference before Init or with a PatchMargin
// other than at the first Init.
class CalibrationClusters : public CalibrationBase {
public:
    CalibrationClusters(const CalibrationClustersParameters& parameters,
                        boost::shared_ptr<ReferenceClusters> clustersReference,
                        boost::shared_ptr<ReferenceOffsetTimeGrid> offsetReference);
    ~CalibrationClusters() override;

    // Sets patchWidth and halfHeight on every call; acquires the work images once.
    void Init() override;
    void Clear() override;

    // Adds one cluster to the store for each place found; the store keeps its earlier
    // clusters.
    void CalculateClustersReference();

private:
    const std::string _GetCalibrationType() override;

    // Gives the work images back and closes the four accounts.
    void _Clear();
    // One cluster image for each place, in order.
    void FlattenClustersReference(const std::vector<Coordinates>& places);

    const CalibrationClustersParameters& parameters;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t patchWidth = 0;
    std::int32_t halfHeight = 0;
    std::int32_t patchLeft = 0;
    std::int32_t patchTop = 0;
    boost::shared_ptr<ReferenceClusters> clustersReference;
    boost::shared_ptr<ReferenceOffsetTimeGrid> offsetReference;
    ImagePtr<float> difference;
    ImagePtr<float> firstOffset;
    ImagePtr<float> lastOffset;
    ImagePtr<float> patch;    // h wide, P high: the strip transposed
    ImagePtr<float> smooth;   // h wide, P high
    ImagePtr<float> average;  // h wide, P high
    ImagePtr<float> flat;     // P wide, h high
    ImagePtr<unsigned short> cluster;  // P wide, h high
    orvane::detail::WorkImages<float> frameImages;  // difference, firstOffset, lastOffset
    orvane::detail::WorkImages<float> patchImages;  // patch, smooth, average
    orvane::detail::WorkImages<float> flatImages;   // flat
    orvane::detail::WorkImages<unsigned short> clusterImages;  // cluster
};

#endif
