#ifndef ORVANE_TESTS_IO_IOTESTFILES_H
#define ORVANE_TESTS_IO_IOTESTFILES_H

// Frames of known content for the image-file suites, and the independent readers and
// writers of tests/io/*.py run beside them.

#include "TestImages.h"
#include "io/SeriesSource.h"
#include "io/SeriesWriter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace orvane {
namespace test {

// Pixel (x, y) of frame f of a test series, the same formula as tests/io/frames.py:
// every bit of a 16-bit pixel, both bytes, and float values that no shorter type holds.
template <typename T>
T TestPixel(int x, int y, int f) {
    const unsigned v = static_cast<unsigned>(x * 7919 + y * 104729 + f * 1299709);
    if constexpr (std::is_same_v<T, float>) return static_cast<float>(int(v % 200001) - 100000) / 7.0f;
    else return static_cast<T>(v);
}

template <typename T>
ImagePtr<T> TestFrame(int width, int height, int f) {
    auto image = MakeImageOf<T>(width, height, [f](int x, int y) { return TestPixel<T>(x, y, f); });
    image->SetProperty("image.time", 60 * f + 7);
    image->SetProperty("image.temperature", 30.25 + f);
    return image;
}

// Writes frames 0 .. frames - 1 of the test series, then closes the writer.
template <typename T>
void WriteSeries(io::SeriesWriter& writer, int width, int height, int frames) {
    for (int f = 0; f < frames; ++f) writer.WriteImage(*TestFrame<T>(width, height, f));
    writer.Close();
}

// Every frame is the test frame, pixels and properties (or none), read in order, then
// the first again (back to the start), the last (a jump ahead) and the last once more.
template <typename T>
void ExpectSeries(io::SeriesSource& source, int width, int height, int frames, bool withProperties) {
    ASSERT_EQ(io::ShapeText({width, height, io::PixelKindOf<T>::value, 0}), io::ShapeText(source.Shape()))
        << source.Name();
    ASSERT_EQ(frames, source.Shape().frames) << source.Name();
    std::vector<int> order;
    for (int f = 0; f < frames; ++f) order.push_back(f);
    order.insert(order.end(), {0, frames - 1, frames - 1});
    for (int f : order) {
        const ImagePtr<T> image = source.ReadImage<T>(f), expected = TestFrame<T>(width, height, f);
        EXPECT_EQ(Pixels(expected), Pixels(image)) << source.Name() << " frame " << f;
        const auto& properties = image->GetProperties();
        EXPECT_TRUE(withProperties ? properties == expected->GetProperties() : properties.empty())
            << source.Name() << " frame " << f;
    }
}

// The message of the ImageFileError that `call` throws; "" when nothing is thrown.
inline std::string Failure(const std::function<void()>& call) { return ThrownText<io::ImageFileError>(call); }

// Runs `tests/io/<script> <arguments>` with the Python that has the independent
// readers and writers; its exit code (0: the files agree).
inline int RunPython(const std::string& script, const std::string& arguments) {
    const std::string command = std::string(ORVANE_TEST_PYTHON) + " " + ORVANE_IO_SCRIPTS + "/" + script + " " + arguments;
    return std::system(command.c_str());
}

}  // namespace test
}  // namespace orvane

#endif
