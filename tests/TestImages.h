#ifndef ORVANE_TESTS_TESTIMAGES_H
#define ORVANE_TESTS_TESTIMAGES_H

// Frames, log capture, scratch folders and text helpers shared by the test suites.

#include "OrvaneCalibration.h"

#include <boost/make_shared.hpp>

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvane {
namespace test {

using Frame = ImagePtr<unsigned short>;
using Bytes = std::vector<unsigned char>;
const float kNaN = std::numeric_limits<float>::quiet_NaN(), kInf = std::numeric_limits<float>::infinity();

// An image of width x height whose pixels are `values` row after row (the rest 0).
template <typename T>
ImagePtr<T> MakeImage(int width, int height, std::initializer_list<T> values = {}) {
    auto image = boost::make_shared<ImageAcquisition<T>>(width, height);
    int i = 0;
    for (T value : values) {
        if (i < image->GetPixelCount()) image->GetData()[i++] = value;
    }
    return image;
}

// An image of width x height with every pixel `value`.
template <typename T>
ImagePtr<T> MakeFilled(int width, int height, T value) {
    auto image = boost::make_shared<ImageAcquisition<T>>(width, height);
    std::fill(image->GetData(), image->GetData() + image->GetPixelCount(), value);
    return image;
}

// An image of width x height whose pixel (x, y) is value(x, y), made row after row.
template <typename T, typename Value>
ImagePtr<T> MakeImageOf(int width, int height, Value value) {
    auto image = boost::make_shared<ImageAcquisition<T>>(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) image->GetData()[y * width + x] = static_cast<T>(value(x, y));
    return image;
}

template <typename T>
std::vector<T> Pixels(const ImagePtr<T>& image) {
    return std::vector<T>(image->GetData(), image->GetData() + image->GetPixelCount());
}

// Collects the lines the logger delivers while it lives.
class LogCapture {
public:
    LogCapture()
        : handle(logger::manager().add_sink([this](const std::string& line) { lines.push_back(line); })) {}
    ~LogCapture() { logger::manager().remove_sink(handle); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines;

private:
    int handle;
};

// The lines a calibration logs for a step that succeeds, e.g. "CalibrationEcholine : Init".
inline std::vector<std::string> Succeeded(const std::string& step) { return {"I " + step + "\n", "I " + step + " succeed\n"}; }

// The names of the entries of `dir`, hidden ones included, sorted; none when `dir`
// is no directory.
inline std::vector<std::string> EntriesOf(const std::filesystem::path& dir) {
    std::vector<std::string> names;
    if (std::filesystem::is_directory(dir)) {
        for (const auto& entry : std::filesystem::directory_iterator(dir)) names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The bytes of the file at `path`; "" when it cannot be read.
inline std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// How many of `lines` contain `part`.
inline long CountContaining(const std::vector<std::string>& lines, const std::string& part) {
    return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return Contains(line, part); });
}
inline bool Contains(const std::vector<std::string>& lines, const std::string& part) { return CountContaining(lines, part) > 0; }

// A fresh temporary directory, made the current directory while this lives; it is
// left and removed with its contents afterwards.
class ScratchDirectory {
public:
    ScratchDirectory() : previous(std::filesystem::current_path()) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "orvane-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        path = pattern;
        std::filesystem::current_path(path);
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::current_path(previous, ignored);
        std::filesystem::remove_all(path, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::filesystem::path& Path() const { return path; }

    std::vector<std::string> Entries() const { return EntriesOf(path); }

private:
    std::filesystem::path previous;
    std::filesystem::path path;
};

// The message of the E that `call` throws; "" when nothing is thrown.
template <typename E, typename Call>
std::string ThrownText(Call call) {
    try {
        call();
    } catch (const E& e) {
        return e.what();
    }
    return "";
}

// The message of the CalibrationException that `call` throws, without the
// "<file>(<line>): " in front of it; "" when nothing is thrown.
template <typename Call>
std::string FailureText(Call call) {
    const std::string text = ThrownText<CalibrationException>(call);
    const size_t at = text.find("): ");
    return at == std::string::npos ? text : text.substr(at + 3);
}

// The non-NaN samples of the moving window of `size` on `row` at x: positions
// x - size / 2 to x - size / 2 + size - 1, cut at the row ends.
inline std::vector<float> WindowSamples(const std::vector<float>& row, int x, int size) {
    std::vector<float> samples;
    const int first = std::max(0, x - size / 2);
    const int end = std::min(static_cast<int>(row.size()), x - size / 2 + size);
    for (int i = first; i < end; ++i) {
        const float value = row[static_cast<size_t>(i)];
        if (value == value) samples.push_back(value);
    }
    return samples;
}

}  // namespace test
}  // namespace orvane

#endif
