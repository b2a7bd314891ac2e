#include "fuzz/FormulaInput.h"

namespace orvane {
namespace fuzz {

const std::vector<std::string GainLinearZoomParameters::*>& FormulaMembers() {
    using Z = GainLinearZoomParameters;
    static const std::vector<std::string Z::*> members{
        &Z::Xc,  &Z::Yc,  &Z::Mpxc, &Z::Thlc, &Z::cLeftLimit, &Z::lTopLimit, &Z::cRightLimit, &Z::lBotLimit,
        &Z::l1,  &Z::l2,  &Z::l3,   &Z::l4,   &Z::c1,         &Z::c2,        &Z::c3,          &Z::c4,
        &Z::nl,  &Z::nl1, &Z::nl2,  &Z::nc1,  &Z::nc2,        &Z::nc3};
    return members;
}

FormulaInput DecodeFormulaInput(const std::string& bytes) {
    FormulaInput input;
    GainLinearZoomParameters& record = input.record;
    record.X0 = 120;
    record.Y0 = 60;
    record.Width = 1800;
    record.Height = 1440;
    record.modSize = 120;
    record.nc = 120;
    size_t start = 0;
    for (size_t piece = 0;; ++piece) {
        const size_t end = bytes.find('\0', start);
        const std::string text = bytes.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (piece == 0) {
            input.formula = text;
        } else if (piece <= FormulaMembers().size()) {
            record.*FormulaMembers()[piece - 1] = text;
        }
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return input;
}

std::string EncodeFormulaInput(const std::string& formula, const GainLinearZoomParameters& record) {
    std::string bytes = formula;
    for (const auto member : FormulaMembers()) {
        bytes += '\0';
        bytes += record.*member;
    }
    return bytes;
}

}  // namespace fuzz
}  // namespace orvane
