"""The other side of the raw tests: numpy writes and reads headerless frames.

raw_interop.py write|check PATH WIDTH HEIGHT FRAMES DTYPE HEADER
DTYPE is a numpy type string (<u2, >u2, u1, >f4, ...); HEADER the bytes before frame 0.
"""
import sys

import numpy as np

from frames import test_frame


def main(action, path, width, height, frames, dtype, header):
    width, height, frames, header = int(width), int(height), int(frames), int(header)
    dtype = np.dtype(dtype)
    expected = np.stack([test_frame(width, height, f, dtype.newbyteorder('=')) for f in range(frames)])
    if action == 'write':
        with open(path, 'wb') as out:
            out.write(bytes(i % 256 for i in range(header)))
            out.write(expected.astype(dtype).tobytes())
        return 0
    data = np.fromfile(path, dtype=dtype, offset=header)
    return 0 if data.size == expected.size and np.array_equal(data.reshape(expected.shape), expected) else 1


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
