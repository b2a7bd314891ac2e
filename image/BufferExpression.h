#ifndef ORVANE_IMAGE_BUFFEREXPRESSION_H
#define ORVANE_IMAGE_BUFFEREXPRESSION_H

// The element-wise expression engine behind ImageBuffer<T>.
//
// An expression is a small tree of value types built by the operators below and
// evaluated in one pass when it is assigned to a target buffer:
//  - the pass covers the smallest size among the target and every buffer operand;
//    the rest of the target keeps its values (a size mismatch is no error);
//  - every floating operator takes its operands as double, computes in double and
//    rounds its result to float, so inner nodes have float values;
//  - a float target stores the outermost result as float; an integer target gets
//    the outermost double truncated toward zero and keeps its low bits (no
//    saturation), unless the expression is Saturate. The truncation goes through a
//    32-bit integer: NaN, infinities and values beyond the 32-bit range store 0;
//  - a sum of two integer buffers stays in integer arithmetic.
// Scalars are floats. Comparisons with NaN are false.
//
// Every operand is a float or an integer exact in float, and double carries more
// than twice float's precision, so rounding a double +, -, * or / to float gives
// the correctly rounded float operation: nodes whose value is rounded to float
// compute in float (Operand), and only the outermost node of an integer target
// computes in double (Evaluate). Both give the results of the rules above, bit for
// bit, and float lanes vectorise. Floating contraction (fused multiply-add) would
// break the rounding per operator: the library builds with -ffp-contract=off, and a
// host that evaluates expressions in its own code should too.

#include <algorithm>
#include <climits>
#include <cstdint>
#include <limits>
#include <type_traits>

template <typename T>
struct ImageBuffer;

namespace orvane {
namespace detail {

template <typename T>
struct BufferOperand {
    using Value = T;
    const T* data;
    int count;
    int Size() const { return count; }
    T Evaluate(int i) const { return data[i]; }
    T Operand(int i) const { return data[i]; }
};

struct ScalarOperand {
    float value;
    int Size() const { return INT_MAX; }
    float Evaluate(int) const { return value; }
    float Operand(int) const { return value; }
};

// A floating node: Evaluate gives the unrounded double, Operand the float that an
// enclosing operator (or a float target) sees; Apply computes in either type.
template <typename Node>
struct FloatingNode {
    double Evaluate(int i) const { return static_cast<const Node&>(*this).template Apply<double>(i); }
    float Operand(int i) const { return static_cast<const Node&>(*this).template Apply<float>(i); }
};

struct Plus { template <typename F> static F Apply(F a, F b) { return a + b; } };
struct Minus { template <typename F> static F Apply(F a, F b) { return a - b; } };
struct Times { template <typename F> static F Apply(F a, F b) { return a * b; } };
struct Divided { template <typename F> static F Apply(F a, F b) { return a / b; } };

template <typename Op, typename L, typename R>
struct BinaryNode : FloatingNode<BinaryNode<Op, L, R>> {
    L left;
    R right;
    BinaryNode(const L& l, const R& r) : left(l), right(r) {}
    int Size() const { return std::min(left.Size(), right.Size()); }
    template <typename F>
    F Apply(int i) const {
        return Op::Apply(static_cast<F>(left.Operand(i)), static_cast<F>(right.Operand(i)));
    }
};

// Sum of two integer buffers, exact in 64-bit integers.
template <typename A, typename B>
struct IntegerSum {
    BufferOperand<A> left;
    BufferOperand<B> right;
    int Size() const { return std::min(left.Size(), right.Size()); }
    std::int64_t Evaluate(int i) const {
        return static_cast<std::int64_t>(left.data[i]) + static_cast<std::int64_t>(right.data[i]);
    }
    std::int64_t Operand(int i) const { return Evaluate(i); }
};

// max(scalar, x); a NaN x passes through.
template <typename X>
struct MaxNode : FloatingNode<MaxNode<X>> {
    float low;
    X x;
    MaxNode(float l, const X& e) : low(l), x(e) {}
    int Size() const { return x.Size(); }
    template <typename F>
    F Apply(int i) const {
        const F v = static_cast<F>(x.Operand(i));
        return v < low ? static_cast<F>(low) : v;
    }
};

// The three band rules of an element x against [low, high]:
// Clamp: x clamped into the band (a NaN x passes through);
// Outside: 1.0 where x < low or x > high (strictly outside), else 0.0;
// AtOrBeyond: 1.0 where x <= low or x >= high (bounds included), else 0.0.
struct ClampRule {
    template <typename F> static F Apply(F v, F low, F high) { return v < low ? low : (v > high ? high : v); }
};
struct OutsideRule {
    template <typename F> static F Apply(F v, F low, F high) { return (v < low || v > high) ? F(1) : F(0); }
};
struct AtOrBeyondRule {
    template <typename F> static F Apply(F v, F low, F high) { return (v <= low || v >= high) ? F(1) : F(0); }
};

template <typename Rule, typename X>
struct BandNode : FloatingNode<BandNode<Rule, X>> {
    float low, high;
    X x;
    BandNode(float l, float h, const X& e) : low(l), high(h), x(e) {}
    int Size() const { return x.Size(); }
    template <typename F>
    F Apply(int i) const {
        return Rule::Apply(static_cast<F>(x.Operand(i)), static_cast<F>(low), static_cast<F>(high));
    }
};

// The one saturating conversion into an integer target: <= min gives min,
// >= max gives max, NaN gives 0, anything else is truncated.
template <typename T, typename X>
struct SaturateNode {
    X x;
    int Size() const { return x.Size(); }
    double Evaluate(int i) const {
        const double v = static_cast<double>(x.Operand(i));
        constexpr double lowest = static_cast<double>(std::numeric_limits<T>::min());
        constexpr double highest = static_cast<double>(std::numeric_limits<T>::max());
        if (v <= lowest) return lowest;
        if (v >= highest) return highest;
        return v == v ? v : 0.0;
    }
    double Operand(int i) const { return Evaluate(i); }
};

// What an operand of an expression becomes: buffers are read in place, arithmetic
// values become float scalars, nodes are kept as they are.
template <typename X, typename = void>
struct OperandOf {};

template <typename T>
struct OperandOf<ImageBuffer<T>> {
    using Type = BufferOperand<T>;
    static Type Make(const ImageBuffer<T>& b) { return Type{b.data, b.size}; }
};

template <typename X>
struct OperandOf<X, std::enable_if_t<std::is_arithmetic<X>::value>> {
    using Type = ScalarOperand;
    static Type Make(X v) { return Type{static_cast<float>(v)}; }
};

template <typename X>
struct IsNode : std::false_type {};
template <typename Op, typename L, typename R>
struct IsNode<BinaryNode<Op, L, R>> : std::true_type {};
template <typename A, typename B>
struct IsNode<IntegerSum<A, B>> : std::true_type {};
template <typename X>
struct IsNode<MaxNode<X>> : std::true_type {};
template <typename Rule, typename X>
struct IsNode<BandNode<Rule, X>> : std::true_type {};
template <typename T, typename X>
struct IsNode<SaturateNode<T, X>> : std::true_type {};

template <typename X>
struct OperandOf<X, std::enable_if_t<IsNode<X>::value>> {
    using Type = X;
    static const X& Make(const X& x) { return x; }
};

template <typename X>
struct IsBufferOrNode : IsNode<X> {};
template <typename T>
struct IsBufferOrNode<ImageBuffer<T>> : std::true_type {};

template <typename X>
using Operand = typename OperandOf<std::decay_t<X>>::Type;

template <typename X>
Operand<X> MakeOperand(const X& x) {
    return OperandOf<std::decay_t<X>>::Make(x);
}

// An operator applies when both sides are operands and one of them is a buffer or
// a node, so plain numbers keep their own arithmetic.
template <typename L, typename R>
using EnableBinary =
    std::enable_if_t<(IsBufferOrNode<std::decay_t<L>>::value ||
                      IsBufferOrNode<std::decay_t<R>>::value) &&
                         sizeof(Operand<L>) != 0 && sizeof(Operand<R>) != 0,
                     int>;

template <typename L, typename R, EnableBinary<L, R> = 0>
BinaryNode<Plus, Operand<L>, Operand<R>> operator+(const L& l, const R& r) {
    return {MakeOperand(l), MakeOperand(r)};
}

template <typename A, typename B,
          std::enable_if_t<std::is_integral<A>::value && std::is_integral<B>::value, int> = 0>
IntegerSum<A, B> operator+(const ImageBuffer<A>& l, const ImageBuffer<B>& r) {
    return {MakeOperand(l), MakeOperand(r)};
}

template <typename L, typename R, EnableBinary<L, R> = 0>
BinaryNode<Minus, Operand<L>, Operand<R>> operator-(const L& l, const R& r) {
    return {MakeOperand(l), MakeOperand(r)};
}

template <typename L, typename R, EnableBinary<L, R> = 0>
BinaryNode<Times, Operand<L>, Operand<R>> operator*(const L& l, const R& r) {
    return {MakeOperand(l), MakeOperand(r)};
}

template <typename L, typename R, EnableBinary<L, R> = 0>
BinaryNode<Divided, Operand<L>, Operand<R>> operator/(const L& l, const R& r) {
    return {MakeOperand(l), MakeOperand(r)};
}

// The value stored into a target element of type T from an evaluated value v.
template <typename T, typename V>
inline T Store(V v) {
    if constexpr (std::is_integral<V>::value || std::is_floating_point<T>::value) {
        return static_cast<T>(v);  // integer sources keep their low bits
    } else {
        // Truncate toward zero through 32 bits and keep the low bits; what has no
        // 32-bit value (NaN, infinities, beyond the range) stores 0.
        const double d = static_cast<double>(v);
        const bool inRange = d > -2147483649.0 && d < 2147483648.0;
        const std::int32_t truncated = static_cast<std::int32_t>(inRange ? d : 0.0);
        return static_cast<T>(static_cast<std::uint32_t>(truncated));
    }
}

template <typename T, typename E>
void Evaluate(T* target, int targetSize, const E& expression) {
    const int n = std::min(targetSize, expression.Size());
    if constexpr (std::is_floating_point<T>::value) {
        for (int i = 0; i < n; ++i) {
            target[i] = static_cast<T>(expression.Operand(i));
        }
    } else {
        for (int i = 0; i < n; ++i) {
            target[i] = Store<T>(expression.Evaluate(i));
        }
    }
}

}  // namespace detail

// max(low, x) per element.
template <typename X>
detail::MaxNode<detail::Operand<X>> Max(float low, const X& x) {
    return {low, detail::MakeOperand(x)};
}

// x clamped to [low, high] per element.
template <typename X>
detail::BandNode<detail::ClampRule, detail::Operand<X>> Clamp(const X& x, float low, float high) {
    return {low, high, detail::MakeOperand(x)};
}

// 1.0 where x lies outside [low, high], else 0.0: target += Outside(...) counts.
template <typename X>
detail::BandNode<detail::OutsideRule, detail::Operand<X>> Outside(const X& x, float low, float high) {
    return {low, high, detail::MakeOperand(x)};
}

// 1.0 where x <= low or x >= high, else 0.0.
template <typename X>
detail::BandNode<detail::AtOrBeyondRule, detail::Operand<X>> AtOrBeyond(const X& x, float low, float high) {
    return {low, high, detail::MakeOperand(x)};
}

// The saturating conversion into the range of the integer type T.
template <typename T, typename X>
detail::SaturateNode<T, detail::Operand<X>> Saturate(const X& x) {
    return {detail::MakeOperand(x)};
}

}  // namespace orvane

#endif
