#include "apps/orvane/FrameFolder.h"

#include "apps/orvane/InputError.h"
#include "interfaces/ImageFileException.h"
#include "interfaces/ImageFormatException.h"
#include "tools/ImageFxdFile.h"

#include <boost/property_tree/ptree.hpp>

#include <cstdio>
#include <filesystem>
#include <map>
#include <system_error>

namespace fs = std::filesystem;

namespace orvane {
namespace app {

namespace {

constexpr int kShortPixels = orvane::detail::FxdPixelType<unsigned short>::code;

// The problem part of a reader's message: it names the file itself, and InputError
// puts the path in front already.
std::string Problem(const std::string& message, const std::string& path) {
    const std::string prefix = "ImageFxdFileIn: '" + path + "' ";
    return message.compare(0, prefix.size(), prefix) == 0 ? message.substr(prefix.size()) : message;
}

std::string SizeText(int width, int height) { return std::to_string(width) + " x " + std::to_string(height); }

// Checks that an opened file holds exactly one 16-bit frame.
void CheckFrameFile(const ImageFxdFileIn& file, const std::string& path) {
    if (file.GetPixelType() != kShortPixels) {
        throw InputError(path, "is not a 16-bit frame (pixel type code " + std::to_string(file.GetPixelType()) + ")");
    }
    if (file.GetFrameCount() != 1) {
        throw InputError(path, "holds " + std::to_string(file.GetFrameCount()) + " frames, expected 1");
    }
}

// Parses the digits of `text` (all of it); -1 if it is empty or not all digits.
int Number(const std::string& text) {
    if (text.empty() || text.size() > 6) return -1;
    int value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

bool EndsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

std::string ThreeDigits(int index) {
    char text[16];
    std::snprintf(text, sizeof text, "%03d", index);
    return text;
}

}  // namespace

std::string DarkFileName(int index) { return "dark-" + ThreeDigits(index) + ".fxd"; }

std::string FlatFileName(int dose, int index) { return "flat-" + std::to_string(dose) + "-" + ThreeDigits(index) + ".fxd"; }

FrameSeries ScanFrameFolder(const std::string& dir) {
    std::error_code error;
    if (!fs::exists(dir, error)) throw InputError(dir, "folder does not exist");
    if (!fs::is_directory(dir, error)) throw InputError(dir, "is not a folder");

    std::map<int, std::string> darks;
    std::map<int, std::map<int, std::string>> flats;  // dose -> index -> path
    bool anyFile = false;
    fs::directory_iterator it(dir, error);
    if (error) throw InputError(dir, "folder cannot be read: " + error.message());
    for (const fs::directory_entry& entry : it) {
        anyFile = true;
        const std::string name = entry.path().filename().string();
        if (!EndsWith(name, ".fxd")) continue;
        const std::string stem = name.substr(0, name.size() - 4);
        const std::string path = entry.path().string();
        if (stem.compare(0, 5, "dark-") == 0) {
            const int index = Number(stem.substr(5));
            if (index >= 0) darks[index] = path;
        } else if (stem.compare(0, 5, "flat-") == 0) {
            const std::size_t dash = stem.find('-', 5);
            if (dash == std::string::npos) continue;
            const int dose = Number(stem.substr(5, dash - 5));
            const int index = Number(stem.substr(dash + 1));
            if (dose >= 0 && index >= 0) flats[dose][index] = path;
        }
    }
    if (!anyFile) throw InputError(dir, "folder is empty");
    if (darks.empty()) throw InputError(dir, "no dark frames (" + DarkFileName(0) + ", ...) in the folder");

    FrameSeries series;
    for (const auto& dark : darks) series.darks.push_back(dark.second);
    int expectedDose = 1;
    for (const auto& dose : flats) {
        if (dose.first != expectedDose) {
            throw InputError(dir, "no flat frames of dose " + std::to_string(expectedDose) + " (" +
                                      FlatFileName(expectedDose, 0) + ", ...), but of dose " +
                                      std::to_string(dose.first));
        }
        ++expectedDose;
        series.doses.emplace_back();
        for (const auto& frame : dose.second) series.doses.back().push_back(frame.second);
    }

    // Headers only: the reader checks each file's length against its header.
    std::string first;
    auto check = [&](const std::string& path) {
        try {
            ImageFxdFileIn file(path);
            CheckFrameFile(file, path);
            if (first.empty()) {
                first = path;
                series.width = file.GetWidth();
                series.height = file.GetHeight();
            } else if (file.GetWidth() != series.width || file.GetHeight() != series.height) {
                throw InputError(path, "frame is " + SizeText(file.GetWidth(), file.GetHeight()) + ", but " + first +
                                           " is " + SizeText(series.width, series.height));
            }
        } catch (const ImageFormatException& e) {
            throw InputError(path, Problem(e.what(), path));
        }
    };
    for (const std::string& path : series.darks) check(path);
    for (const auto& dose : series.doses) {
        for (const std::string& path : dose) check(path);
    }
    return series;
}

ImagePtr<unsigned short> ReadFrame(const std::string& path, int width, int height) {
    try {
        ImageFxdFileIn file(path);
        CheckFrameFile(file, path);
        if (file.GetWidth() != width || file.GetHeight() != height) {
            throw InputError(path, "frame is " + SizeText(file.GetWidth(), file.GetHeight()) + ", expected " +
                                       SizeText(width, height));
        }
        return file.ReadImage<unsigned short>(0);
    } catch (const ImageFormatException& e) {
        throw InputError(path, Problem(e.what(), path));
    }
}

void WriteFrame(const std::string& path, const ImageAcquisition<unsigned short>& frame) {
    try {
        ImageFxdFileOut file(path);
        boost::property_tree::ptree properties = frame.GetProperties();
        file.SetProperties(properties, 0);
        file.Open(frame.GetWidth(), frame.GetHeight(), kShortPixels, true);
        file.WriteFrameData(frame.GetData(), kShortPixels, 0);
        file.Close();
    } catch (const std::exception& e) {
        throw InputError(path, std::string("cannot be written: ") + e.what());
    }
}

}  // namespace app
}  // namespace orvane
