// The .fxd reader on the fuzz bytes as a file: ImageFxdFileIn with every frame read as
// its own pixel type and refused as another, then the same file as a series.

#include "fuzz/ScratchFile.h"
#include "fuzz/SeriesReading.h"
#include "interfaces/ImageFormatException.h"
#include "io/FxdFile.h"
#include "tools/ImageFxdFile.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

// A read the reader must refuse with ImageFormatException.
template <typename Call>
void ExpectRefusal(const char* what, Call call) {
    try {
        call();
    } catch (const ImageFormatException&) {
        return;
    }
    std::fprintf(stderr, "ImageFxdFileIn does not refuse %s\n", what);
    std::abort();
}

// The frames read: all of them, or of a file of many empty frames (which its length
// does not bound) the first kMaxFramesInOrder and the last.
std::vector<int> FramesToRead(const ImageFxdFileIn& file) {
    std::vector<int> frames;
    for (int frame = 0; frame < file.GetFrameCount() && frame < orvane::fuzz::kMaxFramesInOrder; ++frame) {
        frames.push_back(frame);
    }
    if (file.GetFrameCount() > orvane::fuzz::kMaxFramesInOrder) frames.push_back(file.GetFrameCount() - 1);
    return frames;
}

// Those frames as images of T, with their properties; the frames before the first and
// after the last refused.
template <typename T>
void ReadFrames(ImageFxdFileIn& file) {
    for (int frame : FramesToRead(file)) {
        const ImagePtr<T> image = file.ReadImage<T>(frame);
        if (image->GetWidth() != file.GetWidth() || image->GetHeight() != file.GetHeight()) std::abort();
    }
    // A file of no frames may claim any frame size: a refusal must come before a pixel is written.
    const std::size_t pixelCount =
        file.GetFrameCount() > 0 ? std::size_t(file.GetWidth()) * std::size_t(file.GetHeight()) : 1;
    std::vector<T> pixels(pixelCount);
    ExpectRefusal("frame -1", [&] { file.ReadFrame(pixels.data(), -1); });
    ExpectRefusal("the frame after the last", [&] { file.ReadFrame(pixels.data(), file.GetFrameCount()); });
}

void ReadFile(const std::string& path) {
    ImageFxdFileIn file(path);
    if (file.GetWidth() < 0 || file.GetHeight() < 0 || file.GetFrameCount() < 0) std::abort();
    switch (file.GetPixelType()) {
        case orvane::detail::FxdPixelType<float>::code:
            ReadFrames<float>(file);
            if (file.GetFrameCount() > 0) {
                ExpectRefusal("a frame of another type", [&] { file.ReadImage<unsigned char>(0); });
            }
            break;
        case orvane::detail::FxdPixelType<unsigned short>::code:
            ReadFrames<unsigned short>(file);
            if (file.GetFrameCount() > 0) {
                ExpectRefusal("a frame of another type", [&] { file.ReadImage<float>(0); });
            }
            break;
        case orvane::detail::FxdPixelType<unsigned char>::code:
            ReadFrames<unsigned char>(file);
            if (file.GetFrameCount() > 0) {
                ExpectRefusal("a frame of another type", [&] { file.ReadImage<unsigned short>(0); });
            }
            break;
        default:
            std::fprintf(stderr, "ImageFxdFileIn accepts pixel type code %d\n", file.GetPixelType());
            std::abort();
    }
    if (file.GetProperties(-1).size() + file.GetProperties(file.GetFrameCount()).size() > 0 && !file.HasProperties()) {
        std::fprintf(stderr, "ImageFxdFileIn has properties for a file without them\n");
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static orvane::fuzz::ScratchFile file("input.fxd");
    file.Write(data, size);
    try {
        ReadFile(file.Path());
    } catch (const ImageFormatException&) {
        // The file refused, as documented.
    }
    try {
        const auto source = orvane::io::OpenFxdSeries(file.Path());
        orvane::fuzz::ReadSeries(*source);
    } catch (const orvane::io::ImageFileError&) {
    }
    return 0;
}
