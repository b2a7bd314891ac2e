#ifndef ORVANE_PYTHON_BINDINGS_H
#define ORVANE_PYTHON_BINDINGS_H

#include <boost/shared_ptr.hpp>
#include <pybind11/pybind11.h>

// Python objects of the library's classes hold them as the library shares them, so an
// image or a store handed to Python and back is the same object on both sides.
PYBIND11_DECLARE_HOLDER_TYPE(T, boost::shared_ptr<T>, true);

namespace orvane {
namespace python {

// The guard of every call that computes or touches files: it runs without the
// interpreter lock, its arguments converted to C++ objects before the lock is let go.
using WithoutInterpreterLock = pybind11::call_guard<pybind11::gil_scoped_release>;

// One binding file per family of the library; Module.cpp calls them in this order.
void BindErrors(pybind11::module_& module);
void BindImages(pybind11::module_& module);
void BindParameters(pybind11::module_& module);
void BindStores(pybind11::module_& module);
void BindOffset(pybind11::module_& module);
void BindImageFiles(pybind11::module_& module);
void BindTimeGrid(pybind11::module_& module);
void BindCalibrations(pybind11::module_& module);
void BindCorrection(pybind11::module_& module);

}  // namespace python
}  // namespace orvane

#endif
