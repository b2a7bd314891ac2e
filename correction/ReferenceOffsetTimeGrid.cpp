#include "interfaces/ReferenceOffsetTimeGrid.h"

#include "correction/ReferenceFile.h"
#include "interfaces/ReferenceException.h"

#include <boost/make_shared.hpp>

#include <algorithm>

ReferenceOffsetTimeGrid::ReferenceOffsetTimeGrid(int width, int height,
                                                 const std::vector<int>& deltaTimes,
                                                 const std::string& path)
    : Reference(path), deltaTimes(deltaTimes),
      standby(boost::make_shared<ImageAcquisition<unsigned short>>(width, height)) {
    if (deltaTimes.empty()) {
        throw ReferenceException("ReferenceOffsetTimeGrid: a grid needs at least one delta time");
    }
    for (size_t i = 0; i < deltaTimes.size(); ++i) {
        if (std::find(deltaTimes.begin(), deltaTimes.begin() + static_cast<long>(i), deltaTimes[i]) !=
            deltaTimes.begin() + static_cast<long>(i)) {
            throw ReferenceException("ReferenceOffsetTimeGrid: delta time " +
                                     std::to_string(deltaTimes[i]) + " appears twice");
        }
        offsets.push_back(boost::make_shared<ImageAcquisition<unsigned short>>(width, height));
    }
}

ReferenceOffsetTimeGrid::~ReferenceOffsetTimeGrid() = default;

int ReferenceOffsetTimeGrid::GetNbReferences() {
    return static_cast<int>(offsets.size());
}

ImagePtr<unsigned short> ReferenceOffsetTimeGrid::GetAt(int index) {
    if (index < 0 || index >= static_cast<int>(offsets.size())) {
        throw ReferenceException("ReferenceOffsetTimeGrid: no grid entry at index " +
                                 std::to_string(index));
    }
    return offsets[static_cast<size_t>(index)];
}

ImagePtr<unsigned short> ReferenceOffsetTimeGrid::Get(int deltaTime) {
    const auto it = std::find(deltaTimes.begin(), deltaTimes.end(), deltaTime);
    if (it == deltaTimes.end()) {
        throw ReferenceException("ReferenceOffsetTimeGrid: no grid entry for delta time " +
                                 std::to_string(deltaTime));
    }
    return offsets[static_cast<size_t>(it - deltaTimes.begin())];
}

ImagePtr<unsigned short> ReferenceOffsetTimeGrid::GetStandbyOffset() {
    return standby;
}

const std::vector<int>& ReferenceOffsetTimeGrid::GetDeltaTimes() const {
    return deltaTimes;
}

namespace {

const char* const kKind = "ReferenceOffsetTimeGrid";

// The delta times as the settings of the store file: "deltaTimes" holds them in
// order, separated by blanks.
boost::property_tree::ptree Settings(const std::vector<int>& deltaTimes) {
    std::string text;
    for (int deltaTime : deltaTimes) {
        text += (text.empty() ? "" : " ") + std::to_string(deltaTime);
    }
    boost::property_tree::ptree settings;
    settings.put("deltaTimes", text);
    return settings;
}

}  // namespace

// The file holds the grid entries in order, then the stand-by image.
void ReferenceOffsetTimeGrid::Save() {
    if (GetPath().empty()) {
        return;
    }
    std::vector<ImagePtr<unsigned short>> images = offsets;
    images.push_back(standby);
    orvane::detail::WriteReferenceFile<unsigned short>(*this, kKind, images, Settings(deltaTimes));
}

void ReferenceOffsetTimeGrid::Load() {
    if (GetPath().empty()) {
        return;
    }
    auto content = orvane::detail::ReadReferenceFile<unsigned short>(
        *this, kKind, standby->GetWidth(), standby->GetHeight(), static_cast<int>(offsets.size()) + 1);
    const std::string expected = Settings(deltaTimes).get<std::string>("deltaTimes");
    const std::string found = content.settings.get<std::string>("deltaTimes", "");
    if (found != expected) {
        orvane::detail::ReferenceFileError(kKind, "load", GetPath(),
                                           "the file holds delta times '" + found +
                                               "', this grid has '" + expected + "'");
    }
    std::vector<ImagePtr<unsigned short>> images = offsets;
    images.push_back(standby);
    orvane::detail::CommitReferenceFile(*this, content, images);
}
