#ifndef ORVANE_APPS_REFERENCEEXPORT_H
#define ORVANE_APPS_REFERENCEEXPORT_H

#include "apps/orvane/CalibrationPipeline.h"
#include "io/ImageFileFormat.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orvane {
namespace app {

// Writes the references of a run, saved as .fxd stores in `dir`, once more in
// `format` for other programs:
// - TIFF and FITS: <store>.tif / <store>.fits beside each store, one image per stored
//   frame: offsets, cluster patches and the time grid's entries as 16-bit; defect maps
//   as 8-bit classes; the linear gain as 32-bit float gains (the stored code / 16384,
//   inverted or not as the store keeps it); a polynomial gain as its three 32-bit
//   float coefficients.
// - HDF5: one file references.h5 with a dataset /<store> of those frames per store,
//   and /pixel_mask, the final defect map as a 32-bit bit field (PixelMask).
// The echo-line store holds row numbers, not an image: it stays .fxd only. The names
// of the files written are added to the steps' file lists.
void ExportReferences(const std::string& dir, CalibrationOutputs& outputs, io::ImageFileFormat format);

// The final defect map as a pixel mask of the field: 0 for a good pixel; for a
// defective one, by its linear gain g (response relative to the panel's mean):
//   bit 0 (dead)              g < 0.05
//   bit 1 (under-responding)  0.05 <= g < 0.95
//   bit 2 (over-responding)   g > 1.05
//   bit 3 (noisy)             0.95 <= g <= 1.05: flagged for its dark level or noise
//   bit 5 (cluster)           besides, when a neighbour is defective too (class 2 or
//                             more: lines, columns and clumps)
// Without a gain every defective pixel is marked noisy.
std::vector<std::uint32_t> PixelMask(const ImageAcquisition<unsigned char>& defects, const ImageAcquisition<float>* gain);

}  // namespace app
}  // namespace orvane

#endif
