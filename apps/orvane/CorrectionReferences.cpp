#include "apps/orvane/CorrectionReferences.h"

#include "apps/orvane/InputError.h"
#include "interfaces/ReferenceDM.h"
#include "interfaces/ReferenceException.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "interfaces/ReferenceOffsetSimple.h"
#include "interfaces/ReferenceOffsetTimeGrid.h"
#include "io/FxdFile.h"

#include <boost/make_shared.hpp>

#include <filesystem>
#include <sstream>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace orvane {
namespace app {

namespace {

std::string SizeText(int width, int height) { return std::to_string(width) + " x " + std::to_string(height); }

// The shape of the store file `name` in `dir`, which must hold frames of the given
// size; `option` names what asked for it.
io::FrameShape StoreShape(const std::string& path, const std::string& option, int width, int height) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        throw InputError(path, "is missing: the calibration did not write it (" + option + " needs it)");
    }
    io::FrameShape shape;
    try {
        shape = io::OpenFxdSeries(path)->Shape();
    } catch (const io::ImageFileError& e) {
        throw InputError(e.File(), e.Problem());
    }
    if (shape.width != width || shape.height != height) {
        throw InputError(path, "reference is " + SizeText(shape.width, shape.height) + ", the frames are " +
                                   SizeText(width, height));
    }
    return shape;
}

// Loads a store; its refusal (a damaged file, a foreign store) is bad input.
void Load(Reference& store) {
    try {
        store.Load();
    } catch (const ReferenceException& e) {
        throw InputError("", e.what());
    }
}

// The delta times a time-grid file was saved with, as its settings hold them.
std::vector<int> DeltaTimes(const std::string& path) {
    boost::property_tree::ptree properties;
    std::vector<int> times;
    try {
        const std::unique_ptr<io::SeriesSource> source = io::OpenFxdSeries(path);
        std::vector<unsigned short> pixels(static_cast<std::size_t>(source->Shape().width) *
                                           static_cast<std::size_t>(source->Shape().height));
        if (source->Shape().frames > 0 && source->Shape().pixel == io::PixelKind::UInt16) {
            source->ReadFrame(0, pixels.data(), properties);
        }
    } catch (const io::ImageFileError& e) {
        throw InputError(e.File(), e.Problem());
    }
    std::istringstream text(properties.get<std::string>("reference.settings.deltaTimes", ""));
    for (int time = 0; text >> time;) times.push_back(time);
    if (times.empty()) throw InputError(path, "is not a time-grid store (it has no delta times)");
    return times;
}

}  // namespace

CorrectionChoice::Offset ParseOffsetChoice(const std::string& name) {
    if (name == "dynamic") return CorrectionChoice::Offset::Dynamic;
    if (name == "time-grid") return CorrectionChoice::Offset::TimeGrid;
    throw InputError("", "bad --offset \"" + name + "\" (dynamic, time-grid)");
}

CorrectionChoice::Gain ParseGainChoice(const std::string& name) {
    if (name == "linear") return CorrectionChoice::Gain::Linear;
    if (name == "poly") return CorrectionChoice::Gain::Poly;
    if (name == "poly-denoised") return CorrectionChoice::Gain::PolyDenoised;
    if (name == "none") return CorrectionChoice::Gain::None;
    throw InputError("", "bad --gain \"" + name + "\" (linear, poly, poly-denoised, none)");
}

CorrectionReferences::CorrectionReferences(const std::string& dir, const CorrectionChoice& choice, int width,
                                           int height)
    : chain(width, height) {
    const auto path = [&dir](const char* name) { return (fs::path(dir) / (std::string(name) + ".fxd")).string(); };

    if (choice.offset == CorrectionChoice::Offset::Dynamic) {
        const std::string file = path("offset-dynamic");
        StoreShape(file, "--offset dynamic", width, height);
        auto store = boost::make_shared<ReferenceOffsetSimple>(width, height, file);
        Load(*store);
        chain.SetOffset(boost::make_shared<OffsetCorrection>(store));
    } else {
        const std::string file = path("offset-time-grid");
        StoreShape(file, "--offset time-grid", width, height);
        auto store = boost::make_shared<ReferenceOffsetTimeGrid>(width, height, DeltaTimes(file), file);
        Load(*store);
        grid = std::make_unique<TimeGridBlend>(store);
    }

    if (choice.gain == CorrectionChoice::Gain::Linear) {
        const std::string file = path("gain-linear");
        StoreShape(file, "--gain linear", width, height);
        auto store = boost::make_shared<ReferenceGainLinear>(width, height, file);
        Load(*store);
        chain.SetGainLinear(store);
    } else if (choice.gain != CorrectionChoice::Gain::None) {
        const bool denoised = choice.gain == CorrectionChoice::Gain::PolyDenoised;
        const std::string file = path(denoised ? "gain-poly-denoised" : "gain-poly");
        const io::FrameShape shape =
            StoreShape(file, denoised ? "--gain poly-denoised" : "--gain poly", width, height);
        auto store = boost::make_shared<ReferenceGainPoly>(width, height, shape.frames, file);
        Load(*store);
        try {
            chain.SetGainPoly(store);
        } catch (const ReferenceException& e) {
            throw InputError(file, e.what());
        }
    }

    if (choice.defects) {
        const std::string file = path("defect-map");
        StoreShape(file, "the defect step (or --no-defects)", width, height);
        ReferenceDM store(width, height, file);
        Load(store);
        if (!store.IsValid()) throw InputError(file, "is not a valid defect map (its store is marked invalid)");
        chain.SetDefects(store.GetDM());
    }
}

CorrectionChain& CorrectionReferences::ChainFor(const ImageAcquisition<unsigned short>& frame,
                                                const std::string& frameName) {
    if (!grid) return chain;
    const auto& properties = frame.GetProperties();
    const auto temperature = properties.get_optional<float>("image.temperature");
    const auto time = properties.get_optional<std::int64_t>("image.time");
    if (!temperature || !time) {
        throw InputError(frameName, "has no image.temperature or image.time, which --offset time-grid needs");
    }
    const std::pair<float, std::int64_t> state(*temperature, *time);
    if (gridState != state) {
        try {
            chain.SetOffset(boost::make_shared<OffsetCorrection>(grid->OffsetAt(state.first, state.second)));
        } catch (const ReferenceException& e) {
            throw InputError("", e.what());
        }
        gridState = state;
    }
    return chain;
}

}  // namespace app
}  // namespace orvane
