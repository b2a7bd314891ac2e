#include "correction/TimeGridBlend.h"

#include "interfaces/ReferenceException.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace {

struct EntryState {
    int index;
    double temperature;
    std::int64_t time;
};

std::vector<EntryState> ReadStates(ReferenceOffsetTimeGrid& grid) {
    std::vector<EntryState> states;
    for (int i = 0; i < grid.GetNbReferences(); ++i) {
        const ImagePtr<unsigned short> entry = grid.GetAt(i);
        try {
            states.push_back({i, entry->GetProperty<float>("image.temperature"),
                              entry->GetProperty<std::int64_t>("image.time")});
        } catch (const std::exception&) {
            throw ReferenceException("TimeGridBlend: the entry of delta time " +
                                     std::to_string(grid.GetDeltaTimes()[static_cast<size_t>(i)]) +
                                     " has no readable image.temperature and image.time");
        }
    }
    std::stable_sort(states.begin(), states.end(),
                     [](const EntryState& a, const EntryState& b) { return a.time < b.time; });
    return states;
}

}  // namespace

TimeGridBlend::TimeGridBlend(boost::shared_ptr<ReferenceOffsetTimeGrid> grid) : grid(std::move(grid)) {
    if (!this->grid) {
        throw ReferenceException("TimeGridBlend: no time-grid store");
    }
}

TimeGridBlend::Weights TimeGridBlend::WeightsAt(float temperature, std::int64_t time) const {
    const std::vector<EntryState> states = ReadStates(*grid);
    if (states.size() == 1) {
        return {states[0].index, states[0].index, 0.0};
    }
    size_t j = 1;
    while (j + 1 < states.size() && states[j].time < time) {
        ++j;
    }
    const EntryState& a = states[j - 1];
    const EntryState& b = states[j];
    double share = 0.0;
    if (b.temperature != a.temperature) {
        share = (static_cast<double>(temperature) - a.temperature) / (b.temperature - a.temperature);
    } else if (b.time != a.time) {
        share = static_cast<double>(time - a.time) / static_cast<double>(b.time - a.time);
    }
    return {a.index, b.index, std::clamp(share, 0.0, 1.0)};
}

ImagePtr<float> TimeGridBlend::OffsetAt(float temperature, std::int64_t time) const {
    const Weights weights = WeightsAt(temperature, time);
    const ImagePtr<unsigned short> lower = grid->GetAt(weights.lower);
    const ImagePtr<unsigned short> upper = grid->GetAt(weights.upper);
    auto offset = boost::make_shared<ImageAcquisition<float>>(lower->GetWidth(), lower->GetHeight());
    const unsigned short* a = lower->GetData();
    const unsigned short* b = upper->GetData();
    float* out = offset->GetData();
    const double w = weights.share;
    const double v = 1.0 - w;
    for (int p = 0; p < offset->GetPixelCount(); ++p) {
        out[p] = static_cast<float>(v * a[p] + w * b[p]);
    }
    return offset;
}
