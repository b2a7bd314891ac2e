"""The image model as numpy views: shared pixels both ways, lifetimes, and the checks at the edge."""

import gc
import sys

import numpy as np
import pytest

import orvane

IMAGE_CLASSES = [(orvane.ImageUInt16, np.uint16), (orvane.ImageFloat32, np.float32), (orvane.ImageUInt8, np.uint8)]


@pytest.mark.parametrize("image_class, dtype", IMAGE_CLASSES)
def test_an_image_and_its_array_share_pixels_both_ways(image_class, dtype):
    array = np.arange(12, dtype=dtype).reshape(3, 4)
    image = image_class(array)
    assert (image.width, image.height) == (4, 3)
    view = image.array
    assert view.dtype == dtype and view.shape == (3, 4)
    assert np.shares_memory(view, array) and np.shares_memory(np.asarray(image), array)

    array[1, 2] = 99  # the host's array -> the image
    assert view[1, 2] == 99
    view[2, 3] = 7  # the image -> the host's array
    assert array[2, 3] == 7

    fresh = image_class(5, 2)
    assert fresh.array.shape == (2, 5) and not fresh.array.any()


def test_images_views_and_stores_keep_each_other_alive():
    array = np.arange(20, dtype=np.uint16).reshape(4, 5)
    expected = array.copy()
    references_before = sys.getrefcount(array)
    image = orvane.ImageUInt16(array)
    assert sys.getrefcount(array) == references_before + 1
    del array
    gc.collect()
    np.testing.assert_array_equal(image.array, expected)  # the image holds the array's pixels

    view = image.array
    del image
    gc.collect()
    np.testing.assert_array_equal(view, expected)  # the view holds the image

    store = orvane.ReferenceOffsetSimple(5, 4)
    live = store.GetOffset().array
    live[:] = expected
    np.testing.assert_array_equal(store.GetOffset().array, expected)  # the store's live image
    del store
    gc.collect()
    np.testing.assert_array_equal(live, expected)


def test_the_edge_refuses_other_dtypes_and_shapes_and_copies_what_it_cannot_share():
    frame = np.arange(12, dtype=np.uint16).reshape(3, 4)
    for other in (frame.astype(np.float32), frame.astype(np.int16), frame.astype(">u2"), frame > 5, frame.tolist()):
        with pytest.raises(TypeError, match="dtype uint16"):
            orvane.ImageUInt16(other)
    with pytest.raises(TypeError, match="dtype float32"):
        orvane.ImageFloat32(frame)
    for shape in ((12,), (1, 3, 4), ()):
        with pytest.raises(ValueError, match="2-D"):
            orvane.ImageUInt16(np.zeros(shape, dtype=np.uint16))
    with pytest.raises(ValueError):
        orvane.ImageUInt16(-1, 3)

    # Not C-contiguous, or read-only: one contiguous copy, the same pixels.
    read_only = frame.copy()
    read_only.setflags(write=False)
    for unshareable in (np.asfortranarray(frame), frame[:, ::2], frame.T, read_only):
        image = orvane.ImageUInt16(unshareable)
        np.testing.assert_array_equal(image.array, unshareable)
        assert not np.shares_memory(image.array, unshareable)
