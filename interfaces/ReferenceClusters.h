#ifndef ORVANE_INTERFACES_REFERENCECLUSTERS_H
#define ORVANE_INTERFACES_REFERENCECLUSTERS_H

#include "image/ImageAcquisition.h"
#include "interfaces/Reference.h"

#include <string>
#include <vector>

// The pixel clusters of a detector: 16-bit images of one size, each with its
// properties, in the order they were added; none at construction.
// Save and Load keep the clusters, their properties and the valid flag in one .fxd
// file at the path; Load replaces the clusters held by those of the file, whatever
// their number and size, and leaves the store as it was on any failure.
class ReferenceClusters : public Reference {
public:
    explicit ReferenceClusters(const std::string& path = "");
    ~ReferenceClusters() override;

    // Appends a copy of `cluster` (pixels and properties), so the caller may reuse
    // its image at once. A null image, or one of another size than the clusters
    // held (the file keeps one size), raises ReferenceException.
    void AddCluster(const ImagePtr<unsigned short>& cluster);
    const std::vector<ImagePtr<unsigned short>>& GetClusters() const;

    void Save() override;
    void Load() override;

private:
    std::vector<ImagePtr<unsigned short>> clusters;
};

#endif
