#include "calibration/Median7x7.h"

#include "tools/VectorClones.h"

#include <algorithm>
#include <cstring>

namespace orvane {
namespace detail {

namespace {

constexpr int kLanes = 8;
// Eight floats as one value: GCC and clang turn its operators into vector
// instructions, two SSE halves on the baseline, one AVX register with AVX2.
typedef float Lanes __attribute__((vector_size(kLanes * sizeof(float))));
constexpr int kValues = 49;
constexpr int kKept = kValues / 2 + 2;  // a set this large always holds a median

// lo, hi = min, max of the pair, lane by lane.
inline void Order(Lanes& lo, Lanes& hi) {
    const Lanes a = lo;
    const Lanes b = hi;
    const auto less = b < a;
    lo = less ? b : a;
    hi = less ? a : b;
}

// Forgetful selection: of a set of n / 2 + 2 values out of n, neither the smallest
// nor the largest can be the median of the n, so both are dropped and the next value
// joins; the median of n - 2 values is that of the n. At n = 3 it is the middle one.
inline void MedianOfBlock(const Lanes (&window)[kValues], Lanes& median) {
    Lanes set[kKept];
    std::copy(window, window + kKept, set);
    int size = kKept;
    for (int next = kKept; next < kValues; ++next) {
        for (int i = 1; i < size; ++i) Order(set[0], set[i]);
        for (int i = 1; i < size - 1; ++i) Order(set[i], set[size - 1]);
        set[0] = window[next];  // replaces the smallest
        --size;                 // drops the largest
    }
    Order(set[0], set[1]);
    Order(set[1], set[2]);
    Order(set[0], set[1]);
    median = set[1];
}

}  // namespace

ORVANE_VECTOR_CLONES
void Median7x7(const float* const rows[7], int first, int count, float* medians) {
    Lanes window[kValues];
    for (int j = 0; j < count; j += kLanes) {
        const int lanes = std::min(kLanes, count - j);
        for (int r = 0; r < 7; ++r) {
            for (int dx = 0; dx < 7; ++dx) {
                const float* source = rows[r] + first + j + dx - 3;
                Lanes& values = window[r * 7 + dx];
                if (lanes == kLanes) {
                    std::memcpy(&values, source, sizeof values);
                } else {
                    for (int l = 0; l < kLanes; ++l) values[l] = source[l < lanes ? l : 0];
                }
            }
        }
        Lanes block;
        MedianOfBlock(window, block);
        for (int l = 0; l < lanes; ++l) medians[j + l] = block[l];
    }
}

}  // namespace detail
}  // namespace orvane
