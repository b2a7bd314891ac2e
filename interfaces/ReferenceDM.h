#ifndef ORVANE_INTERFACES_REFERENCEDM_H
#define ORVANE_INTERFACES_REFERENCEDM_H

#include "image/ImageAcquisition.h"
#include "interfaces/Reference.h"

#include <string>

// The defect map of a detector: one 8-bit image, zero (all good) at construction and
// always of the store's size. Its width and height are the format of every defect
// calibration. A store may also hold an external map, which LoadMergeDM adds onto
// the live map; `merged` says whether the live map has had it added.
// Save and Load keep the map, its properties, the external map (when set), the
// merged and valid flags in one .fxd file at the path; a failed Load leaves the
// store as it was.
class ReferenceDM : public Reference {
public:
    ReferenceDM(int width, int height, const std::string& path = "");
    ~ReferenceDM() override;

    // The live map: calibrations write into it directly.
    ImagePtr<unsigned char> GetDM();

    bool IsMerged() const;
    void SetMerged(bool merged);

    // Keeps a copy of `map` (pixels and properties) as the map that LoadMergeDM
    // merges. A null map forgets the external map; a map of another size raises
    // ReferenceException.
    void SetExternalDM(const ImagePtr<unsigned char>& map);
    bool HasExternalDM() const;

    // With an external map set: copies it into `image` (pixels and properties),
    // adds it onto the live map (8-bit wrap-around sum), sets merged and returns
    // true. Without one: changes nothing and returns false. `image` must have the
    // store's size (otherwise ReferenceException).
    bool LoadMergeDM(const ImagePtr<unsigned char>& image);

    void Save() override;
    void Load() override;

private:
    ImagePtr<unsigned char> map;
    ImagePtr<unsigned char> external;  // null when no external map is set
    bool merged = false;
};

#endif
