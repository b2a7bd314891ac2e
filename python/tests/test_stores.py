"""Every reference store: filled through its live images, saved, loaded into a fresh store bit for bit; failures."""

import re

import numpy as np
import pytest

import orvane

WIDTH, HEIGHT = 24, 16
DELTA_TIMES = [0, 5, 30]


def random_image(rng, dtype, low=0, high=None):
    high = np.iinfo(dtype).max if high is None else high
    return rng.integers(low, high, size=(HEIGHT, WIDTH), endpoint=True).astype(dtype)


def property_of(image, key):
    try:
        return image.GetProperty(key)
    except RuntimeError:  # not set
        return None


# Per store: how it is made at a path, how it is filled through its live images and
# operations, and what it holds, read back through its whole API.
def offset_simple():
    def fill(store, rng):
        store.GetOffset().array[:] = random_image(rng, np.uint16)
        store.GetOffset().SetProperty("image.time", "120")

    def contents(store):
        return [store.GetOffset().array.copy(), property_of(store.GetOffset(), "image.time")]

    return (lambda path: orvane.ReferenceOffsetSimple(WIDTH, HEIGHT, path)), fill, contents


def defect_map():
    def fill(store, rng):
        store.GetDM().array[:] = random_image(rng, np.uint8, high=17)
        store.SetExternalDM(random_image(rng, np.uint8, high=17))
        store.SetMerged(True)

    def contents(store):
        live, merged = store.GetDM().array.copy(), store.IsMerged()
        external = np.zeros((HEIGHT, WIDTH), np.uint8)
        has_external = store.LoadMergeDM(external)  # copies the external map into `external`
        summed = store.GetDM().array.copy()
        store.GetDM().array[:] = live  # as it was
        store.SetMerged(merged)
        return [live, merged, has_external, store.HasExternalDM(), external, summed]

    return (lambda path: orvane.ReferenceDM(WIDTH, HEIGHT, path)), fill, contents


def gain_linear():
    def fill(store, rng):
        gains = rng.uniform(0.25, 4.0, size=(HEIGHT, WIDTH)).astype(np.float32)
        store.CompressImage(gains, store.GetGainLinear())
        store.SetGainInversion(True)

    def contents(store):
        gains = np.empty((HEIGHT, WIDTH), np.float32)
        store.DeCompressImage(store.GetGainLinear(), gains)
        return [store.GetGainLinear().array.copy(), gains, store.GetGainInversion()]

    return (lambda path: orvane.ReferenceGainLinear(WIDTH, HEIGHT, path)), fill, contents


def gain_poly():
    def fill(store, rng):
        for k, image in enumerate(store.GetGainPoly()):
            store.CompressImage(rng.normal(0, 10.0 ** -k, size=(HEIGHT, WIDTH)).astype(np.float32), k, image)

    def contents(store):
        held = [store.GetGainPolyCoeff()]
        for k, image in enumerate(store.GetGainPoly()):
            values = np.empty((HEIGHT, WIDTH), np.float32)
            store.DeCompressImage(k, image, values)
            held += [image.array.copy(), store.GetScale(k), values]
        return held

    return (lambda path: orvane.ReferenceGainPoly(WIDTH, HEIGHT, 4, path)), fill, contents


def time_grid():
    def fill(store, rng):
        for index in range(store.GetNbReferences()):
            store.GetAt(index).array[:] = random_image(rng, np.uint16)
            store.GetAt(index).SetProperty("image.temperature", f"{30 + index}.5")
        store.GetStandbyOffset().array[:] = random_image(rng, np.uint16)

    def contents(store):
        held = [store.GetNbReferences(), store.GetDeltaTimes(), store.GetStandbyOffset().array.copy()]
        for delta in store.GetDeltaTimes():
            held += [store.Get(delta).array.copy(), property_of(store.Get(delta), "image.temperature")]
        return held

    return (lambda path: orvane.ReferenceOffsetTimeGrid(WIDTH, HEIGHT, DELTA_TIMES, path)), fill, contents


def clusters():
    def fill(store, rng):
        cluster = orvane.ImageUInt16(WIDTH, HEIGHT)
        for x in (3, 11, 20):  # the store copies: the same image serves for every cluster
            cluster.array[:] = random_image(rng, np.uint16)
            cluster.SetProperty("image.pixelcluster.pos.x", str(x))
            store.AddCluster(cluster)

    def contents(store):
        return [(c.array.copy(), c.GetProperty("image.pixelcluster.pos.x")) for c in store.GetClusters()]

    return orvane.ReferenceClusters, fill, contents


def echo_lines():
    def fill(store, rng):
        store.singleLines = set(rng.choice(HEIGHT * 10, 12, replace=False).tolist())
        store.doubleLines = {0, 7, 2**31 - 1}

    def contents(store):
        return [store.singleLines, store.doubleLines]

    return orvane.ReferenceEcholine, fill, contents


STORES = [offset_simple, defect_map, gain_linear, gain_poly, time_grid, clusters, echo_lines]


def assert_same(actual, expected):
    if isinstance(expected, np.ndarray):
        assert actual.dtype == expected.dtype
        np.testing.assert_array_equal(actual, expected)
    elif isinstance(expected, (list, tuple)):
        assert len(actual) == len(expected)
        for a, e in zip(actual, expected):
            assert_same(a, e)
    else:
        assert actual == expected


def test_every_store_loads_back_what_it_saved_bit_for_bit(tmp_path):
    rng = np.random.default_rng(11)
    for kind in STORES:
        make, fill, contents = kind()
        path = str(tmp_path / f"{kind.__name__}.fxd")
        store = make(path)
        empty = contents(store)
        fill(store, rng)
        store.SetValid(True)
        saved = contents(store)
        with pytest.raises(AssertionError):  # the filling reached the store
            assert_same(saved, empty)
        store.Save()

        fresh = make(path)
        assert not fresh.IsValid() and fresh.GetPath() == path
        fresh.Load()
        assert fresh.IsValid(), kind.__name__
        assert_same(contents(fresh), saved)


def test_failed_loads_and_saves_raise_the_library_text_and_change_nothing(tmp_path):
    rng = np.random.default_rng(12)
    for kind in STORES:
        make, fill, contents = kind()
        store_class = type(make(""))
        for action, path in (("load", tmp_path / "missing.fxd"), ("save", tmp_path / "no-folder" / "store.fxd")):
            store = make(str(path))
            fill(store, rng)
            before = contents(store)
            expected = f"^{store_class.__name__}: cannot {action} '{re.escape(str(path))}': "
            with pytest.raises(orvane.ReferenceException, match=expected):
                store.Load() if action == "load" else store.Save()
            assert_same(contents(store), before)
    # A file of another kind of store, or of another grid, is refused as well.
    dm = tmp_path / "dm.fxd"
    orvane.ReferenceDM(WIDTH, HEIGHT, str(dm)).Save()
    with pytest.raises(orvane.ReferenceException, match="^ReferenceClusters: cannot load .*ReferenceDM"):
        orvane.ReferenceClusters(str(dm)).Load()
    grid = tmp_path / "grid.fxd"
    orvane.ReferenceOffsetTimeGrid(WIDTH, HEIGHT, DELTA_TIMES, str(grid)).Save()
    with pytest.raises(orvane.ReferenceException, match="^ReferenceOffsetTimeGrid: cannot load"):
        orvane.ReferenceOffsetTimeGrid(WIDTH, HEIGHT, [0, 5], str(grid)).Load()


def test_stores_refuse_bad_images_and_entries_with_the_library_text():
    gain = orvane.ReferenceGainLinear(WIDTH, HEIGHT)
    with pytest.raises(TypeError, match="ImageFloat32"):
        gain.CompressImage(np.ones((HEIGHT, WIDTH), np.float64), gain.GetGainLinear())
    with pytest.raises(TypeError):
        gain.CompressImage(np.ones((2, HEIGHT, WIDTH), np.float32), gain.GetGainLinear())
    with pytest.raises(orvane.ReferenceException, match=f"^ReferenceGainLinear: CompressImage of a {WIDTH} x 3 image"):
        gain.CompressImage(np.ones((3, WIDTH), np.float32), gain.GetGainLinear())
    poly = orvane.ReferenceGainPoly(WIDTH, HEIGHT, 2)
    with pytest.raises(orvane.ReferenceException, match="^ReferenceGainPoly: no coefficient 2"):
        poly.GetScale(2)
    with pytest.raises(orvane.ReferenceException, match="^ReferenceGainPoly: "):
        orvane.ReferenceGainPoly(WIDTH, HEIGHT, -1)
    with pytest.raises(orvane.ReferenceException, match="^ReferenceDM: "):
        orvane.ReferenceDM(WIDTH, HEIGHT).SetExternalDM(np.zeros((HEIGHT, WIDTH + 1), np.uint8))

    grid = orvane.ReferenceOffsetTimeGrid(WIDTH, HEIGHT, DELTA_TIMES)
    with pytest.raises(orvane.ReferenceException, match="^ReferenceOffsetTimeGrid: no grid entry for delta time 7$"):
        grid.Get(7)
    with pytest.raises(orvane.ReferenceException, match="^ReferenceOffsetTimeGrid: no grid entry at index 3$"):
        grid.GetAt(3)
    with pytest.raises(orvane.ReferenceException, match="^ReferenceOffsetTimeGrid: delta time 5 appears twice$"):
        orvane.ReferenceOffsetTimeGrid(WIDTH, HEIGHT, [0, 5, 5])

    clusters = orvane.ReferenceClusters()
    clusters.AddCluster(np.zeros((HEIGHT, WIDTH), np.uint16))
    with pytest.raises(orvane.ReferenceException, match="^ReferenceClusters: "):
        clusters.AddCluster(np.zeros((HEIGHT, WIDTH - 1), np.uint16))
    with pytest.raises(orvane.ReferenceException, match="^ReferenceClusters: AddCluster got no image$"):
        clusters.AddCluster(None)
    assert len(clusters.GetClusters()) == 1
