#include "io/FitsFile.h"

#include <boost/optional.hpp>
#include <fitsio.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <system_error>
#include <type_traits>

namespace orvane {
namespace io {

namespace {

// Frames 1 to 9999 have keywords of their own (TIME0001 ...): a keyword name has at
// most 8 characters.
constexpr int kKeyedFrames = 9999;
// Room kept in a new header for the keywords of this many frames when the count is
// unknown, so that they do not push the pixels already written further down the file.
constexpr int kReservedKeyFrames = 100;

struct FitsCloser {
    void operator()(fitsfile* file) const {
        int status = 0;
        fits_close_file(file, &status);
        fits_clear_errmsg();
    }
};
using FitsHandle = std::unique_ptr<fitsfile, FitsCloser>;

// cfitsio's text for `status`; its message stack, which nothing prints, is emptied.
std::string StatusText(int status) {
    char text[FLEN_STATUS] = {};
    fits_get_errstatus(status, text);
    fits_clear_errmsg();
    return text;
}

std::string NumberText(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

// "TIME0001" for frame 0.
std::string FrameKey(const char* stem, int index) {
    char name[FLEN_KEYWORD + 8];
    std::snprintf(name, sizeof name, "%s%04d", stem, index + 1);
    return name;
}

int DataType(PixelKind kind) {
    switch (kind) {
        case PixelKind::UInt8: return TBYTE;
        case PixelKind::UInt16: return TUSHORT;
        case PixelKind::Float32: return TFLOAT;
    }
    return TFLOAT;
}

// The image type cfitsio creates: USHORT_IMG is BITPIX 16 with BZERO 32768.
int ImageType(PixelKind kind) {
    switch (kind) {
        case PixelKind::UInt8: return BYTE_IMG;
        case PixelKind::UInt16: return USHORT_IMG;
        case PixelKind::Float32: return FLOAT_IMG;
    }
    return FLOAT_IMG;
}

// The kind of pixels that BITPIX, BZERO and BSCALE describe; none for the ones not read.
std::optional<PixelKind> KindOf(int bitpix, double bzero, double bscale) {
    if (bscale != 1) return std::nullopt;
    if (bitpix == BYTE_IMG && bzero == 0) return PixelKind::UInt8;
    if (bitpix == SHORT_IMG && bzero == 32768) return PixelKind::UInt16;
    if (bitpix == FLOAT_IMG && bzero == 0) return PixelKind::Float32;
    return std::nullopt;
}

std::string BitpixName(int bitpix) {
    switch (bitpix) {
        case BYTE_IMG: return "8-bit unsigned";
        case SHORT_IMG: return "16-bit signed";
        case LONG_IMG: return "32-bit signed";
        case LONGLONG_IMG: return "64-bit signed";
        case FLOAT_IMG: return "32-bit float";
        case DOUBLE_IMG: return "64-bit float";
    }
    return "unknown";
}

// Reads keyword `key` of the current header into `value` as `type`; false when the
// header has no such keyword, ImageFileError when its value is not of that type.
// A number keyword of ours (or BZERO, BSCALE): its value text is read by cfitsio and
// converted here, since cfitsio's own conversion overruns a buffer on some values
// that are not numbers. Integers take strtoll, reals strtod (FITS writes the exponent
// of a double as D); the whole value must be the number. False when the keyword is
// absent.
template <typename T>
bool ReadKey(fitsfile* file, const std::string& name, const std::string& key, T& value) {
    int status = 0;
    char text[FLEN_VALUE] = {};
    fits_read_keyword(file, key.c_str(), text, nullptr, &status);
    if (status == KEY_NO_EXIST) {
        fits_clear_errmsg();
        return false;
    }
    if (status != 0) throw ImageFileError(name, "has a keyword " + key + " that cannot be read: " + StatusText(status));
    std::string number = text;
    std::replace(number.begin(), number.end(), 'D', 'E');
    const char* start = number.c_str();
    while (*start == ' ') ++start;
    char* end = nullptr;
    errno = 0;
    if constexpr (std::is_integral_v<T>) {
        value = std::strtoll(start, &end, 10);
    } else {
        value = std::strtod(start, &end);
    }
    while (end != nullptr && *end == ' ') ++end;
    if (end == start || end == nullptr || *end != '\0' || errno == ERANGE) {
        throw ImageFileError(name, "has a keyword " + key + " that is not a number: " + text);
    }
    return true;
}

class FitsSource : public SeriesSource {
public:
    FitsSource(const std::string& path, const FrameShape& shape, FitsHandle file)
        : SeriesSource(path, shape), file(std::move(file)) {}

    void ReadFrame(int index, void* pixels, boost::property_tree::ptree& properties) override {
        CheckIndex(index);
        LONGLONG first[3] = {1, 1, LONGLONG(index) + 1};
        int anyNull = 0, status = 0;
        fits_read_pixll(file.get(), DataType(Shape().pixel), first, LONGLONG(Shape().width) * Shape().height, nullptr,
                        pixels, &anyNull, &status);
        if (status != 0) {
            throw ImageFileError(Name(), "cannot be read at frame " + std::to_string(index) + ": " + StatusText(status));
        }
        properties.clear();
        if (index >= kKeyedFrames) return;
        long long time = 0;
        if (ReadKey(file.get(), Name(), FrameKey("TIME", index), time)) properties.put("image.time", time);
        double temperature = 0;
        if (ReadKey(file.get(), Name(), FrameKey("TEMP", index), temperature)) {
            properties.put("image.temperature", temperature);
        }
    }

private:
    FitsHandle file;
};

// The keywords of one frame, checked before anything of the frame is written.
struct FrameKeys {
    boost::optional<long long> time;
    boost::optional<double> temperature;
};

class FitsWriter : public SeriesWriter {
public:
    FitsWriter(const std::string& path, const WriteOptions& options)
        : SeriesWriter(path), expectedFrames(std::max(options.expectedFrames, 0)) {
        std::error_code error;
        std::filesystem::remove(path, error);
        if (error) throw ImageFileError(path, "cannot be replaced: " + error.message());
        int status = 0;
        fitsfile* created = nullptr;
        fits_create_diskfile(&created, path.c_str(), &status);
        if (status != 0) throw ImageFileError(path, "cannot be created: " + StatusText(status));
        file.reset(created);
    }

    void Append(const void* pixels, int width, int height, PixelKind pixel,
                const boost::property_tree::ptree& properties) override {
        if (!file) throw ImageFileError(path, failure.empty() ? "is closed" : failure);
        const FrameShape frame{width, height, pixel, 1};
        if (written == 0) {
            CheckFrameShape(path, frame);
            shape = frame;
        } else if (width != shape.width || height != shape.height || pixel != shape.pixel) {
            throw ImageFileError(path, "a frame of " + ShapeText(frame) + " cannot join frames of " + ShapeText(shape));
        }
        const FrameKeys keys = KeysOf(properties);
        int status = 0;
        if (written == 0) {
            // A cube from the start; Close makes a single frame 2-D.
            planes = std::max(expectedFrames, 1);
            LONGLONG axes[3] = {width, height, planes};
            fits_create_imgll(file.get(), ImageType(pixel), 3, axes, &status);
            const int keyFrames = std::min(expectedFrames > 0 ? expectedFrames : kReservedKeyFrames, kKeyedFrames);
            fits_set_hdrsize(file.get(), 2 * keyFrames, &status);
        } else if (written == planes) {
            planes = written + 1;
            Resize(3, planes, status);
        }
        LONGLONG first[3] = {1, 1, LONGLONG(written) + 1};
        fits_write_pixll(file.get(), DataType(pixel), first, LONGLONG(width) * height, const_cast<void*>(pixels),
                         &status);
        if (written < kKeyedFrames) {
            // fits_write_key takes a non-const value pointer.
            long long time = keys.time.value_or(0);
            if (keys.time) {
                fits_write_key(file.get(), TLONGLONG, FrameKey("TIME", written).c_str(), &time, "image.time", &status);
            }
            if (keys.temperature) {
                // 17 digits: the double comes back to the bit.
                fits_write_key_dbl(file.get(), FrameKey("TEMP", written).c_str(), *keys.temperature, -17,
                                   "image.temperature", &status);
            }
        }
        if (status != 0) {
            // The file is left as it stands; neither another frame nor Close mends it.
            failure = "cannot be written at frame " + std::to_string(written) + ": " + StatusText(status);
            file.reset();
            throw ImageFileError(path, failure);
        }
        ++written;
    }

    void Finish() override {
        if (!file && !failure.empty()) throw ImageFileError(path, failure);
        if (!file) return;
        if (written == 0) throw ImageFileError(path, "has no frames: an image needs one at least");
        int status = 0;
        if (written == 1) {
            Resize(2, 1, status);
        } else if (written != planes) {
            Resize(3, written, status);
        }
        std::string problem = status != 0 ? StatusText(status) : "";
        status = 0;
        fits_close_file(file.release(), &status);
        if (problem.empty() && status != 0) problem = StatusText(status);
        fits_clear_errmsg();
        if (!problem.empty()) throw ImageFileError(path, "cannot be written: " + problem);
    }

private:
    FrameKeys KeysOf(const boost::property_tree::ptree& properties) const {
        FrameKeys keys;
        const std::string frame = "frame " + std::to_string(written);
        if (const auto node = properties.get_child_optional("image.time")) {
            keys.time = node->get_value_optional<long long>();
            if (!keys.time) throw ImageFileError(path, frame + " has image.time '" + node->data() + "', not a whole number");
        }
        if (const auto node = properties.get_child_optional("image.temperature")) {
            keys.temperature = node->get_value_optional<double>();
            if (!keys.temperature || !std::isfinite(*keys.temperature)) {
                throw ImageFileError(path, frame + " has image.temperature '" + node->data() + "', not a finite number");
            }
        }
        return keys;
    }

    // Makes the image `naxis`-D with `frames` planes when 3-D.
    void Resize(int naxis, int frames, int& status) {
        LONGLONG axes[3] = {shape.width, shape.height, frames};
        fits_resize_imgll(file.get(), ImageType(shape.pixel), naxis, axes, &status);
    }

    int expectedFrames;
    FitsHandle file;
    FrameShape shape;
    int written = 0;
    int planes = 0;  // NAXIS3 of the image as it stands
    std::string failure;
};

}  // namespace

std::unique_ptr<SeriesSource> OpenFitsSeries(const std::string& path) {
    int status = 0;
    fitsfile* opened = nullptr;
    fits_open_diskfile(&opened, path.c_str(), READONLY, &status);
    if (status != 0) throw ImageFileError(path, "cannot be read as FITS: " + StatusText(status));
    FitsHandle file(opened);

    int bitpix = 0, naxis = 0;
    LONGLONG axes[3] = {0, 0, 1};
    fits_get_img_paramll(file.get(), 3, &bitpix, &naxis, axes, &status);
    if (status != 0) throw ImageFileError(path, "cannot be read as FITS: " + StatusText(status));
    if (naxis == 0) {
        int hdus = 0;
        fits_get_num_hdus(file.get(), &hdus, &status);
        fits_clear_errmsg();
        throw ImageFileError(path, std::string("has no image in its primary HDU") +
                                       (hdus > 1 ? " (images in extensions are not read)" : ""));
    }
    if (naxis != 2 && naxis != 3) {
        throw ImageFileError(path, "has NAXIS " + std::to_string(naxis) + ": only 2-D images and 3-D cubes are read");
    }

    double bzero = 0, bscale = 1;
    ReadKey(file.get(), path, "BZERO", bzero);
    ReadKey(file.get(), path, "BSCALE", bscale);
    const std::optional<PixelKind> kind = KindOf(bitpix, bzero, bscale);
    if (!kind) {
        throw ImageFileError(path, "holds " + std::string(bzero == 0 && bscale == 1 ? "" : "scaled ") +
                                       BitpixName(bitpix) + " pixels (BITPIX " + std::to_string(bitpix) + ", BZERO " +
                                       NumberText(bzero) + ", BSCALE " + NumberText(bscale) +
                                       "): read are 8-bit unsigned, 16-bit unsigned (BITPIX 16, BZERO 32768) and "
                                       "32-bit float");
    }

    // The shape is checked before anything is sized by it; sides past INT_MAX are
    // beyond the limits whatever they are.
    const FrameShape shape{int(std::min<LONGLONG>(axes[0], INT_MAX)), int(std::min<LONGLONG>(axes[1], INT_MAX)),
                           *kind, int(std::min<LONGLONG>(axes[2], INT_MAX))};
    CheckFrameShape(path, shape);
    if (axes[2] > INT_MAX) throw ImageFileError(path, "claims " + std::to_string(axes[2]) + " frames");

    // A file cut short is refused now, not at the frame it lost.
    LONGLONG headStart = 0, dataStart = 0, dataEnd = 0;
    fits_get_hduaddrll(file.get(), &headStart, &dataStart, &dataEnd, &status);
    if (status != 0) throw ImageFileError(path, "cannot be read as FITS: " + StatusText(status));
    const LONGLONG needed = dataStart + LONGLONG(shape.width) * shape.height * shape.frames * BytesPerPixel(*kind);
    std::error_code error;
    const std::uintmax_t length = std::filesystem::file_size(path, error);
    if (error) throw ImageFileError(path, "cannot be read: " + error.message());
    if (LONGLONG(length) < needed) {
        throw ImageFileError(path, "is truncated: " + std::to_string(length) + " bytes, its image needs " +
                                       std::to_string(needed));
    }
    return std::make_unique<FitsSource>(path, shape, std::move(file));
}

std::unique_ptr<SeriesWriter> CreateFitsWriter(const std::string& path, const WriteOptions& options) {
    return std::make_unique<FitsWriter>(path, options);
}

}  // namespace io
}  // namespace orvane
