#include "python/Bindings.h"

#include "interfaces/BaseException.h"
#include "interfaces/CalibrationException.h"
#include "interfaces/ImageFileException.h"
#include "interfaces/ImageFormatException.h"
#include "interfaces/ReferenceException.h"
#include "io/ImageFileError.h"

namespace py = pybind11;

namespace orvane {
namespace python {

// The library's exceptions as one Python hierarchy under orvane.Error, each carrying
// the library's text unchanged. Translators run newest first, so the concrete classes
// are registered after their base.
void BindErrors(py::module_& module) {
    const auto& error = py::register_exception<BaseException>(module, "Error");
    py::register_exception<CalibrationException>(module, "CalibrationException", error);
    py::register_exception<ReferenceException>(module, "ReferenceException", error);
    py::register_exception<ImageFileException>(module, "ImageFileException", error);
    py::register_exception<ImageFormatException>(module, "ImageFormatException", error);
    // A file of the image-file layer that cannot be read or written: "<file>: <problem>".
    py::register_exception<io::ImageFileError>(module, "ImageFileError", error);
}

}  // namespace python
}  // namespace orvane
