#include "python/Bindings.h"

#include "tools/Parallel.h"

namespace py = pybind11;
using namespace pybind11::literals;

PYBIND11_MODULE(_core, module) {
    module.doc() = "The C++ classes of orvane-calibration; the package `orvane` re-exports them.";
    module.attr("__version__") = ORVANE_VERSION;

    orvane::python::BindErrors(module);
    orvane::python::BindImages(module);
    orvane::python::BindParameters(module);
    orvane::python::BindStores(module);
    orvane::python::BindOffset(module);
    orvane::python::BindImageFiles(module);
    orvane::python::BindTimeGrid(module);
    orvane::python::BindCalibrations(module);
    orvane::python::BindCorrection(module);

    module.def("ThreadCount", &orvane::ThreadCount,
               "The threads the library's parallel work uses (SetThreadCount, else ORVANE_THREADS, else the "
               "cores).");
    module.def("SetThreadCount", &orvane::SetThreadCount, "threads"_a,
               "n >= 1 fixes the count of the library's threads; 0 returns to the default.");
}
