#include "python/Bindings.h"

#include "calibration/CalibrationAutomaticDefect.h"
#include "calibration/CalibrationClusters.h"
#include "calibration/CalibrationDefectMap.h"
#include "calibration/CalibrationDefectMapDark.h"
#include "calibration/CalibrationDefectMapGain.h"
#include "calibration/CalibrationDefectMapUntypical.h"
#include "calibration/CalibrationEcholine.h"
#include "calibration/CalibrationGainLinear.h"
#include "calibration/CalibrationGainPoly.h"
#include "calibration/DefectMapFlag.h"
#include "calibration/DefectMapMerge.h"

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <vector>

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

namespace {

using Frames = std::vector<ImagePtr<unsigned short>>;

constexpr const char* kOneThread =
    " One thread at a time per object; objects on several threads run at once, their heavy calls without the "
    "interpreter lock.";

// A DefectMapFlag that owns the record it reads. The library's flag keeps the caller's
// record by reference; from Python a flag lives on inside the calibrations and merges
// it is given to, after its own Python object (and so any record kept alive with it)
// is gone.
struct FlagRecord {
    DMFlagParameters record;
};
class OwningDefectMapFlag : private FlagRecord, public DefectMapFlag {
public:
    explicit OwningDefectMapFlag(const DMFlagParameters& parameters)
        : FlagRecord{parameters}, DefectMapFlag(FlagRecord::record) {}
};

// A calibration class with its constructor and Init / Clear. The first argument of
// every constructor here is a parameter record the calibration keeps by reference:
// the calibration keeps its Python object alive.
template <typename Calibration, typename... Arguments, typename... Names>
py::class_<Calibration> BindCalibration(py::module_& module, const char* name, const std::string& doc,
                                        Names... names) {
    py::class_<Calibration> calibration(module, name, (doc + kOneThread).c_str());
    calibration.def(py::init<Arguments...>(), names..., py::keep_alive<1, 2>())
        .def("Init", &Calibration::Init, WithoutInterpreterLock())
        .def("Clear", &Calibration::Clear, WithoutInterpreterLock());
    return calibration;
}

void BindGains(py::module_& module) {
    BindCalibration<CalibrationGainLinear, const GainLinearParameters&, boost::shared_ptr<ReferenceGainLinear>,
                    boost::shared_ptr<ReferenceDM>>(
        module, "CalibrationGainLinear",
        "The linear gain of a ReferenceGainLinear from offset-subtracted flat frames of one dose; the pixels "
        "flagged in the defect map do not count in the levels.",
        "parameters"_a, "reference"_a, "defectMap"_a)
        .def("AccumulateGainImg", &CalibrationGainLinear::AccumulateGainImg, "frame"_a, WithoutInterpreterLock())
        .def("DivideAccumulation", &CalibrationGainLinear::DivideAccumulation, WithoutInterpreterLock())
        .def("CalculateGainReference", py::overload_cast<>(&CalibrationGainLinear::CalculateGainReference),
             WithoutInterpreterLock())
        .def("CalculateGainReference",
             py::overload_cast<const Frames&>(&CalibrationGainLinear::CalculateGainReference), "frames"_a,
             WithoutInterpreterLock());

    BindCalibration<CalibrationGainPoly, const GainPolyParameters&, boost::shared_ptr<ReferenceGainPoly>,
                    boost::shared_ptr<ReferenceGainLinear>, boost::shared_ptr<ReferenceDM>, int>(
        module, "CalibrationGainPoly",
        "The polynomial gain of a ReferenceGainPoly from offset-subtracted flat frames of several doses.",
        "parameters"_a, "reference"_a, "linearReference"_a, "defectMap"_a, "nbDoses"_a)
        .def("AccumulateGainImg", &CalibrationGainPoly::AccumulateGainImg, "frame"_a, WithoutInterpreterLock())
        .def("DivideAccumulation", &CalibrationGainPoly::DivideAccumulation, "doseWeight"_a,
             WithoutInterpreterLock())
        .def("CalculateGainReference", &CalibrationGainPoly::CalculateGainReference, WithoutInterpreterLock())
        .def("CalculateDenoisedGainReference", &CalibrationGainPoly::CalculateDenoisedGainReference,
             WithoutInterpreterLock());
}

void BindDefectMaps(py::module_& module) {
    py::class_<DefectMapFlag, boost::shared_ptr<DefectMapFlag>>(
        module, "DefectMapFlag",
        "The flagging rules of a DMFlagParameters record: rows, columns and bands of a defect map taken whole. "
        "It keeps a copy of the record: later changes of the record do not reach it.")
        .def(py::init([](const DMFlagParameters& parameters) {
                 return boost::shared_ptr<DefectMapFlag>(new OwningDefectMapFlag(parameters));
             }),
             "parameters"_a)
        .def("UpdateDefectMap", &DefectMapFlag::UpdateDefectMap, "map"_a, WithoutInterpreterLock());

    BindCalibration<CalibrationDefectMap, const DefectMapParameters&, boost::shared_ptr<ReferenceDM>,
                    boost::shared_ptr<ReferenceGainLinear>, boost::shared_ptr<DefectMapFlag>>(
        module, "CalibrationDefectMap",
        "The defect map of a dark series and flat doses (the frames of a dose fed between BeginDose and EndDose), "
        "read through the linear gain.",
        "parameters"_a, "reference"_a, "gain"_a, "flag"_a)
        .def("StoreAndCorrect", &CalibrationDefectMap::StoreAndCorrect, "image"_a, WithoutInterpreterLock())
        .def("BeginDose", &CalibrationDefectMap::BeginDose, WithoutInterpreterLock())
        .def("AccumulateDoseImg", &CalibrationDefectMap::AccumulateDoseImg, "image"_a, WithoutInterpreterLock())
        .def("EndDose", &CalibrationDefectMap::EndDose, WithoutInterpreterLock())
        .def("DefectMap6", py::overload_cast<>(&CalibrationDefectMap::DefectMap6), WithoutInterpreterLock())
        .def("DefectMap6", py::overload_cast<const Frames&>(&CalibrationDefectMap::DefectMap6), "images"_a,
             WithoutInterpreterLock())
        .def("UpdateDefectMapReference", &CalibrationDefectMap::UpdateDefectMapReference,
             WithoutInterpreterLock());

    BindCalibration<CalibrationDefectMapGain, const DefectMapGainParameters&, boost::shared_ptr<ReferenceDM>,
                    boost::shared_ptr<ReferenceGainLinear>, boost::shared_ptr<DefectMapFlag>>(
        module, "CalibrationDefectMapGain", "The defect map of the pixels whose linear gain stands out.",
        "parameters"_a, "reference"_a, "gain"_a, "flag"_a)
        .def("DefectMapGain", &CalibrationDefectMapGain::DefectMapGain, WithoutInterpreterLock())
        .def("UpdateDefectMapReference", &CalibrationDefectMapGain::UpdateDefectMapReference,
             WithoutInterpreterLock());

    BindCalibration<CalibrationDefectMapDark, const DefectMapDarkParameters&, boost::shared_ptr<ReferenceDM>>(
        module, "CalibrationDefectMapDark", "The defect map of the pixels a dark series shows.", "parameters"_a,
        "reference"_a)
        .def("AccumulateImg", &CalibrationDefectMapDark::AccumulateImg, "image"_a, WithoutInterpreterLock())
        .def("ComputeDefectMapDarkAndMerge",
             py::overload_cast<>(&CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge), WithoutInterpreterLock())
        .def("ComputeDefectMapDarkAndMerge",
             py::overload_cast<const Frames&>(&CalibrationDefectMapDark::ComputeDefectMapDarkAndMerge), "images"_a,
             WithoutInterpreterLock())
        .def("UpdateDefectMapReference", &CalibrationDefectMapDark::UpdateDefectMapReference,
             WithoutInterpreterLock());

    BindCalibration<CalibrationDefectMapUntypical, const DefectMapUntypicalParameters&,
                    boost::shared_ptr<ReferenceDM>>(
        module, "CalibrationDefectMapUntypical", "The defect map of the pixels untypical in single frames.",
        "parameters"_a, "reference"_a)
        .def("ComputeDefectMapUntypicalAndMerge",
             py::overload_cast<const ImagePtr<unsigned short>&>(
                 &CalibrationDefectMapUntypical::ComputeDefectMapUntypicalAndMerge),
             "image"_a, WithoutInterpreterLock())
        .def("ComputeDefectMapUntypicalAndMerge",
             py::overload_cast<const Frames&>(&CalibrationDefectMapUntypical::ComputeDefectMapUntypicalAndMerge),
             "images"_a, WithoutInterpreterLock())
        .def("UpdateDefectMapReference", &CalibrationDefectMapUntypical::UpdateDefectMapReference,
             WithoutInterpreterLock());

    BindCalibration<CalibrationAutomaticDefect, const AutomaticDefectParameters&, boost::shared_ptr<ReferenceDM>,
                    boost::shared_ptr<DefectMapFlag>>(
        module, "CalibrationAutomaticDefect",
        "Extends a defect map with the pixels that pairs of frames show defective.", "parameters"_a,
        "reference"_a, "flag"_a)
        .def("ProcessReferenceAndCumul", &CalibrationAutomaticDefect::ProcessReferenceAndCumul, "first"_a,
             "second"_a, WithoutInterpreterLock())
        .def("UpdateDefectMap", &CalibrationAutomaticDefect::UpdateDefectMap, WithoutInterpreterLock());

    py::class_<DefectMapMerge>(module, "DefectMapMerge",
                               (std::string("Merges defect maps into the map of a ReferenceDM, then flags and "
                                            "classifies it.") +
                                kOneThread)
                                   .c_str())
        .def(py::init<boost::shared_ptr<ReferenceDM>, boost::shared_ptr<DefectMapFlag>>(), "reference"_a, "flag"_a)
        .def("Init", &DefectMapMerge::Init, WithoutInterpreterLock())
        .def("Clear", &DefectMapMerge::Clear, WithoutInterpreterLock())
        .def("Merge", py::overload_cast<const boost::shared_ptr<ReferenceDM>&>(&DefectMapMerge::Merge), "other"_a,
             WithoutInterpreterLock())
        .def("Merge",
             py::overload_cast<const std::vector<boost::shared_ptr<ReferenceDM>>&>(&DefectMapMerge::Merge),
             "others"_a, WithoutInterpreterLock())
        .def("MergeExternalDM", &DefectMapMerge::MergeExternalDM, WithoutInterpreterLock())
        // The loader is Python: the call keeps the interpreter lock. It gets a pooled
        // 16-bit image to fill in place, or returns another image to merge instead.
        .def(
            "MergeFactoryDM",
            [](DefectMapMerge& merge, const py::function& loader) {
                merge.MergeFactoryDM([&loader](ImagePtr<unsigned short>& image) {
                    const py::object result = loader(image);
                    if (!result.is_none()) image = result.cast<ImagePtr<unsigned short>>();
                });
            },
            "loader"_a)
        .def("UpdateDefectMapReference", &DefectMapMerge::UpdateDefectMapReference, WithoutInterpreterLock());
}

void BindStructures(py::module_& module) {
    BindCalibration<CalibrationClusters, const CalibrationClustersParameters&, boost::shared_ptr<ReferenceClusters>,
                    boost::shared_ptr<ReferenceOffsetTimeGrid>>(
        module, "CalibrationClusters",
        "The pixel clusters of the change between the first and the last offset image of a time grid.",
        "parameters"_a, "clustersReference"_a, "offsetReference"_a)
        .def("CalculateClustersReference", &CalibrationClusters::CalculateClustersReference,
             WithoutInterpreterLock());

    BindCalibration<CalibrationEcholine, const EchoLineParameters&, boost::shared_ptr<ReferenceEcholine>,
                    boost::shared_ptr<ReferenceDM>>(
        module, "CalibrationEcholine", "The echo lines that the defect map's rows make.", "parameters"_a,
        "reference"_a, "defectMap"_a)
        .def("CalculateEcholineReference", &CalibrationEcholine::CalculateEcholineReference,
             WithoutInterpreterLock())
        .def("FillEcholineReference", &CalibrationEcholine::FillEcholineReference, WithoutInterpreterLock())
        .def("GetEcholineRef", &CalibrationEcholine::GetEcholineRef);
}

}  // namespace

void BindCalibrations(py::module_& module) {
    BindGains(module);
    BindDefectMaps(module);
    BindStructures(module);
}

}  // namespace python
}  // namespace orvane
