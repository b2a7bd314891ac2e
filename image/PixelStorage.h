#ifndef ORVANE_IMAGE_PIXELSTORAGE_H
#define ORVANE_IMAGE_PIXELSTORAGE_H

#include "image/LargeBlockCache.h"

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

constexpr std::size_t kHugePage = std::size_t(2) << 20;

// The bytes a block of `bytes` takes: large blocks are whole huge pages.
inline std::size_t PixelBlockBytes(std::size_t bytes) {
    if (bytes < 2 * kHugePage) return bytes > 0 ? bytes : 1;
    return (bytes + kHugePage - 1) / kHugePage * kHugePage;
}

// Memory for many pixels, uninitialised; released with ReleasePixelBytes and the same
// `bytes`. Blocks of 4 MiB and more are aligned to 2 MiB and advised to the kernel as
// huge-page memory: a fresh full frame then costs a few page faults instead of
// thousands, and the first touch of each 4 KiB page is what a fresh frame costs most
// (about 10 us a page in a virtual machine, against 3 us a MiB to fill it). They are
// reused through LargeBlockCache.
inline void* AllocatePixelBytes(std::size_t bytes) {
    const std::size_t rounded = PixelBlockBytes(bytes);
    void* block = nullptr;
    if (rounded >= 2 * kHugePage) {
        block = LargeBlockCache::Instance().Take(rounded);
        if (block) return block;
        block = std::aligned_alloc(kHugePage, rounded);
#ifdef MADV_HUGEPAGE
        if (block) {
            madvise(block, rounded, MADV_HUGEPAGE);  // advice only: a refusal changes nothing
        }
#endif
    } else {
        block = std::malloc(rounded);
    }
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

inline void ReleasePixelBytes(void* block, std::size_t bytes) {
    if (!block) return;
    const std::size_t rounded = PixelBlockBytes(bytes);
    if (rounded >= 2 * kHugePage) {
        LargeBlockCache::Instance().Keep(block, rounded);
    } else {
        std::free(block);
    }
}

// Releases a block of pixels of `bytes` bytes.
struct FreePixels {
    std::size_t bytes = 0;
    void operator()(void* block) const { ReleasePixelBytes(block, bytes); }
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
    return PixelArray<T>(static_cast<T*>(AllocatePixelBytes(count * sizeof(T))), FreePixels{count * sizeof(T)});
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
    void deallocate(T* block, std::size_t count) { ReleasePixelBytes(block, count * sizeof(T)); }
    friend bool operator==(const PixelAllocator&, const PixelAllocator&) { return true; }
    friend bool operator!=(const PixelAllocator&, const PixelAllocator&) { return false; }
};

template <typename T>
using PixelVector = std::vector<T, PixelAllocator<T>>;

}  // namespace detail
}  // namespace orvane

#endif
