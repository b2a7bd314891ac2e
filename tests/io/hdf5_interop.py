"""The other side of the HDF5 tests: h5py writes and reads datasets of test frames.

hdf5_interop.py write|check PATH DATASET DTYPE SHAPE [OPTION ...]
SHAPE e.g. 5x9x11 (frames x rows x columns); DTYPE a numpy type string (<u2, >u2, u1, ...).
write adds the dataset to PATH; OPTIONs: chunks=F,R,C gzip shuffle filter=ID (one h5py
need not know) empty (no data) attrs (the frame attributes).
check: the dataset as our writer makes it, pixels to the bit, and attributes when attrs.
"""
import sys

import h5py
import numpy as np

from frames import test_frame


def expected_stack(dtype, shape):
    rows, columns = (shape[-2] if len(shape) > 1 else 1), shape[-1]
    frames = int(np.prod(shape[:-2])) if len(shape) > 2 else 1
    native = np.dtype(dtype).newbyteorder('=')
    return np.stack([test_frame(columns, rows, f, native) for f in range(frames)]).astype(dtype).reshape(shape)


def frame_attributes(frames):
    return np.arange(frames, dtype=np.int64) * 60 + 7, np.arange(frames, dtype=np.float64) + 30.25


def write(path, dataset, dtype, shape, options):
    settings = {}
    for option in options:
        key, _, value = option.partition('=')
        if key == 'chunks':
            settings['chunks'] = tuple(int(n) for n in value.split(','))
        elif key == 'gzip':
            settings['compression'] = 'gzip'
        elif key == 'shuffle':
            settings['shuffle'] = True
        elif key == 'filter':
            settings.update(compression=int(value), allow_unknown_filter=True)
    with h5py.File(path, 'a') as f:
        d = f.create_dataset(dataset, shape=shape, dtype=dtype, **settings)
        if 'empty' not in options:
            d[...] = expected_stack(dtype, shape)
        if 'attrs' in options:
            d.attrs['image.time'], d.attrs['image.temperature'] = frame_attributes(shape[0])
    return 0


def check(path, dataset, dtype, shape, options):
    with h5py.File(path, 'r') as f:
        d = f[dataset]
        problems = []
        if d.dtype != np.dtype(dtype) or d.shape != shape:
            problems.append(f'{d.dtype} {d.shape}')
        elif d[...].tobytes() != expected_stack(dtype, shape).tobytes():
            problems.append('pixels')
        layout = (d.chunks, d.maxshape, d.compression, d.compression_opts, d.shuffle)
        if layout != ((1,) + shape[1:], (None,) + shape[1:], 'gzip', 1, True):
            problems.append(f'layout {layout}')
        names = sorted(d.attrs)
        if 'attrs' in options:
            time, temperature = frame_attributes(shape[0])
            if (names != ['image.temperature', 'image.time'] or d.attrs['image.time'].dtype != np.int64
                    or not np.array_equal(d.attrs['image.time'], time)
                    or not np.array_equal(d.attrs['image.temperature'], temperature)):
                problems.append(f'attributes {dict(d.attrs)}')
        elif names:
            problems.append(f'attributes {names}')
    for problem in problems:
        print(f'{path}:{dataset}: {problem}', file=sys.stderr)
    return 1 if problems else 0


def main(action, path, dataset, dtype, shape, *options):
    shape = tuple(int(n) for n in shape.split('x'))
    return (write if action == 'write' else check)(path, dataset, dtype, shape, options)


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
