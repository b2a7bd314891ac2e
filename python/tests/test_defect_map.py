"""The gain and dose defect-map calibrations from Python: the command's stores bit for bit, on
two threads at once, and their failures."""

import threading

import numpy as np
import pytest

import orvane
from orvane.defects import linear_gain

MODEL = "Willow.*.m12"  # a small model (396 x 396) with linear-gain, flagging and dose-map rows


@pytest.fixture(scope="module")
def panel(tmp_path_factory, orvane_command):
    """Simulated frames, and the command's offset, linear gain and dose defect map of them."""
    folder = tmp_path_factory.mktemp("panel")
    frames, result = folder / "frames", folder / "result"
    orvane_command("simulate", "--model", MODEL, "--out", str(frames), "--darks", "4", "--doses", "3",
                        "--frames", "3", "--format", "tiff", "--seed", "11")
    orvane_command("calibrate", "--model", MODEL, "--in", str(frames), "--out", str(result), "--only",
                        "offset-dynamic,gain-linear,dm6")
    darks = np.stack(list(orvane.read_frames(str(frames / "dark.tif"))))
    doses = [np.stack(list(orvane.read_frames(str(frames / f"flat-{d}.tif")))) for d in (1, 2, 3)]
    return darks, doses, result


def test_gain_and_defect_map_equal_the_commands_stores(panel):
    darks, doses, result = panel
    rows, columns = darks.shape[1:]
    offset = orvane.calibrate_offset(darks, MODEL)

    command_gain = orvane.ReferenceGainLinear(columns, rows, str(result / "gain-linear.fxd"))
    command_gain.Load()
    gain = linear_gain(doses, offset, MODEL)
    np.testing.assert_array_equal(gain.GetGainLinear().array, command_gain.GetGainLinear().array)

    command_map = orvane.ReferenceDM(columns, rows, str(result / "dm6.fxd"))
    command_map.Load()
    found = orvane.defect_map(darks, doses, model=MODEL)
    assert found.dtype == np.uint8 and found.shape == (rows, columns)
    assert np.count_nonzero(found) > 0
    np.testing.assert_array_equal(found, command_map.GetDM().array)

    # Any array-like of uint16: a 4-D array of doses, frames that are not C-contiguous.
    np.testing.assert_array_equal(orvane.defect_map(list(darks), np.stack(doses), model=MODEL), found)
    flipped = orvane.defect_map(darks[:, ::-1, :], [dose[:, ::-1, :] for dose in doses], model=MODEL)
    np.testing.assert_array_equal(flipped, orvane.defect_map(darks[:, ::-1, :].copy(),
                                                             [dose[:, ::-1, :].copy() for dose in doses],
                                                             model=MODEL))


def test_two_threads_make_the_maps_one_thread_makes(panel):
    darks, doses, _ = panel
    second = (darks[:, :, ::-1].copy(), [dose[:, :, ::-1].copy() for dose in doses])
    alone = [orvane.defect_map(darks, doses, model=MODEL), orvane.defect_map(*second, model=MODEL)]
    together = [None, None]
    errors = []

    def run(index, frames):
        try:
            together[index] = orvane.defect_map(*frames, model=MODEL)
        except Exception as error:  # reaches the assertion below
            errors.append(error)

    threads = [threading.Thread(target=run, args=(0, (darks, doses))), threading.Thread(target=run, args=(1, second))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not errors
    for mine, theirs in zip(together, alone):
        np.testing.assert_array_equal(mine, theirs)


def test_bad_frames_fail_before_anything_is_computed(panel):
    darks, doses, _ = panel
    with pytest.raises(TypeError, match="uint16"):
        orvane.defect_map(darks, [dose.astype(np.int32) for dose in doses], model=MODEL)
    with pytest.raises(TypeError, match="uint16"):
        orvane.defect_map(darks.astype(np.float32), doses, model=MODEL)
    with pytest.raises(ValueError):
        orvane.defect_map(darks, doses[0][0], model=MODEL)  # a single 2-D frame is not a dose
    with pytest.raises(ValueError, match="flat"):
        orvane.defect_map(darks, [], model=MODEL)
    with pytest.raises(ValueError, match="the darks 396 x 396"):
        orvane.defect_map(darks, [dose[:, :-1, :] for dose in doses], model=MODEL)
