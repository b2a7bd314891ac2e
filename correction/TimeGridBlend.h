#ifndef ORVANE_CORRECTION_TIMEGRIDBLEND_H
#define ORVANE_CORRECTION_TIMEGRIDBLEND_H

#include "image/ImageAcquisition.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>

// The offset of a time grid at a given temperature and time, for frames taken
// between the states in which the grid's entries were measured.
//
// Each entry i carries the "image.temperature" T_i and "image.time" t_i of the series
// it was measured from. The entries are taken in order of t_i (ties in grid order);
// a time t selects the two neighbours i, j = i + 1 with t_i <= t <= t_j (the first or
// last two when t lies outside), and the share of entry j is
//   w = (T - T_i) / (T_j - T_i)   when T_j != T_i: the dark level follows temperature,
//   w = (t - t_i) / (t_j - t_i)   otherwise (and 0 when t_j == t_i too),
// in double, clamped to [0, 1], so the blend never extrapolates. The offset is then
//   offset[p] = (float)((1 - w) * o_i[p] + w * o_j[p]), in double.
// A grid of one entry gives that entry.
class TimeGridBlend {
public:
    struct Weights {
        int lower = 0;          // grid index of entry i
        int upper = 0;          // grid index of entry j
        double share = 0.0;     // w, the share of entry j
    };

    // A null grid raises ReferenceException.
    explicit TimeGridBlend(boost::shared_ptr<ReferenceOffsetTimeGrid> grid);

    // An entry without a readable "image.temperature" or "image.time" raises
    // ReferenceException naming its delta time.
    Weights WeightsAt(float temperature, std::int64_t time) const;
    ImagePtr<float> OffsetAt(float temperature, std::int64_t time) const;

private:
    boost::shared_ptr<ReferenceOffsetTimeGrid> grid;
};

#endif
