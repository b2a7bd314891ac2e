#include "python/Bindings.h"

#include "interfaces/Reference.h"
#include "interfaces/ReferenceClusters.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceEcholine.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"

#include <pybind11/stl.h>

#include <string>
#include <vector>

namespace py = pybind11;
using namespace pybind11::literals;

namespace orvane {
namespace python {

namespace {

// A store class under its C++ name, derived from Reference, shared with the
// calibrations that write into it.
template <typename Store>
using StoreClass = py::class_<Store, Reference, boost::shared_ptr<Store>>;

void BindReference(py::module_& module) {
    // Save and Load are virtual: bound once here, they save and load the concrete store.
    py::class_<Reference, boost::shared_ptr<Reference>>(module, "Reference",
                                                        "Root of the reference stores. An empty path means an "
                                                        "in-memory store, for which Save and Load do nothing. A "
                                                        "failed Load leaves the store as it was.")
        .def("IsValid", &Reference::IsValid)
        .def("SetValid", &Reference::SetValid, "valid"_a)
        .def("Save", &Reference::Save, WithoutInterpreterLock(),
             "Writes the whole store as one .fxd file at the path (ReferenceException on failure).")
        .def("Load", &Reference::Load, WithoutInterpreterLock(),
             "Reads the store back from its path (ReferenceException on failure).")
        .def("GetPath", &Reference::GetPath);
}

void BindImageStores(py::module_& module) {
    StoreClass<ReferenceOffsetSimple>(module, "ReferenceOffsetSimple",
                                      "One 16-bit offset image; GetOffset gives the live image.")
        .def(py::init<int, int, const std::string&>(), "width"_a, "height"_a, "path"_a = "")
        .def("GetOffset", &ReferenceOffsetSimple::GetOffset);

    StoreClass<ReferenceDM>(module, "ReferenceDM",
                            "The 8-bit defect map of a detector (0 good), and an optional external map that "
                            "LoadMergeDM adds onto it.")
        .def(py::init<int, int, const std::string&>(), "width"_a, "height"_a, "path"_a = "")
        .def("GetDM", &ReferenceDM::GetDM, "The live defect map.")
        .def("IsMerged", &ReferenceDM::IsMerged)
        .def("SetMerged", &ReferenceDM::SetMerged, "merged"_a)
        .def("SetExternalDM", &ReferenceDM::SetExternalDM, "map"_a,
             "Keeps a copy of `map` as the map to merge; None forgets it.")
        .def("HasExternalDM", &ReferenceDM::HasExternalDM)
        .def("LoadMergeDM", &ReferenceDM::LoadMergeDM, "image"_a, WithoutInterpreterLock(),
             "With an external map: copies it into `image`, adds it onto the live map (8-bit wrap-around), "
             "sets merged and returns True. Without one: returns False.");

    StoreClass<ReferenceGainLinear>(module, "ReferenceGainLinear",
                                    "The linear gain of a detector as 16-bit codes: a code c stands for the gain "
                                    "c / kCodesPerUnit.")
        .def(py::init<int, int, const std::string&>(), "width"_a, "height"_a, "path"_a = "")
        .def_property_readonly_static("kCodesPerUnit",
                                      [](const py::object&) { return ReferenceGainLinear::kCodesPerUnit; })
        .def("GetGainLinear", &ReferenceGainLinear::GetGainLinear, "The live gain codes.")
        .def("CompressImage", &ReferenceGainLinear::CompressImage, "source"_a, "target"_a, WithoutInterpreterLock(),
             "target (uint16) = the codes of the gains of source (float32).")
        .def("DeCompressImage", &ReferenceGainLinear::DeCompressImage, "source"_a, "target"_a,
             WithoutInterpreterLock(), "target (float32) = the gains of the codes of source (uint16).")
        .def("SetGainInversion", &ReferenceGainLinear::SetGainInversion, "inverted"_a)
        .def("GetGainInversion", &ReferenceGainLinear::GetGainInversion)
        .def_static("Compress", &ReferenceGainLinear::Compress, "gain"_a)
        .def_static("DeCompress", &ReferenceGainLinear::DeCompress, "code"_a);

    StoreClass<ReferenceGainPoly>(module, "ReferenceGainPoly",
                                  "The polynomial gain of a detector: one 16-bit image per coefficient (x first, "
                                  "then x^2, ...), each with the scale the store keeps for it.")
        .def(py::init<int, int, int, const std::string&>(), "width"_a, "height"_a, "coefficients"_a = 3,
             "path"_a = "")
        .def_property_readonly_static("kZeroCode", [](const py::object&) { return ReferenceGainPoly::kZeroCode; })
        .def_property_readonly_static("kSteps", [](const py::object&) { return ReferenceGainPoly::kSteps; })
        .def("GetGainPoly", &ReferenceGainPoly::GetGainPoly, "The live coefficient images, in a new list.")
        .def("GetGainPolyCoeff", &ReferenceGainPoly::GetGainPolyCoeff)
        .def("CompressImage", &ReferenceGainPoly::CompressImage, "source"_a, "coefficient"_a, "target"_a,
             WithoutInterpreterLock(),
             "target (uint16) = the codes of source (float32); sets the coefficient's scale.")
        .def("DeCompressImage", &ReferenceGainPoly::DeCompressImage, "coefficient"_a, "source"_a, "target"_a,
             WithoutInterpreterLock(),
             "target (float32) = the values of the codes of source, at the coefficient's scale.")
        .def("GetScale", &ReferenceGainPoly::GetScale, "coefficient"_a);

    StoreClass<ReferenceOffsetTimeGrid>(module, "ReferenceOffsetTimeGrid",
                                        "One 16-bit offset image per delta time of a grid, in the order given, "
                                        "and a stand-by offset image.")
        .def(py::init<int, int, const std::vector<int>&, const std::string&>(), "width"_a, "height"_a,
             "deltaTimes"_a, "path"_a = "")
        .def("GetNbReferences", &ReferenceOffsetTimeGrid::GetNbReferences)
        .def("GetAt", &ReferenceOffsetTimeGrid::GetAt, "index"_a, "The live image of entry `index`, from 0.")
        .def("Get", &ReferenceOffsetTimeGrid::Get, "deltaTime"_a, "The live image of the entry for `deltaTime`.")
        .def("GetStandbyOffset", &ReferenceOffsetTimeGrid::GetStandbyOffset)
        .def("GetDeltaTimes", &ReferenceOffsetTimeGrid::GetDeltaTimes);
}

// Stores whose contents are containers: read as new Python lists and sets.
void BindContainerStores(py::module_& module) {
    StoreClass<ReferenceClusters>(module, "ReferenceClusters",
                                  "The pixel clusters of a detector: 16-bit images of one size, in the order they "
                                  "were added.")
        .def(py::init<const std::string&>(), "path"_a = "")
        .def("AddCluster", &ReferenceClusters::AddCluster, "cluster"_a, WithoutInterpreterLock(),
             "Appends a copy of `cluster` (pixels and properties).")
        .def("GetClusters", &ReferenceClusters::GetClusters, "The clusters' live images, in a new list.");

    StoreClass<ReferenceEcholine>(module, "ReferenceEcholine",
                                  "The echo lines of a detector by line number. singleLines and doubleLines read "
                                  "as new Python sets: assign a whole set to change one.")
        .def(py::init<const std::string&>(), "path"_a = "")
        .def_readwrite("singleLines", &ReferenceEcholine::singleLines)
        .def_readwrite("doubleLines", &ReferenceEcholine::doubleLines);
}

}  // namespace

void BindStores(py::module_& module) {
    BindReference(module);
    BindImageStores(module);
    BindContainerStores(module);
}

}  // namespace python
}  // namespace orvane
