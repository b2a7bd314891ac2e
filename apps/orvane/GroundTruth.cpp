// The JSON reader pulls in boost/bind, which otherwise announces its deprecated placeholders.
#define BOOST_BIND_GLOBAL_PLACEHOLDERS
#include "apps/orvane/GroundTruth.h"

#include "apps/orvane/InputError.h"
#include "interfaces/ImageFormatException.h"
#include "tools/ImageFxdFile.h"

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;
using boost::property_tree::ptree;

namespace orvane {
namespace app {

namespace {

const char* const kKindNames[kDefectKindCount] = {
    "none", "hot", "dead", "noisy", "cluster", "line", "column", "partial-line", "partial-column",
    "dark-region", "weak-response", "flicker"};

template <typename T>
void SaveImage(const std::string& path, const ImagePtr<T>& image, int width, int height) {
    if (!image || image->GetWidth() != width || image->GetHeight() != height) {
        throw std::invalid_argument("ground truth image for " + path + " is missing or not " + std::to_string(width) +
                                    " x " + std::to_string(height));
    }
    const int type = orvane::detail::FxdPixelType<T>::code;
    try {
        ImageFxdFileOut file(path);
        file.Open(width, height, type, false);
        file.WriteFrameData(image->GetData(), type, 0);
        file.Close();
    } catch (const std::exception& e) {
        throw InputError(path, std::string("cannot be written: ") + e.what());
    }
}

template <typename T>
ImagePtr<T> LoadImage(const std::string& path, int width, int height) {
    try {
        ImageFxdFileIn file(path);
        file.VerifyChecksum();
        if (file.GetPixelType() != orvane::detail::FxdPixelType<T>::code || file.GetFrameCount() != 1 ||
            file.GetWidth() != width || file.GetHeight() != height) {
            throw InputError(path, "expected one frame of " + std::to_string(width) + " x " + std::to_string(height) +
                                       " with pixel type code " +
                                       std::to_string(orvane::detail::FxdPixelType<T>::code));
        }
        return file.ReadImage<T>(0);
    } catch (const ImageFormatException& e) {
        const std::string prefix = "ImageFxdFileIn: '" + path + "' ";
        const std::string message = e.what();
        throw InputError(path, message.compare(0, prefix.size(), prefix) == 0 ? message.substr(prefix.size()) : message);
    }
}

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + '"';
}

std::string TruthJson(const GroundTruth& truth) {
    std::array<long, kDefectKindCount> counts{};
    const unsigned char* kinds = truth.defects->GetData();
    for (int i = 0, n = truth.defects->GetPixelCount(); i < n; ++i) {
        if (kinds[i] < kDefectKindCount) ++counts[kinds[i]];
    }
    std::ostringstream json;
    json.precision(9);
    json << "{\n  \"model\": " << JsonString(truth.model) << ",\n  \"width\": " << truth.width
         << ",\n  \"height\": " << truth.height << ",\n  \"darkFrames\": " << truth.darkFrames
         << ",\n  \"framesPerDose\": " << truth.framesPerDose << ",\n  \"doseLevels\": [";
    for (std::size_t i = 0; i < truth.doseLevels.size(); ++i) json << (i ? ", " : "") << truth.doseLevels[i];
    json << "],\n  \"counts\": {";
    for (int k = 1; k < kDefectKindCount; ++k) {
        json << (k > 1 ? ", " : "") << JsonString(kKindNames[k]) << ": " << counts[static_cast<std::size_t>(k)];
    }
    json << "},\n  \"echoLines\": [";
    for (std::size_t i = 0; i < truth.echoLines.size(); ++i) json << (i ? ", " : "") << truth.echoLines[i];
    json << "],\n  \"clusters\": [";
    for (std::size_t i = 0; i < truth.clusters.size(); ++i) {
        const ROI& c = truth.clusters[i];
        json << (i ? ",\n    " : "\n    ") << "{\"top\": " << c.top << ", \"left\": " << c.left
             << ", \"height\": " << c.height << ", \"width\": " << c.width << '}';
    }
    json << (truth.clusters.empty() ? "" : "\n  ") << "],\n  \"offsetChanges\": [";
    for (std::size_t i = 0; i < truth.offsetChanges.size(); ++i) {
        const OffsetChange& c = truth.offsetChanges[i];
        json << (i ? ",\n    " : "\n    ") << "{\"top\": " << c.box.top << ", \"left\": " << c.box.left
             << ", \"height\": " << c.box.height << ", \"width\": " << c.box.width
             << ", \"amplitude\": " << c.amplitude << '}';
    }
    json << (truth.offsetChanges.empty() ? "" : "\n  ") << "]\n}\n";
    return json.str();
}

}  // namespace

const char* DefectKindName(DefectKind kind) {
    const auto index = static_cast<unsigned>(kind);
    return index < static_cast<unsigned>(kDefectKindCount) ? kKindNames[index] : "unknown";
}

void SaveGroundTruth(const GroundTruth& truth, const std::string& dir) {
    const std::string folder = dir + "/truth";
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw InputError(folder, "cannot be created: " + error.message());

    SaveImage(folder + "/offset.fxd", truth.offset, truth.width, truth.height);
    SaveImage(folder + "/gain.fxd", truth.gain, truth.width, truth.height);
    SaveImage(folder + "/defects.fxd", truth.defects, truth.width, truth.height);

    const std::string path = folder + "/truth.json";
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << TruthJson(truth);
    out.close();
    if (!out) {
        throw InputError(path, "cannot be written");
    }
}

GroundTruth LoadGroundTruth(const std::string& dir) {
    const std::string folder = dir + "/truth";
    const std::string path = folder + "/truth.json";
    std::error_code error;
    if (!fs::is_directory(folder, error)) throw InputError(folder, "no ground truth folder");
    if (!fs::exists(path, error)) throw InputError(path, "file is missing");

    GroundTruth truth;
    try {
        ptree json;
        boost::property_tree::read_json(path, json);
        truth.model = json.get<std::string>("model");
        truth.width = json.get<int>("width");
        truth.height = json.get<int>("height");
        truth.darkFrames = json.get<int>("darkFrames");
        truth.framesPerDose = json.get<int>("framesPerDose");
        for (const auto& item : json.get_child("doseLevels")) truth.doseLevels.push_back(item.second.get_value<float>());
        for (const auto& item : json.get_child("echoLines")) truth.echoLines.push_back(item.second.get_value<int>());
        for (const auto& item : json.get_child("clusters")) {
            const ptree& c = item.second;
            truth.clusters.emplace_back(c.get<unsigned short>("top"), c.get<unsigned short>("left"),
                                        c.get<unsigned short>("height"), c.get<unsigned short>("width"));
        }
        for (const auto& item : json.get_child("offsetChanges")) {
            const ptree& c = item.second;
            OffsetChange change;
            change.box = ROI(c.get<unsigned short>("top"), c.get<unsigned short>("left"),
                             c.get<unsigned short>("height"), c.get<unsigned short>("width"));
            change.amplitude = c.get<float>("amplitude");
            truth.offsetChanges.push_back(change);
        }
    } catch (const boost::property_tree::json_parser_error& e) {
        throw InputError(path, "is not valid JSON: " + e.message() + " at line " + std::to_string(e.line()));
    } catch (const boost::property_tree::ptree_error& e) {
        throw InputError(path, std::string("is malformed: ") + e.what());
    }
    if (truth.width <= 0 || truth.height <= 0) {
        throw InputError(path, "has the invalid size " + std::to_string(truth.width) + " x " + std::to_string(truth.height));
    }
    for (int row : truth.echoLines) {
        if (row < 0 || row >= truth.height) throw InputError(path, "has the echo line " + std::to_string(row) + " outside the frame");
    }
    for (const OffsetChange& c : truth.offsetChanges) {
        if (c.box.top + c.box.height > truth.height || c.box.left + c.box.width > truth.width) {
            throw InputError(path, "has an offset change outside the frame");
        }
    }
    truth.offset = LoadImage<float>(folder + "/offset.fxd", truth.width, truth.height);
    truth.gain = LoadImage<float>(folder + "/gain.fxd", truth.width, truth.height);
    truth.defects = LoadImage<unsigned char>(folder + "/defects.fxd", truth.width, truth.height);
    const unsigned char* kinds = truth.defects->GetData();
    for (int i = 0, n = truth.defects->GetPixelCount(); i < n; ++i) {
        if (kinds[i] >= kDefectKindCount) {
            throw InputError(folder + "/defects.fxd", "holds the unknown defect kind " + std::to_string(kinds[i]));
        }
    }
    return truth;
}

}  // namespace app
}  // namespace orvane
