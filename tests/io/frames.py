"""Frames of known content, the same formula as TestPixel in IoTestFiles.h."""
import numpy as np


def test_frame(width, height, f, dtype):
    y, x = np.mgrid[0:height, 0:width].astype(np.int64)
    v = (x * 7919 + y * 104729 + f * 1299709) & 0xFFFFFFFF
    if np.dtype(dtype) == np.float32:
        return ((v % 200001).astype(np.int64) - 100000).astype(np.float32) / np.float32(7.0)
    return (v & (0xFF if np.dtype(dtype) == np.uint8 else 0xFFFF)).astype(dtype)
