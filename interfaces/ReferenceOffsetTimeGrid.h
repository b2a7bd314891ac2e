#ifndef ORVANE_INTERFACES_REFERENCEOFFSETTIMEGRID_H
#define ORVANE_INTERFACES_REFERENCEOFFSETTIMEGRID_H

#include "image/ImageAcquisition.h"
#include "interfaces/Reference.h"

#include <string>
#include <vector>

// One 16-bit offset image per delta time of a grid, plus one stand-by offset image;
// all zero at construction and always of the store's size. Entries keep the order
// of the delta times given at construction; a grid has at least one entry and no
// delta time twice (otherwise the constructor raises ReferenceException).
// Save and Load keep the grid images, the stand-by image, their properties, the
// delta times and the valid flag in one .fxd file at the path; Load refuses a file
// of another grid and leaves the store as it was on any failure.
class ReferenceOffsetTimeGrid : public Reference {
public:
    ReferenceOffsetTimeGrid(int width, int height, const std::vector<int>& deltaTimes,
                            const std::string& path = "");
    ~ReferenceOffsetTimeGrid() override;

    int GetNbReferences();
    // The live image of entry `index`, from 0; out of range: ReferenceException.
    ImagePtr<unsigned short> GetAt(int index);
    // The live image of the entry for `deltaTime`; no such entry: ReferenceException.
    ImagePtr<unsigned short> Get(int deltaTime);
    ImagePtr<unsigned short> GetStandbyOffset();

    const std::vector<int>& GetDeltaTimes() const;

    void Save() override;
    void Load() override;

private:
    std::vector<int> deltaTimes;
    std::vector<ImagePtr<unsigned short>> offsets;
    ImagePtr<unsigned short> standby;
};

#endif
