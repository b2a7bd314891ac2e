#include "calibration/CalibrationClusters.h"

#include "calibration/CalibrationLifecycle.h"
#include "tools/LogAndThrow.h"
#include "tools/LogEntry.h"
#include "interfaces/CalibrationException.h"
#include "tools/ImageFilters.h"

#include <boost/logic/tribool.hpp>

#include <algorithm>
#include <limits>

namespace orvane {
namespace detail {
namespace {

// Strips of up to 65537 columns: wider than any frame of 16-bit sizes.
constexpr int kLargestPatchMargin = 32767;

// The places of a mask: per column x in [margin + 1, width - margin - 1), the first
// pixel above 0 from row 0 down to row middle - 1, then the first one from the last
// row up to row middle + 1, where middle = (height - 1) / 2. The rows are visited
// one after the other, not the columns, so the search reads memory in order; per
// column the first row found in each half waits in the first two rows of `scratch`
// (-1 for none), exact in float for any real frame height (below 2^24).
std::vector<Coordinates> FindPlaces(const ImageAcquisition<float>& mask, int margin,
                                    ImageAcquisition<float>& scratch) {
    std::vector<Coordinates> places;
    const int width = mask.GetWidth();
    const int height = mask.GetHeight();
    const int middle = (height - 1) / 2;
    const int first = margin + 1;
    const int end = width - margin - 1;
    if (first >= end || height < 2) {
        return places;
    }
    float* upper = scratch.GetData();
    float* lower = upper + width;
    std::fill(upper, upper + 2 * width, -1.0f);
    const auto search = [&](int y, float* found) {
        const float* row = mask.GetData() + static_cast<long>(y) * width;
        for (int x = first; x < end; ++x) {
            if (found[x] < 0.0f && row[x] > 0.0f) {
                found[x] = static_cast<float>(y);
            }
        }
    };
    for (int y = 0; y < middle; ++y) {
        search(y, upper);
    }
    for (int y = height - 1; y > middle; --y) {
        search(y, lower);
    }
    for (int x = first; x < end; ++x) {
        if (upper[x] >= 0.0f) places.push_back(Coordinates{x, static_cast<int>(upper[x])});
        if (lower[x] >= 0.0f) places.push_back(Coordinates{x, static_cast<int>(lower[x])});
    }
    return places;
}

// patch(r, c) := frame(left + c, top + r) for the patch's height columns c and width
// rows r: the strip transposed. A strip row below the frame repeats the frame's last
// row; the columns must lie inside the frame.
void CutStrip(const ImageAcquisition<float>& frame, int left, int top, ImageAcquisition<float>& patch) {
    const int rows = patch.GetWidth();
    const int columns = patch.GetHeight();
    const int lastRow = frame.GetHeight() - 1;
    for (int r = 0; r < rows; ++r) {
        const float* source =
            frame.GetData() + static_cast<long>(std::min(top + r, lastRow)) * frame.GetWidth() + left;
        float* target = patch.GetData() + r;
        for (int c = 0; c < columns; ++c) {
            target[static_cast<long>(c) * rows] = source[c];
        }
    }
}

// flat(c, r) := patch(r, c) - smooth(r, c), rounded to float, for the inner columns
// c; the two border columns take patch(r, c) unchanged.
void FlattenStrip(const ImageAcquisition<float>& patch, const ImageAcquisition<float>& smooth,
                  ImageAcquisition<float>& flat) {
    const int rows = patch.GetWidth();
    const int columns = patch.GetHeight();
    for (int c = 0; c < columns; ++c) {
        const float* raw = patch.GetData() + static_cast<long>(c) * rows;
        const float* level = smooth.GetData() + static_cast<long>(c) * rows;
        float* target = flat.GetData() + c;
        const bool border = c == 0 || c == columns - 1;
        for (int r = 0; r < rows; ++r) {
            target[static_cast<long>(r) * columns] =
                border ? raw[r] : static_cast<float>(static_cast<double>(raw[r]) - level[r]);
        }
    }
}

}  // namespace
}  // namespace detail
}  // namespace orvane

using orvane::detail::RequireInit;

CalibrationClusters::CalibrationClusters(const CalibrationClustersParameters& parameters,
                                         boost::shared_ptr<ReferenceClusters> clustersReference,
                                         boost::shared_ptr<ReferenceOffsetTimeGrid> offsetReference)
    : parameters(parameters), clustersReference(clustersReference), offsetReference(offsetReference) {
    const ImagePtr<unsigned short> first = offsetReference->GetAt(0);
    width = first->GetWidth();
    height = first->GetHeight();
}

CalibrationClusters::~CalibrationClusters() {
    _Clear();
}

const std::string CalibrationClusters::_GetCalibrationType() {
    return "Clusters";
}

void CalibrationClusters::Init() {
    using orvane::detail::kLargestPatchMargin;
    if (parameters.PatchMargin < 0 || parameters.PatchMargin > kLargestPatchMargin) {
        LogAndThrow<CalibrationException>(
            "CalibrationClusters: Init failed because PatchMargin is out of range", __FILE__, __LINE__);
    }
    patchWidth = 2 * parameters.PatchMargin + 3;
    halfHeight = height / 2;
    if (frameImages.IsOpen()) {
        return;
    }
    try {
        frameImages.Open(width, height, 3, {&difference, &firstOffset, &lastOffset});
        patchImages.Open(halfHeight, patchWidth, 3, {&patch, &smooth, &average});
        flatImages.Open(patchWidth, halfHeight, 1, {&flat});
        clusterImages.Open(patchWidth, halfHeight, 1, {&cluster});
    } catch (...) {
        _Clear();
        throw;
    }
}

void CalibrationClusters::Clear() {
    _Clear();
}

void CalibrationClusters::_Clear() {
    frameImages.Close();
    patchImages.Close();
    flatImages.Close();
    clusterImages.Close();
}

void CalibrationClusters::CalculateClustersReference() {
    orvane::detail::LogInfo("CalibrationClusters : CalculateClustersReference");
    RequireInit(frameImages.IsOpen(),
                "CalibrationClusters: CalculateClustersReference failed because Init has not run",
                __FILE__, __LINE__);
    // The strip images were sized at the first Init; a margin changed since would
    // cut strips that do not fit them.
    if (patchWidth != patch->GetHeight() || parameters.PatchMargin != (patchWidth - 3) / 2) {
        LogAndThrow<CalibrationException>(
            "CalibrationClusters: CalculateClustersReference failed because PatchMargin changed after Init",
            __FILE__, __LINE__);
    }

    *firstOffset->GetBuffer() = *offsetReference->GetAt(0)->GetBuffer();
    *lastOffset->GetBuffer() = *offsetReference->GetAt(offsetReference->GetNbReferences() - 1)->GetBuffer();
    *difference->GetBuffer() = *lastOffset->GetBuffer() - *firstOffset->GetBuffer();

    float shapeElement[4 * 7];
    for (int row = 0; row < 4; ++row) {
        const float line[7] = {0.0f, 0.0f, 200.0f, 0.0f, 200.0f, 0.0f, 0.0f};
        std::copy(line, line + 7, shapeElement + row * 7);
    }
    float neighbourElement[3] = {0.0f, std::numeric_limits<float>::lowest(), 0.0f};

    ApplyOpenFilter(difference, shapeElement, 7, 4, lastOffset);
    ApplyCloseFilter(lastOffset, shapeElement, 7, 4, firstOffset);
    ApplyThreshold(firstOffset, parameters.Threshold, lastOffset);
    ApplyErodeFilter(lastOffset, neighbourElement, 3, 1, firstOffset);

    // lastOffset has served: it holds the search's bookkeeping now.
    const std::vector<Coordinates> places =
        orvane::detail::FindPlaces(*firstOffset, parameters.PatchMargin, *lastOffset);
    FlattenClustersReference(places);
    orvane::detail::LogInfo("CalibrationClusters : CalculateClustersReference succeed");
}

void CalibrationClusters::FlattenClustersReference(const std::vector<Coordinates>& places) {
    for (const Coordinates& place : places) {
        patchLeft = place.x - parameters.PatchMargin - 1;
        patchTop = place.y < halfHeight ? 0 : halfHeight + 1;
        orvane::detail::CutStrip(*difference, patchLeft, patchTop, *patch);

        ApplyMedianFilter(patch, parameters.MedianSize, smooth);
        ApplyAverageFilter(smooth, parameters.AverageSize, average);
        InterpolateFromSide(average, smooth, boost::logic::indeterminate);

        orvane::detail::FlattenStrip(*patch, *smooth, *flat);
        *flat->GetBuffer() = *flat->GetBuffer() + 1000.0f;
        *cluster->GetBuffer() = orvane::Saturate<unsigned short>(*flat->GetBuffer());

        cluster->GetProperties() = offsetReference->GetAt(0)->GetProperties();
        cluster->SetProperty("image.pixelcluster.pos.x", place.x);
        cluster->SetProperty("image.pixelcluster.pos.y", place.y);
        cluster->SetProperty("info.quantlevels", 65536);
        clustersReference->AddCluster(cluster);
    }
}
