#include "io/ImageFiles.h"

#include "io/FitsFile.h"
#include "io/FxdFile.h"
#include "io/Hdf5File.h"
#include "io/TiffFile.h"

namespace orvane {
namespace io {

std::unique_ptr<SeriesSource> OpenSeries(const std::string& path, const OpenOptions& options) {
    switch (DetectFormat(path)) {
        case ImageFileFormat::Fxd: return OpenFxdSeries(path);
        case ImageFileFormat::Tiff: return OpenTiffSeries(path);
        case ImageFileFormat::Hdf5: return OpenHdf5Series(path, options.dataset);
        case ImageFileFormat::Fits: return OpenFitsSeries(path);
        case ImageFileFormat::Raw: break;
    }
    if (!options.raw) throw ImageFileError(path, "is a raw file: give its layout (e.g. --raw 3121x3121:u16le)");
    return OpenRawSeries(path, *options.raw);
}

std::unique_ptr<SeriesWriter> CreateSeriesWriter(const std::string& path, ImageFileFormat format,
                                                 const WriteOptions& options) {
    switch (format) {
        case ImageFileFormat::Fxd: return CreateFxdWriter(path);
        case ImageFileFormat::Tiff: return CreateTiffWriter(path, options);
        case ImageFileFormat::Hdf5: return CreateHdf5Writer(path, options);
        case ImageFileFormat::Fits: return CreateFitsWriter(path, options);
        case ImageFileFormat::Raw: break;
    }
    return CreateRawWriter(path, options);
}

}  // namespace io
}  // namespace orvane
