#ifndef ORVANE_IO_SERIESWRITER_H
#define ORVANE_IO_SERIESWRITER_H

#include "image/ImageAcquisition.h"
#include "io/ImageFileError.h"
#include "io/PixelKind.h"

#include <boost/property_tree/ptree.hpp>

#include <string>
#include <utility>

namespace orvane {
namespace io {

// How a writer lays out its file; each format reads only what concerns it.
struct WriteOptions {
    // HDF5: the dataset to write, e.g. "/dark" or "/exchange/data_white". An existing
    // file gains the dataset beside the ones it has; a dataset of that path is refused.
    // Empty: "/data".
    std::string dataset;
    // How many frames the series will have, when known (0: unknown). TIFF writes
    // BigTIFF when they may pass 4 GB.
    int expectedFrames = 0;
    bool bigTiff = false;    // TIFF: BigTIFF whatever the size
    bool bigEndian = false;  // raw: the byte order of the pixels
};

// Writes the frames of one series, of one size and pixel kind, to one file (or one
// HDF5 dataset), in the order given, each with its metadata where the format has a
// place for it. Failures throw ImageFileError naming the file.
class SeriesWriter {
public:
    virtual ~SeriesWriter() = default;
    SeriesWriter(const SeriesWriter&) = delete;
    SeriesWriter& operator=(const SeriesWriter&) = delete;

    // Appends a frame of width x height pixels of `pixel` kind, row after row, with its
    // properties. Every frame must have the size and kind of the first; none can follow
    // a Close that succeeded.
    void WriteFrame(const void* pixels, int width, int height, PixelKind pixel,
                    const boost::property_tree::ptree& properties) {
        if (closed) throw ImageFileError(path, "is closed: no frame can follow");
        Append(pixels, width, height, pixel, properties);
    }

    template <typename T>
    void WriteImage(const ImageAcquisition<T>& image) {
        WriteFrame(image.GetData(), image.GetWidth(), image.GetHeight(), PixelKindOf<T>::value,
                   image.GetProperties());
    }

    // Completes the file; once that succeeded, a second Close does nothing. A writer
    // destroyed without Close leaves an unfinished file (the commands write into a
    // staging folder, which a failure discards whole).
    void Close() {
        if (closed) return;
        Finish();
        closed = true;
    }

protected:
    explicit SeriesWriter(std::string path) : path(std::move(path)) {}

    virtual void Append(const void* pixels, int width, int height, PixelKind pixel,
                        const boost::property_tree::ptree& properties) = 0;
    virtual void Finish() = 0;

    const std::string path;  // the file written, as its errors name it

private:
    bool closed = false;
};

}  // namespace io
}  // namespace orvane

#endif
