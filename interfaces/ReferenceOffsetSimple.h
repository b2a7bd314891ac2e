#ifndef ORVANE_INTERFACES_REFERENCEOFFSETSIMPLE_H
#define ORVANE_INTERFACES_REFERENCEOFFSETSIMPLE_H

#include "image/ImageAcquisition.h"
#include "interfaces/Reference.h"

// One 16-bit offset image, zero at construction, always of the store's size.
// Save and Load keep the image, its properties and the valid flag in one .fxd file
// at the path (correction/ReferenceFile.h); a failed Load leaves the store as it was.
class ReferenceOffsetSimple : public Reference {
public:
    ReferenceOffsetSimple(int width, int height, const std::string& path = "");
    ~ReferenceOffsetSimple() override;

    // The live offset image: calibrations write into it directly.
    ImagePtr<unsigned short> GetOffset();

    void Save() override;
    void Load() override;

private:
    ImagePtr<unsigned short> offset;
};

#endif
