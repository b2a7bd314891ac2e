#include "tools/ImageFxdFile.h"

#include <boost/crc.hpp>

#if defined(__x86_64__) && defined(__GNUC__)
#include <nmmintrin.h>
#endif

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

using boost::property_tree::ptree;

namespace orvane {
namespace detail {

int FxdBytesPerPixel(int pixelType) {
    switch (pixelType) {
        case FxdPixelType<float>::code: return static_cast<int>(sizeof(float));
        case FxdPixelType<unsigned short>::code: return static_cast<int>(sizeof(unsigned short));
        case FxdPixelType<unsigned char>::code: return static_cast<int>(sizeof(unsigned char));
        default: return 0;
    }
}

namespace {

// CRC-32C: reflected, initial and final value all ones.
using Crc32c = boost::crc_optimal<32, 0x1EDC6F41, 0xFFFFFFFF, 0xFFFFFFFF, true, true>;

#if defined(__x86_64__) && defined(__GNUC__)
// The processor's crc32 instruction computes this very CRC, eight bytes a step: about
// twenty times Boost's table walk, which made the checksum a large part of writing a frame.
__attribute__((target("sse4.2"))) std::uint32_t Crc32cByInstruction(std::uint32_t state, const char* data,
                                                                     std::size_t size) {
    std::uint64_t crc = state;
    for (; size >= 8; data += 8, size -= 8) {
        std::uint64_t word;
        std::memcpy(&word, data, sizeof word);  // little-endian: the first byte is taken first
        crc = _mm_crc32_u64(crc, word);
    }
    auto tail = static_cast<std::uint32_t>(crc);
    for (; size > 0; ++data, --size) tail = _mm_crc32_u8(tail, static_cast<unsigned char>(*data));
    return tail;
}

bool HasCrc32cInstruction() {
    static const bool has = __builtin_cpu_supports("sse4.2");
    return has;
}
#endif

// The checksum of bytes given chunk after chunk.
class Crc32cOfChunks {
public:
    void Add(const char* data, std::size_t size) {
#if defined(__x86_64__) && defined(__GNUC__)
        if (instruction) {
            state = Crc32cByInstruction(state, data, size);
            return;
        }
#endif
        table.process_bytes(data, size);
    }
    std::uint32_t Checksum() const { return instruction ? state ^ 0xFFFFFFFFu : table.checksum(); }

private:
#if defined(__x86_64__) && defined(__GNUC__)
    bool instruction = HasCrc32cInstruction();
#else
    bool instruction = false;
#endif
    std::uint32_t state = 0xFFFFFFFFu;
    Crc32c table;
};

}  // namespace

std::uint32_t FxdFileChecksum(std::istream& stream) {
    Crc32cOfChunks crc;
    std::vector<char> chunk(std::size_t{1} << 20);
    stream.clear();
    stream.seekg(0, std::ios::beg);
    for (std::streamoff start = 0; stream; start += stream.gcount()) {
        stream.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        const std::streamoff count = stream.gcount();
        // The checksum field counts as zero, wherever the chunk boundaries fall.
        for (std::streamoff i = std::max<std::streamoff>(start, kFxdChecksumOffset);
             i < std::min<std::streamoff>(start + count, kFxdChecksumOffset + 4); ++i) {
            chunk[static_cast<std::size_t>(i - start)] = 0;
        }
        crc.Add(chunk.data(), static_cast<std::size_t>(count));
    }
    if (!stream.eof()) throw std::ios_base::failure("read error");
    stream.clear();
    return crc.Checksum();
}

}  // namespace detail
}  // namespace orvane

namespace {

static_assert(std::numeric_limits<float>::is_iec559 && sizeof(float) == 4,
              "frames of type float are stored as IEEE 754 single precision");
static_assert(sizeof(unsigned short) == 2, "frames of type unsigned short are 16-bit");

void AppendString(std::string& block, const std::string& text) {
    block += std::to_string(text.size());
    block += ':';
    block += text;
}

void AppendNodes(std::string& block, const ptree& tree, int depth) {
    for (const auto& child : tree) {
        block += std::to_string(depth);
        block += ' ';
        AppendString(block, child.first);
        block += ' ';
        AppendString(block, child.second.data());
        block += '\n';
        AppendNodes(block, child.second, depth + 1);
    }
}

std::string PropertyBlock(const std::map<int, ptree>& properties) {
    std::string block;
    for (const auto& entry : properties) {
        block += "frame ";
        block += std::to_string(entry.first);
        block += ' ';
        AppendString(block, entry.second.data());
        block += '\n';
        AppendNodes(block, entry.second, 1);
    }
    return block;
}

void PutInt32(char* target, std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    for (int i = 0; i < 4; ++i) {
        target[i] = static_cast<char>((bits >> (8 * i)) & 0xFFu);
    }
}

}  // namespace

ImageFxdFileOut::ImageFxdFileOut(const std::string& fileName) : fileName(fileName) {
    stream.exceptions(std::ios::failbit | std::ios::badbit);
}

ImageFxdFileOut::~ImageFxdFileOut() {
    try {
        Close();
    } catch (...) {
    }
}

void ImageFxdFileOut::SetProperties(ptree& frameProperties, int frame) {
    if (opened) {
        throw ImageFileException("ImageFxdFileOut: properties of frame " + std::to_string(frame) +
                                 " of '" + fileName + "' given after Open");
    }
    if (frame < 0) {
        throw ImageFileException("ImageFxdFileOut: no frame " + std::to_string(frame) + " in '" +
                                 fileName + "'");
    }
    properties[frame] = frameProperties;
}

void ImageFxdFileOut::Open(int newWidth, int newHeight, int newPixelType, bool newWithProperties,
                           bool newWithChecksum) {
    if (opened) {
        throw ImageFileException("ImageFxdFileOut: '" + fileName + "' is already open");
    }
    if (newWidth < 0 || newHeight < 0) {
        throw ImageFileException("ImageFxdFileOut: negative size " + std::to_string(newWidth) + "x" +
                                 std::to_string(newHeight) + " for '" + fileName + "'");
    }
    if (orvane::detail::FxdBytesPerPixel(newPixelType) == 0) {
        throw ImageFileException("ImageFxdFileOut: unknown pixel type code " +
                                 std::to_string(newPixelType) + " for '" + fileName + "'");
    }
    const std::string block = newWithProperties ? PropertyBlock(properties) : std::string();
    if (block.size() > static_cast<size_t>(std::numeric_limits<std::int32_t>::max())) {
        throw ImageFileException("ImageFxdFileOut: the properties of '" + fileName +
                                 "' are too large");
    }
    width = newWidth;
    height = newHeight;
    pixelType = newPixelType;
    withProperties = newWithProperties;
    withChecksum = newWithChecksum;
    frameCount = 0;
    extraHeaderSize = static_cast<std::int32_t>(block.size());
    errno = 0;
    try {
        stream.open(fileName, std::ios::binary | std::ios::out | std::ios::trunc);
        opened = true;
        _WriteHeader();
        stream.write(block.data(), static_cast<std::streamsize>(block.size()));
    } catch (const std::exception&) {
        const int error = errno;
        try {
            if (stream.is_open()) stream.close();
        } catch (...) {
        }
        stream.clear();
        opened = false;
        throw ImageFileException("ImageFxdFileOut: cannot create '" + fileName + "'" +
                                 (error != 0 ? std::string(": ") + std::strerror(error) : ""));
    }
}

void ImageFxdFileOut::WriteFrameData(const void* pixels, int framePixelType, int frame) {
    const std::string what =
        "ImageFxdFileOut: cannot write frame " + std::to_string(frame) + " of '" + fileName + "'";
    if (!opened) {
        throw ImageFileException(what + ": the file is not open");
    }
    if (framePixelType != pixelType) {
        throw ImageFileException(what + ": pixel type code " + std::to_string(framePixelType) +
                                 ", the file holds " + std::to_string(pixelType));
    }
    if (frame < 0) {
        throw ImageFileException(what + ": negative frame number");
    }
    const std::streamoff bytes = static_cast<std::streamoff>(width) * height *
                                 orvane::detail::FxdBytesPerPixel(pixelType);
    if (pixels == nullptr && bytes > 0) {
        throw ImageFileException(what + ": no pixels");
    }
    try {
        stream.seekp(bytes * frame + extraHeaderSize + orvane::detail::kFxdHeaderSize, std::ios::beg);
        stream.write(static_cast<const char*>(pixels), bytes);
    } catch (const std::exception&) {
        throw ImageFileException(what);
    }
    frameCount = std::max(frameCount, frame + 1);
}

void ImageFxdFileOut::Close() {
    if (!opened) {
        return;
    }
    opened = false;
    try {
        _WriteHeader();
        if (withChecksum) {
            _WriteChecksum();
        }
        stream.close();
    } catch (const std::exception&) {
        try {
            if (stream.is_open()) stream.close();
        } catch (...) {
        }
        stream.clear();
        throw ImageFileException("ImageFxdFileOut: cannot complete '" + fileName + "'");
    }
}

void ImageFxdFileOut::_WriteHeader() {
    char header[orvane::detail::kFxdHeaderSize] = {};
    std::memcpy(header, orvane::detail::kFxdMagic, sizeof orvane::detail::kFxdMagic);
    PutInt32(header + 4, orvane::detail::kFxdVersion);
    PutInt32(header + 8, width);
    PutInt32(header + 12, height);
    PutInt32(header + 16, pixelType);
    PutInt32(header + 20, frameCount);
    PutInt32(header + 24, extraHeaderSize);
    PutInt32(header + 28, withProperties ? 1 : 0);
    PutInt32(header + orvane::detail::kFxdChecksumFlagOffset, withChecksum ? 1 : 0);
    stream.seekp(0, std::ios::beg);
    stream.write(header, sizeof header);
}

void ImageFxdFileOut::_WriteChecksum() {
    stream.flush();
    std::ifstream written;
    written.exceptions(std::ios::badbit);
    written.open(fileName, std::ios::binary | std::ios::in);
    if (!written) throw std::ios_base::failure("cannot read back");
    char field[4];
    PutInt32(field, static_cast<std::int32_t>(orvane::detail::FxdFileChecksum(written)));
    stream.seekp(orvane::detail::kFxdChecksumOffset, std::ios::beg);
    stream.write(field, sizeof field);
}
