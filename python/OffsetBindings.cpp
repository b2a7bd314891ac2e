#include "python/Bindings.h"

#include "calibration/CalibrationOffsetBase.h"
#include "calibration/CalibrationOffsetDynamic.h"
#include "calibration/CalibrationOffsetPreview.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "parameters/OffsetDynamicParameters.h"

#include <pybind11/stl.h>

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

namespace {

// The averaging of a series that every offset calibration shares; not made from Python.
void BindOffsetBase(py::module_& module) {
    py::class_<CalibrationOffsetBase>(module, "CalibrationOffsetBase",
                                      "The series of dark frames of the offset calibrations: Init, then "
                                      "AccumulateOffset per frame (or AccumulateOffsets), closed by the derived "
                                      "class's DivideAccumulationAndUpdate.")
        .def("Init", &CalibrationOffsetBase::Init, WithoutInterpreterLock())
        .def("Clear", &CalibrationOffsetBase::Clear, WithoutInterpreterLock())
        .def("AccumulateOffset", &CalibrationOffsetBase::AccumulateOffset, "image"_a, WithoutInterpreterLock())
        .def("AccumulateOffsets", &CalibrationOffsetBase::AccumulateOffsets, "images"_a, WithoutInterpreterLock())
        .def("DeleteAccumulation", &CalibrationOffsetBase::DeleteAccumulation, WithoutInterpreterLock());
}

void BindOffsetSimple(py::module_& module) {
    // The record is kept by reference in C++, so the calibration keeps its Python
    // object alive (keep_alive); the store is shared.
    py::class_<CalibrationOffsetDynamic, CalibrationOffsetBase>(
        module, "CalibrationOffsetDynamic",
        "The offset of a ReferenceOffsetSimple: the rounded mean of a series of dark frames, kept current by "
        "blending in single frames. One thread at a time per object; objects on several threads run at once.")
        .def(py::init<const OffsetDynamicParameters&, boost::shared_ptr<ReferenceOffsetSimple>>(), "parameters"_a,
             "reference"_a, py::keep_alive<1, 2>())
        .def("CalculateOffsetReference", &CalibrationOffsetDynamic::CalculateOffsetReference, "images"_a,
             WithoutInterpreterLock())
        .def("DivideAccumulationAndUpdate", &CalibrationOffsetDynamic::DivideAccumulationAndUpdate,
             WithoutInterpreterLock())
        .def("UpdateSingleOffsetRef", &CalibrationOffsetDynamic::UpdateSingleOffsetRef, "image"_a,
             WithoutInterpreterLock());

    py::class_<CalibrationOffsetPreview, CalibrationOffsetBase>(
        module, "CalibrationOffsetPreview",
        "The offset of a ReferenceOffsetSimple replaced by the last frame (pixels and properties).")
        .def(py::init<boost::shared_ptr<ReferenceOffsetSimple>>(), "reference"_a)
        .def("UpdateSingleOffsetRef", &CalibrationOffsetPreview::UpdateSingleOffsetRef, "image"_a,
             WithoutInterpreterLock());
}

}  // namespace

void BindOffset(py::module_& module) {
    BindOffsetBase(module);
    BindOffsetSimple(module);
}

}  // namespace python
}  // namespace orvane
