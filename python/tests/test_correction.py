"""The correction stage from Python: the command's corrected frames bit for bit, the chain equal
to its operations applied one after another, and bad input."""

import numpy as np
import pytest

import orvane

MODEL = "Willow.*.m12"


@pytest.fixture(scope="module")
def calibrated(tmp_path_factory, orvane_command):
    """A simulated panel, its references, and the command's corrections of dose 2."""
    folder = tmp_path_factory.mktemp("correction")
    frames, result = folder / "frames", folder / "result"
    orvane_command("simulate", "--model", MODEL, "--out", str(frames), "--darks", "4", "--doses", "3",
                   "--frames", "2", "--format", "tiff", "--seed", "3")
    orvane_command("calibrate", "--model", MODEL, "--in", str(frames), "--out", str(result), "--only",
                   "offset-dynamic,gain-linear,dm6,dm-merge")
    corrected = {}
    for output in ("float32", "uint16"):
        out = folder / f"corrected-{output}"
        orvane_command("correct", "--calibration", str(result), "--in", str(frames / "flat-2.tif"), "--out",
                       str(out), "--output", output, "--marks")
        corrected[output] = (np.stack(list(orvane.read_frames(str(out / "flat-2.tif")))),
                             np.stack(list(orvane.read_frames(str(out / "flat-2-marks.tif")))))
    raw = np.stack(list(orvane.read_frames(str(frames / "flat-2.tif"))))
    return raw, result, corrected


def test_correct_equals_the_command_and_the_operations_one_after_another(calibrated):
    raw, result, corrected = calibrated
    for output, (expected, expected_marks) in corrected.items():
        out, marks = orvane.correct(raw, result, output=output, marks=True)
        assert out.dtype == np.dtype(output)
        np.testing.assert_array_equal(out, expected)
        np.testing.assert_array_equal(marks, expected_marks)
    assert np.count_nonzero(corrected["float32"][1]) > 0

    # The same references as stores and arrays; one frame, not C-contiguous.
    height, width = raw.shape[1:]
    references = orvane.load_references(str(result), width, height)
    as_arrays = {"offset": references["offset"].GetOffset().array, "gain": references["gain"],
                 "defects": references["defects"].GetDM().array.copy()}
    flipped = orvane.correct(raw[0][:, ::-1], as_arrays)
    np.testing.assert_array_equal(flipped, orvane.correct(raw[0][:, ::-1].copy(), references))

    # Offset, gain and replacement one after another give the chain's bits.
    frame = orvane.ImageFloat32(width, height)
    orvane.OffsetCorrection(references["offset"]).Correct(orvane.ImageUInt16(raw[1]), frame)
    orvane.CorrectionGainLinear(references["gain"]).Correct(frame)
    marks = np.zeros((height, width), np.uint8)
    done = orvane.DefectReplacement().Replace(frame, references["defects"], marks)
    np.testing.assert_array_equal(frame.array, corrected["float32"][0][1])
    np.testing.assert_array_equal(marks, corrected["float32"][1][1])
    assert done.replacedIsolated + done.replacedInRuns + done.replacedInClusters == np.count_nonzero(
        (marks > 0) & (marks < 255))
    clamped = np.zeros((height, width), np.uint16)
    orvane.OutputToUInt16(frame, clamped)
    np.testing.assert_array_equal(clamped, corrected["uint16"][0][1])


def test_bad_frames_and_references_are_refused(calibrated, tmp_path):
    raw, result, _ = calibrated
    with pytest.raises(TypeError, match="uint16"):
        orvane.correct(raw.astype(np.int32), result)
    with pytest.raises(ValueError, match="output"):
        orvane.correct(raw, result, output="uint8")
    with pytest.raises(orvane.ReferenceException):
        orvane.correct(raw, str(tmp_path))  # no stores there
    with pytest.raises(orvane.ReferenceException):
        orvane.correct(raw[:, :-1, :], result)  # frames of another size than the stores
    with pytest.raises(TypeError, match="gain"):
        orvane.correct(raw, {"gain": raw[0]})
