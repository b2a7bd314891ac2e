#include "apps/orvane/PngWriter.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace orvane {
namespace app {

namespace {

// A reduced 8-bit grey picture, row after row.
struct GreyPicture {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> pixels;
};

// The reduction factor that brings the longer side down to at most `maxSide`.
int ReductionFactor(int width, int height, int maxSide) {
    if (maxSide <= 0) {
        throw std::invalid_argument("picture size limit must be positive");
    }
    const int longer = std::max(width, height);
    return std::max(1, (longer + maxSide - 1) / maxSide);
}

void CheckSize(const std::string& path, int width, int height) {
    if (width <= 0 || height <= 0) {
        throw std::invalid_argument(path + ": cannot write an empty picture");
    }
}

// Where libpng's errors go: the message is kept and control jumps back to the
// setjmp point of WriteGreyPng.
struct PngErrorSink {
    char message[256];
};

void OnPngError(png_structp png, png_const_charp text) {
    auto* sink = static_cast<PngErrorSink*>(png_get_error_ptr(png));
    std::snprintf(sink->message, sizeof sink->message, "%s", text ? text : "libpng error");
    png_longjmp(png, 1);
}

void OnPngWarning(png_structp, png_const_charp) {}

// Writes the picture to `file`. Returns false with the reason in `sink` on failure.
// Only plain C objects live in this function, so the long jump of libpng's error path
// skips no destructor; the png structures are freed on both paths.
bool WritePngStream(std::FILE* file, const GreyPicture& picture, PngErrorSink& sink) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, OnPngError, OnPngWarning);
    if (!png) {
        std::snprintf(sink.message, sizeof sink.message, "cannot create the PNG writer");
        return false;
    }
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        std::snprintf(sink.message, sizeof sink.message, "cannot create the PNG header");
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width), static_cast<png_uint_32>(picture.height), 8,
                 PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    const unsigned char* row = picture.pixels.data();
    for (int y = 0; y < picture.height; ++y, row += picture.width) {
        png_write_row(png, const_cast<png_bytep>(row));
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

// Writes `path`; std::runtime_error naming the path on failure. The commands write
// into a staging folder, which a failure discards whole.
void SavePicture(const std::string& path, const GreyPicture& picture) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        throw std::runtime_error(path + ": cannot create file: " + std::strerror(errno));
    }
    PngErrorSink sink{};
    bool ok = WritePngStream(file, picture, sink);
    if (ok && (std::fflush(file) != 0 || std::ferror(file))) {
        ok = false;
        std::snprintf(sink.message, sizeof sink.message, "write error: %s", std::strerror(errno));
    }
    if (std::fclose(file) != 0 && ok) {
        ok = false;
        std::snprintf(sink.message, sizeof sink.message, "write error: %s", std::strerror(errno));
    }
    if (!ok) {
        throw std::runtime_error(path + ": cannot write PNG: " + sink.message);
    }
}

}  // namespace

void WritePng(const std::string& path, const ImageAcquisition<float>& image, float low, float high, int maxSide) {
    const int width = image.GetWidth();
    const int height = image.GetHeight();
    CheckSize(path, width, height);
    const int factor = ReductionFactor(width, height, maxSide);

    GreyPicture picture;
    picture.width = (width + factor - 1) / factor;
    picture.height = (height + factor - 1) / factor;
    picture.pixels.assign(static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height), 0);

    // An empty range maps everything above `low` to white.
    const double span = static_cast<double>(high) - static_cast<double>(low);
    const double scale = span > 0.0 ? 255.0 / span : 0.0;

    std::vector<double> sums(static_cast<size_t>(picture.width));
    std::vector<int> counts(static_cast<size_t>(picture.width));
    const float* data = image.GetData();
    for (int oy = 0; oy < picture.height; ++oy) {
        std::fill(sums.begin(), sums.end(), 0.0);
        std::fill(counts.begin(), counts.end(), 0);
        const int yEnd = std::min(height, (oy + 1) * factor);
        for (int y = oy * factor; y < yEnd; ++y) {
            const float* row = data + static_cast<size_t>(y) * static_cast<size_t>(width);
            for (int ox = 0, x = 0; ox < picture.width; ++ox) {
                const int xEnd = std::min(width, x + factor);
                double sum = 0.0;
                int count = 0;
                for (; x < xEnd; ++x) {
                    if (!std::isnan(row[x])) {
                        sum += row[x];
                        ++count;
                    }
                }
                sums[static_cast<size_t>(ox)] += sum;
                counts[static_cast<size_t>(ox)] += count;
            }
        }
        unsigned char* out = picture.pixels.data() + static_cast<size_t>(oy) * static_cast<size_t>(picture.width);
        for (int ox = 0; ox < picture.width; ++ox) {
            const int count = counts[static_cast<size_t>(ox)];
            if (count == 0) {
                continue;  // all NaN: black
            }
            const double mean = sums[static_cast<size_t>(ox)] / count;
            double grey;
            if (std::isnan(mean)) {
                grey = 0.0;
            } else if (scale > 0.0) {
                grey = std::clamp((mean - low) * scale, 0.0, 255.0);
            } else {
                grey = mean > low ? 255.0 : 0.0;
            }
            out[ox] = static_cast<unsigned char>(std::lround(grey));
        }
    }
    SavePicture(path, picture);
}

void WriteDefectPng(const std::string& path, const ImageAcquisition<unsigned char>& map, int maxSide) {
    const int width = map.GetWidth();
    const int height = map.GetHeight();
    CheckSize(path, width, height);
    const int factor = ReductionFactor(width, height, maxSide);

    GreyPicture picture;
    picture.width = (width + factor - 1) / factor;
    picture.height = (height + factor - 1) / factor;
    picture.pixels.assign(static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height), 255);

    const unsigned char* data = map.GetData();
    for (int y = 0; y < height; ++y) {
        const unsigned char* row = data + static_cast<size_t>(y) * static_cast<size_t>(width);
        unsigned char* out =
            picture.pixels.data() + static_cast<size_t>(y / factor) * static_cast<size_t>(picture.width);
        for (int ox = 0, x = 0; ox < picture.width; ++ox) {
            const int xEnd = std::min(width, x + factor);
            unsigned char any = 0;
            for (; x < xEnd; ++x) {
                any |= row[x];
            }
            if (any) {
                out[ox] = 0;
            }
        }
    }
    SavePicture(path, picture);
}

}  // namespace app
}  // namespace orvane
