#include "io/ImageFileFormat.h"

#include "io/ImageFileError.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace orvane {
namespace io {

namespace {

struct Known {
    ImageFileFormat format;
    const char* name;
    const char* extensions[4];  // the first is the one written
};
const Known kKnown[] = {{ImageFileFormat::Fxd, "fxd", {".fxd"}},
                        {ImageFileFormat::Tiff, "tiff", {".tif", ".tiff"}},
                        {ImageFileFormat::Hdf5, "hdf5", {".h5", ".hdf5", ".hdf", ".nxs"}},
                        {ImageFileFormat::Fits, "fits", {".fits", ".fit", ".fts"}},
                        {ImageFileFormat::Raw, "raw", {".raw", ".bin"}}};

const Known& Find(ImageFileFormat format) {
    return *std::find_if(std::begin(kKnown), std::end(kKnown), [&](const Known& k) { return k.format == format; });
}

bool StartsWith(const std::string& bytes, const char* signature, size_t length) {
    return bytes.size() >= length && std::memcmp(bytes.data(), signature, length) == 0;
}

}  // namespace

std::string FormatName(ImageFileFormat format) { return Find(format).name; }

std::string FormatExtension(ImageFileFormat format) { return Find(format).extensions[0]; }

ImageFileFormat ParseFormatName(const std::string& name) {
    for (const Known& known : kKnown) {
        if (name == known.name) return known.format;
    }
    throw std::invalid_argument("unknown image format '" + name + "' (fxd, tiff, hdf5, fits or raw)");
}

std::optional<ImageFileFormat> FormatOfExtension(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const Known& known : kKnown) {
        for (const char* candidate : known.extensions) {
            if (candidate != nullptr && extension == candidate) return known.format;
        }
    }
    return std::nullopt;
}

ImageFileFormat DetectFormat(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw ImageFileError(path, "cannot be opened");
    std::string head(9, '\0');
    in.read(&head[0], static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<size_t>(in.gcount()));
    if (StartsWith(head, "II*\0", 4) || StartsWith(head, "MM\0*", 4) || StartsWith(head, "II+\0", 4) ||
        StartsWith(head, "MM\0+", 4)) {
        return ImageFileFormat::Tiff;
    }
    if (StartsWith(head, "\x89HDF\r\n\x1a\n", 8)) return ImageFileFormat::Hdf5;
    if (StartsWith(head, "SIMPLE  =", 9)) return ImageFileFormat::Fits;
    if (StartsWith(head, "OFXD", 4)) return ImageFileFormat::Fxd;
    const std::optional<ImageFileFormat> byName = FormatOfExtension(path);
    if (byName == ImageFileFormat::Raw) return *byName;
    if (byName) throw ImageFileError(path, "is not a " + FormatName(*byName) + " file (its first bytes do not say so)");
    throw ImageFileError(path, "is in no known image format (fxd, tiff, hdf5, fits; raw by the extension .raw or .bin)");
}

}  // namespace io
}  // namespace orvane
