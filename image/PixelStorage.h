#ifndef ORVANE_IMAGE_PIXELSTORAGE_H
#define ORVANE_IMAGE_PIXELSTORAGE_H

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <type_traits>
#include <vector>

namespace orvane {
namespace detail {

// Large blocks released by their last user and kept for the next one of the same
// size. A series reads frame after frame of one size; taking the last frame's block
// again saves faulting in and clearing fresh pages, which in a virtual machine costs
// more than the work done on them. At most kBlocks blocks and kBytes bytes are kept;
// past that the oldest goes back to the system.
class LargeBlockCache {
public:
    // Never destroyed: images released during exit still find it.
    static LargeBlockCache& Instance() {
        static LargeBlockCache* const cache = new LargeBlockCache();
        return *cache;
    }

    void* Take(std::size_t bytes) {
        std::lock_guard<std::mutex> lock(mutex);
        for (std::size_t i = blocks.size(); i-- > 0;) {
            if (blocks[i].bytes == bytes) {
                void* start = blocks[i].start;
                kept -= bytes;
                blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(i));
                return start;
            }
        }
        return nullptr;
    }

    void Keep(void* start, std::size_t bytes) {
        std::vector<void*> released;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (bytes <= kBytes) {
                blocks.push_back(Block{start, bytes});
                kept += bytes;
                start = nullptr;
            }
            while (blocks.size() > kBlocks || kept > kBytes) {
                released.push_back(blocks.front().start);
                kept -= blocks.front().bytes;
                blocks.erase(blocks.begin());
            }
        }
        std::free(start);
        for (void* block : released) std::free(block);
    }

private:
    static constexpr std::size_t kBlocks = 16;
    static constexpr std::size_t kBytes = std::size_t(512) << 20;
    struct Block {
        void* start;
        std::size_t bytes;
    };
    LargeBlockCache() = default;
    std::mutex mutex;
    std::vector<Block> blocks;  // oldest first
    std::size_t kept = 0;
};

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
