#ifndef ORVANE_PARAMETERS_MEASUREGRID_H
#define ORVANE_PARAMETERS_MEASUREGRID_H

#include "image/ROI.h"

#include <initializer_list>
#include <vector>

namespace orvane {
namespace detail {

// The square measure areas of side `size` at every combination of `tops` and `lefts`:
// by rows (every left for the first top, then for the next) or by columns (every top
// for the first left, then for the next).
enum class GridOrder { ByRows, ByColumns };

inline std::vector<ROI> MeasureGrid(unsigned short size, std::initializer_list<unsigned short> tops,
                                    std::initializer_list<unsigned short> lefts,
                                    GridOrder order = GridOrder::ByRows) {
    std::vector<ROI> areas;
    if (order == GridOrder::ByRows) {
        for (unsigned short top : tops) {
            for (unsigned short left : lefts) {
                areas.push_back(ROI(top, left, size, size));
            }
        }
    } else {
        for (unsigned short left : lefts) {
            for (unsigned short top : tops) {
                areas.push_back(ROI(top, left, size, size));
            }
        }
    }
    return areas;
}

}  // namespace detail
}  // namespace orvane

#endif
