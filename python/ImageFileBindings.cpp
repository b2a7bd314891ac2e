#include "python/Bindings.h"

#include "image/ImageAcquisition.h"
#include "io/ImageFileError.h"
#include "io/ImageFiles.h"

#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <string>

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

namespace {

// Frame `index` of `series` (negative: from the end) as an image of the file's pixel
// kind, read without the interpreter lock. IndexError outside the series, which also
// ends a Python iteration over it.
py::object ReadFrame(io::SeriesSource& series, long index) {
    const int frames = series.Shape().frames;
    if (index < 0) index += frames;
    if (index < 0 || index >= frames) {
        throw py::index_error(series.Name() + ": no frame " + std::to_string(index) + " in a series of " +
                              std::to_string(frames));
    }
    const auto read = [&series, index](auto* kind) {
        using T = std::remove_pointer_t<decltype(kind)>;
        ImagePtr<T> image;
        {
            py::gil_scoped_release release;
            image = series.ReadImage<T>(static_cast<int>(index));
        }
        return py::cast(image);
    };
    switch (series.Shape().pixel) {
        case io::PixelKind::UInt8: return read(static_cast<unsigned char*>(nullptr));
        case io::PixelKind::Float32: return read(static_cast<float*>(nullptr));
        case io::PixelKind::UInt16: break;
    }
    return read(static_cast<unsigned short*>(nullptr));
}

std::unique_ptr<io::SeriesSource> OpenSeries(const std::string& path, const std::optional<std::string>& raw,
                                             const std::string& dataset) {
    io::OpenOptions options;
    if (raw) options.raw = io::ParseRawLayout(*raw);  // std::invalid_argument: ValueError
    options.dataset = dataset;
    py::gil_scoped_release release;
    return io::OpenSeries(path, options);
}

std::unique_ptr<io::SeriesWriter> CreateWriter(const std::string& path, const std::string& format,
                                               const std::string& dataset, int expectedFrames, bool bigTiff,
                                               bool bigEndian) {
    io::ImageFileFormat kind;
    if (format.empty()) {
        const std::optional<io::ImageFileFormat> found = io::FormatOfExtension(path);
        if (!found) {
            throw py::value_error(path + ": no image file format has this extension; name one with format=");
        }
        kind = *found;
    } else {
        kind = io::ParseFormatName(format);
    }
    io::WriteOptions options;
    options.dataset = dataset;
    options.expectedFrames = expectedFrames;
    options.bigTiff = bigTiff;
    options.bigEndian = bigEndian;
    py::gil_scoped_release release;
    return io::CreateSeriesWriter(path, kind, options);
}

template <typename T>
void BindWriteImage(py::class_<io::SeriesWriter>& writer) {
    writer.def(
        "WriteImage", [](io::SeriesWriter& self, const ImageAcquisition<T>& image) { self.WriteImage(image); },
        "image"_a, WithoutInterpreterLock());
}

}  // namespace

void BindImageFiles(py::module_& module) {
    py::class_<io::FrameShape>(module, "FrameShape", "Width, height, pixel kind and frame count of a series.")
        .def_readonly("width", &io::FrameShape::width)
        .def_readonly("height", &io::FrameShape::height)
        .def_readonly("frames", &io::FrameShape::frames)
        .def_property_readonly("dtype",
                               [](const io::FrameShape& shape) {
                                   switch (shape.pixel) {
                                       case io::PixelKind::UInt8: return "uint8";
                                       case io::PixelKind::Float32: return "float32";
                                       case io::PixelKind::UInt16: break;
                                   }
                                   return "uint16";
                               })
        .def("__repr__", [](const io::FrameShape& shape) {
            return "FrameShape(width=" + std::to_string(shape.width) + ", height=" + std::to_string(shape.height) +
                   ", frames=" + std::to_string(shape.frames) + ", pixel=\"" + io::PixelKindName(shape.pixel) +
                   "\")";
        });

    py::class_<io::SeriesSource>(module, "SeriesSource",
                                 "The frames of one image file (TIFF, HDF5/NeXus, FITS, raw or .fxd), read one at a "
                                 "time. series[i] and iteration give images of the file's pixel kind, with the "
                                 "frame's \"image.time\" and \"image.temperature\" where the file has them.")
        .def("Name", &io::SeriesSource::Name)
        .def("Shape", &io::SeriesSource::Shape)
        .def("ReadImage", &ReadFrame, "index"_a)
        .def("__getitem__", &ReadFrame, "index"_a)
        .def("__len__", [](const io::SeriesSource& series) { return series.Shape().frames; });

    module.def("OpenSeries", &OpenSeries, "path"_a, "raw"_a = py::none(), "dataset"_a = "",
               "Opens the series of an image file, its format found from its first bytes (raw from its "
               "extension). raw: the layout of a raw file, \"<width>x<height>:<type>[:<header bytes>]\" with type "
               "u8, u16le, u16be, f32le or f32be. dataset: the HDF5 dataset, found when the file has one series.");

    py::class_<io::SeriesWriter> writer(module, "SeriesWriter",
                                        "Writes the frames of one series, in order, with their properties where "
                                        "the format has a place for them. Close completes the file; as a context "
                                        "manager it closes on leaving without an exception.");
    BindWriteImage<unsigned short>(writer);
    BindWriteImage<float>(writer);
    BindWriteImage<unsigned char>(writer);
    writer.def("Close", &io::SeriesWriter::Close, WithoutInterpreterLock())
        .def("__enter__", [](io::SeriesWriter& self) -> io::SeriesWriter& { return self; },
             py::return_value_policy::reference)
        .def("__exit__", [](io::SeriesWriter& self, const py::object& type, const py::object&, const py::object&) {
            if (type.is_none()) {
                py::gil_scoped_release release;
                self.Close();
            }
            return false;
        });

    module.def("CreateSeriesWriter", &CreateWriter, "path"_a, "format"_a = "", "dataset"_a = "",
               "expectedFrames"_a = 0, "bigTiff"_a = false, "bigEndian"_a = false,
               "A writer of the format named (\"fxd\", \"tiff\", \"hdf5\", \"fits\", \"raw\"), or of the one the "
               "path's extension stands for. dataset: the HDF5 dataset (\"/data\" when empty).");
}

}  // namespace python
}  // namespace orvane
