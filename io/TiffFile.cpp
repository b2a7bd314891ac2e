#include "io/TiffFile.h"

#include <boost/property_tree/json_parser.hpp>

#include <tiffio.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <vector>

#include <unistd.h>

namespace orvane {
namespace io {

namespace {

// libtiff prints its errors and warnings on stderr unless told otherwise. Every file
// we open has handlers of its own (below); anything reported outside a file goes
// nowhere.
void SilenceLibtiff() {
    static std::once_flag once;
    std::call_once(once, [] {
        TIFFSetErrorHandler(nullptr);
        TIFFSetWarningHandler(nullptr);
    });
}

// An open TIFF with the last error libtiff reported on it. Not movable: libtiff holds
// its address for the handlers.
class TiffHandle {
public:
    TiffHandle(const std::string& path, const char* mode) : path(path) {
        SilenceLibtiff();
        TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
        TIFFOpenOptionsSetErrorHandlerExtR(options, &TiffHandle::OnError, this);
        TIFFOpenOptionsSetWarningHandlerExtR(options, &TiffHandle::OnWarning, this);
        tif = TIFFOpenExt(path.c_str(), mode, options);
        TIFFOpenOptionsFree(options);
    }
    ~TiffHandle() { Close(); }
    TiffHandle(const TiffHandle&) = delete;
    TiffHandle& operator=(const TiffHandle&) = delete;

    TIFF* Get() const { return tif; }
    bool Opened() const { return tif != nullptr; }
    void ClearError() { lastError.clear(); }
    bool HasError() const { return !lastError.empty(); }
    void Close() {
        if (tif != nullptr) TIFFClose(tif);
        tif = nullptr;
    }

    // `problem`, with libtiff's own words after it when it gave any.
    ImageFileError Error(const std::string& problem) const {
        return ImageFileError(path, lastError.empty() ? problem : problem + " (" + lastError + ")");
    }

private:
    static int OnError(TIFF*, void* self, const char*, const char* format, va_list arguments) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, arguments);
        static_cast<TiffHandle*>(self)->Keep(text);
        return 1;  // handled: libtiff's global handler stays silent
    }
    static int OnWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

    // The message on one line, without the file name libtiff often puts first.
    void Keep(std::string text) {
        std::replace(text.begin(), text.end(), '\n', ' ');
        const std::string lead = path + ": ";
        if (text.compare(0, lead.size(), lead) == 0) text.erase(0, lead.size());
        lastError = text;
    }

    std::string path;
    std::string lastError;
    TIFF* tif = nullptr;
};

// What a page holds, from its tags.
struct PageLayout {
    std::uint32_t width = 0, height = 0;
    std::uint16_t bits = 1, format = SAMPLEFORMAT_UINT, samples = 1, photometric = PHOTOMETRIC_MINISBLACK;
    bool tiled = false;
    std::uint32_t tileWidth = 0, tileHeight = 0, rowsPerStrip = 0;
    bool asStored = false;  // uncompressed, in the host's order: the file's bytes are the pixels
};

PageLayout LayoutOf(TIFF* tif) {
    PageLayout page;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &page.width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &page.height);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &page.bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &page.format);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &page.samples);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &page.photometric);
    page.tiled = TIFFIsTiled(tif) != 0;
    if (page.tiled) {
        TIFFGetField(tif, TIFFTAG_TILEWIDTH, &page.tileWidth);
        TIFFGetField(tif, TIFFTAG_TILELENGTH, &page.tileHeight);
    } else {
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &page.rowsPerStrip);
        page.rowsPerStrip = std::max<std::uint32_t>(1, std::min(page.rowsPerStrip, page.height));
    }
    std::uint16_t compression = COMPRESSION_NONE, fillOrder = FILLORDER_MSB2LSB;
    TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
    TIFFGetFieldDefaulted(tif, TIFFTAG_FILLORDER, &fillOrder);
    page.asStored = compression == COMPRESSION_NONE && fillOrder == FILLORDER_MSB2LSB && !TIFFIsByteSwapped(tif);
    return page;
}

std::string SampleText(const PageLayout& page) {
    const std::string bits = std::to_string(page.bits) + "-bit ";
    if (page.bits == 1) return "1-bit (bilevel)";
    switch (page.format) {
        case SAMPLEFORMAT_UINT: return bits + "unsigned integer";
        case SAMPLEFORMAT_INT: return bits + "signed integer";
        case SAMPLEFORMAT_IEEEFP: return bits + "float";
        case SAMPLEFORMAT_COMPLEXINT:
        case SAMPLEFORMAT_COMPLEXIEEEFP: return bits + "complex";
        default: return bits + "untyped";
    }
}

// The pixel kind of a page, or why it has none of ours ("" when it has one).
std::string KindOf(const PageLayout& page, PixelKind& kind) {
    if (page.samples != 1) {
        return "has " + std::to_string(page.samples) +
               " samples per pixel (colour or extra channels); only grey pages of one sample are read";
    }
    if (page.photometric == PHOTOMETRIC_PALETTE) return "is colour-mapped (a palette); only grey pages are read";
    if (page.format == SAMPLEFORMAT_UINT && page.bits == 8) {
        kind = PixelKind::UInt8;
    } else if (page.format == SAMPLEFORMAT_UINT && page.bits == 16) {
        kind = PixelKind::UInt16;
    } else if (page.format == SAMPLEFORMAT_IEEEFP && page.bits == 32) {
        kind = PixelKind::Float32;
    } else {
        return "holds " + SampleText(page) + " pixels; only 8/16-bit unsigned and 32-bit float are read";
    }
    return "";
}

std::string PageName(int index) { return index == 0 ? "" : "page " + std::to_string(index) + " "; }

// The shape of the first page; ImageFileError when its pixels are none of ours.
FrameShape FirstShape(const std::string& path, const PageLayout& page, int frames) {
    FrameShape shape;
    const std::string problem = KindOf(page, shape.pixel);
    if (!problem.empty()) throw ImageFileError(path, problem);
    // Sides beyond int stay beyond the limits CheckFrameShape applies.
    shape.width = int(std::min<std::uint32_t>(page.width, 1u << 30));
    shape.height = int(std::min<std::uint32_t>(page.height, 1u << 30));
    shape.frames = frames;
    return shape;
}

// A tile buffer is sized by tags: tiles far larger than the frame are refused.
bool TileInProportion(const PageLayout& page) {
    const std::uint64_t tile = std::uint64_t(page.tileWidth) * page.tileHeight;
    const std::uint64_t frame = std::uint64_t(page.width) * page.height;
    return tile >= 1 && tile <= std::max<std::uint64_t>(4 * frame, 1u << 20);
}

// The parser recurses per level: deeper descriptions are not ours and are ignored.
constexpr int kMaxJsonDepth = 64;

// The deepest nesting of objects and arrays in JSON text, strings skipped.
int JsonDepth(const char* text) {
    int depth = 0, deepest = 0;
    bool inString = false;
    for (const char* c = text; *c != '\0'; ++c) {
        if (inString) {
            if (*c == '\\' && c[1] != '\0') ++c;
            else if (*c == '"') inString = false;
        } else if (*c == '"') {
            inString = true;
        } else if (*c == '{' || *c == '[') {
            deepest = std::max(deepest, ++depth);
        } else if (*c == '}' || *c == ']') {
            --depth;
        }
    }
    return deepest;
}

// The page's ImageDescription when it is a JSON object nested at most kMaxJsonDepth
// deep; empty otherwise.
boost::property_tree::ptree PropertiesOf(TIFF* tif) {
    boost::property_tree::ptree properties;
    const char* description = nullptr;
    if (TIFFGetField(tif, TIFFTAG_IMAGEDESCRIPTION, &description) != 1 || description == nullptr) return properties;
    const char* first = description;
    while (*first == ' ' || *first == '\t' || *first == '\r' || *first == '\n') ++first;
    if (*first != '{' || JsonDepth(first) > kMaxJsonDepth) return properties;
    std::istringstream text(description);
    try {
        boost::property_tree::read_json(text, properties);
    } catch (const boost::property_tree::json_parser_error&) {
        properties.clear();
    }
    return properties;
}

class TiffSource : public SeriesSource {
public:
    TiffSource(const std::string& path, std::unique_ptr<TiffHandle> handle, const PageLayout& first, int frames)
        : SeriesSource(path, FirstShape(path, first, frames)), handle(std::move(handle)), page(first) {
        CheckTiles(0);
    }

    void ReadFrame(int index, void* pixels, boost::property_tree::ptree& properties) override {
        CheckIndex(index);
        Turn(index);
        properties = PropertiesOf(handle->Get());
        handle->ClearError();
        if (page.tiled) {
            ReadTiles(index, static_cast<unsigned char*>(pixels));
        } else {
            ReadStrips(index, static_cast<unsigned char*>(pixels));
        }
    }

private:
    // Makes page `index` the current directory: the next one by reading on, any other
    // by seeking from the first. Checks it matches the first page.
    void Turn(int index) {
        if (index == current) return;
        TIFF* tif = handle->Get();
        handle->ClearError();
        const bool next = current >= 0 && index == current + 1;
        const int ok = next ? TIFFReadDirectory(tif) : TIFFSetDirectory(tif, tdir_t(index));
        current = -1;
        if (ok != 1) throw handle->Error("cannot read page " + std::to_string(index));
        page = LayoutOf(tif);
        FrameShape shape;
        const std::string problem = KindOf(page, shape.pixel);
        if (!problem.empty()) throw ImageFileError(Name(), PageName(index) + problem);
        shape.width = int(std::min<std::uint32_t>(page.width, 1u << 30));
        shape.height = int(std::min<std::uint32_t>(page.height, 1u << 30));
        if (shape.width != Shape().width || shape.height != Shape().height || shape.pixel != Shape().pixel) {
            throw ImageFileError(Name(), "page " + std::to_string(index) + " is " + ShapeText(shape) +
                                             ", unlike page 0 (" + ShapeText(Shape()) + ")");
        }
        CheckTiles(index);
        current = index;
    }

    void CheckTiles(int index) const {
        if (page.tiled && !TileInProportion(page)) {
            throw ImageFileError(Name(), PageName(index) + "has tiles of " + std::to_string(page.tileWidth) + " x " +
                                             std::to_string(page.tileHeight) + " pixels, out of proportion to its " +
                                             ShapeText(Shape()) + " frames");
        }
    }

    // Each strip is decoded straight into the frame. Strips stored as they are and one
    // after another in the file are read together, one read per run of them; libtiff
    // reads any other strip, and any run that comes short, reporting why.
    void ReadStrips(int index, unsigned char* pixels) {
        TIFF* tif = handle->Get();
        const tmsize_t rowBytes = tmsize_t(Shape().width) * BytesPerPixel(Shape().pixel);
        const std::uint32_t strips = (page.height + page.rowsPerStrip - 1) / page.rowsPerStrip;
        const auto bytesOf = [&](std::uint32_t strip) {
            return tmsize_t(std::min(page.rowsPerStrip, page.height - strip * page.rowsPerStrip)) * rowBytes;
        };
        for (std::uint32_t first = 0, end = 0; first < strips; first = end) {
            unsigned char* const at = pixels + tmsize_t(first) * page.rowsPerStrip * rowBytes;
            tmsize_t run = bytesOf(first);
            end = first + 1;
            if (page.asStored && TIFFGetStrileByteCount(tif, first) >= std::uint64_t(run)) {
                const std::uint64_t offset = TIFFGetStrileOffset(tif, first);
                while (end < strips && TIFFGetStrileOffset(tif, end) == offset + std::uint64_t(run) &&
                       TIFFGetStrileByteCount(tif, end) >= std::uint64_t(bytesOf(end))) {
                    run += bytesOf(end++);
                }
                if (ReadAt(TIFFFileno(tif), at, run, offset)) continue;
            }
            for (std::uint32_t strip = first; strip < end; ++strip) {
                const tmsize_t bytes = bytesOf(strip);
                if (TIFFReadEncodedStrip(tif, strip, pixels + tmsize_t(strip) * page.rowsPerStrip * rowBytes, bytes) !=
                    bytes) {
                    throw Unreadable(index, "strip " + std::to_string(strip));
                }
            }
        }
    }

    static bool ReadAt(int fd, unsigned char* data, tmsize_t bytes, std::uint64_t offset) {
        while (bytes > 0) {
            const ssize_t got = pread(fd, data, size_t(bytes), off_t(offset));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return false;
            data += got, bytes -= got, offset += std::uint64_t(got);
        }
        return true;
    }

    // Tiles are decoded into one buffer kept from frame to frame, then their rows,
    // clipped at the frame's right and bottom edges, copied into place.
    void ReadTiles(int index, unsigned char* pixels) {
        TIFF* tif = handle->Get();
        const size_t pixel = size_t(BytesPerPixel(Shape().pixel));
        const tmsize_t tileBytes = tmsize_t(page.tileWidth) * page.tileHeight * tmsize_t(pixel);
        if (TIFFTileSize(tif) != tileBytes) throw Unreadable(index, "its tiles");
        if (tile.size() < size_t(tileBytes)) tile.resize(size_t(tileBytes));
        for (std::uint32_t y = 0; y < page.height; y += page.tileHeight) {
            for (std::uint32_t x = 0; x < page.width; x += page.tileWidth) {
                const std::uint32_t number = TIFFComputeTile(tif, x, y, 0, 0);
                if (TIFFReadEncodedTile(tif, number, tile.data(), tileBytes) != tileBytes) {
                    throw Unreadable(index, "tile " + std::to_string(number));
                }
                const size_t columns = std::min(page.tileWidth, page.width - x) * pixel;
                const std::uint32_t rows = std::min(page.tileHeight, page.height - y);
                for (std::uint32_t r = 0; r < rows; ++r) {
                    std::memcpy(pixels + ((size_t(y) + r) * page.width + x) * pixel,
                                tile.data() + size_t(r) * page.tileWidth * pixel, columns);
                }
            }
        }
    }

    ImageFileError Unreadable(int index, const std::string& part) {
        current = -1;  // libtiff's state after a failed read is not trusted
        return handle->Error("cannot read frame " + std::to_string(index) + " at " + part);
    }

    std::unique_ptr<TiffHandle> handle;
    PageLayout page;   // the current page's
    int current = 0;   // the current directory; -1: unknown
    std::vector<unsigned char> tile;
};

class TiffWriter : public SeriesWriter {
public:
    TiffWriter(const std::string& path, const WriteOptions& options) : SeriesWriter(path), options(options) {
        // Created (and emptied) now, so that a path that cannot take a file fails here.
        if (!std::ofstream(path, std::ios::binary | std::ios::trunc)) throw ImageFileError(path, "cannot be created");
    }

    void Append(const void* pixels, int width, int height, PixelKind pixel,
                const boost::property_tree::ptree& properties) override {
        const FrameShape frame{width, height, pixel, 1};
        if (!handle) {
            CheckFrameShape(path, frame);
            shape = frame;
            Open(std::int64_t(width) * height * BytesPerPixel(pixel));
        } else if (width != shape.width || height != shape.height || pixel != shape.pixel) {
            throw ImageFileError(path, "a frame of " + ShapeText(frame) + " cannot join frames of " + ShapeText(shape));
        } else if (!handle->Opened()) {
            throw ImageFileError(path, "is closed: no frame can follow");
        }
        TIFF* tif = handle->Get();
        handle->ClearError();
        const tmsize_t rowBytes = tmsize_t(width) * BytesPerPixel(pixel);
        // Strips of up to 64 MiB, so the whole of a detector frame: written in one go,
        // the page cache keeps it in large pieces, which later reads copy at memcpy speed.
        const std::uint32_t rowsPerStrip =
            std::uint32_t(std::max<tmsize_t>(1, std::min<tmsize_t>(height, (tmsize_t(64) << 20) / rowBytes)));
        bool ok = TIFFSetField(tif, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE) && TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width) &&
                  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height) &&
                  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, BytesPerPixel(pixel) * 8) &&
                  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1) &&
                  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT,
                               pixel == PixelKind::Float32 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT) &&
                  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK) &&
                  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
                  TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
                  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
        if (ok && (!properties.empty() || !properties.data().empty())) {
            std::ostringstream json;
            try {
                boost::property_tree::write_json(json, properties, false);
            } catch (const boost::property_tree::ptree_error&) {
                throw ImageFileError(path, "frame " + std::to_string(frames) + " has properties JSON cannot hold");
            }
            std::string description = json.str();
            while (!description.empty() && description.back() == '\n') description.pop_back();
            ok = TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
        }
        const unsigned char* data = static_cast<const unsigned char*>(pixels);
        for (std::uint32_t row = 0, strip = 0; ok && row < std::uint32_t(height); row += rowsPerStrip, ++strip) {
            const tmsize_t bytes = tmsize_t(std::min<std::uint32_t>(rowsPerStrip, height - row)) * rowBytes;
            // No compression and the host's order: libtiff writes the bytes as they are.
            ok = TIFFWriteRawStrip(tif, strip, const_cast<unsigned char*>(data + row * rowBytes), bytes) == bytes;
        }
        if (!ok || !TIFFWriteDirectory(tif)) throw handle->Error("cannot be written at frame " + std::to_string(frames));
        ++frames;
    }

    void Finish() override {
        if (!handle) throw ImageFileError(path, "cannot be written without frames");
        if (!handle->Opened()) return;
        handle->ClearError();
        const bool flushed = TIFFFlush(handle->Get()) == 1;
        handle->Close();
        if (!flushed || handle->HasError()) throw handle->Error("cannot be written");
    }

private:
    // BigTIFF when asked or when the expected frames may pass what classic TIFF's
    // 32-bit offsets reach (with room for the directories).
    void Open(std::int64_t frameBytes) {
        const bool big = options.bigTiff || std::int64_t(options.expectedFrames) * frameBytes > (std::int64_t(7) << 29);
        handle = std::make_unique<TiffHandle>(path, big ? "w8" : "w");
        if (!handle->Opened()) {
            const ImageFileError error = handle->Error("cannot be created");
            handle.reset();
            throw error;
        }
    }

    WriteOptions options;
    std::unique_ptr<TiffHandle> handle;
    FrameShape shape;
    int frames = 0;
};

}  // namespace

std::unique_ptr<SeriesSource> OpenTiffSeries(const std::string& path) {
    if (!std::ifstream(path, std::ios::binary)) throw ImageFileError(path, "cannot be opened");
    // "m": no memory mapping, so uncompressed strips are read into the frame directly.
    auto handle = std::make_unique<TiffHandle>(path, "rm");
    if (!handle->Opened()) throw handle->Error("is not a readable TIFF file");
    // The pages are counted by walking the chain of directory offsets; a chain that
    // breaks off (a truncated file) or loops is an error, not a shorter series.
    handle->ClearError();
    const tdir_t pages = TIFFNumberOfDirectories(handle->Get());
    if (handle->HasError()) {
        throw handle->Error("has its chain of pages broken after page " + std::to_string(pages == 0 ? 0 : pages - 1));
    }
    const PageLayout first = LayoutOf(handle->Get());
    const int frames = int(std::min<tdir_t>(pages, 1u << 30));
    return std::make_unique<TiffSource>(path, std::move(handle), first, frames);
}

std::unique_ptr<SeriesWriter> CreateTiffWriter(const std::string& path, const WriteOptions& options) {
    return std::make_unique<TiffWriter>(path, options);
}

}  // namespace io
}  // namespace orvane
