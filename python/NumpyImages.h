#ifndef ORVANE_PYTHON_NUMPYIMAGES_H
#define ORVANE_PYTHON_NUMPYIMAGES_H

#include "image/ImageAcquisition.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

// The numpy edge, in one place. Pixels cross it without a copy, both ways:
// - ImageFromArray makes an image over the pixels of a 2-D array (rows x columns) of
//   exactly T's dtype, and the image keeps the array alive. Anything numpy.asarray
//   takes is accepted; another dtype is a TypeError (no silent cast), another number
//   of dimensions a ValueError. An array that is not C-contiguous, or not writeable,
//   is copied once into a C-contiguous one, which the image then holds.
// - ArrayOfImage gives a writeable numpy view of an image's pixels that keeps the image
//   alive (through a capsule holding its ImagePtr), so the view may outlive the image's
//   Python object and the store the image belongs to.
// Both need the interpreter lock.
namespace orvane {
namespace python {

template <typename T>
ImagePtr<T> ImageFromArray(const pybind11::handle& source);

// A zero-filled image; a negative or too large size is a ValueError.
template <typename T>
ImagePtr<T> NewImage(int width, int height);

template <typename T>
pybind11::array_t<T> ArrayOfImage(const ImagePtr<T>& image);

}  // namespace python
}  // namespace orvane

#endif
