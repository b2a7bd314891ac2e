// The formula evaluator: a formula evaluated on a linear-gain zoom record whose
// formula members come from the input too (fuzz/FormulaInput.h), so that variables
// that are formulas, and cycles of them, are read. Nothing may throw; an evaluation
// gives the same float each time.

#include "fuzz/FormulaInput.h"
#include "interfaces/logger.h"
#include "parameters/FormulaCalculator.h"
#include "parameters/GainLinearStandardZoomParametersSet.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

float Evaluate(const std::string& formula, const GainLinearZoomParameters& record) {
    const float first = evaluate_formula(formula, record);
    const float second = evaluate_formula(formula, record);
    if (std::memcmp(&first, &second, sizeof first) != 0) {
        std::fprintf(stderr, "\"%s\" gives %g, then %g\n", formula.c_str(), double(first), double(second));
        std::abort();
    }
    return first;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The variables are registered by the constructor of the library's zoom set; parse
    // errors are logged only while a sink listens, so one listens and discards.
    if (s_gainLinearStandardZoomParametersSet.GetBaseRows().empty()) std::abort();
    logger::manager().add_sink([](const std::string&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const orvane::fuzz::FormulaInput input =
        orvane::fuzz::DecodeFormulaInput(std::string(reinterpret_cast<const char*>(data), size));
    Evaluate(input.formula, input.record);
    for (const auto member : orvane::fuzz::FormulaMembers()) Evaluate(input.record.*member, input.record);
    return 0;
}
