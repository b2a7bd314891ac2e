#ifndef ORVANE_CALIBRATION_CALIBRATIONOPTIONS_H
#define ORVANE_CALIBRATION_CALIBRATIONOPTIONS_H

#include "image/ImageAcquisition.h"

#include <string>
#include <vector>

// Options are environment variables "OPTION_CALIBRATION_<NAME>", read afresh at
// each test. `name` is <NAME> in lower case, e.g. "offset_save_intermediary_sequence".
// An option is set only when its variable holds exactly "1" and no other variable
// of the prefix exists: two such variables switch every option off.
bool IsCalibrationOptionSet(const std::string& name);

// Debug images go to "<type>-ImageDebug-<name>.fxd" in the current directory, with
// the pixel type code of T (float 0, unsigned short 1, unsigned char 2). Failures
// (ImageFileException) are passed on; a null image fails before the file is made.
// Exported for float, unsigned char and unsigned short.
//
// One image: one frame, no properties.
template <typename T>
void SaveDebugImage(const ImagePtr<T>& image, std::string type, std::string name);
// A sequence: one frame per image, every frame carrying the first image's
// properties. An empty vector writes nothing; images of another size than the
// first fail before the file is made.
template <typename T>
void SaveDebugImage(const std::vector<ImagePtr<T>>& images, std::string type, std::string name);

extern template void SaveDebugImage<float>(const ImagePtr<float>&, std::string, std::string);
extern template void SaveDebugImage<unsigned char>(const ImagePtr<unsigned char>&, std::string,
                                                   std::string);
extern template void SaveDebugImage<unsigned short>(const ImagePtr<unsigned short>&, std::string,
                                                    std::string);
extern template void SaveDebugImage<float>(const std::vector<ImagePtr<float>>&, std::string,
                                           std::string);
extern template void SaveDebugImage<unsigned char>(const std::vector<ImagePtr<unsigned char>>&,
                                                   std::string, std::string);
extern template void SaveDebugImage<unsigned short>(const std::vector<ImagePtr<unsigned short>>&,
                                                    std::string, std::string);

namespace orvane {
namespace detail {

// "<type>-ImageDebug-<name>.fxd", with no directory part.
std::string DebugImageFileName(const std::string& type, const std::string& name);

}  // namespace detail
}  // namespace orvane

#endif
