#ifndef ORVANE_INTERFACES_REFERENCEOFFSETSIMPLE_H
#define ORVANE_INTERFACES_REFERENCEOFFSETSIMPLE_H

#include "image/ImageAcquisition.h"
#include "interfaces/Reference.h"

// One 16-bit offset image, zero at construction, always of the store's size.
class ReferenceOffsetSimple : public Reference {
public:
    ReferenceOffsetSimple(int width, int height, const std::string& path = "");
    ~ReferenceOffsetSimple() override;

    // The live offset image: calibrations write into it directly.
    ImagePtr<unsigned short> GetOffset();

private:
    ImagePtr<unsigned short> offset;
};

#endif
