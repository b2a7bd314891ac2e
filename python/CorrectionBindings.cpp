#include "python/Bindings.h"

#include "correction/CorrectionChain.h"
#include "correction/DefectReplacement.h"
#include "correction/GainPolyCorrection.h"
#include "correction/OffsetCorrection.h"
#include "correction/OutputConversion.h"
#include "correction/TimeGridBlend.h"
#include "interfaces/CorrectionGainLinear.h"

#include <string>

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

namespace {

void BindReplacement(py::module_& module) {
    py::class_<DefectReplacement> replacement(
        module, "DefectReplacement",
        "Replaces the flagged pixels of a float frame, in place, from the good pixels around them: runs by "
        "interpolation across them, isolated pixels by the mean of their good neighbours, clusters by the "
        "nearest good pixels in eight directions. marks, when given, receives 0 good, 1 isolated, 2 in a run, "
        "3 in a cluster, 255 left unreplaced.");
    py::class_<DefectReplacement::Options>(replacement, "Options")
        .def(py::init<>())
        .def_readwrite("minimumRun", &DefectReplacement::Options::minimumRun)
        .def_readwrite("maximumThickness", &DefectReplacement::Options::maximumThickness)
        .def_readwrite("reach", &DefectReplacement::Options::reach)
        .def("__repr__", [](const DefectReplacement::Options& o) {
            return "Options(minimumRun=" + std::to_string(o.minimumRun) +
                   ", maximumThickness=" + std::to_string(o.maximumThickness) + ", reach=" + std::to_string(o.reach) +
                   ")";
        });
    py::class_<DefectReplacement::Result>(replacement, "Result")
        .def_readonly("replacedIsolated", &DefectReplacement::Result::replacedIsolated)
        .def_readonly("replacedInRuns", &DefectReplacement::Result::replacedInRuns)
        .def_readonly("replacedInClusters", &DefectReplacement::Result::replacedInClusters)
        .def_readonly("unreplaced", &DefectReplacement::Result::unreplaced)
        .def("__repr__", [](const DefectReplacement::Result& r) {
            return "Result(replacedIsolated=" + std::to_string(r.replacedIsolated) +
                   ", replacedInRuns=" + std::to_string(r.replacedInRuns) +
                   ", replacedInClusters=" + std::to_string(r.replacedInClusters) +
                   ", unreplaced=" + std::to_string(r.unreplaced) + ")";
        });
    replacement.def(py::init<>())
        .def(py::init<const DefectReplacement::Options&>(), "options"_a)
        .def("GetOptions", &DefectReplacement::GetOptions)
        .def(
            "Replace",
            [](const DefectReplacement& self, const ImagePtr<float>& frame, const ImagePtr<unsigned char>& map,
               const ImagePtr<unsigned char>& marks) { return self.Replace(frame, map, marks); },
            "frame"_a, "map"_a, "marks"_a = py::none(), WithoutInterpreterLock())
        .def(
            "Replace",
            [](const DefectReplacement& self, const ImagePtr<float>& frame, ReferenceDM& store,
               const ImagePtr<unsigned char>& marks) { return self.Replace(frame, store, marks); },
            "frame"_a, "store"_a, "marks"_a = py::none(), WithoutInterpreterLock());
    replacement.attr("kMarkGood") = DefectReplacement::kMarkGood;
    replacement.attr("kMarkIsolated") = DefectReplacement::kMarkIsolated;
    replacement.attr("kMarkRun") = DefectReplacement::kMarkRun;
    replacement.attr("kMarkCluster") = DefectReplacement::kMarkCluster;
    replacement.attr("kMarkUnreplaced") = DefectReplacement::kMarkUnreplaced;
}

void BindSteps(py::module_& module) {
    py::class_<OffsetCorrection, boost::shared_ptr<OffsetCorrection>>(
        module, "OffsetCorrection",
        "out = raw - offset in float, unclipped; the offset is a dynamic-offset store (read at each Correct) or a "
        "fixed float image such as a time grid's blend.")
        .def(py::init<boost::shared_ptr<ReferenceOffsetSimple>>(), "store"_a)
        .def(py::init<ImagePtr<float>>(), "offset"_a)
        .def("GetWidth", &OffsetCorrection::GetWidth)
        .def("GetHeight", &OffsetCorrection::GetHeight)
        .def("Correct", &OffsetCorrection::Correct, "raw"_a, "out"_a, WithoutInterpreterLock());

    py::class_<CorrectionGainLinear>(module, "CorrectionGainLinear",
                                     "Applies a stored linear gain to a float image in place; 0 where the store "
                                     "has no usable gain.")
        .def(py::init<boost::shared_ptr<ReferenceGainLinear>>(), "gain"_a)
        .def(
            "Correct", [](CorrectionGainLinear& self, ImagePtr<float> image) { self.Correct(image); }, "image"_a,
            WithoutInterpreterLock());

    py::class_<GainPolyCorrection>(module, "GainPolyCorrection",
                                   "Applies a polynomial gain (no constant term) to a float image in place; the "
                                   "coefficients are taken from the store when it is made.")
        .def(py::init<const boost::shared_ptr<ReferenceGainPoly>&>(), "store"_a)
        .def("GetWidth", &GainPolyCorrection::GetWidth)
        .def("GetHeight", &GainPolyCorrection::GetHeight)
        .def("Correct", &GainPolyCorrection::Correct, "image"_a, WithoutInterpreterLock());

    py::class_<TimeGridBlend> blend(module, "TimeGridBlend",
                                    "The offset of a time grid at a temperature and time between the states its "
                                    "entries were measured in: the two neighbouring entries blended by temperature "
                                    "(by time when their temperatures are equal), never extrapolated.");
    py::class_<TimeGridBlend::Weights>(blend, "Weights")
        .def_readonly("lower", &TimeGridBlend::Weights::lower)
        .def_readonly("upper", &TimeGridBlend::Weights::upper)
        .def_readonly("share", &TimeGridBlend::Weights::share)
        .def("__repr__", [](const TimeGridBlend::Weights& w) {
            return "Weights(lower=" + std::to_string(w.lower) + ", upper=" + std::to_string(w.upper) +
                   ", share=" + py::repr(py::float_(w.share)).cast<std::string>() + ")";
        });
    blend.def(py::init<boost::shared_ptr<ReferenceOffsetTimeGrid>>(), "grid"_a)
        .def("WeightsAt", &TimeGridBlend::WeightsAt, "temperature"_a, "time"_a)
        .def("OffsetAt", &TimeGridBlend::OffsetAt, "temperature"_a, "time"_a, WithoutInterpreterLock());

    module.def("OutputToUInt16", &OutputConversion::ToUInt16, "corrected"_a, "out"_a, WithoutInterpreterLock(),
               "Rounds a corrected float image into a 16-bit one, clamped to 0 .. 65535; gives the pixels clamped.");
}

void BindChain(py::module_& module) {
    py::class_<CorrectionChain> chain(
        module, "CorrectionChain",
        "Offset, gain, defect replacement and output for frames of one size, bit for bit the operations applied "
        "one after another, for any thread count.");
    py::class_<CorrectionChain::Result>(chain, "Result")
        .def_readonly("clamped", &CorrectionChain::Result::clamped)
        .def_readonly("defects", &CorrectionChain::Result::defects);
    chain.def(py::init<int, int>(), "width"_a, "height"_a)
        .def("GetWidth", &CorrectionChain::GetWidth)
        .def("GetHeight", &CorrectionChain::GetHeight)
        .def("SetOffset", &CorrectionChain::SetOffset, "offset"_a)
        .def("SetGainLinear", &CorrectionChain::SetGainLinear, "gain"_a)
        .def("SetGainPoly", &CorrectionChain::SetGainPoly, "gain"_a, WithoutInterpreterLock())
        .def("SetDefects", &CorrectionChain::SetDefects, "map"_a, "options"_a = DefectReplacement::Options())
        .def(
            "Correct",
            [](const CorrectionChain& self, const ImagePtr<unsigned short>& raw, const ImagePtr<float>& out,
               const ImagePtr<unsigned char>& marks) { return self.Correct(raw, out, marks); },
            "raw"_a, "out"_a, "marks"_a = py::none(), WithoutInterpreterLock())
        .def(
            "Correct",
            [](CorrectionChain& self, const ImagePtr<unsigned short>& raw, const ImagePtr<unsigned short>& out,
               const ImagePtr<unsigned char>& marks) { return self.Correct(raw, out, marks); },
            "raw"_a, "out"_a, "marks"_a = py::none(), WithoutInterpreterLock());
}

}  // namespace

void BindCorrection(py::module_& module) {
    BindReplacement(module);
    BindSteps(module);
    BindChain(module);
}

}  // namespace python
}  // namespace orvane
