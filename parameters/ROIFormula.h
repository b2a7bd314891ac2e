#ifndef ORVANE_PARAMETERS_ROIFORMULA_H
#define ORVANE_PARAMETERS_ROIFORMULA_H

#include "image/BufferExpression.h"
#include "image/ROI.h"
#include "parameters/FormulaCalculator.h"

#include <string>

// A region of a zoom row as four formulas, in the order of the fields of ROI.
struct ROIFormula {
    std::string top;
    std::string left;
    std::string height;
    std::string width;
};

// The region that `area` gives on `record`: each formula evaluated to a float, truncated
// toward zero through 32 bits and its low 16 bits stored (-1 gives 65535). A value with
// no 32-bit integer (NaN, infinity, beyond the range) stores 0.
template <typename R>
ROI evaluate_formula(const ROIFormula& area, const R& record) {
    using orvane::detail::Store;
    return ROI(Store<unsigned short>(evaluate_formula(area.top, record)),
               Store<unsigned short>(evaluate_formula(area.left, record)),
               Store<unsigned short>(evaluate_formula(area.height, record)),
               Store<unsigned short>(evaluate_formula(area.width, record)));
}

#endif
