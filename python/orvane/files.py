"""Image files (TIFF, HDF5/NeXus, FITS, raw, .fxd) as numpy frames."""

import numpy as np

from ._core import CreateSeriesWriter, ImageFloat32, ImageUInt8, ImageUInt16, OpenSeries

_IMAGE_TYPES = {np.dtype(np.uint8): ImageUInt8, np.dtype(np.uint16): ImageUInt16, np.dtype(np.float32): ImageFloat32}


def read_frames(path, raw=None, dataset=""):
    """Yields the frames of an image file one at a time, as numpy arrays (rows x columns).

    Each array is a view of a freshly read image of the file's pixel kind (uint8, uint16
    or float32); only that frame is in memory. raw and dataset as for OpenSeries.
    """
    series = OpenSeries(path, raw, dataset)
    for index in range(len(series)):
        yield series.ReadImage(index).array


def _frames(data):
    """The 2-D arrays of a frame, a stack or a sequence of frames (of any shapes)."""
    if not isinstance(data, np.ndarray):
        data = list(data)
        if data and np.ndim(data[0]) >= 2:
            return [np.asarray(frame) for frame in data]
        data = np.asarray(data)
    return [data] if data.ndim == 2 else list(data)


def write_image(path, data, format="", dataset=""):
    """Writes a 2-D array as one frame, or a 3-D array (or a sequence of 2-D arrays) as
    a series, to path in the format named or the one its extension stands for.

    The arrays are of dtype uint8, uint16 or float32 (TypeError for another), all of one
    dtype and shape (ValueError, before anything is written); they are written without
    a copy when C-contiguous.
    """
    arrays = _frames(data)
    if not arrays:
        raise ValueError("orvane: no frame to write")
    image_type = _IMAGE_TYPES.get(arrays[0].dtype)
    if image_type is None:
        raise TypeError(f"orvane: image files take uint8, uint16 or float32 pixels, not {arrays[0].dtype}")
    # Checked before the file is made, so that a bad series leaves nothing behind.
    for index, array in enumerate(arrays):
        if array.dtype != arrays[0].dtype or array.shape != arrays[0].shape:
            raise ValueError(
                f"orvane: frame {index} is {array.dtype} {array.shape}, frame 0 {arrays[0].dtype} {arrays[0].shape}"
            )
    with CreateSeriesWriter(path, format, dataset, len(arrays)) as writer:
        for array in arrays:
            writer.WriteImage(image_type(array))
