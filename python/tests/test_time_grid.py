"""The time-grid and preview offsets from Python: the command's grid bit for bit, and their failures."""

import gc
import json
import weakref

import numpy as np
import pytest

import orvane

MODEL = "Cedar.*.m8"  # a model with a time-grid row


def frames_with_properties(path):
    """The frames of a TIFF stack of the simulator as ImageUInt16 images carrying their properties."""
    tifffile = pytest.importorskip("tifffile")

    def flat(tree, prefix=""):
        for name, value in tree.items():
            yield from flat(value, f"{prefix}{name}.") if isinstance(value, dict) else [(prefix + name, value)]

    images = []
    with tifffile.TiffFile(path) as stack:
        for page in stack.pages:
            image = orvane.ImageUInt16(page.asarray())
            for key, value in flat(json.loads(page.description)):
                image.SetProperty(key, value)
            images.append(image)
    return images


def test_time_grid_equals_the_command_bit_for_bit(tmp_path, orvane_command):
    frames, result = tmp_path / "frames", tmp_path / "result"
    orvane_command("simulate", "--model", MODEL, "--out", str(frames), "--darks", "7", "--doses", "1",
                   "--frames", "2", "--format", "tiff")
    orvane_command("calibrate", "--model", MODEL, "--in", str(frames), "--out", str(result), "--only",
                   "offset-time-grid")
    darks = frames_with_properties(frames / "dark.tif")

    # The command's calling order: three series of the darks in time order, each into the
    # entry of its minutes from the first dark (kept ascending); stand-by from the first.
    firsts = [g * len(darks) // 3 for g in range(3)]
    deltas = []
    for first in firsts:
        minutes = (int(darks[first].GetProperty("image.time")) - int(darks[0].GetProperty("image.time"))) // 60
        deltas.append(max(minutes, deltas[-1] + 1) if deltas else minutes)
    from_command = orvane.ReferenceOffsetTimeGrid(darks[0].width, darks[0].height, deltas,
                                                  str(result / "offset-time-grid.fxd"))
    from_command.Load()  # refuses a file of another grid

    store = orvane.ReferenceOffsetTimeGrid(darks[0].width, darks[0].height, deltas)
    calibration = orvane.CalibrationOffsetTimeGrid(orvane.s_OffsetTimeGridParametersSet.lookup(MODEL), store,
                                                   deltas[0])
    calibration.Init()
    for g, (first, end) in enumerate(zip(firsts, firsts[1:] + [len(darks)])):
        if g == 0:
            calibration.AccumulateOffsets(darks[first:end])
        else:
            for dark in darks[first:end]:
                calibration.AccumulateOffset(dark)
        calibration.DivideAccumulationAndUpdate(deltas[g])
    calibration.InitOffsetStandBy()
    calibration.Clear()

    pairs = [(store.GetAt(i), from_command.GetAt(i)) for i in range(len(deltas))]
    for mine, theirs in pairs + [(store.GetStandbyOffset(), from_command.GetStandbyOffset())]:
        np.testing.assert_array_equal(mine.array, theirs.array)
        for key in ("image.time", "image.temperature"):
            assert mine.GetProperty(key) == theirs.GetProperty(key)

    # A frame blended in changes that entry alone, in the store's live image.
    before = [image.array.copy() for image, _ in pairs] + [store.GetStandbyOffset().array.copy()]
    calibration.UpdateSingleOffsetRef(deltas[1], darks[-1], False)
    after = [image.array for image, _ in pairs] + [store.GetStandbyOffset().array]
    assert [not np.array_equal(a, b) for a, b in zip(after, before)] == [False, True, False, False]
    assert store.Get(deltas[1]).GetProperty("image.time") == darks[-1].GetProperty("image.time")


def test_offset_calibrations_fail_with_the_library_text_and_keep_their_record():
    grid = orvane.ReferenceOffsetTimeGrid(8, 4, [0, 2])
    record = orvane.s_OffsetTimeGridParametersSet.lookup("Birch")
    record_ref = weakref.ref(record)
    calibration = orvane.CalibrationOffsetTimeGrid(record, grid, 0)
    del record
    gc.collect()
    assert record_ref() is not None  # held by reference in C++

    frame = orvane.ImageUInt16(np.full((4, 8), 1000, np.uint16))
    frame.SetProperty("image.time", "60")
    calibration.Init()
    calibration.AccumulateOffset(frame)
    with pytest.raises(orvane.CalibrationException,
                       match=r"^calibration/CalibrationOffsetTimeGrid\.cpp\(\d+\): CalibrationOffsetTimeGrid: "
                             r"DivideAccumulationAndUpdate failed due to wrong indice delta time$"):
        calibration.DivideAccumulationAndUpdate(1)
    with pytest.raises(orvane.ReferenceException, match="^ReferenceOffsetTimeGrid: no grid entry for delta time 1$"):
        calibration.UpdateSingleOffsetRef(1, frame, False)
    with pytest.raises(TypeError):
        calibration.UpdateSingleOffsetRef(2, np.zeros((4, 8), np.float32), False)
    calibration.Clear()

    # The preview offset takes the frame as it is, into the store's live image.
    simple = orvane.ReferenceOffsetSimple(8, 4)
    orvane.CalibrationOffsetPreview(simple).UpdateSingleOffsetRef(frame)
    np.testing.assert_array_equal(simple.GetOffset().array, frame.array)
    assert simple.GetOffset().GetProperty("image.time") == "60"
