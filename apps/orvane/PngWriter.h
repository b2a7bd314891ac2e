#ifndef ORVANE_APPS_PNGWRITER_H
#define ORVANE_APPS_PNGWRITER_H

#include "image/ImageAcquisition.h"

#include <string>

namespace orvane {
namespace app {

// 8-bit grey PNG files of images, reduced by an integer factor so that the longer side
// is at most `maxSide` pixels (each output pixel the mean of its block).

// Values mapped linearly from [low, high] to [0, 255], clamped; NaN is black.
void WritePng(const std::string& path, const ImageAcquisition<float>& image, float low, float high,
              int maxSide = 1024);
// A defect map: 0 white, any other value black (a block is black if any pixel is).
void WriteDefectPng(const std::string& path, const ImageAcquisition<unsigned char>& map, int maxSide = 1024);

}  // namespace app
}  // namespace orvane

#endif
