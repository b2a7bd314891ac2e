"""Image files through the module: each format written by orvane is read back by it and by
the field's own reader, and a file written by that reader is read by orvane."""

import re

import h5py
import numpy as np
import pytest
import tifffile
from astropy.io import fits

import orvane


def _series(dtype, frames=3, rows=5, columns=7):
    rng = np.random.default_rng(7)
    if dtype == np.float32:
        return rng.normal(100, 30, size=(frames, rows, columns)).astype(np.float32)
    return rng.integers(0, np.iinfo(dtype).max, size=(frames, rows, columns), endpoint=True, dtype=dtype)


def _read_tiff(path):
    return tifffile.imread(path)


def _read_hdf5(path):
    with h5py.File(path, "r") as file:
        return file["/data"][()]


def _read_fits(path):
    with fits.open(path, uint=True) as hdus:  # a series is one cube; uint16 through BZERO
        return np.asarray(hdus[0].data)


def _write_tiff(path, frames):
    with tifffile.TiffWriter(path) as tif:
        for frame in frames:  # a page per frame
            tif.write(frame, photometric="minisblack", metadata=None, contiguous=False)


def _write_hdf5(path, frames):
    with h5py.File(path, "w") as file:
        file["/data"] = frames


def _write_fits(path, frames):
    fits.PrimaryHDU(frames).writeto(path)


FORMATS = {
    "tif": (_read_tiff, _write_tiff),
    "h5": (_read_hdf5, _write_hdf5),
    "fits": (_read_fits, _write_fits),
}


@pytest.mark.parametrize("dtype", [np.uint16, np.uint8, np.float32])
@pytest.mark.parametrize("extension", sorted(FORMATS))
def test_each_format_round_trips_with_the_fields_own_reader_both_ways(tmp_path, extension, dtype):
    read_other, write_other = FORMATS[extension]
    frames = _series(dtype)

    ours = tmp_path / f"ours.{extension}"
    orvane.write_image(str(ours), frames)
    other = np.asarray(read_other(str(ours))).reshape(frames.shape)
    np.testing.assert_array_equal(other.astype(dtype), frames)
    assert other.dtype.kind == np.dtype(dtype).kind
    series = orvane.OpenSeries(str(ours))
    assert (series.Shape().frames, series.Shape().height, series.Shape().width) == frames.shape
    assert series.Shape().dtype == np.dtype(dtype).name
    back = list(orvane.read_frames(str(ours)))
    assert [frame.dtype for frame in back] == [np.dtype(dtype)] * len(frames)
    np.testing.assert_array_equal(np.stack(back), frames)

    theirs = tmp_path / f"theirs.{extension}"
    write_other(str(theirs), frames)
    np.testing.assert_array_equal(np.stack(list(orvane.read_frames(str(theirs)))), frames)


def test_series_index_iterate_and_keep_frame_properties(tmp_path):
    frames = _series(np.uint16, frames=4)
    path = str(tmp_path / "series.fxd")
    with orvane.CreateSeriesWriter(path) as writer:
        for index, frame in enumerate(frames):
            image = orvane.ImageUInt16(frame)
            image.SetProperty("image.time", str(60 * index))
            image.SetProperty("image.temperature", "31.5")
            writer.WriteImage(image)
    series = orvane.OpenSeries(path)
    assert len(series) == 4
    np.testing.assert_array_equal(series[-1].array, frames[-1])
    assert [image.GetProperty("image.time") for image in series] == ["0", "60", "120", "180"]
    assert series[2].GetProperty("image.temperature") == "31.5"
    with pytest.raises(KeyError):
        series[2].GetProperty("image.exposure")
    with pytest.raises(IndexError):
        series[4]

    # A raw file has no header: its layout is given.
    raw = str(tmp_path / "frames.raw")
    orvane.write_image(raw, frames, format="raw")
    layout = f"{frames.shape[2]}x{frames.shape[1]}:u16le"
    np.testing.assert_array_equal(np.stack(list(orvane.read_frames(raw, raw=layout))), frames)


def test_bad_files_and_arrays_fail_with_the_layers_message(tmp_path):
    missing = str(tmp_path / "missing.tif")
    with pytest.raises(orvane.ImageFileError, match="^" + missing):
        orvane.OpenSeries(missing)
    assert issubclass(orvane.ImageFileError, orvane.Error)
    with pytest.raises(ValueError, match="extension"):
        orvane.write_image(str(tmp_path / "frame.png"), np.zeros((2, 2), np.uint16))
    with pytest.raises(TypeError, match="int32"):
        orvane.write_image(str(tmp_path / "frame.tif"), np.zeros((2, 2), np.int32))
    with pytest.raises(ValueError):
        orvane.OpenSeries(missing, raw="12 by 4")
    closed = str(tmp_path / "closed.tif")
    with orvane.CreateSeriesWriter(closed) as writer:
        writer.WriteImage(orvane.ImageUInt16(np.zeros((2, 2), np.uint16)))
    writer.Close()
    with pytest.raises(orvane.ImageFileError, match=f"^{re.escape(closed)}: is closed: no frame can follow$"):
        writer.WriteImage(orvane.ImageUInt16(np.ones((2, 2), np.uint16)))
    assert len(orvane.OpenSeries(closed)) == 1
    mixed = tmp_path / "mixed.fxd"
    with pytest.raises(ValueError, match="frame 1"):
        orvane.write_image(str(mixed), [np.zeros((2, 2), np.uint16), np.zeros((3, 2), np.uint16)])
    assert not mixed.exists()
