#include "apps/orvane/ReferenceExport.h"

#include "apps/orvane/InputError.h"
#include "interfaces/ReferenceGainLinear.h"
#include "interfaces/ReferenceGainPoly.h"
#include "io/FxdFile.h"
#include "io/Hdf5File.h"
#include "io/ImageFiles.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>

namespace orvane {
namespace app {

namespace {

constexpr const char* kHdf5File = "references.h5";

// The frames to export of the store saved at `path`: the gains decoded to floats,
// every other store's frames as they are, each with its own properties.
void WriteStore(const std::string& path, const std::string& name, io::SeriesWriter& writer) {
    const std::unique_ptr<io::SeriesSource> stored = io::OpenFxdSeries(path);
    const io::FrameShape shape = stored->Shape();
    const boost::property_tree::ptree none;
    if (name == "gain-linear") {
        ReferenceGainLinear store(shape.width, shape.height, path);
        store.Load();
        auto gain = boost::make_shared<ImageAcquisition<float>>(shape.width, shape.height);
        store.DeCompressImage(store.GetGainLinear(), gain);
        gain->GetProperties() = store.GetGainLinear()->GetProperties();
        writer.WriteImage(*gain);
        return;
    }
    if (name == "gain-poly" || name == "gain-poly-denoised") {
        ReferenceGainPoly store(shape.width, shape.height, 3, path);
        store.Load();
        for (int k = 0; k < store.GetGainPolyCoeff(); ++k) {
            auto coefficient = boost::make_shared<ImageAcquisition<float>>(shape.width, shape.height);
            store.DeCompressImage(k, store.GetGainPoly()[static_cast<std::size_t>(k)], coefficient);
            coefficient->GetProperties() = store.GetGainPoly()[static_cast<std::size_t>(k)]->GetProperties();
            writer.WriteImage(*coefficient);
        }
        return;
    }
    std::vector<char> pixels(static_cast<std::size_t>(shape.width) * static_cast<std::size_t>(shape.height) *
                             static_cast<std::size_t>(io::BytesPerPixel(shape.pixel)));
    boost::property_tree::ptree properties;
    for (int f = 0; f < shape.frames; ++f) {
        stored->ReadFrame(f, pixels.data(), properties);
        writer.WriteFrame(pixels.data(), shape.width, shape.height, shape.pixel,
                          properties.get_child("properties", none));
    }
}

}  // namespace

std::vector<std::uint32_t> PixelMask(const ImageAcquisition<unsigned char>& defects, const ImageAcquisition<float>* gain) {
    std::vector<std::uint32_t> mask(static_cast<std::size_t>(defects.GetPixelCount()), 0);
    for (std::size_t i = 0; i < mask.size(); ++i) {
        const unsigned char value = defects.GetData()[i];
        if (value == 0) continue;
        std::uint32_t bits = 1u << 3;
        if (gain) {
            const float g = gain->GetData()[i];
            bits = g < 0.05f ? 1u << 0 : g < 0.95f ? 1u << 1 : g > 1.05f ? 1u << 2 : 1u << 3;
        }
        mask[i] = bits | (value >= 2 ? 1u << 5 : 0u);
    }
    return mask;
}

void ExportReferences(const std::string& dir, CalibrationOutputs& outputs, io::ImageFileFormat format) {
    const bool oneFile = format == io::ImageFileFormat::Hdf5;
    const std::string extension = io::FormatExtension(format);
    try {
        for (StepReport& step : outputs.steps) {
            std::vector<std::string> written;
            for (const std::string& file : step.files) {
                const std::string name = std::filesystem::path(file).stem().string();
                if (std::filesystem::path(file).extension() != ".fxd" || name == "echo-lines") continue;
                io::WriteOptions options;
                options.dataset = "/" + name;
                const std::string target = oneFile ? kHdf5File : name + extension;
                const std::unique_ptr<io::SeriesWriter> writer =
                    io::CreateSeriesWriter(dir + "/" + target, format, options);
                WriteStore(dir + "/" + file, name, *writer);
                writer->Close();
                written.push_back(target);
            }
            for (const std::string& target : written) {
                if (std::find(step.files.begin(), step.files.end(), target) == step.files.end()) step.files.push_back(target);
            }
        }
        if (oneFile && outputs.defects) {
            const std::vector<std::uint32_t> mask = PixelMask(*outputs.defects, outputs.gain.get());
            io::WriteHdf5PixelMask(dir + "/" + kHdf5File, "/pixel_mask", mask.data(), outputs.defects->GetWidth(),
                                   outputs.defects->GetHeight());
        }
    } catch (const io::ImageFileError& error) {
        throw InputError(error.File(), error.Problem());
    }
}

}  // namespace app
}  // namespace orvane
