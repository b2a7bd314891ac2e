"""The offset calibrations on numpy frames."""

from ._core import CalibrationOffsetDynamic, ReferenceOffsetSimple, s_OffsetDynamicParametersSet
from .frames import frame_images


def calibrate_offset(darks, model="", path=""):
    """The dynamic offset of a series of dark frames, as a uint16 array (rows x columns).

    darks: a 3-D uint16 array (frames x rows x columns) or a sequence of 2-D ones
    (see frame_images; the frames' pixels are read in place). model: the detector key
    whose OffsetDynamicParametersSet row to use ("" is the default row). path: when
    given, the store is also saved there as a .fxd file, which
    ReferenceOffsetSimple(width, height, path).Load() reads back.

    Runs as the `orvane calibrate` command does: a ReferenceOffsetSimple filled by a
    CalibrationOffsetDynamic, marked valid. The computation runs without the
    interpreter lock. The result is a view of the store's offset image.
    """
    images = frame_images(darks)
    store = ReferenceOffsetSimple(images[0].width, images[0].height, path)
    calibration = CalibrationOffsetDynamic(s_OffsetDynamicParametersSet.lookup(model), store)
    calibration.Init()
    try:
        calibration.CalculateOffsetReference(images)
    finally:
        calibration.Clear()
    store.SetValid(True)
    store.Save()
    return store.GetOffset().array
