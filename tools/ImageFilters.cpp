#include "tools/ImageFilters.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvane {
namespace detail {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

std::string SizeText(const ImagePtr<float>& image) {
    return std::to_string(image->GetWidth()) + "x" + std::to_string(image->GetHeight());
}

void CheckImages(const char* filter, const ImagePtr<float>& source, const ImagePtr<float>& target) {
    if (!source || !target) {
        throw std::invalid_argument(std::string(filter) + ": null image");
    }
    if (source->GetWidth() != target->GetWidth() || source->GetHeight() != target->GetHeight()) {
        throw std::invalid_argument(std::string(filter) + ": source " + SizeText(source) +
                                    " and target " + SizeText(target) + " differ in size");
    }
}

void CheckWindow(const char* filter, int size) {
    if (size < 1) {
        throw std::invalid_argument(std::string(filter) + ": window size " + std::to_string(size) +
                                    " is below 1");
    }
}

void CheckElement(const char* filter, const float* element, int columns, int rows) {
    if (element == nullptr) {
        throw std::invalid_argument(std::string(filter) + ": null structuring element");
    }
    if (columns < 1 || rows < 1) {
        throw std::invalid_argument(std::string(filter) + ": structuring element of " +
                                    std::to_string(columns) + " columns and " +
                                    std::to_string(rows) + " rows");
    }
}

// The samples of a row window: `before` samples left of x, x itself and `after`
// right of it, each count limited to the row so that x + after cannot overflow.
struct Window {
    int before;
    int after;
    Window(int size, int rowLength)
        : before(std::min(size / 2, rowLength)), after(std::min(size - 1 - size / 2, rowLength)) {}
};

// Slides a window along each row of `source`: Add and Remove are called on the
// filter state for the samples that enter and leave, Replace when one enters as one
// leaves, and Result gives target(x, y). A row aliased by the target is read from a
// copy.
template <typename State>
void SlideAlongRows(const ImagePtr<float>& source, const Window& window, State& state,
                    const ImagePtr<float>& target) {
    const int width = source->GetWidth();
    const bool aliased = source == target;
    std::vector<float> rowCopy(aliased ? static_cast<size_t>(width) : 0);
    for (int y = 0; y < source->GetHeight(); ++y) {
        const float* in = source->GetData() + static_cast<long>(y) * width;
        float* out = target->GetData() + static_cast<long>(y) * width;
        if (aliased) {
            std::copy(in, in + width, rowCopy.data());
            in = rowCopy.data();
        }
        state.Reset();
        for (int x = 0; x < std::min(window.after, width); ++x) {
            state.Add(in[x]);
        }
        for (int x = 0; x < width; ++x) {
            const int entering = x + window.after;
            const int leaving = x - window.before - 1;
            if (entering < width && leaving >= 0) {
                state.Replace(in[leaving], in[entering]);
            } else if (entering < width) {
                state.Add(in[entering]);
            } else if (leaving >= 0) {
                state.Remove(in[leaving]);
            }
            out[x] = state.Result();
        }
    }
}

// Unsigned keys that order floats as numbers, with -0.0 below +0.0, so that equal
// keys are equal bit patterns.
inline std::uint32_t OrderKey(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return (bits & 0x80000000u) != 0 ? ~bits : (bits | 0x80000000u);
}

inline float FromOrderKey(std::uint32_t key) {
    const std::uint32_t bits = (key & 0x80000000u) != 0 ? (key & 0x7fffffffu) : ~key;
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// The non-NaN samples of the window as a sorted array of keys. A leaving sample's
// key is found by a binary search without data-dependent branches, and the hole it
// leaves slides to the entering key's place, one shift per key passed.
class SortedWindow {
public:
    explicit SortedWindow(int capacity) : keys(static_cast<size_t>(capacity) + 1) {}

    void Reset() { count = 0; }

    void Add(float value) {
        if (std::isnan(value)) return;
        ++count;
        Fill(count - 1, OrderKey(value));
    }

    void Remove(float value) {
        if (std::isnan(value)) return;
        std::uint32_t* k = keys.data();
        for (long i = Find(OrderKey(value)); i + 1 < count; ++i) k[i] = k[i + 1];
        --count;
    }

    void Replace(float leaving, float entering) {
        if (std::isnan(leaving) || std::isnan(entering)) {
            Remove(leaving);
            Add(entering);
            return;
        }
        Fill(Find(OrderKey(leaving)), OrderKey(entering));
    }

    float Result() const { return count == 0 ? kNaN : FromOrderKey(keys[static_cast<size_t>((count - 1) / 2)]); }

private:
    // The index of the first key not below `key`: the leaving sample's own place.
    long Find(std::uint32_t key) const {
        const std::uint32_t* base = keys.data();
        for (long n = count; n > 1;) {
            const long half = n / 2;
            base = base[half] < key ? base + half : base;
            n -= half;
        }
        return (base - keys.data()) + (*base < key ? 1 : 0);
    }

    // Moves the free slot at `hole` to where `key` belongs among the count slots, and
    // puts `key` there.
    void Fill(long hole, std::uint32_t key) {
        std::uint32_t* k = keys.data();
        for (; hole + 1 < count && k[hole + 1] < key; ++hole) k[hole] = k[hole + 1];
        for (; hole > 0 && k[hole - 1] > key; --hole) k[hole] = k[hole - 1];
        k[hole] = key;
    }

    std::vector<std::uint32_t> keys;
    long count = 0;
};

// The running sum of the window's finite samples and the counts of its infinities.
class RunningMean {
public:
    void Reset() {
        sum = 0.0;
        finite = positiveInfinite = negativeInfinite = 0;
    }

    void Add(float value) { Count(value, 1); }
    void Remove(float value) { Count(value, -1); }
    void Replace(float leaving, float entering) {
        Count(leaving, -1);
        Count(entering, 1);
    }

    float Result() const {
        if (positiveInfinite > 0 && negativeInfinite > 0) return kNaN;
        if (positiveInfinite > 0) return std::numeric_limits<float>::infinity();
        if (negativeInfinite > 0) return -std::numeric_limits<float>::infinity();
        if (finite == 0) return kNaN;
        return static_cast<float>(sum / finite);
    }

private:
    void Count(float value, int sign) {
        if (std::isnan(value)) return;
        if (std::isinf(value)) {
            (value > 0 ? positiveInfinite : negativeInfinite) += sign;
            return;
        }
        sum += sign > 0 ? static_cast<double>(value) : -static_cast<double>(value);
        finite += sign;
        if (finite == 0) sum = 0.0;  // no rounding residue outlives the samples
    }

    double sum = 0.0;
    int finite = 0;
    int positiveInfinite = 0;
    int negativeInfinite = 0;
};

// One grey-level erosion (Erode true) or dilation of `in` into `out`, which must be
// different images of one size. Each term is in(x + sx, y + sy) - c, with c = b for
// the erosion and -b, shift reversed, for the dilation; the origin's term starts
// every pixel, and each other element position is one flat pass over the rows in
// which its shifted position lies inside the image.
template <bool Erode>
void Morphology(const ImageAcquisition<float>& in, const float* element, int columns, int rows,
                ImageAcquisition<float>& out) {
    const int width = in.GetWidth();
    const int height = in.GetHeight();
    const int originX = columns / 2;
    const int originY = rows / 2;
    const auto term = [&](int i, int j) {
        const float b = element[j * columns + i];
        return Erode ? b : -b;
    };
    *out.GetBuffer() = *in.GetBuffer() - term(originX, originY);
    for (int j = 0; j < rows; ++j) {
        for (int i = 0; i < columns; ++i) {
            if (i == originX && j == originY) continue;
            const float c = term(i, j);
            const int sx = Erode ? i - originX : originX - i;
            const int sy = Erode ? j - originY : originY - j;
            const int x0 = std::max(0, -sx), x1 = std::min(width, width - sx);
            const int y0 = std::max(0, -sy), y1 = std::min(height, height - sy);
            for (int y = y0; y < y1; ++y) {
                const float* shifted = in.GetData() + static_cast<long>(y + sy) * width + sx;
                float* result = out.GetData() + static_cast<long>(y) * width;
                for (int x = x0; x < x1; ++x) {
                    const float v = shifted[x] - c;
                    const float r = result[x];
                    // NaN terms never win; a NaN so far gives way to any term.
                    result[x] = ((Erode ? v < r : v > r) || r != r) ? v : r;
                }
            }
        }
    }
}

ImagePtr<float> ScratchLike(const ImagePtr<float>& image) {
    return boost::make_shared<ImageAcquisition<float>>(image->GetWidth(), image->GetHeight());
}

}  // namespace
}  // namespace detail
}  // namespace orvane

void ApplyMedianFilter(const ImagePtr<float>& source, int size, const ImagePtr<float>& target) {
    using namespace orvane::detail;
    CheckImages("ApplyMedianFilter", source, target);
    CheckWindow("ApplyMedianFilter", size);
    const Window window(size, source->GetWidth());
    SortedWindow state(std::min(size, source->GetWidth()));
    SlideAlongRows(source, window, state, target);
}

void ApplyAverageFilter(const ImagePtr<float>& source, int size, const ImagePtr<float>& target) {
    using namespace orvane::detail;
    CheckImages("ApplyAverageFilter", source, target);
    CheckWindow("ApplyAverageFilter", size);
    RunningMean state;
    SlideAlongRows(source, Window(size, source->GetWidth()), state, target);
}

void ApplyThreshold(const ImagePtr<float>& source, float threshold, const ImagePtr<float>& target) {
    orvane::detail::CheckImages("ApplyThreshold", source, target);
    // A NaN lower bound is never reached, so only source >= threshold counts.
    *target->GetBuffer() = orvane::AtOrBeyond(*source->GetBuffer(), orvane::detail::kNaN, threshold);
}

void ApplyErodeFilter(const ImagePtr<float>& source, float* const element, int columns, int rows,
                      const ImagePtr<float>& target) {
    using namespace orvane::detail;
    CheckImages("ApplyErodeFilter", source, target);
    CheckElement("ApplyErodeFilter", element, columns, rows);
    ImagePtr<float> input = source;
    if (source == target) {
        input = ScratchLike(source);
        *input->GetBuffer() = *source->GetBuffer();
    }
    Morphology<true>(*input, element, columns, rows, *target);
}

void ApplyOpenFilter(const ImagePtr<float>& source, float* const element, int columns, int rows,
                     const ImagePtr<float>& target) {
    using namespace orvane::detail;
    CheckImages("ApplyOpenFilter", source, target);
    CheckElement("ApplyOpenFilter", element, columns, rows);
    const ImagePtr<float> eroded = ScratchLike(source);
    Morphology<true>(*source, element, columns, rows, *eroded);
    Morphology<false>(*eroded, element, columns, rows, *target);
}

void ApplyCloseFilter(const ImagePtr<float>& source, float* const element, int columns, int rows,
                      const ImagePtr<float>& target) {
    using namespace orvane::detail;
    CheckImages("ApplyCloseFilter", source, target);
    CheckElement("ApplyCloseFilter", element, columns, rows);
    const ImagePtr<float> dilated = ScratchLike(source);
    Morphology<false>(*source, element, columns, rows, *dilated);
    Morphology<true>(*dilated, element, columns, rows, *target);
}

void InterpolateFromSide(const ImagePtr<float>& source, const ImagePtr<float>& target,
                         boost::logic::tribool side) {
    orvane::detail::CheckImages("InterpolateFromSide", source, target);
    if (source != target) {
        *target->GetBuffer() = *source->GetBuffer();
    }
    const int width = target->GetWidth();
    for (int y = 0; y < target->GetHeight(); ++y) {
        float* row = target->GetData() + static_cast<long>(y) * width;
        int x = 0;
        while (x < width) {
            if (std::isfinite(row[x])) {
                ++x;
                continue;
            }
            const int first = x;  // the run of non-finite pixels is [first, x)
            while (x < width && !std::isfinite(row[x])) ++x;
            const bool hasLeft = first > 0;
            const bool hasRight = x < width;
            if (!hasLeft && !hasRight) continue;
            const float left = hasLeft ? row[first - 1] : 0.0f;
            const float right = hasRight ? row[x] : 0.0f;
            for (int k = first; k < x; ++k) {
                bool fromLeft;
                if (!hasRight || !hasLeft) {
                    fromLeft = hasLeft;
                } else if (side) {
                    fromLeft = true;
                } else if (!side) {
                    fromLeft = false;
                } else {
                    fromLeft = k - (first - 1) <= x - k;
                }
                row[k] = fromLeft ? left : right;
            }
        }
    }
}

float* Pixel(float* data, int stride, int x, int y) {
    if (data == nullptr) {
        throw std::invalid_argument("Pixel: null data");
    }
    if (x < 0 || x >= stride || y < 0) {
        throw std::invalid_argument("Pixel: (" + std::to_string(x) + ", " + std::to_string(y) +
                                    ") lies outside rows of " + std::to_string(stride) + " pixels");
    }
    return data + static_cast<long>(y) * stride + x;
}
