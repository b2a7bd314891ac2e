#include "io/RawFile.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace orvane {
namespace io {

namespace {

bool HostIsBigEndian() {
    const std::uint16_t probe = 1;
    unsigned char first = 0;
    std::memcpy(&first, &probe, 1);
    return first == 0;
}

// Reverses the bytes of each pixel of `count` pixels of `size` bytes.
void SwapBytes(char* data, std::int64_t count, int size) {
    if (size == 1) return;
    for (std::int64_t i = 0; i < count; ++i) std::reverse(data + i * size, data + (i + 1) * size);
}

// The whole of `text` as a non-negative number below `limit`; -1 otherwise.
std::int64_t Number(const std::string& text, std::int64_t limit) {
    if (text.empty() || text.size() > 15) return -1;
    std::int64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    return value < limit ? value : -1;
}

class RawSource : public SeriesSource {
public:
    RawSource(const std::string& path, const RawLayout& layout, int frames)
        : SeriesSource(path, FrameShape{layout.width, layout.height, layout.pixel, frames}),
          layout(layout),
          stream(path, std::ios::binary) {
        if (!stream) throw ImageFileError(path, "cannot be opened");
    }

    void ReadFrame(int index, void* pixels, boost::property_tree::ptree& properties) override {
        CheckIndex(index);
        const std::int64_t count = std::int64_t(Shape().width) * Shape().height;
        const std::int64_t bytes = count * BytesPerPixel(Shape().pixel);
        stream.clear();
        stream.seekg(layout.headerBytes + bytes * index, std::ios::beg);
        if (!stream.read(static_cast<char*>(pixels), bytes)) {
            throw ImageFileError(Name(), "cannot be read at frame " + std::to_string(index));
        }
        if (layout.bigEndian != HostIsBigEndian()) SwapBytes(static_cast<char*>(pixels), count, BytesPerPixel(Shape().pixel));
        properties.clear();
    }

private:
    RawLayout layout;
    std::ifstream stream;
};

class RawWriter : public SeriesWriter {
public:
    RawWriter(const std::string& path, bool bigEndian)
        : SeriesWriter(path), bigEndian(bigEndian), stream(path, std::ios::binary | std::ios::trunc) {
        if (!stream) throw ImageFileError(path, "cannot be created");
    }

    void Append(const void* pixels, int width, int height, PixelKind pixel,
                const boost::property_tree::ptree&) override {
        const FrameShape frame{width, height, pixel, 1};
        if (!started) {
            CheckFrameShape(path, frame);
            shape = frame, started = true;
        } else if (width != shape.width || height != shape.height || pixel != shape.pixel) {
            throw ImageFileError(path, "a frame of " + ShapeText(frame) + " cannot join frames of " + ShapeText(shape));
        }
        const std::int64_t count = std::int64_t(width) * height;
        const int size = BytesPerPixel(pixel);
        if (bigEndian == HostIsBigEndian()) {
            stream.write(static_cast<const char*>(pixels), count * size);
        } else {
            buffer.assign(static_cast<const char*>(pixels), static_cast<const char*>(pixels) + count * size);
            SwapBytes(buffer.data(), count, size);
            stream.write(buffer.data(), count * size);
        }
        if (!stream) throw ImageFileError(path, "cannot be written");
    }

    void Finish() override {
        stream.close();
        if (!stream) throw ImageFileError(path, "cannot be written");
    }

private:
    bool bigEndian;
    std::ofstream stream;
    bool started = false;
    FrameShape shape;
    std::vector<char> buffer;
};

}  // namespace

RawLayout ParseRawLayout(const std::string& text) {
    const auto bad = [&](const std::string& why) {
        return std::invalid_argument("raw layout '" + text + "' " + why +
                                     " (expected <width>x<height>:<u8|u16le|u16be|f32le|f32be>[:<header bytes>])");
    };
    const size_t colon = text.find(':');
    if (colon == std::string::npos) throw bad("has no pixel type");
    const std::string size = text.substr(0, colon);
    std::string rest = text.substr(colon + 1), header;
    const size_t second = rest.find(':');
    if (second != std::string::npos) header = rest.substr(second + 1), rest = rest.substr(0, second);
    const size_t x = size.find('x');
    RawLayout layout;
    const std::int64_t width = x == std::string::npos ? -1 : Number(size.substr(0, x), kLargestFrameSide + 1);
    const std::int64_t height = x == std::string::npos ? -1 : Number(size.substr(x + 1), kLargestFrameSide + 1);
    if (width < 1 || height < 1) throw bad("has no size of 1 to " + std::to_string(kLargestFrameSide) + " a side");
    layout.width = int(width), layout.height = int(height);
    if (rest == "u8") {
        layout.pixel = PixelKind::UInt8;
    } else if (rest == "u16le" || rest == "u16be") {
        layout.pixel = PixelKind::UInt16, layout.bigEndian = rest == "u16be";
    } else if (rest == "f32le" || rest == "f32be") {
        layout.pixel = PixelKind::Float32, layout.bigEndian = rest == "f32be";
    } else {
        throw bad("has the unknown pixel type '" + rest + "'");
    }
    if (second != std::string::npos) {
        layout.headerBytes = Number(header, std::int64_t(1) << 40);
        if (layout.headerBytes < 0) throw bad("has no header size");
    }
    return layout;
}

std::unique_ptr<SeriesSource> OpenRawSeries(const std::string& path, const RawLayout& layout) {
    CheckFrameShape(path, FrameShape{layout.width, layout.height, layout.pixel, 0});
    std::error_code error;
    const std::uintmax_t length = std::filesystem::file_size(path, error);
    if (error) throw ImageFileError(path, "cannot be opened: " + error.message());
    const std::int64_t frameBytes = std::int64_t(layout.width) * layout.height * BytesPerPixel(layout.pixel);
    const std::int64_t body = std::int64_t(length) - layout.headerBytes;
    if (body <= 0 || body % frameBytes != 0 || body / frameBytes > std::int64_t(1) << 30) {
        throw ImageFileError(path, "is " + std::to_string(length) + " bytes: not " + std::to_string(layout.headerBytes) +
                                       " header bytes and whole frames of " + std::to_string(frameBytes) + " bytes (" +
                                       ShapeText(FrameShape{layout.width, layout.height, layout.pixel, 0}) + ")");
    }
    return std::make_unique<RawSource>(path, layout, int(body / frameBytes));
}

std::unique_ptr<SeriesWriter> CreateRawWriter(const std::string& path, const WriteOptions& options) {
    return std::make_unique<RawWriter>(path, options.bigEndian);
}

}  // namespace io
}  // namespace orvane
