#ifndef ORVANE_IO_IMAGEFILEFORMAT_H
#define ORVANE_IO_IMAGEFILEFORMAT_H

#include <optional>
#include <string>

namespace orvane {
namespace io {

enum class ImageFileFormat { Fxd, Tiff, Hdf5, Fits, Raw };

// "fxd", "tiff", "hdf5", "fits", "raw"; ParseFormatName takes these and throws
// std::invalid_argument for any other text.
std::string FormatName(ImageFileFormat format);
ImageFileFormat ParseFormatName(const std::string& name);

// The extension a writer of the format gives its files: ".fxd", ".tif", ".h5", ".fits",
// ".raw".
std::string FormatExtension(ImageFileFormat format);

// The format an extension stands for (case-insensitive): .fxd; .tif .tiff; .h5 .hdf5
// .hdf .nxs; .fits .fit .fts; .raw .bin. None for any other.
std::optional<ImageFileFormat> FormatOfExtension(const std::string& path);

// The format of an existing file: by its first bytes (the TIFF and BigTIFF byte-order
// marks, the HDF5 signature, "SIMPLE  =" of FITS, "OFXD"), else by its extension (raw
// has no signature). ImageFileError naming the file when it cannot be opened or is
// none of these.
ImageFileFormat DetectFormat(const std::string& path);

}  // namespace io
}  // namespace orvane

#endif
