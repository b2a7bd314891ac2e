#include "interfaces/ReferenceDM.h"

#include "correction/ReferenceFile.h"
#include "interfaces/ReferenceException.h"

#include <boost/make_shared.hpp>

#include <algorithm>

namespace {

const char* const kKind = "ReferenceDM";

void CheckSize(const ImagePtr<unsigned char>& image, const ImagePtr<unsigned char>& map,
               const char* operation) {
    if (!image) {
        throw ReferenceException(std::string(kKind) + ": " + operation + " needs an image");
    }
    if (image->GetWidth() != map->GetWidth() || image->GetHeight() != map->GetHeight()) {
        throw ReferenceException(std::string(kKind) + ": " + operation + " got a " +
                                 std::to_string(image->GetWidth()) + " x " +
                                 std::to_string(image->GetHeight()) + " image for a map of " +
                                 std::to_string(map->GetWidth()) + " x " +
                                 std::to_string(map->GetHeight()));
    }
}

ImagePtr<unsigned char> CopyOf(const ImagePtr<unsigned char>& image) {
    auto copy = boost::make_shared<ImageAcquisition<unsigned char>>(image->GetWidth(), image->GetHeight());
    *copy->GetBuffer() = *image->GetBuffer();
    copy->GetProperties() = image->GetProperties();
    return copy;
}

}  // namespace

ReferenceDM::ReferenceDM(int width, int height, const std::string& path)
    : Reference(path), map(boost::make_shared<ImageAcquisition<unsigned char>>(width, height)) {}

ReferenceDM::~ReferenceDM() = default;

ImagePtr<unsigned char> ReferenceDM::GetDM() {
    return map;
}

bool ReferenceDM::IsMerged() const {
    return merged;
}

void ReferenceDM::SetMerged(bool isMerged) {
    merged = isMerged;
}

void ReferenceDM::SetExternalDM(const ImagePtr<unsigned char>& externalMap) {
    if (!externalMap) {
        external.reset();
        return;
    }
    CheckSize(externalMap, map, "SetExternalDM");
    external = CopyOf(externalMap);
}

bool ReferenceDM::HasExternalDM() const {
    return static_cast<bool>(external);
}

bool ReferenceDM::LoadMergeDM(const ImagePtr<unsigned char>& image) {
    CheckSize(image, map, "LoadMergeDM");
    if (!external) {
        return false;
    }
    *image->GetBuffer() = *external->GetBuffer();
    image->GetProperties() = external->GetProperties();
    *map->GetBuffer() = *map->GetBuffer() + *external->GetBuffer();  // keeps the low 8 bits
    merged = true;
    return true;
}

// The file holds the live map, then the external map when one is set.
void ReferenceDM::Save() {
    if (GetPath().empty()) {
        return;
    }
    boost::property_tree::ptree settings;
    settings.put("merged", merged);
    settings.put("external", HasExternalDM());
    std::vector<ImagePtr<unsigned char>> images{map};
    if (external) {
        images.push_back(external);
    }
    orvane::detail::WriteReferenceFile<unsigned char>(*this, kKind, images, settings);
}

void ReferenceDM::Load() {
    if (GetPath().empty()) {
        return;
    }
    auto content = orvane::detail::ReadReferenceFile<unsigned char>(
        *this, kKind, map->GetWidth(), map->GetHeight(), -1);
    const auto savedMerged = content.settings.get_optional<bool>("merged");
    const auto savedExternal = content.settings.get_optional<bool>("external");
    if (!savedMerged || !savedExternal) {
        orvane::detail::ReferenceFileError(kKind, "load", GetPath(),
                                           "the file lacks the merged or external setting");
    }
    const size_t expected = *savedExternal ? 2 : 1;
    if (content.images.size() != expected) {
        orvane::detail::ReferenceFileError(
            kKind, "load", GetPath(),
            "the file holds " + std::to_string(content.images.size()) + " images, expected " +
                std::to_string(expected));
    }
    ImagePtr<unsigned char> loadedExternal = *savedExternal ? content.images[1] : nullptr;
    content.images.resize(1);
    orvane::detail::CommitReferenceFile(*this, content, {map});
    external = loadedExternal;
    merged = *savedMerged;
}
