"""The calibrations that build on other stores, from Python, each fed the command's own input
stores and frames: the automatic defect map, the merge, both polynomial gains, the clusters
and the echo lines equal the command's stores bit for bit."""

import numpy as np
import pytest

import orvane
from orvane.defects import subtract_offset

MODEL = "Birch"  # the one model with rows for all of them (3121 x 3121)


@pytest.fixture(scope="module")
def birch(tmp_path_factory, orvane_command):
    folder = tmp_path_factory.mktemp("birch")
    frames, result = folder / "frames", folder / "result"
    orvane_command("simulate", "--model", MODEL, "--out", str(frames), "--darks", "6", "--doses", "3", "--frames",
                   "2", "--format", "tiff")
    orvane_command("calibrate", "--model", MODEL, "--in", str(frames), "--out", str(result))
    doses = [[frame for frame in orvane.read_frames(str(frames / f"flat-{d}.tif"))] for d in (1, 2, 3)]
    return doses, result


def load(store):
    store.Load()
    return store


def test_later_calibrations_equal_the_commands_on_its_own_inputs(birch):
    doses, result = birch
    height, width = doses[0][0].shape
    path = lambda name: str(result / f"{name}.fxd")  # noqa: E731
    flag = orvane.DefectMapFlag(orvane.s_DMFlagParametersSet.lookup(MODEL))

    # dm-auto: dm6 extended from the pairs of the middle dose.
    auto = orvane.ReferenceDM(width, height)
    auto.GetDM().array[:] = load(orvane.ReferenceDM(width, height, path("dm6"))).GetDM().array
    auto.SetValid(True)
    calibration = orvane.CalibrationAutomaticDefect(orvane.s_automaticDefectParametersSet.lookup(MODEL), auto, flag)
    calibration.Init()
    calibration.ProcessReferenceAndCumul(orvane.ImageUInt16(doses[1][0]), orvane.ImageUInt16(doses[1][1]))
    calibration.UpdateDefectMap()
    calibration.Clear()
    command_auto = load(orvane.ReferenceDM(width, height, path("dm-auto"))).GetDM().array
    np.testing.assert_array_equal(auto.GetDM().array, command_auto)

    # The merge of the command's dm-auto.
    merged = orvane.ReferenceDM(width, height)
    merge = orvane.DefectMapMerge(merged, flag)
    merge.Init()
    merge.Merge([load(orvane.ReferenceDM(width, height, path("dm-auto")))])
    merge.UpdateDefectMapReference()
    merge.Clear()
    final = load(orvane.ReferenceDM(width, height, path("defect-map")))
    np.testing.assert_array_equal(merged.GetDM().array, final.GetDM().array)

    # Both polynomial gains from every dose, offset-subtracted, with the linear gain and the final map.
    offset = load(orvane.ReferenceOffsetSimple(width, height, path("offset-dynamic"))).GetOffset().array
    linear = load(orvane.ReferenceGainLinear(width, height, path("gain-linear")))
    for name, denoised in (("gain-poly", False), ("gain-poly-denoised", True)):
        poly = orvane.ReferenceGainPoly(width, height, 3)
        calibration = orvane.CalibrationGainPoly(orvane.s_gainPolyParametersSet.lookup(MODEL), poly, linear, final,
                                                 len(doses))
        calibration.Init()
        for dose in doses:
            for frame in dose:
                calibration.AccumulateGainImg(orvane.ImageUInt16(subtract_offset(frame, offset)))
            calibration.DivideAccumulation(1.0)
        calibration.CalculateDenoisedGainReference() if denoised else calibration.CalculateGainReference()
        calibration.Clear()
        command = load(orvane.ReferenceGainPoly(width, height, 3, path(name)))
        for mine, theirs in zip(poly.GetGainPoly(), command.GetGainPoly()):
            np.testing.assert_array_equal(mine.array, theirs.array, err_msg=name)

    # Clusters from the command's time grid, echo lines from its final map.
    grid = load(orvane.ReferenceOffsetTimeGrid(width, height, [0, 1, 2], path("offset-time-grid")))
    clusters = orvane.ReferenceClusters()
    calibration = orvane.CalibrationClusters(orvane.s_clustersCalibrationParametersSet.lookup(MODEL), clusters, grid)
    calibration.Init()
    calibration.CalculateClustersReference()
    calibration.Clear()
    command_clusters = load(orvane.ReferenceClusters(path("clusters"))).GetClusters()
    assert len(clusters.GetClusters()) == len(command_clusters) > 0
    for mine, theirs in zip(clusters.GetClusters(), command_clusters):
        np.testing.assert_array_equal(mine.array, theirs.array)
        assert mine.GetProperty("image.pixelcluster.pos.x") == theirs.GetProperty("image.pixelcluster.pos.x")

    echo = orvane.ReferenceEcholine()
    calibration = orvane.CalibrationEcholine(orvane.s_EchoLineParametersSet.lookup(MODEL), echo, final)
    calibration.Init()
    calibration.CalculateEcholineReference()
    calibration.FillEcholineReference()
    calibration.Clear()
    command_echo = load(orvane.ReferenceEcholine(path("echo-lines")))
    assert (echo.singleLines, echo.doubleLines) == (command_echo.singleLines, command_echo.doubleLines)
    assert echo.singleLines and echo.doubleLines
