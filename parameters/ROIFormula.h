#ifndef ORVANE_PARAMETERS_ROIFORMULA_H
#define ORVANE_PARAMETERS_ROIFORMULA_H

#include <string>

// A region of a zoom row as four formulas, in the order of the fields of ROI.
struct ROIFormula {
    std::string top;
    std::string left;
    std::string height;
    std::string width;
};

#endif
