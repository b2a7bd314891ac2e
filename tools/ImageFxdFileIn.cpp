#include "tools/ImageFxdFile.h"

#include "interfaces/ImageFormatException.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

using boost::property_tree::ptree;

namespace {

struct BlockError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::int32_t GetInt32(const char* source) {
    std::uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) {
        bits |= static_cast<std::uint32_t>(static_cast<unsigned char>(source[i])) << (8 * i);
    }
    return static_cast<std::int32_t>(bits);
}

// Reads the property block written by ImageFxdFileOut (layout in tools/ImageFxdFile.h).
class PropertyBlockReader {
public:
    explicit PropertyBlockReader(const std::string& text) : text(text) {}

    static constexpr size_t kMaxDepth = 256;

    std::map<int, ptree> Read() {
        std::map<int, ptree> frames;
        std::vector<ptree*> path;  // path[d] is the node at depth d of the current frame
        static const std::string frameTag = "frame ";
        while (position < text.size()) {
            const size_t lineStart = position;
            if (text.compare(position, frameTag.size(), frameTag) == 0) {
                position += frameTag.size();
                const size_t index = ReadNumber(' ', std::numeric_limits<int>::max());
                const std::string data = ReadString();
                Expect('\n');
                const auto inserted = frames.emplace(static_cast<int>(index), ptree(data));
                if (!inserted.second) {
                    throw BlockError("frame " + std::to_string(index) + " appears twice");
                }
                path.assign(1, &inserted.first->second);
                continue;
            }
            if (path.empty()) {
                throw BlockError("a node stands before the first frame line");
            }
            const size_t depth = ReadNumber(' ', path.size());
            if (depth == 0) {
                throw BlockError("node of depth 0 at byte " + std::to_string(lineStart));
            }
            if (depth > kMaxDepth) {  // the tree's copy and destruction recurse per level
                throw BlockError("nodes nest deeper than " + std::to_string(kMaxDepth));
            }
            std::string key = ReadString();
            Expect(' ');
            std::string data = ReadString();
            Expect('\n');
            path.resize(depth);
            ptree& child = path.back()->push_back(ptree::value_type(std::move(key), ptree(data)))->second;
            path.push_back(&child);
        }
        return frames;
    }

private:
    // Decimal digits up to `terminator`, at most `limit`.
    size_t ReadNumber(char terminator, size_t limit) {
        const size_t start = position;
        size_t value = 0;
        while (position < text.size() && text[position] >= '0' && text[position] <= '9') {
            value = value * 10 + static_cast<size_t>(text[position] - '0');
            if (value > limit) {
                throw BlockError("number out of range at byte " + std::to_string(start));
            }
            ++position;
        }
        if (position == start) {
            throw BlockError("number expected at byte " + std::to_string(start));
        }
        Expect(terminator);
        return value;
    }

    std::string ReadString() {
        const size_t length = ReadNumber(':', text.size() - position);
        if (length > text.size() - position) {
            throw BlockError("string runs past the end of the block");
        }
        std::string value = text.substr(position, length);
        position += length;
        return value;
    }

    void Expect(char c) {
        if (position >= text.size() || text[position] != c) {
            throw BlockError("unexpected " +
                             (position >= text.size() ? std::string("end")
                                                      : "character at byte " + std::to_string(position)));
        }
        ++position;
    }

    const std::string& text;
    size_t position = 0;
};

}  // namespace

ImageFxdFileIn::ImageFxdFileIn(const std::string& fileName) : fileName(fileName) {
    stream.open(fileName, std::ios::binary | std::ios::in);
    if (!stream) {
        _Fail("cannot be opened");
    }
    stream.seekg(0, std::ios::end);
    const std::streamoff fileSize = stream.tellg();
    stream.seekg(0, std::ios::beg);
    if (fileSize < 0) {
        _Fail("cannot be read");
    }
    const int headerSize = orvane::detail::kFxdHeaderSize;
    if (fileSize < headerSize) {
        _Fail("is truncated: " + std::to_string(fileSize) + " bytes, less than the " +
              std::to_string(headerSize) + "-byte header");
    }
    char header[orvane::detail::kFxdHeaderSize];
    if (!stream.read(header, sizeof header)) {
        _Fail("cannot be read");
    }
    if (std::memcmp(header, orvane::detail::kFxdMagic, sizeof orvane::detail::kFxdMagic) != 0) {
        _Fail("is not an .fxd file (wrong magic)");
    }
    const std::int32_t version = GetInt32(header + 4);
    if (version != orvane::detail::kFxdVersion) {
        _Fail("has the unsupported version " + std::to_string(version));
    }
    width = GetInt32(header + 8);
    height = GetInt32(header + 12);
    pixelType = GetInt32(header + 16);
    frameCount = GetInt32(header + 20);
    extraHeaderSize = GetInt32(header + 24);
    const std::int32_t flag = GetInt32(header + 28);
    const std::int32_t checksumFlag = GetInt32(header + orvane::detail::kFxdChecksumFlagOffset);
    if (checksumFlag != 0 && checksumFlag != 1) {
        _Fail("has the invalid checksum flag " + std::to_string(checksumFlag));
    }
    withChecksum = checksumFlag == 1;
    checksum = static_cast<std::uint32_t>(GetInt32(header + orvane::detail::kFxdChecksumOffset));
    const int bytesPerPixel = orvane::detail::FxdBytesPerPixel(pixelType);
    if (bytesPerPixel == 0) {
        _Fail("has the unknown pixel type code " + std::to_string(pixelType));
    }
    const std::string format = std::to_string(width) + "x" + std::to_string(height);
    if (width < 0 || height < 0) {
        _Fail("has the wrong size " + format + ": negative");
    }
    if (static_cast<std::int64_t>(width) * height > std::numeric_limits<int>::max()) {
        _Fail("has the wrong size " + format + ": more pixels than an image holds");
    }
    if (frameCount < 0) {
        _Fail("has a negative frame count " + std::to_string(frameCount));
    }
    if (extraHeaderSize < 0) {
        _Fail("has a negative extra header size " + std::to_string(extraHeaderSize));
    }
    if (flag != 0 && flag != 1) {
        _Fail("has the invalid properties flag " + std::to_string(flag));
    }
    withProperties = flag == 1;
    if (!withProperties && extraHeaderSize != 0) {
        _Fail("has an extra header of " + std::to_string(extraHeaderSize) +
              " bytes but no properties");
    }

    const std::string announced = "its header announces " + std::to_string(frameCount) +
                                  " frames of " + format + " after " +
                                  std::to_string(extraHeaderSize) + " bytes of properties";
    const auto size = static_cast<std::uint64_t>(fileSize);
    const auto beforeFrames = static_cast<std::uint64_t>(headerSize) +
                              static_cast<std::uint64_t>(extraHeaderSize);
    const auto frameBytes = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) *
                            static_cast<std::uint64_t>(bytesPerPixel);
    const auto frames = static_cast<std::uint64_t>(frameCount);
    if (size < beforeFrames || (frameBytes != 0 && (size - beforeFrames) / frameBytes < frames)) {
        _Fail("is truncated: " + std::to_string(fileSize) + " bytes, but " + announced);
    }
    const std::uint64_t excess = size - beforeFrames - frameBytes * frames;
    if (excess != 0) {
        _Fail("has " + std::to_string(excess) + " bytes after its last frame (" + announced + ")");
    }

    std::string block(static_cast<size_t>(extraHeaderSize), '\0');
    if (!stream.read(&block[0], static_cast<std::streamsize>(block.size()))) {
        _Fail("cannot be read in its property block");
    }
    if (withProperties) {
        try {
            properties = PropertyBlockReader(block).Read();
        } catch (const BlockError& e) {
            _Fail(std::string("has an unreadable property block: ") + e.what());
        }
    }
}

ImageFxdFileIn::~ImageFxdFileIn() = default;

bool ImageFxdFileIn::VerifyChecksum() {
    if (!withChecksum) {
        return false;
    }
    std::uint32_t computed = 0;
    try {
        computed = orvane::detail::FxdFileChecksum(stream);
    } catch (const std::exception&) {
        _Fail("cannot be read to its end");
    }
    if (computed != checksum) {
        char text[64];
        std::snprintf(text, sizeof text, "its checksum is %08x, its bytes give %08x", checksum, computed);
        _Fail(std::string("is damaged: ") + text);
    }
    return true;
}

const ptree& ImageFxdFileIn::GetProperties(int frame) const {
    static const ptree none;
    const auto it = properties.find(frame);
    return it == properties.end() ? none : it->second;
}

void ImageFxdFileIn::_ReadPixels(char* target, int expectedType, int frame) {
    if (expectedType != pixelType) {
        _Fail("holds pixel type code " + std::to_string(pixelType) + ", not " +
              std::to_string(expectedType));
    }
    if (frame < 0 || frame >= frameCount) {
        _Fail("has " + std::to_string(frameCount) + " frames, no frame " + std::to_string(frame));
    }
    const std::streamoff bytes = static_cast<std::streamoff>(width) * height *
                                 orvane::detail::FxdBytesPerPixel(pixelType);
    stream.clear();
    stream.seekg(bytes * frame + extraHeaderSize + orvane::detail::kFxdHeaderSize, std::ios::beg);
    if (!stream.read(target, bytes)) {
        _Fail("is truncated in frame " + std::to_string(frame));
    }
}

void ImageFxdFileIn::_Fail(const std::string& what) const {
    throw ImageFormatException("ImageFxdFileIn: '" + fileName + "' " + what);
}
