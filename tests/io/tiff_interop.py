"""The other side of the TIFF tests: tifffile writes and reads series of pages.

tiff_interop.py write PATH WIDTH HEIGHT FRAMES DTYPE [OPTION...]
    one page per test frame; DTYPE a numpy type string whose byte order is the file's
    (<u2, >u2, u1, <f4); OPTIONs: bigtiff, tile=N (N x N tiles), rowsperstrip=N,
    compression=NAME, describe (each page's ImageDescription the frame's properties as JSON),
    nest=N (with describe: the JSON also holds an array nested so that the text is N deep).
tiff_interop.py check PATH WIDTH HEIGHT FRAMES DTYPE [bigtiff]
    the file holds the test frames as our writer lays them out: one uncompressed
    page of strips per frame, host byte order, minisblack, with its properties.
tiff_interop.py bad PATH KIND
    a file we must refuse: mixed (pages of two sizes), rgb, int16, uint32, float64,
    bilevel, palette, tile (2048 x 2048 tiles on a 5 x 3 frame), huge (a one-page file
    whose ImageWidth is patched to 100000).
"""
import json
import sys

import numpy as np
import tifffile

from frames import test_frame


def properties(f):
    return {'image': {'time': str(60 * f + 7), 'temperature': str(30.25 + f)}}


def frames(width, height, count, dtype):
    return [test_frame(width, height, f, dtype.newbyteorder('=')) for f in range(count)]


def description(f, nest):
    text = json.dumps(properties(f))
    if nest < 2:
        return text
    # Built as text: json.dumps itself recurses once per level.
    return text[:-1] + ', "deep": ' + '[' * (nest - 1) + '1' + ']' * (nest - 1) + '}'


def write(path, width, height, count, dtype, *options):
    dtype = np.dtype(dtype)
    settings = dict(option.split('=') if '=' in option else (option, True) for option in options)
    byteorder = '>' if dtype.byteorder == '>' else '<'
    with tifffile.TiffWriter(path, byteorder=byteorder, bigtiff='bigtiff' in settings) as tif:
        for f, frame in enumerate(frames(width, height, count, dtype)):
            tile = int(settings['tile']) if 'tile' in settings else None
            rows = int(settings['rowsperstrip']) if 'rowsperstrip' in settings else None
            tif.write(frame, photometric='minisblack', metadata=None, contiguous=False, rowsperstrip=rows,
                      tile=(tile, tile) if tile else None, compression=settings.get('compression'),
                      description=description(f, int(settings.get('nest', 0))) if 'describe' in settings else None)
    return 0


def fail(why):
    print('tiff_interop.py:', why, file=sys.stderr)
    return 1


def check(path, width, height, count, dtype, *options):
    dtype = np.dtype(dtype)
    with tifffile.TiffFile(path) as tif:
        if tif.is_bigtiff != ('bigtiff' in options) or tif.byteorder != ('<' if sys.byteorder == 'little' else '>'):
            return fail('bigtiff %s, byte order %s' % (tif.is_bigtiff, tif.byteorder))
        if len(tif.pages) != count:
            return fail('%d pages' % len(tif.pages))
        for f, (page, expected) in enumerate(zip(tif.pages, frames(width, height, count, dtype))):
            layout = (page.compression, page.is_tiled, page.photometric, page.subfiletype, page.samplesperpixel)
            if layout != (1, False, 1, 2, 1):
                return fail('page %d laid out as %s' % (f, layout))
            data = page.asarray()
            if data.dtype.newbyteorder('=') != expected.dtype or data.shape != expected.shape \
                    or data.tobytes() != expected.astype(data.dtype).tobytes():
                return fail('page %d pixels differ' % f)
            if page.description != json.dumps(properties(f), separators=(',', ':')):
                return fail('page %d description %r' % (f, page.description))
    return 0


def bad(path, kind):
    frame = test_frame(5, 3, 0, np.uint16)
    if kind == 'mixed':
        with tifffile.TiffWriter(path) as tif:
            tif.write(frame, metadata=None)
            tif.write(test_frame(7, 3, 1, np.uint16), metadata=None)
    elif kind == 'rgb':
        tifffile.imwrite(path, np.zeros((3, 5, 3), np.uint8), photometric='rgb', metadata=None)
    elif kind in ('int16', 'uint32', 'float64'):
        tifffile.imwrite(path, frame.astype(kind), photometric='minisblack', metadata=None)
    elif kind == 'bilevel':
        tifffile.imwrite(path, frame > 3000, photometric='minisblack', metadata=None)
    elif kind == 'palette':
        tifffile.imwrite(path, frame.astype(np.uint8), photometric='palette',
                         colormap=np.zeros((3, 256), np.uint16), metadata=None)
    elif kind == 'tile':
        tifffile.imwrite(path, frame, tile=(2048, 2048), compression='zlib', metadata=None)
    elif kind == 'huge':
        tifffile.imwrite(path, frame, metadata=None)
        with tifffile.TiffFile(path, mode='r+b') as tif:
            tif.pages[0].tags['ImageWidth'].overwrite(100000)
    else:
        return fail('no bad file ' + kind)
    return 0


def main(action, path, *arguments):
    if action == 'bad':
        return bad(path, *arguments)
    width, height, count = (int(a) for a in arguments[:3])
    return (write if action == 'write' else check)(path, width, height, count, *arguments[3:])


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
