#include "io/FxdFile.h"

#include "interfaces/ImageFileException.h"
#include "interfaces/ImageFormatException.h"
#include "tools/ImageFxdFile.h"

#include <cstring>
#include <vector>

namespace orvane {
namespace io {

namespace {

PixelKind KindOfCode(int code) {
    switch (code) {
        case orvane::detail::FxdPixelType<float>::code: return PixelKind::Float32;
        case orvane::detail::FxdPixelType<unsigned short>::code: return PixelKind::UInt16;
        default: return PixelKind::UInt8;
    }
}

int CodeOfKind(PixelKind kind) {
    switch (kind) {
        case PixelKind::Float32: return orvane::detail::FxdPixelType<float>::code;
        case PixelKind::UInt16: return orvane::detail::FxdPixelType<unsigned short>::code;
        case PixelKind::UInt8: break;
    }
    return orvane::detail::FxdPixelType<unsigned char>::code;
}

// The reader's message without its "ImageFxdFileIn: '<path>' " lead: ImageFileError
// names the file itself.
ImageFileError Refusal(const std::string& path, const std::string& message) {
    const std::string lead = "ImageFxdFileIn: '" + path + "' ";
    return ImageFileError(path, message.compare(0, lead.size(), lead) == 0 ? message.substr(lead.size()) : message);
}

FrameShape ShapeOf(const ImageFxdFileIn& file) {
    return FrameShape{file.GetWidth(), file.GetHeight(), KindOfCode(file.GetPixelType()), file.GetFrameCount()};
}

class FxdSource : public SeriesSource {
public:
    FxdSource(const std::string& path, std::unique_ptr<ImageFxdFileIn> file)
        : SeriesSource(path, ShapeOf(*file)), file(std::move(file)) {}

    void ReadFrame(int index, void* pixels, boost::property_tree::ptree& properties) override {
        CheckIndex(index);
        try {
            switch (Shape().pixel) {
                case PixelKind::Float32: file->ReadFrame(static_cast<float*>(pixels), index); break;
                case PixelKind::UInt16: file->ReadFrame(static_cast<unsigned short*>(pixels), index); break;
                case PixelKind::UInt8: file->ReadFrame(static_cast<unsigned char*>(pixels), index); break;
            }
        } catch (const ImageFormatException& e) {
            throw Refusal(Name(), e.what());
        }
        properties = file->GetProperties(index);
    }

private:
    std::unique_ptr<ImageFxdFileIn> file;
};

// The header of an .fxd file comes before its frames and holds every frame's
// properties, so the frames wait in memory until Close.
class FxdWriter : public SeriesWriter {
public:
    explicit FxdWriter(std::string path) : SeriesWriter(std::move(path)) {}

    void Append(const void* pixels, int width, int height, PixelKind pixel,
                const boost::property_tree::ptree& properties) override {
        if (frames.empty()) {
            shape = FrameShape{width, height, pixel, 0};
            CheckFrameShape(path, shape);
        } else if (width != shape.width || height != shape.height || pixel != shape.pixel) {
            throw ImageFileError(path, "a frame of " + ShapeText({width, height, pixel, 1}) +
                                           " cannot join frames of " + ShapeText(shape));
        }
        const size_t bytes = size_t(width) * size_t(height) * size_t(BytesPerPixel(pixel));
        frames.emplace_back(static_cast<const char*>(pixels), static_cast<const char*>(pixels) + bytes);
        frameProperties.push_back(properties);
    }

    void Finish() override {
        try {
            ImageFxdFileOut file(path);
            bool any = false;
            for (size_t i = 0; i < frameProperties.size(); ++i) {
                any = any || !frameProperties[i].empty() || !frameProperties[i].data().empty();
                file.SetProperties(frameProperties[i], static_cast<int>(i));
            }
            file.Open(shape.width, shape.height, CodeOfKind(shape.pixel), any, false);  // streamed, never verified
            for (size_t i = 0; i < frames.size(); ++i) {
                file.WriteFrameData(frames[i].data(), CodeOfKind(shape.pixel), static_cast<int>(i));
            }
            file.Close();
        } catch (const ImageFileException&) {
            throw ImageFileError(path, "cannot be written");
        }
        frames.clear();
        frameProperties.clear();
    }

private:
    FrameShape shape;
    std::vector<std::vector<char>> frames;
    std::vector<boost::property_tree::ptree> frameProperties;
};

}  // namespace

std::unique_ptr<SeriesSource> OpenFxdSeries(const std::string& path) {
    std::unique_ptr<ImageFxdFileIn> file;
    try {
        file = std::make_unique<ImageFxdFileIn>(path);
    } catch (const ImageFormatException& e) {
        throw Refusal(path, e.what());
    }
    return std::make_unique<FxdSource>(path, std::move(file));
}

std::unique_ptr<SeriesWriter> CreateFxdWriter(const std::string& path) { return std::make_unique<FxdWriter>(path); }

}  // namespace io
}  // namespace orvane
