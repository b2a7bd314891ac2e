#ifndef ORVANE_IMAGE_PIXELSTORAGE_H
#define ORVANE_IMAGE_PIXELSTORAGE_H

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

namespace orvane {
namespace detail {

// Memory for many pixels, uninitialised. Blocks of 4 MiB and more are aligned to
// 2 MiB and advised to the kernel as huge-page memory: a fresh full frame then costs
// a few page faults instead of thousands, and the first touch of each 4 KiB page is
// what a fresh frame costs most (about 10 us a page in a virtual machine, against
// 3 us a MiB to fill it). Released with std::free.
inline void* AllocatePixelBytes(std::size_t bytes) {
    constexpr std::size_t hugePage = std::size_t(2) << 20;
    void* block = nullptr;
    if (bytes >= 2 * hugePage) {
        const std::size_t rounded = (bytes + hugePage - 1) / hugePage * hugePage;
        block = std::aligned_alloc(hugePage, rounded);
#ifdef MADV_HUGEPAGE
        if (block) {
            madvise(block, rounded, MADV_HUGEPAGE);  // advice only: a refusal changes nothing
        }
#endif
    } else {
        block = std::malloc(bytes > 0 ? bytes : 1);
    }
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

struct FreePixels {
    void operator()(void* block) const { std::free(block); }
};

template <typename T>
using PixelArray = std::unique_ptr<T[], FreePixels>;

// `count` pixels of a plain type, uninitialised.
template <typename T>
PixelArray<T> AllocatePixels(std::size_t count) {
    static_assert(std::is_trivial<T>::value, "pixels are plain values");
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
        throw std::bad_alloc();
    }
    return PixelArray<T>(static_cast<T*>(AllocatePixelBytes(count * sizeof(T))));
}

// The same memory for standard containers: PixelVector<float> is a std::vector whose
// large blocks come from AllocatePixelBytes.
template <typename T>
struct PixelAllocator {
    using value_type = T;
    PixelAllocator() = default;
    template <typename U>
    PixelAllocator(const PixelAllocator<U>&) {}
    T* allocate(std::size_t count) {
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(AllocatePixelBytes(count * sizeof(T)));
    }
    void deallocate(T* block, std::size_t) { std::free(block); }
    friend bool operator==(const PixelAllocator&, const PixelAllocator&) { return true; }
    friend bool operator!=(const PixelAllocator&, const PixelAllocator&) { return false; }
};

template <typename T>
using PixelVector = std::vector<T, PixelAllocator<T>>;

}  // namespace detail
}  // namespace orvane

#endif
