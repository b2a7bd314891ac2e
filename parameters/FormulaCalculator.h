#ifndef ORVANE_PARAMETERS_FORMULACALCULATOR_H
#define ORVANE_PARAMETERS_FORMULACALCULATOR_H

// The formula language of the zoom parameter sets.
//
//   expression := term { ("+" | "-" | "$" | "#") term }      left to right, one level
//   term       := factor { ("*" | "/") factor }              left to right
//   factor     := number | variable | "(" expression ")" | ("-" | "+" | "@") factor
//
// a $ b is b if b >= a, else a; a # b is a if b >= a, else b (so a NaN operand gives
// a for $ and b for #). @ is floor. Arithmetic is in double with no checks: infinities
// and NaN pass through. The result is that double rounded to the nearest float.
//
// A number is one lexeme: optional sign, digits, optional "." and digits (a digit on
// at least one side), optional exponent "e"/"E", optional sign, at least one digit.
// An exponent marker without digits makes no number at all ("1e" is no number, not
// 1). The value is I + F * 10^-n (n fraction digits), negated as a whole by "-", times
// 10^E, the powers by std::pow. At the start of a factor the number comes first, so
// "-3" is a signed number; after a term "-" is the binary operator.
//
// A variable is the longest registered name that is a prefix of the rest of the text,
// with no word boundary ("nc12" is nc1 followed by "2"); names are case-sensitive, on
// equal names the first registered wins. Its value is a float widened to double: a
// float member as it is, an int32 member converted to float (losing low bits beyond
// 2^24), a string member evaluated as a formula on the same record. A string member
// read while its own evaluation is still in progress (a cycle) reads as 0.
//
// White space (" \t\n\v\f\r") is skipped before every token, never inside a number or
// a name, and not after the last token. Nothing throws: a formula gives the value of
// its longest leading expression, or 0 when it has none (empty formulas give 0). A tail
// that fails ("1+(2") leaves its operator unconsumed. When a non-empty formula is not
// consumed to its end (trailing white space included) an info line
// "error parsing \"<formula>\" at <offset>" is logged: the value stays as described,
// and the line makes an ill-formed table entry visible to whoever listens. The empty
// formula is the tables' way of saying zero and is not reported.
//
// Factors nest at most kFormulaDepth deep (parentheses and prefix operators together):
// a deeper factor is no factor, and the formula a parse error like any other, rather
// than a recursion that overflows the stack.
//
// Not locked: formulas must not be evaluated on two threads at once.

#include <boost/variant.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orvane {
namespace detail {

constexpr int kFormulaDepth = 256;

// What the parser needs of a record type's variables.
class FormulaVariables {
public:
    virtual std::size_t Count() const = 0;
    virtual const std::string& Name(std::size_t index) const = 0;
    virtual float Value(std::size_t index) const = 0;

protected:
    ~FormulaVariables() = default;
};

// One evaluation of `formula`, as described above.
float EvaluateFormula(const std::string& formula, const FormulaVariables& variables);

// The value of a formula variable whose text is `formula` (a member of the record that
// `variables` reads): EvaluateFormula, or 0 if this same member is already being
// evaluated on this thread. A cycle thus ends after one turn, and a variable that is
// read more than once by its own formula costs no more than one evaluation per read.
float EvaluateFormulaVariable(const std::string& formula, const FormulaVariables& variables);

}  // namespace detail
}  // namespace orvane

// The ordered variable registry of record type R, filled by the constructor of R's zoom
// set before any formula of R is evaluated, and read-only afterwards.
//
// instance() is an inline member of a class template with default visibility: its
// function-local static is one object per process, shared by the library and a host
// that instantiates the same R, created on first use.
template <typename R>
class parameter_func {
public:
    using record_type = R;
    // Tag 0: a float member; tag 1: an int32 member; tag 2: a string member holding a formula.
    using accessor = boost::variant<float R::*, std::int32_t R::*, std::string R::*>;

    struct variable {
        std::string name;
        accessor member;
    };

    static parameter_func& instance() {
        static parameter_func registry;
        return registry;
    }

    void add_variable(const std::string& name, float R::*member) { entries.push_back({name, accessor(member)}); }
    void add_variable(const std::string& name, std::int32_t R::*member) { entries.push_back({name, accessor(member)}); }
    void add_variable(const std::string& name, std::string R::*member) { entries.push_back({name, accessor(member)}); }

    const std::vector<variable>& variables() const { return entries; }

    parameter_func(const parameter_func&) = delete;
    parameter_func& operator=(const parameter_func&) = delete;

private:
    parameter_func() = default;

    std::vector<variable> entries;
};

// The variables of Registry read on one record; called with a registry index it gives
// the variable's value. The record is only read.
template <typename Registry>
class get_var_impl final : public orvane::detail::FormulaVariables {
public:
    using record_type = typename Registry::record_type;

    explicit get_var_impl(const record_type& record) : record(record), entries(Registry::instance().variables()) {}

    float operator()(std::size_t index) const { return boost::apply_visitor(Reader{*this}, entries[index].member); }

    std::size_t Count() const override { return entries.size(); }
    const std::string& Name(std::size_t index) const override { return entries[index].name; }
    float Value(std::size_t index) const override { return (*this)(index); }

private:
    struct Reader : boost::static_visitor<float> {
        const get_var_impl& self;
        explicit Reader(const get_var_impl& self) : self(self) {}
        float operator()(float record_type::*member) const { return self.record.*member; }
        float operator()(std::int32_t record_type::*member) const {
            return static_cast<float>(self.record.*member);
        }
        float operator()(std::string record_type::*member) const {
            return orvane::detail::EvaluateFormulaVariable(self.record.*member, self);
        }
    };

    const record_type& record;
    const std::vector<typename Registry::variable>& entries;
};

// `formula` evaluated on `record` with the variables of parameter_func<R>.
template <typename R>
float evaluate_formula(const std::string& formula, const R& record) {
    return orvane::detail::EvaluateFormula(formula, get_var_impl<parameter_func<R>>(record));
}

#endif
