"""Every reference store: filled through its API, saved, loaded into a fresh store bit for bit; failures."""

import re

import numpy as np
import pytest

import orvane

WIDTH, HEIGHT = 24, 16
STORES = [
    lambda path: orvane.ReferenceOffsetSimple(WIDTH, HEIGHT, path),
    lambda path: orvane.ReferenceDM(WIDTH, HEIGHT, path),
    lambda path: orvane.ReferenceGainLinear(WIDTH, HEIGHT, path),
    lambda path: orvane.ReferenceGainPoly(WIDTH, HEIGHT, 4, path),
    lambda path: orvane.ReferenceOffsetTimeGrid(WIDTH, HEIGHT, [0, 5, 30], path),
    orvane.ReferenceClusters,
    orvane.ReferenceEcholine,
]


def random_image(rng, dtype):
    return rng.integers(0, np.iinfo(dtype).max, size=(HEIGHT, WIDTH), endpoint=True).astype(dtype)


def live_images(store):
    return {
        orvane.ReferenceOffsetSimple: lambda: [store.GetOffset()],
        orvane.ReferenceDM: lambda: [store.GetDM()],
        orvane.ReferenceGainLinear: lambda: [store.GetGainLinear()],
        orvane.ReferenceGainPoly: lambda: store.GetGainPoly(),
        orvane.ReferenceOffsetTimeGrid: lambda: [store.Get(time) for time in store.GetDeltaTimes()]
        + [store.GetStandbyOffset()],
        orvane.ReferenceClusters: lambda: store.GetClusters(),
        orvane.ReferenceEcholine: list,
    }[type(store)]()


def fill(store, rng):
    """Fills a store through its operations, then its remaining live images with random pixels."""
    if isinstance(store, orvane.ReferenceClusters):
        cluster = orvane.ImageUInt16(WIDTH, HEIGHT)
        for _ in range(3):  # the store copies: one image serves for every cluster
            cluster.array[:] = random_image(rng, np.uint16)
            store.AddCluster(cluster)
    elif isinstance(store, orvane.ReferenceEcholine):
        store.singleLines, store.doubleLines = set(rng.choice(999, 12).tolist()), {0, 7, 2**31 - 1}
    elif isinstance(store, orvane.ReferenceGainLinear):
        store.CompressImage(rng.uniform(0.25, 4, size=(HEIGHT, WIDTH)).astype(np.float32), store.GetGainLinear())
        store.SetGainInversion(True)
    elif isinstance(store, orvane.ReferenceGainPoly):
        for k, image in enumerate(store.GetGainPoly()):
            store.CompressImage(rng.normal(0, 10.0**-k, size=(HEIGHT, WIDTH)).astype(np.float32), k, image)
    elif isinstance(store, orvane.ReferenceDM):
        store.SetExternalDM(random_image(rng, np.uint8))
        store.SetMerged(True)
    for image in live_images(store):
        if not image.array.any():
            image.array[:] = random_image(rng, image.array.dtype)
    store.SetValid(True)


def contents(store):
    """Everything a store holds, read through its API (and left as it was)."""
    held = [store.IsValid()] + [image.array.copy() for image in live_images(store)]
    if isinstance(store, orvane.ReferenceEcholine):
        held += [store.singleLines, store.doubleLines]
    elif isinstance(store, orvane.ReferenceGainLinear):
        gains = np.empty((HEIGHT, WIDTH), np.float32)
        store.DeCompressImage(store.GetGainLinear(), gains)
        held += [gains, store.GetGainInversion()]
    elif isinstance(store, orvane.ReferenceGainPoly):
        for k, image in enumerate(store.GetGainPoly()):
            values = np.empty((HEIGHT, WIDTH), np.float32)
            store.DeCompressImage(k, image, values)
            held += [store.GetScale(k), values]
    elif isinstance(store, orvane.ReferenceDM):
        live, merged, external = store.GetDM().array.copy(), store.IsMerged(), np.zeros((HEIGHT, WIDTH), np.uint8)
        held += [merged, store.HasExternalDM(), store.LoadMergeDM(external), external]  # copies it into `external`
        store.GetDM().array[:] = live
        store.SetMerged(merged)
    elif isinstance(store, orvane.ReferenceOffsetTimeGrid):
        held.append(store.GetDeltaTimes())
    return held


def assert_same(actual, expected):
    if isinstance(expected, np.ndarray):
        assert actual.dtype == expected.dtype
        np.testing.assert_array_equal(actual, expected)
    elif isinstance(expected, list):
        assert len(actual) == len(expected)
        for a, e in zip(actual, expected):
            assert_same(a, e)
    else:
        assert actual == expected


def test_every_store_loads_back_what_it_saved_bit_for_bit(tmp_path):
    rng = np.random.default_rng(11)
    for index, make in enumerate(STORES):
        path = str(tmp_path / f"store-{index}.fxd")
        store = make(path)
        empty = contents(store)
        fill(store, rng)
        saved = contents(store)
        with pytest.raises(AssertionError):  # the filling reached the store
            assert_same(saved, empty)
        store.Save()
        fresh = make(path)
        fresh.Load()
        assert_same(contents(fresh), saved)


def test_failed_loads_and_saves_raise_the_library_text_and_change_nothing(tmp_path):
    rng = np.random.default_rng(12)
    for make in STORES:
        for action, path in (("load", tmp_path / "missing.fxd"), ("save", tmp_path / "no-folder" / "store.fxd")):
            store = make(str(path))
            fill(store, rng)
            before = contents(store)
            with pytest.raises(orvane.ReferenceException,
                               match=f"^{type(store).__name__}: cannot {action} '{re.escape(str(path))}': "):
                store.Load() if action == "load" else store.Save()
            assert_same(contents(store), before)


def test_stores_refuse_bad_images_and_entries_with_the_library_text():
    gain = orvane.ReferenceGainLinear(WIDTH, HEIGHT)
    with pytest.raises(TypeError, match="ImageFloat32"):
        gain.CompressImage(np.ones((HEIGHT, WIDTH), np.float64), gain.GetGainLinear())
    with pytest.raises(orvane.ReferenceException, match=f"^ReferenceGainLinear: CompressImage of a {WIDTH} x 3 image"):
        gain.CompressImage(np.ones((3, WIDTH), np.float32), gain.GetGainLinear())
    with pytest.raises(orvane.ReferenceException, match="^ReferenceOffsetTimeGrid: no grid entry at index 2$"):
        orvane.ReferenceOffsetTimeGrid(WIDTH, HEIGHT, [0, 5]).GetAt(2)
    with pytest.raises(orvane.ReferenceException, match="^ReferenceClusters: AddCluster got no image$"):
        orvane.ReferenceClusters().AddCluster(None)
