#include "python/NumpyImages.h"

#include <boost/make_shared.hpp>
#include <boost/shared_array.hpp>

#include <climits>
#include <memory>
#include <string>

namespace py = pybind11;

namespace orvane {
namespace python {

namespace {

// The deleter of pixels that belong to a numpy array: lets go of the array. The last
// user of an image may be a call that runs without the interpreter lock, so it takes
// the lock; once the interpreter has ended, the array is gone with it.
struct ReleaseArray {
    PyObject* array;
    void operator()(const void*) const {
        if (!Py_IsInitialized()) {
            return;
        }
        py::gil_scoped_acquire lock;
        Py_DECREF(array);
    }
};

std::string DtypeName(const py::dtype& dtype) {
    return py::str(py::object(dtype)).cast<std::string>();
}

// Images count their pixels in an int.
void CheckSize(py::ssize_t width, py::ssize_t height) {
    if (width < 0 || height < 0 || (width > 0 && height > INT_MAX / width)) {
        throw py::value_error("orvane: an image of " + std::to_string(width) + " x " + std::to_string(height) +
                              " pixels cannot be made (at most " + std::to_string(INT_MAX) + " pixels)");
    }
}

}  // namespace

template <typename T>
ImagePtr<T> ImageFromArray(const py::handle& source) {
    py::array array = py::module_::import("numpy").attr("asarray")(source);
    const std::string expected = DtypeName(py::dtype::of<T>());
    if (!py::isinstance<py::array_t<T>>(array)) {
        throw py::type_error("orvane: an image of " + expected + " pixels needs an array of dtype " + expected +
                             ", not " + DtypeName(array.dtype()));
    }
    if (array.ndim() != 2) {
        throw py::value_error("orvane: an image needs a 2-D array (rows x columns), not one of " +
                              std::to_string(array.ndim()) + " dimensions");
    }
    const py::ssize_t height = array.shape(0);
    const py::ssize_t width = array.shape(1);
    CheckSize(width, height);
    if (!(array.flags() & py::array::c_style) || !array.writeable()) {
        array = py::array(array.attr("copy")("C"));
    }
    T* pixels = static_cast<T*>(array.mutable_data());
    boost::shared_array<T> shared(pixels, ReleaseArray{array.release().ptr()});
    return boost::make_shared<ImageAcquisition<T>>(static_cast<int>(width), static_cast<int>(height),
                                                   std::move(shared));
}

template <typename T>
ImagePtr<T> NewImage(int width, int height) {
    CheckSize(width, height);
    return boost::make_shared<ImageAcquisition<T>>(width, height);
}

template <typename T>
py::array_t<T> ArrayOfImage(const ImagePtr<T>& image) {
    if (!image) {
        throw py::value_error("orvane: no image");
    }
    auto owner = std::make_unique<ImagePtr<T>>(image);
    py::capsule base(owner.get(), [](void* held) { delete static_cast<ImagePtr<T>*>(held); });
    owner.release();
    const py::ssize_t width = image->GetWidth();
    const py::ssize_t height = image->GetHeight();
    const py::ssize_t bytes = static_cast<py::ssize_t>(sizeof(T));
    return py::array_t<T>({height, width}, {width * bytes, bytes}, image->GetData(), base);
}

template ImagePtr<unsigned char> ImageFromArray<unsigned char>(const py::handle&);
template ImagePtr<unsigned short> ImageFromArray<unsigned short>(const py::handle&);
template ImagePtr<float> ImageFromArray<float>(const py::handle&);
template ImagePtr<unsigned char> NewImage<unsigned char>(int, int);
template ImagePtr<unsigned short> NewImage<unsigned short>(int, int);
template ImagePtr<float> NewImage<float>(int, int);
template py::array_t<unsigned char> ArrayOfImage<unsigned char>(const ImagePtr<unsigned char>&);
template py::array_t<unsigned short> ArrayOfImage<unsigned short>(const ImagePtr<unsigned short>&);
template py::array_t<float> ArrayOfImage<float>(const ImagePtr<float>&);

}  // namespace python
}  // namespace orvane
