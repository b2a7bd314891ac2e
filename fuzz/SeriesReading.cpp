#include "fuzz/SeriesReading.h"

#include "fuzz/FrameBuffer.h"

#include <boost/property_tree/ptree.hpp>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace orvane {
namespace fuzz {

namespace {

[[noreturn]] void Broken(const io::SeriesSource& source, const std::string& promise) {
    std::fprintf(stderr, "broken promise of %s: %s\n", source.Name().c_str(), promise.c_str());
    std::abort();
}

template <typename Call>
void ExpectRefusal(const io::SeriesSource& source, const std::string& what, Call call) {
    try {
        call();
    } catch (const io::ImageFileError&) {
        return;
    }
    Broken(source, what + " is not refused");
}

// The frames to read, in the order read (see ReadSeries).
std::vector<int> ReadingOrder(int frames, long long frameBytes) {
    std::vector<int> order;
    long long spent = 0;
    for (int f = 0; f < frames && f < kMaxFramesInOrder && (f == 0 || spent + frameBytes <= kReadBudget); ++f) {
        order.push_back(f);
        spent += frameBytes;
    }
    if (order.size() < static_cast<size_t>(frames)) {
        if (frames - 2 > order.back()) order.push_back(frames - 2);
        order.push_back(frames - 1);
    }
    if (frames > 1) order.push_back(0);
    return order;
}

}  // namespace

void ReadSeries(io::SeriesSource& source) {
    const io::FrameShape& shape = source.Shape();
    if (shape.width < 1 || shape.height < 1 || shape.width > io::kLargestFrameSide ||
        shape.height > io::kLargestFrameSide ||
        static_cast<long long>(shape.width) * shape.height > io::kLargestFramePixels || shape.frames < 0) {
        Broken(source, "a shape of " + io::ShapeText(shape) + " and " + std::to_string(shape.frames) + " frames");
    }
    const long long frameBytes = static_cast<long long>(shape.width) * shape.height * io::BytesPerPixel(shape.pixel);
    boost::property_tree::ptree properties;
    ExpectRefusal(source, "frame -1", [&] {
        FrameBuffer buffer(static_cast<size_t>(frameBytes));
        source.ReadFrame(-1, buffer.Data(), properties);
    });
    ExpectRefusal(source, "the frame after the last", [&] {
        FrameBuffer buffer(static_cast<size_t>(frameBytes));
        source.ReadFrame(shape.frames, buffer.Data(), properties);
    });
    if (shape.frames == 0 || frameBytes > kLargestFrameRead) return;
    ExpectRefusal(source, "a frame as pixels of another kind", [&] {
        if (shape.pixel == io::PixelKind::UInt16) {
            source.ReadImage<float>(0);
        } else {
            source.ReadImage<unsigned short>(0);
        }
    });
    for (int f : ReadingOrder(shape.frames, frameBytes)) {
        FrameBuffer buffer(static_cast<size_t>(frameBytes));
        try {
            source.ReadFrame(f, buffer.Data(), properties);
        } catch (const io::ImageFileError&) {
            // A frame the file cannot give; the next may still be read.
        }
    }
}

}  // namespace fuzz
}  // namespace orvane
