#include "fuzz/FrameBuffer.h"

#include <new>

#include <sys/mman.h>
#include <unistd.h>

namespace orvane {
namespace fuzz {

FrameBuffer::FrameBuffer(std::size_t bytes) {
    if (bytes <= kHeapLimit) {
        heap.reset(new unsigned char[bytes == 0 ? 1 : bytes]);
        data = heap.get();
        return;
    }
    const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
    const std::size_t framePages = (bytes + page - 1) / page;
    mappedBytes = (framePages + 1) * page;
    mapping = mmap(nullptr, mappedBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping == MAP_FAILED) {
        mapping = nullptr;
        throw std::bad_alloc();
    }
    unsigned char* const guard = static_cast<unsigned char*>(mapping) + framePages * page;
    mprotect(guard, page, PROT_NONE);
    data = guard - bytes;
}

FrameBuffer::~FrameBuffer() {
    if (mapping != nullptr) munmap(mapping, mappedBytes);
}

}  // namespace fuzz
}  // namespace orvane
