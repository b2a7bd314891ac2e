"""Series of frames from numpy: the images a calibration takes, over the frames' own pixels."""

import numpy as np

from ._core import ImageUInt16


def frame_images(frames):
    """The frames of a series as ImageUInt16 images that share the frames' pixels.

    frames is a 3-D array (frames x rows x columns) or a sequence of 2-D arrays, all of
    dtype uint16 and of one shape. A frame that is not C-contiguous is copied once.
    Raises TypeError for another dtype, ValueError for an empty series, a frame that is
    not 2-D, or frames of different shapes.
    """
    if isinstance(frames, np.ndarray) and frames.ndim != 3:
        raise ValueError(
            f"orvane: a series of frames needs a 3-D array (frames x rows x columns), "
            f"not one of {frames.ndim} dimensions"
        )
    images = [ImageUInt16(frame) for frame in frames]
    if not images:
        raise ValueError("orvane: the series has no frames")
    shape = (images[0].height, images[0].width)
    for index, image in enumerate(images):
        if (image.height, image.width) != shape:
            raise ValueError(
                f"orvane: frame {index} is {image.height} x {image.width} (rows x columns), "
                f"frame 0 is {shape[0]} x {shape[1]}"
            )
    return images
