#ifndef ORVANE_FUZZ_FRAMEBUFFER_H
#define ORVANE_FUZZ_FRAMEBUFFER_H

#include <cstddef>
#include <memory>

namespace orvane {
namespace fuzz {

// Room for exactly one frame, so that a reader writing past the frame is caught. Up
// to kHeapLimit bytes it is a heap block that AddressSanitizer watches on both sides;
// beyond, pages of their own whose last byte is the frame's last and after which a
// page that cannot be touched stands: a header may claim a large frame, and its
// untouched pages then cost nothing.
class FrameBuffer {
public:
    static constexpr std::size_t kHeapLimit = std::size_t(16) << 20;

    explicit FrameBuffer(std::size_t bytes);
    ~FrameBuffer();
    FrameBuffer(const FrameBuffer&) = delete;
    FrameBuffer& operator=(const FrameBuffer&) = delete;

    void* Data() const { return data; }

private:
    std::unique_ptr<unsigned char[]> heap;
    void* mapping = nullptr;
    std::size_t mappedBytes = 0;
    void* data = nullptr;
};

}  // namespace fuzz
}  // namespace orvane

#endif
