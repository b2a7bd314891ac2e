"""orvane: calibration references of a flat-panel detector, computed from numpy frames.

The classes mirror the C++ library (images, stores, calibrations, parameter sets, with
their C++ names); their pixels are shared with numpy without a copy, and failures
arrive as orvane.Error and its subclasses with the library's text. The functions in
snake case are the short road on top of them, e.g. calibrate_offset(darks).
"""

from ._core import (
    CalibrationException,
    CalibrationOffsetDynamic,
    CreateSeriesWriter,
    Error,
    FrameShape,
    ImageFileError,
    ImageFileException,
    ImageFloat32,
    ImageFormatException,
    ImageUInt8,
    ImageUInt16,
    OffsetDynamicParameters,
    OffsetDynamicParametersSet,
    OpenSeries,
    Reference,
    ReferenceException,
    ReferenceOffsetSimple,
    SeriesSource,
    SeriesWriter,
    SetThreadCount,
    ThreadCount,
    __version__,
    s_OffsetDynamicParametersSet,
)
from .files import read_frames, write_image
from .frames import frame_images
from .offset import calibrate_offset

__all__ = [
    "CalibrationException",
    "CalibrationOffsetDynamic",
    "CreateSeriesWriter",
    "Error",
    "FrameShape",
    "ImageFileError",
    "ImageFileException",
    "ImageFloat32",
    "ImageFormatException",
    "ImageUInt8",
    "ImageUInt16",
    "OffsetDynamicParameters",
    "OffsetDynamicParametersSet",
    "OpenSeries",
    "Reference",
    "ReferenceException",
    "ReferenceOffsetSimple",
    "SeriesSource",
    "SeriesWriter",
    "SetThreadCount",
    "ThreadCount",
    "__version__",
    "calibrate_offset",
    "frame_images",
    "read_frames",
    "s_OffsetDynamicParametersSet",
    "write_image",
]
