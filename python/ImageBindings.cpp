#include "python/Bindings.h"
#include "python/NumpyImages.h"

#include "image/ImageAcquisition.h"

#include <string>

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

namespace {

// ImageAcquisition<T> as the Python class `name`: made zero-filled from a size or over
// the pixels of a numpy array, seen as a numpy array through `array`, and accepted
// wherever the library takes an image of T, so that an array can be passed directly.
template <typename T>
void BindImage(py::module_& module, const char* name, const char* dtype) {
    const std::string doc = std::string("An image of ") + dtype +
                            " pixels, shared with numpy without a copy.\n\n"
                            "Made from (width, height), zero-filled, or from a 2-D array of dtype " +
                            dtype +
                            " (rows x columns), whose pixels it then uses and keeps alive: "
                            "writes through either side show on the other. An array that is not "
                            "C-contiguous or not writeable is copied once.";
    py::class_<ImageAcquisition<T>, ImagePtr<T>>(module, name, doc.c_str())
        .def(py::init(&NewImage<T>), "width"_a, "height"_a)
        .def(py::init([](const py::object& array) { return ImageFromArray<T>(array); }), "array"_a)
        .def_property_readonly("width", &ImageAcquisition<T>::GetWidth)
        .def_property_readonly("height", &ImageAcquisition<T>::GetHeight)
        .def_property_readonly("array", &ArrayOfImage<T>,
                               "The pixels as a writeable numpy view (rows x columns) that keeps the image alive.")
        .def(
            "__array__",
            [](const ImagePtr<T>& image, const py::object& dtype) {
                py::object view = ArrayOfImage<T>(image);
                return dtype.is_none() ? view : view.attr("astype")(dtype);
            },
            "dtype"_a = py::none())
        .def(
            "GetProperty",
            [](const ImageAcquisition<T>& image, const std::string& key) {
                const auto value = image.GetProperties().template get_optional<std::string>(key);
                if (!value) throw py::key_error(key);
                return *value;
            },
            "key"_a, "The text of a frame property such as \"image.time\"; KeyError when the image has none.")
        .def(
            "SetProperty", [](ImageAcquisition<T>& image, const std::string& key, const std::string& value) {
                image.SetProperty(key, value);
            },
            "key"_a, "value"_a)
        .def("__repr__", [name](const ImageAcquisition<T>& image) {
            return std::string("<orvane.") + name + " " + std::to_string(image.GetWidth()) + " x " +
                   std::to_string(image.GetHeight()) + ">";
        });
    py::implicitly_convertible<py::array, ImageAcquisition<T>>();
}

}  // namespace

void BindImages(py::module_& module) {
    BindImage<unsigned short>(module, "ImageUInt16", "uint16");
    BindImage<float>(module, "ImageFloat32", "float32");
    BindImage<unsigned char>(module, "ImageUInt8", "uint8");
}

}  // namespace python
}  // namespace orvane
