#include "python/Bindings.h"

#include "calibration/CalibrationOffsetDynamic.h"
#include "interfaces/Reference.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "parameters/OffsetDynamicParameters.h"
#include "parameters/OffsetDynamicParametersSet.h"

#include <pybind11/stl.h>

#include <memory>
#include <string>
#include <vector>

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

namespace {

// Every call below that computes or touches files runs without the interpreter lock:
// its arguments are converted to C++ objects before the lock is let go.
using WithoutInterpreterLock = py::call_guard<py::gil_scoped_release>;

void BindParameters(py::module_& module) {
    py::class_<OffsetDynamicParameters>(module, "OffsetDynamicParameters",
                                        "Parameters of CalibrationOffsetDynamic.")
        .def(py::init<>())
        .def_readwrite("Weight", &OffsetDynamicParameters::Weight,
                       "Share of a new frame when it is blended into the offset.")
        .def("__repr__", [](const OffsetDynamicParameters& record) {
            return "OffsetDynamicParameters(Weight=" + py::repr(py::float_(record.Weight)).cast<std::string>() + ")";
        });

    // The process-wide set, never owned by Python. lookup gives a copy of the row: a
    // record Python owns, which a calibration keeps alive and which a caller may change
    // without changing the table.
    py::class_<OffsetDynamicParametersSet, std::unique_ptr<OffsetDynamicParametersSet, py::nodelete>>(
        module, "OffsetDynamicParametersSet")
        .def(
            "lookup", [](OffsetDynamicParametersSet& set, const std::string& key) { return set.lookup(key); },
            "key"_a, "The record for a detector key such as \"Hazel.A1.m3\" (nearest row, else the default).")
        .def("HasOwnRow", &OffsetDynamicParametersSet::HasOwnRow, "key"_a);
    module.attr("s_OffsetDynamicParametersSet") =
        py::cast(&s_OffsetDynamicParametersSet, py::return_value_policy::reference);
}

void BindStores(py::module_& module) {
    py::class_<Reference, boost::shared_ptr<Reference>>(module, "Reference",
                                                        "Root of the reference stores. An empty path means an "
                                                        "in-memory store, for which Save and Load do nothing.")
        .def("IsValid", &Reference::IsValid)
        .def("SetValid", &Reference::SetValid, "valid"_a)
        .def("Save", &Reference::Save, WithoutInterpreterLock())
        .def("Load", &Reference::Load, WithoutInterpreterLock())
        .def("GetPath", &Reference::GetPath);

    py::class_<ReferenceOffsetSimple, Reference, boost::shared_ptr<ReferenceOffsetSimple>>(
        module, "ReferenceOffsetSimple", "One 16-bit offset image; GetOffset gives the live image.")
        .def(py::init<int, int, const std::string&>(), "width"_a, "height"_a, "path"_a = "")
        .def("GetOffset", &ReferenceOffsetSimple::GetOffset);
}

void BindCalibration(py::module_& module) {
    // The record is kept by reference in C++, so the calibration keeps its Python
    // object alive (keep_alive); the store is shared.
    py::class_<CalibrationOffsetDynamic>(module, "CalibrationOffsetDynamic",
                                         "The offset of a ReferenceOffsetSimple: the rounded mean of a series of "
                                         "dark frames, kept current by blending in single frames. One thread at a "
                                         "time per object; objects on several threads run at once.")
        .def(py::init<const OffsetDynamicParameters&, boost::shared_ptr<ReferenceOffsetSimple>>(), "parameters"_a,
             "reference"_a, py::keep_alive<1, 2>())
        .def("Init", &CalibrationOffsetDynamic::Init, WithoutInterpreterLock())
        .def("Clear", &CalibrationOffsetDynamic::Clear, WithoutInterpreterLock())
        .def("AccumulateOffset", &CalibrationOffsetDynamic::AccumulateOffset, "image"_a, WithoutInterpreterLock())
        .def("AccumulateOffsets", &CalibrationOffsetDynamic::AccumulateOffsets, "images"_a, WithoutInterpreterLock())
        .def("DeleteAccumulation", &CalibrationOffsetDynamic::DeleteAccumulation, WithoutInterpreterLock())
        .def("CalculateOffsetReference", &CalibrationOffsetDynamic::CalculateOffsetReference, "images"_a,
             WithoutInterpreterLock())
        .def("DivideAccumulationAndUpdate", &CalibrationOffsetDynamic::DivideAccumulationAndUpdate,
             WithoutInterpreterLock())
        .def("UpdateSingleOffsetRef", &CalibrationOffsetDynamic::UpdateSingleOffsetRef, "image"_a,
             WithoutInterpreterLock());
}

}  // namespace

void BindOffset(py::module_& module) {
    BindParameters(module);
    BindStores(module);
    BindCalibration(module);
}

}  // namespace python
}  // namespace orvane
