"""The dose defect map on numpy frames."""

import numpy as np

from ._core import (
    CalibrationDefectMap,
    CalibrationGainLinear,
    DefectMapFlag,
    ImageUInt16,
    ReferenceDM,
    ReferenceGainLinear,
    s_DMFlagParametersSet,
    s_defectMapParametersSet,
    s_gainLinearParametersSet,
)
from .frames import frame_images
from .offset import calibrate_offset


def flat_doses(flats):
    """The flat frames as a list of doses, each a list of 2-D uint16 frames: a 3-D array is
    one dose; a 4-D array (doses x frames x rows x columns) or a sequence of 3-D arrays
    (or of sequences of frames) is one dose per entry."""
    if isinstance(flats, np.ndarray):
        if flats.ndim == 3:
            return [list(flats)]
        if flats.ndim != 4:
            raise ValueError(f"orvane: flat doses need a 3-D or 4-D array, not one of {flats.ndim} dimensions")
    return [list(dose) for dose in flats]


def subtract_offset(frame, offset):
    """max(0, frame - offset) of two uint16 arrays, exact, as a new uint16 array."""
    frame = np.asarray(frame)
    if frame.dtype != np.uint16:
        raise TypeError(f"orvane: flat frames need dtype uint16, not {frame.dtype}")
    if frame.shape != offset.shape:
        raise ValueError(
            f"orvane: a flat frame is {frame.shape[0]} x {frame.shape[1]} (rows x columns), the darks "
            f"{offset.shape[0]} x {offset.shape[1]}"
        )
    return np.subtract(frame, offset, out=np.zeros(frame.shape, np.uint16), where=frame > offset)


def linear_gain(doses, offset, model):
    """The ReferenceGainLinear of the middle dose (doses[len(doses) // 2]), offset-subtracted,
    with every pixel counted as good: the linear gain as `orvane calibrate` makes it."""
    frames = frame_images([subtract_offset(frame, offset) for frame in doses[len(doses) // 2]])
    store = ReferenceGainLinear(frames[0].width, frames[0].height)
    no_defects = ReferenceDM(frames[0].width, frames[0].height)
    no_defects.SetValid(True)
    calibration = CalibrationGainLinear(s_gainLinearParametersSet.lookup(model), store, no_defects)
    calibration.Init()
    try:
        for frame in frames:
            calibration.AccumulateGainImg(frame)
        calibration.DivideAccumulation()
        calibration.CalculateGainReference()
    finally:
        calibration.Clear()
    store.SetValid(True)
    return store


def defect_map(darks, flats, model, path=""):
    """The defect map of a dark series and flat doses, as a uint8 array (rows x columns,
    0 for a good pixel), computed as `orvane calibrate` computes its "dm6" map.

    darks: a 3-D uint16 array (frames x rows x columns) or a sequence of 2-D ones. flats:
    the doses, lowest first (see flat_doses). model: the detector key whose table rows
    (defect map, flagging, linear gain) are used. path: when given, the map is also saved
    there as a .fxd file.

    The steps: the dynamic offset of the darks; the linear gain of the middle dose,
    offset-subtracted (clipped at 0); then the darks and each offset-subtracted dose
    through CalibrationDefectMap, leaving out a dose whose mean level reaches the
    table's clipping bound (it shows nothing once clipped). Every call runs without the
    interpreter lock.
    """
    dark_images = frame_images(darks)
    offset = calibrate_offset(darks, model)
    doses = flat_doses(flats)
    if not doses or not doses[len(doses) // 2]:
        raise ValueError("orvane: a defect map needs flat frames")
    gain = linear_gain(doses, offset, model)
    record = s_defectMapParametersSet.lookup(model)
    store = ReferenceDM(offset.shape[1], offset.shape[0], path)
    calibration = CalibrationDefectMap(record, store, gain, DefectMapFlag(s_DMFlagParametersSet.lookup(model)))
    calibration.Init()
    try:
        calibration.BeginDose()
        for dark in dark_images:
            calibration.AccumulateDoseImg(dark)
        calibration.EndDose()
        for dose in doses:
            frames = [subtract_offset(frame, offset) for frame in dose]
            if frames[0].sum(dtype=np.int64) / frames[0].size >= record.ClipMax:
                continue
            calibration.BeginDose()
            for frame in frames:
                calibration.AccumulateDoseImg(ImageUInt16(frame))
            calibration.EndDose()
        calibration.UpdateDefectMapReference()
    finally:
        calibration.Clear()
    store.SetValid(True)
    store.Save()
    return store.GetDM().array
