#ifndef ORVANE_CALIBRATION_DEFECTMAPMERGE_H
#define ORVANE_CALIBRATION_DEFECTMAPMERGE_H

#include "calibration/DefectMapFlag.h"
#include "image/ImageAcquisition.h"
#include "image/ImageCollection.h"
#include "interfaces/ReferenceDM.h"

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <vector>

// Adds defect maps from other places into the map of one target ReferenceDM, in
// place, then brings the result back to the final encoding. Merging is an 8-bit
// wrap-around sum: target = low 8 bits of (source + target), a 16-bit source pixel
// counting by its low 8 bits, so a sum of exactly 256 gives 0 and a source pixel of
// 256 adds nothing. Pixels are added in memory order over the smaller of the two
// sizes: a smaller source leaves the rest of the target as it was. After a merge the
// target is raw (no longer classified) until UpdateDefectMapReference has run.
//
// Host order: construct; Init; any number of Merge, MergeExternalDM, MergeFactoryDM;
// UpdateDefectMapReference; Clear. Merge and UpdateDefectMapReference need no Init;
// the two others draw a work image from the pool and fail without Init. Every failure
// is one CalibrationException; a failed merge keeps what was merged before it.
class DefectMapMerge {
public:
    DefectMapMerge(boost::shared_ptr<ReferenceDM> reference, boost::shared_ptr<DefectMapFlag> flag);
    DefectMapMerge(const DefectMapMerge& other) = default;
    DefectMapMerge& operator=(const DefectMapMerge& other) = default;
    // Drops the shares; does not Clear (an open account simply lapses with them).
    ~DefectMapMerge() = default;

    // Opens one 8-bit and one 16-bit account of one image each; once only.
    void Init();
    // Closes both accounts; nothing without Init.
    void Clear();

    // Adds other's map to the target map. A null store fails.
    void Merge(const boost::shared_ptr<ReferenceDM>& other);
    // Merge of each store, in order; an empty list changes nothing.
    void Merge(const std::vector<boost::shared_ptr<ReferenceDM>>& others);
    // Lends the target store an 8-bit work image for ReferenceDM::LoadMergeDM, which
    // adds the store's external map when it has one; its answer is not looked at.
    void MergeExternalDM();
    // Hands loader a cleared 16-bit work image (pixels 0, no properties); the loader
    // fills it and may make the pointer refer to another image of its own. What the
    // pointer then refers to is merged, and its properties replace those of the
    // target map. The work image is always given back to the pool, whatever the
    // loader did with the pointer. An empty loader fails.
    void MergeFactoryDM(boost::function<void(ImagePtr<unsigned short>&)> loader);
    // DefectMapFlag, then DefectMapChecker, on the target map.
    void UpdateDefectMapReference();

private:
    // target buffer = source buffer + target buffer, one pass in integer arithmetic.
    template <typename T>
    void _MergeImage(const ImagePtr<T>& source);

    boost::shared_ptr<ReferenceDM> reference;
    boost::shared_ptr<DefectMapFlag> flag;
    bool initialized = false;
    boost::shared_ptr<ImageCollection<unsigned short>> shortCollection;
    boost::shared_ptr<ImageCollection<unsigned char>> byteCollection;
    std::int32_t width = 0;
    std::int32_t height = 0;
};

#endif
