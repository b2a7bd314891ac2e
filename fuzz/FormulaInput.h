#ifndef ORVANE_FUZZ_FORMULAINPUT_H
#define ORVANE_FUZZ_FORMULAINPUT_H

#include "parameters/GainLinearZoomParameters.h"

#include <string>
#include <vector>

namespace orvane {
namespace fuzz {

// A formula-evaluator input: a formula and a linear-gain zoom record to evaluate it
// on, whose formula members (Xc, Yc, ..., nc3: the string variables, in the order
// they are registered) may read one another. As bytes: the formula, then each
// member's formula after a NUL; members not given are empty. The record's numbers
// are those of a 1800 x 1440 region at (120, 60) with modules of 120.
struct FormulaInput {
    std::string formula;
    GainLinearZoomParameters record;
};

FormulaInput DecodeFormulaInput(const std::string& bytes);
std::string EncodeFormulaInput(const std::string& formula, const GainLinearZoomParameters& record);

// The string members that are formula variables, in the order of the registry.
const std::vector<std::string GainLinearZoomParameters::*>& FormulaMembers();

}  // namespace fuzz
}  // namespace orvane

#endif
