#!/usr/bin/env python3
"""Makes the launcher's pictures: the background and the icon.

    make_resources.py            writes both next to this script
    make_resources.py --check    makes both in a temporary folder and compares
                                 their sizes and contents with the stored ones

All shapes come from formulas and fixed seeds. With the same versions of numpy
and Pillow two runs give the same bytes. No network is needed.
"""

import argparse
import io
import struct
import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True

import numpy as np  # noqa: E402
from PIL import Image  # noqa: E402

from artwork import background, logo  # noqa: E402

HOME = Path(__file__).resolve().parent
BACKGROUND = Path("images/ressources/background.jpg")
ICON = Path("icons/Halden-Logo.ico")

# The published background has this size to the byte.
BACKGROUND_BYTES = 227_090
COMMENT_OVERHEAD = 4  # marker and length
LONGEST_COMMENT = 65_535 + 2
COMMENT_TEXT = b"Halden Launcher background. "

# The window the background is stretched over, and where the gold labels stand in it.
WINDOW = (1178, 707)
LABELS = (30, 630, 690, 700)
LABEL_COLOR = (255, 215, 0)
LEAST_CONTRAST = 7.0


def encoded(image, quality):
    stream = io.BytesIO()
    image.save(stream, "JPEG", quality=quality, optimize=True, progressive=True, subsampling="4:2:0")
    return stream.getvalue()


def comment(length):
    """A JPEG comment segment of `length` bytes in all."""
    room = length - COMMENT_OVERHEAD
    text = (COMMENT_TEXT * (room // len(COMMENT_TEXT) + 1))[:room]
    return b"\xff\xfe" + struct.pack(">H", room + 2) + text


def comments(length):
    """Comment segments that add up to `length` bytes; none may be shorter than its overhead."""
    segments = b""
    while length:
        part = min(length, LONGEST_COMMENT)
        if 0 < length - part < COMMENT_OVERHEAD:
            part -= COMMENT_OVERHEAD
        segments += comment(part)
        length -= part
    return segments


def fits(data):
    gap = BACKGROUND_BYTES - len(data)
    return gap == 0 or gap >= COMMENT_OVERHEAD


def background_file():
    """The background at the best quality that fits, filled up to its exact size."""
    image = background.paint()
    data = next((d for d in (encoded(image, q) for q in range(96, 59, -1)) if fits(d)), None)
    if data is None:
        raise SystemExit("the background is too rich in detail for its size: calm the picture")
    header_end = 4 + struct.unpack(">H", data[4:6])[0]  # start of image, then the APP0 segment
    return data[:header_end] + comments(BACKGROUND_BYTES - len(data)) + data[header_end:]


def luminance(rgb):
    share = np.asarray(rgb, np.float64) / 255
    linear = np.where(share <= 0.04045, share / 12.92, ((share + 0.055) / 1.055) ** 2.4)
    return linear @ np.array([0.2126, 0.7152, 0.0722])


def label_contrast(image):
    """The least contrast of the gold labels with any pixel under them."""
    shown = image.resize(WINDOW, Image.BILINEAR).crop(LABELS)
    return (luminance(LABEL_COLOR) + 0.05) / (luminance(np.asarray(shown)).max() + 0.05)


def verify_background(data):
    if len(data) != BACKGROUND_BYTES:
        raise SystemExit(f"the background has {len(data)} bytes instead of {BACKGROUND_BYTES}")
    image = Image.open(io.BytesIO(data)).convert("RGB")
    if image.size != (background.WIDTH, background.HEIGHT):
        raise SystemExit(f"the background measures {image.size}")
    contrast = label_contrast(image)
    if contrast < LEAST_CONTRAST:
        raise SystemExit(f"gold labels have a contrast of only {contrast:.2f}: darken the lower left")
    return image


def verify_icon(data):
    icon = Image.open(io.BytesIO(data))
    if icon.info["sizes"] != {(size, size) for size in logo.SIZES}:
        raise SystemExit(f"the icon has the sizes {sorted(icon.info['sizes'])}")
    for size in logo.SIZES:
        icon.ico.getimage((size, size)).load()


def make(folder):
    makers = ((BACKGROUND, background_file, verify_background), (ICON, logo.icon_file, verify_icon))
    for name, build, verify in makers:
        data = build()
        verify(data)
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def check():
    """Compares fresh pictures with the stored ones.

    Other library versions may encode a little differently, so the background
    is compared by its pixels' mean difference, not by its bytes.
    """
    with tempfile.TemporaryDirectory() as folder:
        make(Path(folder))
        fresh, stored = ((root / BACKGROUND).read_bytes() for root in (Path(folder), HOME))
        pixels = [np.asarray(verify_background(data), np.float32) for data in (fresh, stored)]
        difference = float(np.abs(pixels[0] - pixels[1]).mean())
        icons = [(root / ICON).read_bytes() for root in (Path(folder), HOME)]
        for data in icons:
            verify_icon(data)
    if difference > 2.0:
        raise SystemExit(f"the stored background differs from the script's by {difference:.2f} levels: run the script")
    same = "the same bytes" if fresh == stored and icons[0] == icons[1] else "equal but for the encoding"
    print(f"background and icon are good: {same}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--check", action="store_true", help="only compare with the stored pictures")
    if parser.parse_args().check:
        check()
    else:
        make(HOME)


if __name__ == "__main__":
    main()
