#include "python/Bindings.h"

#include "image/ROI.h"
#include "parameters/AutomaticDefectParametersSet.h"
#include "parameters/CalibrationClustersParametersSet.h"
#include "parameters/DMFlagParametersSet.h"
#include "parameters/DMFlagZoomParametersSet.h"
#include "parameters/DefectMapDarkParametersSet.h"
#include "parameters/DefectMapDarkZoomParametersSet.h"
#include "parameters/DefectMapGainParametersSet.h"
#include "parameters/DefectMapParametersSet.h"
#include "parameters/DefectMapUntypicalParametersSet.h"
#include "parameters/DefectMapZoomParametersSet.h"
#include "parameters/EchoLineParametersSet.h"
#include "parameters/GainLinearParametersSet.h"
#include "parameters/GainLinearStandardZoomParametersSet.h"
#include "parameters/GainPolyParametersSet.h"
#include "parameters/OffsetDynamicParametersSet.h"
#include "parameters/OffsetTimeGridParametersSet.h"
#include "parameters/ROIFormula.h"

#include <pybind11/stl.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

namespace {

// The shortest text that reads back as the same float, so that a record shows 0.05
// rather than the double nearest to the float 0.05.
std::string FloatText(float value) {
    char text[32];
    for (int precision = 1; precision <= 9; ++precision) {
        std::snprintf(text, sizeof text, "%.*g", precision, static_cast<double>(value));
        if (std::strtof(text, nullptr) == value) {
            break;
        }
    }
    std::string result(text);
    if (result.find_first_of(".eanf") == std::string::npos) {
        result += ".0";
    }
    return result;
}

// Every float of a record is a C++ float; lists and nested records show their items so.
std::string ValueText(const py::handle& value) {
    if (py::isinstance<py::float_>(value)) {
        return FloatText(value.cast<float>());
    }
    if (py::isinstance<py::list>(value)) {
        std::string text = "[";
        const char* separator = "";
        for (const py::handle item : value) {
            text += separator + ValueText(item);
            separator = ", ";
        }
        return text + "]";
    }
    return py::repr(value).cast<std::string>();
}

// A plain record (or a region) as the Python class `name`: made with default values or
// with fields given by name, each field a read/write attribute under its C++ name,
// equality field by field, and a repr that reads back as the same record. A field that
// is a std::vector reads as a new list: assign a whole list to change it. A field that
// is a record is changed in place.
template <typename R>
class RecordClass {
public:
    RecordClass(py::module_& module, const char* name, const char* doc)
        : type(module, name, doc), fields(std::make_shared<std::vector<std::string>>()) {
        type.def(py::init([](const py::kwargs& values) {
                     py::object record = py::cast(R());
                     for (const auto& value : values) {
                         py::setattr(record, value.first, value.second);
                     }
                     return record.cast<R>();
                 }),
                 "Default values (zero, false, empty), or those given by field name.");
        type.def("__repr__", [name, fields = fields](const py::object& self) {
            std::string text = std::string(name) + "(";
            const char* separator = "";
            for (const std::string& field : *fields) {
                text += separator + field + "=" + ValueText(self.attr(field.c_str()));
                separator = ", ";
            }
            return text + ")";
        });
        type.def("__eq__", [fields = fields](const py::object& self, const py::object& other) -> py::object {
            if (!py::isinstance<R>(other)) {
                return py::reinterpret_borrow<py::object>(Py_NotImplemented);
            }
            for (const std::string& field : *fields) {
                if (!self.attr(field.c_str()).equal(other.attr(field.c_str()))) {
                    return py::bool_(false);
                }
            }
            return py::bool_(true);
        });
    }

    template <typename F>
    RecordClass& Field(const char* name, F R::*member, const char* doc = "") {
        type.def_readwrite(name, member, doc);
        fields->push_back(name);
        return *this;
    }

    py::class_<R>& Type() { return type; }

private:
    py::class_<R> type;
    std::shared_ptr<std::vector<std::string>> fields;  // in the order of the C++ record
};

void BindRegions(py::module_& module) {
    RecordClass<ROI>(module, "ROI", "A rectangle of an image in 16-bit fields, rows first: top, left, height, width.")
        .Field("top", &ROI::top)
        .Field("left", &ROI::left)
        .Field("height", &ROI::height)
        .Field("width", &ROI::width)
        .Type()
        .def(py::init<unsigned short, unsigned short, unsigned short, unsigned short>(), "top"_a, "left"_a,
             "height"_a, "width"_a);

    RecordClass<ROIFormula>(module, "ROIFormula", "A region of a zoom row as four formulas, in the order of ROI.")
        .Field("top", &ROIFormula::top)
        .Field("left", &ROIFormula::left)
        .Field("height", &ROIFormula::height)
        .Field("width", &ROIFormula::width)
        .Type()
        .def(py::init([](std::string top, std::string left, std::string height, std::string width) {
                 return ROIFormula{std::move(top), std::move(left), std::move(height), std::move(width)};
             }),
             "top"_a, "left"_a, "height"_a, "width"_a);
}

void BindOffsetRecords(py::module_& module) {
    RecordClass<OffsetDynamicParameters>(module, "OffsetDynamicParameters", "Parameters of CalibrationOffsetDynamic.")
        .Field("Weight", &OffsetDynamicParameters::Weight, "Share of a new frame when it is blended into the offset.");

    RecordClass<OffsetParameters>(module, "OffsetParameters", "Parameters of CalibrationOffsetTimeGrid.")
        .Field("TemperatureSteps", &OffsetParameters::TemperatureSteps)
        .Field("TimeSteps", &OffsetParameters::TimeSteps)
        .Field("Coefficients", &OffsetParameters::Coefficients);
}

void BindGainRecords(py::module_& module) {
    using G = GainLinearParameters;
    RecordClass<G>(module, "GainLinearParameters", "Parameters of CalibrationGainLinear.")
        .Field("InvertGain", &G::InvertGain)
        .Field("Y0", &G::Y0)
        .Field("Height", &G::Height)
        .Field("X0", &G::X0)
        .Field("Width", &G::Width)
        .Field("ClipMin", &G::ClipMin)
        .Field("ClipMax", &G::ClipMax)
        .Field("GfaSigmas", &G::GfaSigmas)
        .Field("GfaTolerance", &G::GfaTolerance)
        .Field("MeasureAreas", &G::MeasureAreas);

    using Z = GainLinearZoomParameters;
    RecordClass<Z>(module, "GainLinearZoomParameters",
                   "A row of s_gainLinearStandardZoomParametersSet; its string fields are formulas.")
        .Field("X0", &Z::X0)
        .Field("Y0", &Z::Y0)
        .Field("Height", &Z::Height)
        .Field("Width", &Z::Width)
        .Field("InvertGain", &Z::InvertGain)
        .Field("AreaY0", &Z::AreaY0)
        .Field("AreaHeight", &Z::AreaHeight)
        .Field("AreaX0", &Z::AreaX0)
        .Field("AreaWidth", &Z::AreaWidth)
        .Field("ClipMin", &Z::ClipMin)
        .Field("ClipMax", &Z::ClipMax)
        .Field("GfaSigmas", &Z::GfaSigmas)
        .Field("GfaTolerance", &Z::GfaTolerance)
        .Field("Xc", &Z::Xc)
        .Field("Yc", &Z::Yc)
        .Field("Mpxc", &Z::Mpxc)
        .Field("Thlc", &Z::Thlc)
        .Field("modSize", &Z::modSize)
        .Field("cLeftLimit", &Z::cLeftLimit)
        .Field("lTopLimit", &Z::lTopLimit)
        .Field("cRightLimit", &Z::cRightLimit)
        .Field("lBotLimit", &Z::lBotLimit)
        .Field("l1", &Z::l1)
        .Field("l2", &Z::l2)
        .Field("l3", &Z::l3)
        .Field("l4", &Z::l4)
        .Field("c1", &Z::c1)
        .Field("c2", &Z::c2)
        .Field("c3", &Z::c3)
        .Field("c4", &Z::c4)
        .Field("nl", &Z::nl)
        .Field("nl1", &Z::nl1)
        .Field("nl2", &Z::nl2)
        .Field("nc1", &Z::nc1)
        .Field("nc2", &Z::nc2)
        .Field("nc3", &Z::nc3)
        .Field("nc", &Z::nc)
        .Field("MeasureAreaFormulas", &Z::MeasureAreaFormulas);

    using P = GainPolyParameters;
    RecordClass<P>(module, "GainPolyParameters", "Parameters of CalibrationGainPoly and of its denoising.")
        .Field("ClipMin", &P::ClipMin)
        .Field("ClipMax", &P::ClipMax)
        .Field("RowSigmaFactor", &P::RowSigmaFactor)
        .Field("ColumnSigmaFactor", &P::ColumnSigmaFactor)
        .Field("MaskSigmas", &P::MaskSigmas)
        .Field("RowWindow", &P::RowWindow)
        .Field("ColumnWindow", &P::ColumnWindow)
        .Field("GfaSigmas", &P::GfaSigmas)
        .Field("GfaTolerance", &P::GfaTolerance)
        .Field("DenoiseAreas", &P::DenoiseAreas)
        .Field("MeasureAreas", &P::MeasureAreas);
}

void BindDefectMapRecords(py::module_& module) {
    using D = DefectMapParameters;
    RecordClass<D>(module, "DefectMapParameters", "Parameters of CalibrationDefectMap.")
        .Field("X0", &D::X0)
        .Field("Y0", &D::Y0)
        .Field("Width", &D::Width)
        .Field("Height", &D::Height)
        .Field("ClipMax", &D::ClipMax)
        .Field("ClipMin", &D::ClipMin)
        .Field("MedianWidth", &D::MedianWidth)
        .Field("MedianHeight", &D::MedianHeight)
        .Field("SpareLevel", &D::SpareLevel)
        .Field("LogScale", &D::LogScale)
        .Field("GfaMin", &D::GfaMin)
        .Field("GfaMax", &D::GfaMax)
        .Field("ExcludeSigmas", &D::ExcludeSigmas)
        .Field("GfaSigmas", &D::GfaSigmas)
        .Field("GfaTolerance", &D::GfaTolerance)
        .Field("QuantLevels", &D::QuantLevels);

    using DZ = DefectMapZoomParameters;
    RecordClass<DZ>(module, "DefectMapZoomParameters",
                    "A row of s_defectMapZoomParametersSet; the *Formula fields are formulas.")
        .Field("Height", &DZ::Height)
        .Field("Width", &DZ::Width)
        .Field("X0Formula", &DZ::X0Formula)
        .Field("Y0Formula", &DZ::Y0Formula)
        .Field("WidthFormula", &DZ::WidthFormula)
        .Field("HeightFormula", &DZ::HeightFormula)
        .Field("ClipMax", &DZ::ClipMax)
        .Field("ClipMin", &DZ::ClipMin)
        .Field("MedianWidth", &DZ::MedianWidth)
        .Field("MedianHeight", &DZ::MedianHeight)
        .Field("SpareLevel", &DZ::SpareLevel)
        .Field("LogScale", &DZ::LogScale)
        .Field("GfaMin", &DZ::GfaMin)
        .Field("GfaMax", &DZ::GfaMax)
        .Field("ExcludeSigmas", &DZ::ExcludeSigmas)
        .Field("GfaSigmas", &DZ::GfaSigmas)
        .Field("GfaTolerance", &DZ::GfaTolerance)
        .Field("QuantLevels", &DZ::QuantLevels);

    using DG = DefectMapGainParameters;
    RecordClass<DG>(module, "DefectMapGainParameters", "Parameters of CalibrationDefectMapGain.")
        .Field("X0", &DG::X0)
        .Field("Y0", &DG::Y0)
        .Field("Width", &DG::Width)
        .Field("Height", &DG::Height)
        .Field("MedianWidth", &DG::MedianWidth)
        .Field("MedianHeight", &DG::MedianHeight)
        .Field("ClipMin", &DG::ClipMin)
        .Field("ClipMax", &DG::ClipMax)
        .Field("ThresholdMin", &DG::ThresholdMin)
        .Field("ThresholdMax", &DG::ThresholdMax)
        .Field("QuantLevels", &DG::QuantLevels);

    RecordClass<DefectMapDarkParameters>(module, "DefectMapDarkParameters", "Parameters of CalibrationDefectMapDark.")
        .Field("Area", &DefectMapDarkParameters::Area)
        .Field("ThresholdMin", &DefectMapDarkParameters::ThresholdMin)
        .Field("ThresholdMax", &DefectMapDarkParameters::ThresholdMax);

    using DDZ = DefectMapDarkZoomParameters;
    RecordClass<DDZ>(module, "DefectMapDarkZoomParameters",
                     "A row of s_defectMapDarkZoomParametersSet; Area holds formulas.")
        .Field("Height", &DDZ::Height)
        .Field("Width", &DDZ::Width)
        .Field("Area", &DDZ::Area)
        .Field("ThresholdMin", &DDZ::ThresholdMin)
        .Field("ThresholdMax", &DDZ::ThresholdMax);

    using U = DefectMapUntypicalParameters;
    RecordClass<U>(module, "DefectMapUntypicalParameters", "Parameters of CalibrationDefectMapUntypical.")
        .Field("Area", &U::Area)
        .Field("MedianWidth", &U::MedianWidth)
        .Field("MedianHeight", &U::MedianHeight)
        .Field("QuantLevels", &U::QuantLevels)
        .Field("GfaSigmas", &U::GfaSigmas)
        .Field("GfaTolerance", &U::GfaTolerance)
        .Field("ExcludeSigmas", &U::ExcludeSigmas);

    using A = AutomaticDefectParameters;
    RecordClass<A>(module, "AutomaticDefectParameters", "Parameters of CalibrationAutomaticDefect.")
        .Field("Area", &A::Area)
        .Field("WindowSize", &A::WindowSize)
        .Field("WindowPixels", &A::WindowPixels)
        .Field("ThresholdHigh", &A::ThresholdHigh)
        .Field("ThresholdLow", &A::ThresholdLow)
        .Field("MinHits", &A::MinHits);
}

void BindFlagRecords(py::module_& module) {
    using F = DMFlagParameters;
    RecordClass<F>(module, "DMFlagParameters", "Parameters of DefectMapFlag.")
        .Field("TestWholeFrame", &F::TestWholeFrame)
        .Field("TestDRZLines", &F::TestDRZLines)
        .Field("TestArea", &F::TestArea)
        .Field("RetestWholeFrame", &F::RetestWholeFrame)
        .Field("HorizontalRatio", &F::HorizontalRatio)
        .Field("VerticalRatio", &F::VerticalRatio)
        .Field("DRZRatio", &F::DRZRatio)
        .Field("AreaHorizontalRatio", &F::AreaHorizontalRatio)
        .Field("AreaVerticalRatio", &F::AreaVerticalRatio)
        .Field("RetestHorizontalRatio", &F::RetestHorizontalRatio)
        .Field("RetestVerticalRatio", &F::RetestVerticalRatio)
        .Field("Area", &F::Area)
        .Field("DRZFirstColumn", &F::DRZFirstColumn)
        .Field("DRZFirstCount", &F::DRZFirstCount)
        .Field("DRZSecondColumn", &F::DRZSecondColumn)
        .Field("DRZSecondCount", &F::DRZSecondCount)
        .Field("SplitRows", &F::SplitRows)
        .Field("SplitColumns", &F::SplitColumns)
        .Field("SplitRow", &F::SplitRow)
        .Field("SplitColumn", &F::SplitColumn);

    using FZ = DMFlagZoomParameters;
    RecordClass<FZ>(module, "DMFlagZoomParameters",
                    "A row of s_DMFlagZoomParametersSet; its string fields and Area hold formulas.")
        .Field("X0", &FZ::X0)
        .Field("Y0", &FZ::Y0)
        .Field("Height", &FZ::Height)
        .Field("Width", &FZ::Width)
        .Field("TestWholeFrame", &FZ::TestWholeFrame)
        .Field("TestDRZLines", &FZ::TestDRZLines)
        .Field("TestArea", &FZ::TestArea)
        .Field("RetestWholeFrame", &FZ::RetestWholeFrame)
        .Field("HorizontalRatio", &FZ::HorizontalRatio)
        .Field("VerticalRatio", &FZ::VerticalRatio)
        .Field("DRZRatio", &FZ::DRZRatio)
        .Field("AreaHorizontalRatio", &FZ::AreaHorizontalRatio)
        .Field("AreaVerticalRatio", &FZ::AreaVerticalRatio)
        .Field("RetestHorizontalRatio", &FZ::RetestHorizontalRatio)
        .Field("RetestVerticalRatio", &FZ::RetestVerticalRatio)
        .Field("Area", &FZ::Area)
        .Field("DRZFirstColumn", &FZ::DRZFirstColumn)
        .Field("DRZFirstCount", &FZ::DRZFirstCount)
        .Field("DRZSecondColumn", &FZ::DRZSecondColumn)
        .Field("DRZSecondCount", &FZ::DRZSecondCount)
        .Field("SplitRows", &FZ::SplitRows)
        .Field("SplitColumns", &FZ::SplitColumns)
        .Field("SplitRow", &FZ::SplitRow)
        .Field("SplitColumn", &FZ::SplitColumn);
}

void BindArtefactRecords(py::module_& module) {
    using C = CalibrationClustersParameters;
    RecordClass<C>(module, "CalibrationClustersParameters", "Parameters of CalibrationClusters.")
        .Field("PatchMargin", &C::PatchMargin)
        .Field("MedianSize", &C::MedianSize)
        .Field("AverageSize", &C::AverageSize)
        .Field("Threshold", &C::Threshold);

    using E = EchoLineParameters;
    RecordClass<E>(module, "EchoLineParameters", "Parameters of CalibrationEcholine.")
        .Field("Area", &E::Area)
        .Field("MiddleRow", &E::MiddleRow)
        .Field("MiddleColumn", &E::MiddleColumn)
        .Field("MinimumRun", &E::MinimumRun);
}

// A process-wide parameter set as the Python class `name`, under the module attribute
// `object`; Python never owns it. lookup gives a copy of the row: a record Python owns,
// which a calibration keeps alive and which a caller may change without changing the
// table. The calls keep the interpreter lock, which serialises them: a lookup may
// insert the default row, and a zoom get evaluates formulas, which must not run on two
// threads at once.
template <typename Set>
py::class_<Set, std::unique_ptr<Set, py::nodelete>> SetClass(py::module_& module, const char* name,
                                                              const char* object, Set& set) {
    using Row = std::decay_t<decltype(set.lookup(""))>;
    py::class_<Set, std::unique_ptr<Set, py::nodelete>> type(
        module, name, "A table of parameter records by detector key; the library's own is orvane.s_...ParametersSet.");
    type.def(
            "lookup", [](Set& self, const std::string& key) -> Row { return self.lookup(key); }, "key"_a,
            "The record for a detector key such as \"Hazel.A1.m3\": its own row, else the nearest one, else "
            "the default row.")
        .def(
            "HasOwnRow", [](const Set& self, const std::string& key) { return self.HasOwnRow(key); }, "key"_a,
            "Whether lookup(key) finds a row other than the default row.")
        .def(
            "GetBaseRows", [](const Set& self) { return self.GetBaseRows(); },
            "The stored rows by key, as a new dict of copies.");
    module.attr(object) = py::cast(&set, py::return_value_policy::reference);
    return type;
}

void BindSets(py::module_& module) {
    SetClass(module, "AutomaticDefectParametersSet", "s_automaticDefectParametersSet", s_automaticDefectParametersSet);
    SetClass(module, "CalibrationClustersParametersSet", "s_clustersCalibrationParametersSet",
             s_clustersCalibrationParametersSet);
    SetClass(module, "DefectMapParametersSet", "s_defectMapParametersSet", s_defectMapParametersSet);
    SetClass(module, "DefectMapZoomParametersSet", "s_defectMapZoomParametersSet", s_defectMapZoomParametersSet)
        .def("get", &DefectMapZoomParametersSet::get, "key"_a, "width"_a, "height"_a,
             "The finished DefectMapParameters of the row of `key` for an image of width x height.");
    SetClass(module, "DefectMapUntypicalParametersSet", "s_DefectMapUntypicalParametersSet",
             s_DefectMapUntypicalParametersSet);
    SetClass(module, "DefectMapDarkParametersSet", "s_DefectMapDarkParametersSet", s_DefectMapDarkParametersSet);
    SetClass(module, "DefectMapDarkZoomParametersSet", "s_defectMapDarkZoomParametersSet",
             s_defectMapDarkZoomParametersSet)
        .def("get", &DefectMapDarkZoomParametersSet::get, "key"_a, "width"_a, "height"_a,
             "The finished DefectMapDarkParameters of the row of `key` for an image of width x height.");
    SetClass(module, "DefectMapGainParametersSet", "s_defectMapGainParametersSet", s_defectMapGainParametersSet);
    SetClass(module, "EchoLineParametersSet", "s_EchoLineParametersSet", s_EchoLineParametersSet);
    SetClass(module, "GainLinearParametersSet", "s_gainLinearParametersSet", s_gainLinearParametersSet);
    SetClass(module, "GainLinearStandardZoomParametersSet", "s_gainLinearStandardZoomParametersSet",
             s_gainLinearStandardZoomParametersSet)
        .def("get", &GainLinearStandardZoomParametersSet::get, "key"_a, "roi"_a,
             "The finished GainLinearParameters of the row of `key` for the region `roi`.");
    SetClass(module, "GainPolyParametersSet", "s_gainPolyParametersSet", s_gainPolyParametersSet);
    SetClass(module, "OffsetDynamicParametersSet", "s_OffsetDynamicParametersSet", s_OffsetDynamicParametersSet);
    SetClass(module, "OffsetTimeGridParametersSet", "s_OffsetTimeGridParametersSet", s_OffsetTimeGridParametersSet);
    SetClass(module, "DMFlagParametersSet", "s_DMFlagParametersSet", s_DMFlagParametersSet);
    SetClass(module, "DMFlagZoomParametersSet", "s_DMFlagZoomParametersSet", s_DMFlagZoomParametersSet)
        .def("get", &DMFlagZoomParametersSet::get, "key"_a, "roi"_a,
             "The finished DMFlagParameters of the row of `key` for the region `roi`.");
}

}  // namespace

void BindParameters(py::module_& module) {
    BindRegions(module);
    BindOffsetRecords(module);
    BindGainRecords(module);
    BindDefectMapRecords(module);
    BindFlagRecords(module);
    BindArtefactRecords(module);
    BindSets(module);
}

}  // namespace python
}  // namespace orvane
