#include "python/Bindings.h"

#include "calibration/CalibrationOffsetBase.h"
#include "calibration/CalibrationOffsetTimeGrid.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"
#include "parameters/OffsetParameters.h"

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

// The time-grid offset, on the series machinery of CalibrationOffsetBase (bound with
// the offset family, before this). The record is kept by reference in C++, so the
// calibration keeps its Python object alive; the store is shared. Computing calls run
// without the interpreter lock.
void BindTimeGrid(py::module_& module) {
    py::class_<CalibrationOffsetTimeGrid, CalibrationOffsetBase>(
        module, "CalibrationOffsetTimeGrid",
        "The offsets of a ReferenceOffsetTimeGrid: each entry the rounded mean of a series, kept current by "
        "blending in single frames with a share that grows with the frame's distance in \"image.temperature\" "
        "and \"image.time\" from the stored image.")
        .def(py::init<const OffsetParameters&, boost::shared_ptr<ReferenceOffsetTimeGrid>, unsigned short>(),
             "parameters"_a, "reference"_a, "standbyDeltaTime"_a, py::keep_alive<1, 2>())
        .def("DivideAccumulationAndUpdate", &CalibrationOffsetTimeGrid::DivideAccumulationAndUpdate, "deltaTime"_a,
             WithoutInterpreterLock(), "Closes the series fed through AccumulateOffset into the entry of deltaTime.")
        .def("UpdateSingleOffsetRef", &CalibrationOffsetTimeGrid::UpdateSingleOffsetRef, "deltaTime"_a, "image"_a,
             "useStandby"_a, WithoutInterpreterLock(),
             "Blends one frame into the entry of deltaTime, or into the stand-by image when deltaTime is the "
             "stand-by delta time and useStandby is set. Needs no Init.")
        .def("InitOffsetStandBy", &CalibrationOffsetTimeGrid::InitOffsetStandBy, WithoutInterpreterLock(),
             "The stand-by image becomes a copy of the entry of the stand-by delta time.");
}

}  // namespace python
}  // namespace orvane
