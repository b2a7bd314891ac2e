"""The correction stage on numpy frames."""

import os

import numpy as np

from ._core import (
    CorrectionChain,
    ImageFloat32,
    ImageUInt8,
    ImageUInt16,
    OffsetCorrection,
    OpenSeries,
    ReferenceDM,
    ReferenceException,
    ReferenceGainLinear,
    ReferenceGainPoly,
    ReferenceOffsetSimple,
)

_GAIN_FILES = {"linear": "gain-linear.fxd", "poly": "gain-poly.fxd", "poly-denoised": "gain-poly-denoised.fxd"}


def load_references(folder, width, height, gain="linear", defects=True):
    """The stores that `orvane calibrate` saved in folder, for frames of width x height, as
    the mapping correct() takes: "offset" from offset-dynamic.fxd; "gain" from
    gain-linear.fxd, gain-poly.fxd or gain-poly-denoised.fxd (gain "linear", "poly",
    "poly-denoised"; None for "none"); "defects" from defect-map.fxd (None when defects
    is false). A missing, damaged or invalid store raises orvane.ReferenceException
    (orvane.ImageFileError for a polynomial gain's file that cannot be read)."""
    offset = ReferenceOffsetSimple(width, height, os.path.join(folder, "offset-dynamic.fxd"))
    offset.Load()
    references = {"offset": offset, "gain": None, "defects": None}
    if gain != "none":
        if gain not in _GAIN_FILES:
            raise ValueError(f"orvane: gain is one of {', '.join(sorted(_GAIN_FILES))} or none, not {gain!r}")
        path = os.path.join(folder, _GAIN_FILES[gain])
        if gain == "linear":
            store = ReferenceGainLinear(width, height, path)
        else:  # the degree is the file's count of coefficient images
            store = ReferenceGainPoly(width, height, len(OpenSeries(path)), path)
        store.Load()
        references["gain"] = store
    if defects:
        path = os.path.join(folder, "defect-map.fxd")
        store = ReferenceDM(width, height, path)
        store.Load()
        if not store.IsValid():
            raise ReferenceException(f"{path}: is not a valid defect map (its store is marked invalid)")
        references["defects"] = store
    return references


def _chain(references, width, height):
    chain = CorrectionChain(width, height)
    offset = references.get("offset")
    if offset is not None:
        if isinstance(offset, ReferenceOffsetSimple):
            chain.SetOffset(OffsetCorrection(offset))
        else:  # a fixed offset: a 16-bit or float array, e.g. TimeGridBlend(grid).OffsetAt(T, t)
            chain.SetOffset(OffsetCorrection(ImageFloat32(np.asarray(offset, dtype=np.float32))))
    gain = references.get("gain")
    if isinstance(gain, ReferenceGainLinear):
        chain.SetGainLinear(gain)
    elif isinstance(gain, ReferenceGainPoly):
        chain.SetGainPoly(gain)
    elif gain is not None:
        raise TypeError(f"orvane: a gain is a ReferenceGainLinear or a ReferenceGainPoly, not {type(gain).__name__}")
    defects = references.get("defects")
    if defects is not None:
        chain.SetDefects(defects.GetDM() if isinstance(defects, ReferenceDM) else ImageUInt8(defects))
    return chain


def correct(frames, references, output="float32", marks=False):
    """Corrects raw frames with calibration references: offset, then gain, then the pixels
    of the defect map replaced from their good neighbours, as `orvane correct` does.

    frames: a 2-D uint16 array-like (one frame) or a 3-D one (a series); C-contiguous or
    not. references: a mapping with "offset" (a ReferenceOffsetSimple, or an array of
    the offset to subtract), "gain" (a ReferenceGainLinear or ReferenceGainPoly) and
    "defects" (a ReferenceDM or a uint8 map, nonzero = defective), each optional; or a
    folder that `orvane calibrate` wrote (see load_references). output: "float32" or
    "uint16" (rounded, clamped to 0 .. 65535).

    Returns an array of the frames' shape and the output's dtype; with marks, also the
    uint8 marks of the replaced pixels (0 good, 1 isolated, 2 in a run, 3 in a cluster,
    255 left unreplaced). Raises TypeError for frames of another dtype than uint16.
    """
    raw = np.asarray(frames)
    if raw.dtype != np.uint16:
        raise TypeError(f"orvane: frames to correct need dtype uint16, not {raw.dtype}")
    if raw.ndim not in (2, 3):
        raise ValueError(f"orvane: a frame is 2-D and a series 3-D, not {raw.ndim}-D")
    if output not in ("float32", "uint16"):
        raise ValueError(f"orvane: output is float32 or uint16, not {output!r}")
    series = raw if raw.ndim == 3 else raw[np.newaxis]
    height, width = series.shape[1:]
    if isinstance(references, (str, os.PathLike)):
        references = load_references(os.fspath(references), width, height)
    chain = _chain(references, width, height)
    out = np.empty(series.shape, dtype=np.dtype(output))
    planes = np.zeros(series.shape, dtype=np.uint8)
    out_type = ImageFloat32 if output == "float32" else ImageUInt16
    for index, frame in enumerate(series):
        chain.Correct(ImageUInt16(frame), out_type(out[index]), ImageUInt8(planes[index]) if marks else None)
    if raw.ndim == 2:
        out, planes = out[0], planes[0]
    return (out, planes) if marks else out
