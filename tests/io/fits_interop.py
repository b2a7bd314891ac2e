"""The other side of the FITS tests: astropy writes and reads the primary image.

fits_interop.py write|check PATH KIND WIDTH HEIGHT FRAMES [KEYS]
KIND u8, u16 or f32 (the series of frames.py), or for `write` one the reader refuses:
i16, i32, f64, scaled (16-bit, BZERO 100), naxis4, extension (an empty primary, the
image in an extension), huge (an honest header of 100000 x 100000 pixels, no data).
KEYS 1 (default): frame f has TIMEnnnn = 60 f + 7 and TEMPnnnn = 30.25 + f, as
TestFrame's properties; 0: no such keywords.
`check` exits 0 when the file holds that series to the bit, with its keywords.
"""
import sys

import numpy as np
from astropy.io import fits

from frames import test_frame

DTYPES = {'u8': np.uint8, 'u16': np.uint16, 'f32': np.float32}
BITPIX = {'u8': 8, 'u16': 16, 'f32': -32}
REFUSED = {'i16': ('u16', np.int16), 'i32': ('u16', np.int32), 'f64': ('f32', np.float64),
           'scaled': ('u16', np.int16)}


def series(kind, width, height, frames):
    cube = np.stack([test_frame(width, height, f, DTYPES[kind]) for f in range(frames)])
    return cube[0] if frames == 1 else cube


def write(path, kind, width, height, frames, keys):
    if kind == 'huge':
        header = fits.Header([('SIMPLE', True), ('BITPIX', 16), ('NAXIS', 2), ('NAXIS1', 100000),
                              ('NAXIS2', 100000), ('BZERO', 32768), ('BSCALE', 1)])
        with open(path, 'wb') as out:
            out.write(header.tostring(padding=True).encode('ascii'))
        return 0
    if kind in REFUSED:
        base, dtype = REFUSED[kind]
        data = series(base, width, height, frames).astype(dtype)
    elif kind in ('naxis4', 'extension'):
        data = series('u8', width, height, frames).reshape((1, frames, height, width)[kind == 'extension':])
    else:
        data = series(kind, width, height, frames)
    hdu = fits.PrimaryHDU(data)
    if kind == 'scaled':
        hdu.scale('int16', bzero=100)
    for f in range(frames if keys else 0):
        hdu.header['TIME%04d' % (f + 1)] = 60 * f + 7
        hdu.header['TEMP%04d' % (f + 1)] = 30.25 + f
    if kind == 'extension':
        hdu = fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(hdu.data)])
    hdu.writeto(path, overwrite=True)  # uint16 as BITPIX 16 and BZERO 32768
    return 0


def check(path, kind, width, height, frames, keys):
    problems = []
    with fits.open(path, do_not_scale_image_data=False, uint=True) as hdus:
        if len(hdus) != 1:
            problems.append('%d HDUs' % len(hdus))
        header, data = hdus[0].header, hdus[0].data
        expected = series(kind, width, height, frames)
        wanted = {'BITPIX': BITPIX[kind], 'NAXIS': 2 if frames == 1 else 3, 'NAXIS1': width, 'NAXIS2': height}
        if frames > 1:
            wanted['NAXIS3'] = frames
        if kind == 'u16':
            wanted.update(BZERO=32768, BSCALE=1)
        for key, value in wanted.items():
            if header.get(key) != value:
                problems.append('%s = %r, not %r' % (key, header.get(key), value))
        if data is None or data.dtype.newbyteorder('=') != expected.dtype or data.shape != expected.shape:
            problems.append('data %r, not %s %s' % (None if data is None else (data.dtype, data.shape),
                                                    expected.dtype, expected.shape))
        elif data.astype(expected.dtype).tobytes() != expected.tobytes():  # to the bit, NaN or not
            problems.append('other pixels')
        for f in range(frames):
            time, temp = header.get('TIME%04d' % (f + 1)), header.get('TEMP%04d' % (f + 1))
            if (time, temp) != ((60 * f + 7, 30.25 + f) if keys else (None, None)):
                problems.append('frame %d: TIME %r, TEMP %r' % (f, time, temp))
    for problem in problems:
        print('%s: %s' % (path, problem), file=sys.stderr)
    return 1 if problems else 0


def main(action, path, kind, width, height, frames, keys='1'):
    arguments = (path, kind, int(width), int(height), int(frames), keys == '1')
    return write(*arguments) if action == 'write' else check(*arguments)


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
