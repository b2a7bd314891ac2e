#include "parameters/FormulaCalculator.h"

#include "tools/LogEntry.h"

#include <algorithm>
#include <cmath>

namespace orvane {
namespace detail {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

double max_func_impl(double a, double b) { return b >= a ? b : a; }
double min_func_impl(double a, double b) { return b >= a ? a : b; }
double floor_func_impl(double a) { return std::floor(a); }

// Recursive descent over the grammar of the header. Every rule either matches, writes
// its value and leaves the position after what it consumed, or fails and leaves the
// position where it found it: a failed alternative or tail leaves nothing behind.
class calculator {
public:
    calculator(const std::string& text, const FormulaVariables& variables)
        : text(text), variables(variables) {}

    // Leading white space, then an expression.
    bool Top(double& value) {
        SkipBlanks();
        return Expression(value);
    }

    std::size_t Position() const { return at; }

private:
    bool Expression(double& value) {
        double result;
        if (!Term(result)) return false;
        for (;;) {
            const std::size_t before = at;
            const char op = NextToken();
            if (op != '+' && op != '-' && op != '$' && op != '#') {
                at = before;
                break;
            }
            ++at;
            double operand;
            if (!Term(operand)) {
                at = before;  // the operator stays unconsumed
                break;
            }
            switch (op) {
                case '+': result = result + operand; break;
                case '-': result = result - operand; break;
                case '$': result = max_func_impl(result, operand); break;
                default: result = min_func_impl(result, operand); break;
            }
        }
        value = result;
        return true;
    }

    bool Term(double& value) {
        double result;
        if (!Factor(result)) return false;
        for (;;) {
            const std::size_t before = at;
            const char op = NextToken();
            if (op != '*' && op != '/') {
                at = before;
                break;
            }
            ++at;
            double operand;
            if (!Factor(operand)) {
                at = before;
                break;
            }
            result = op == '*' ? result * operand : result / operand;
        }
        value = result;
        return true;
    }

    bool Factor(double& value) {
        const std::size_t before = at;
        if (depth == kFormulaDepth) return false;
        struct Nested {
            explicit Nested(int& counter) : depth(++counter) {}
            ~Nested() { --depth; }
            int& depth;
        } nested(depth);
        const char c = NextToken();
        if (Number(value) || Variable(value)) return true;
        double inner;
        if (c == '(') {
            ++at;
            if (Expression(inner) && NextToken() == ')') {
                ++at;
                value = inner;
                return true;
            }
        } else if (c == '-' || c == '+' || c == '@') {
            ++at;
            if (Factor(inner)) {
                value = c == '-' ? -inner : c == '@' ? floor_func_impl(inner) : inner;
                return true;
            }
        }
        at = before;
        return false;
    }

    // The number lexeme at the position, with no white space inside.
    bool Number(double& value) {
        std::size_t p = at;
        const bool negative = p < text.size() && text[p] == '-';
        if (p < text.size() && (text[p] == '-' || text[p] == '+')) ++p;
        double integer = 0.0;
        const std::size_t integerStart = p;
        for (; p < text.size() && IsDigit(text[p]); ++p) integer = 10.0 * integer + (text[p] - '0');
        bool anyDigit = p > integerStart;
        double fraction = 0.0;
        double fractionDigits = 0.0;
        if (p < text.size() && text[p] == '.') {
            std::size_t q = p + 1;
            for (; q < text.size() && IsDigit(text[q]); ++q) {
                fraction = 10.0 * fraction + (text[q] - '0');
                fractionDigits += 1.0;
            }
            anyDigit = anyDigit || q > p + 1;
            if (anyDigit) p = q;
        }
        if (!anyDigit) return false;
        const double scaled = fraction * std::pow(10.0, -fractionDigits);
        double mantissa = negative ? -integer - scaled : integer + scaled;
        if (p < text.size() && (text[p] == 'e' || text[p] == 'E')) {
            std::size_t q = p + 1;
            const bool negativeExponent = q < text.size() && text[q] == '-';
            if (q < text.size() && (text[q] == '-' || text[q] == '+')) ++q;
            const std::size_t exponentStart = q;
            double exponent = 0.0;
            for (; q < text.size() && IsDigit(text[q]); ++q) exponent = 10.0 * exponent + (text[q] - '0');
            if (q == exponentStart) return false;  // a marker without digits: no number at all
            mantissa *= std::pow(10.0, negativeExponent ? -exponent : exponent);
            p = q;
        }
        value = mantissa;
        at = p;
        return true;
    }

    // The longest registered name that is a prefix of the rest of the text.
    bool Variable(double& value) {
        const std::size_t rest = text.size() - at;
        std::size_t bestLength = 0;
        std::size_t bestIndex = 0;
        for (std::size_t i = 0; i < variables.Count(); ++i) {
            const std::string& name = variables.Name(i);
            if (name.size() > bestLength && name.size() <= rest && text.compare(at, name.size(), name) == 0) {
                bestLength = name.size();
                bestIndex = i;
            }
        }
        if (bestLength == 0) return false;
        value = static_cast<double>(variables.Value(bestIndex));
        at += bestLength;
        return true;
    }

    void SkipBlanks() {
        while (at < text.size() && IsBlank(text[at])) ++at;
    }

    // Skips white space and shows the next character ('\0' at the end) without consuming it.
    char NextToken() {
        SkipBlanks();
        return at < text.size() ? text[at] : '\0';
    }

    const std::string& text;
    const FormulaVariables& variables;
    std::size_t at = 0;
    int depth = 0;  // factors open around the position
};

// The string members whose formulas are being evaluated on this thread, innermost last.
thread_local std::vector<const std::string*> formulasInProgress;

}  // namespace

float EvaluateFormula(const std::string& formula, const FormulaVariables& variables) {
    calculator parser(formula, variables);
    double result = 0.0;
    const bool matched = parser.Top(result);
    if (!(matched && parser.Position() == formula.size()) && !formula.empty()) {
        LogInfo("error parsing \"", formula, "\" at ", parser.Position());
    }
    return static_cast<float>(result);
}

float EvaluateFormulaVariable(const std::string& formula, const FormulaVariables& variables) {
    if (std::find(formulasInProgress.begin(), formulasInProgress.end(), &formula) != formulasInProgress.end()) {
        return 0.0f;
    }
    struct InProgress {
        explicit InProgress(const std::string* member) { formulasInProgress.push_back(member); }
        ~InProgress() { formulasInProgress.pop_back(); }
        InProgress(const InProgress&) = delete;
        InProgress& operator=(const InProgress&) = delete;
    } inProgress(&formula);
    return EvaluateFormula(formula, variables);
}

}  // namespace detail
}  // namespace orvane
