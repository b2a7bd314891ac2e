#include "calibration/CalibrationOptions.h"

#include "tools/LogAndThrow.h"
#include "interfaces/ImageFileException.h"
#include "tools/ImageFxdFile.h"

#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>

#include <sstream>

bool IsCalibrationOptionSet(const std::string& name) {
    namespace po = boost::program_options;
    const po::options_description description(name);
    const po::parsed_options parsed = po::parse_environment(description, "OPTION_CALIBRATION_");
    if (parsed.options.size() != 1) {
        return false;
    }
    const po::option& option = parsed.options.front();
    return option.string_key == name && option.value.size() == 1 && option.value.front() == "1";
}

namespace orvane {
namespace detail {

std::string DebugImageFileName(const std::string& type, const std::string& name) {
    std::ostringstream fileName;
    fileName << type << "-ImageDebug-" << name << ".fxd";
    return fileName.str();
}

}  // namespace detail
}  // namespace orvane

namespace {

[[noreturn]] void FailToWrite(const std::string& fileName, int line) {
    LogAndThrow<ImageFileException>("Impossible to write image '" + fileName + "'", __FILE__, line);
}

}  // namespace

template <typename T>
void SaveDebugImage(const ImagePtr<T>& image, std::string type, std::string name) {
    const std::string fileName = orvane::detail::DebugImageFileName(type, name);
    if (!image) {
        FailToWrite(fileName, __LINE__);
    }
    ImageFxdFileOut file(fileName);
    file.Open(image->GetWidth(), image->GetHeight(), orvane::detail::FxdPixelType<T>::code, false);
    file.WriteFrame(image->GetData(), 0);
    file.Close();
}

template <typename T>
void SaveDebugImage(const std::vector<ImagePtr<T>>& images, std::string type, std::string name) {
    if (images.empty()) {
        return;
    }
    const std::string fileName = orvane::detail::DebugImageFileName(type, name);
    const ImagePtr<T>& first = images.front();
    for (const ImagePtr<T>& image : images) {
        // WriteFrame reads width x height pixels of every image.
        if (!image || !first || image->GetWidth() != first->GetWidth() ||
            image->GetHeight() != first->GetHeight()) {
            FailToWrite(fileName, __LINE__);
        }
    }
    const int count = static_cast<int>(images.size());
    ImageFxdFileOut file(fileName);
    for (int i = 0; i < count; ++i) {
        file.SetProperties(first->GetProperties(), i);
    }
    file.Open(first->GetWidth(), first->GetHeight(), orvane::detail::FxdPixelType<T>::code, true);
    for (int i = 0; i < count; ++i) {
        file.WriteFrame(images[static_cast<size_t>(i)]->GetData(), i);
    }
    file.Close();
}

template void SaveDebugImage<float>(const ImagePtr<float>&, std::string, std::string);
template void SaveDebugImage<unsigned char>(const ImagePtr<unsigned char>&, std::string, std::string);
template void SaveDebugImage<unsigned short>(const ImagePtr<unsigned short>&, std::string,
                                             std::string);
template void SaveDebugImage<float>(const std::vector<ImagePtr<float>>&, std::string, std::string);
template void SaveDebugImage<unsigned char>(const std::vector<ImagePtr<unsigned char>>&, std::string,
                                            std::string);
template void SaveDebugImage<unsigned short>(const std::vector<ImagePtr<unsigned short>>&,
                                             std::string, std::string);
