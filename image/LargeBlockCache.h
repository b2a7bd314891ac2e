#ifndef ORVANE_IMAGE_LARGEBLOCKCACHE_H
#define ORVANE_IMAGE_LARGEBLOCKCACHE_H

#include <cstddef>
#include <cstdlib>
#include <mutex>
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

}  // namespace detail
}  // namespace orvane

#endif
