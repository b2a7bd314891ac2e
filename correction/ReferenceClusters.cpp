#include "interfaces/ReferenceClusters.h"

#include "correction/ReferenceFile.h"
#include "interfaces/ReferenceException.h"
#include "tools/ImageFxdFile.h"

#include <boost/make_shared.hpp>

#include <exception>

namespace {

const char* const kKind = "ReferenceClusters";

std::string SizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

ReferenceClusters::ReferenceClusters(const std::string& path) : Reference(path) {}

ReferenceClusters::~ReferenceClusters() = default;

void ReferenceClusters::AddCluster(const ImagePtr<unsigned short>& cluster) {
    if (!cluster) {
        throw ReferenceException("ReferenceClusters: AddCluster got no image");
    }
    const int width = cluster->GetWidth();
    const int height = cluster->GetHeight();
    if (!clusters.empty() &&
        (clusters.front()->GetWidth() != width || clusters.front()->GetHeight() != height)) {
        throw ReferenceException("ReferenceClusters: a cluster of " + SizeText(width, height) +
                                 " does not fit the clusters of " +
                                 SizeText(clusters.front()->GetWidth(), clusters.front()->GetHeight()) +
                                 " held");
    }
    const auto copy = boost::make_shared<ImageAcquisition<unsigned short>>(width, height);
    *copy->GetBuffer() = *cluster->GetBuffer();
    copy->GetProperties() = cluster->GetProperties();
    clusters.push_back(copy);
}

const std::vector<ImagePtr<unsigned short>>& ReferenceClusters::GetClusters() const {
    return clusters;
}

void ReferenceClusters::Save() {
    if (GetPath().empty()) {
        return;
    }
    orvane::detail::WriteReferenceFile<unsigned short>(*this, kKind, clusters, {});
}

void ReferenceClusters::Load() {
    if (GetPath().empty()) {
        return;
    }
    // The size of the clusters is the file's own: it is taken from the file's header
    // first. A file that cannot be read here fails in ReadReferenceFile, which says why.
    int width = 0;
    int height = 0;
    try {
        const ImageFxdFileIn file(GetPath());
        width = file.GetWidth();
        height = file.GetHeight();
    } catch (const std::exception&) {
    }
    auto content = orvane::detail::ReadReferenceFile<unsigned short>(*this, kKind, width, height, -1);
    clusters.swap(content.images);
    SetValid(content.valid);
}
