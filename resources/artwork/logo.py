"""The launcher's emblem: a night-blue shield with a golden H over a mountain.

Large sizes carry the mountain, the moon and a bevelled rim; small ones only
the shield and a bold H set on whole pixels, since finer shapes would smear.
"""

import io
import struct

import numpy as np
from PIL import Image, ImageChops, ImageDraw, ImageFilter

SIZES = (16, 20, 24, 32, 40, 48, 64, 128, 256)
DETAILED_FROM = 48
COMPRESSED_FROM = 256

NIGHT_TOP, NIGHT_FOOT = (38, 66, 128), (10, 16, 44)
GOLD_TOP, GOLD_FOOT = (255, 236, 158), (206, 138, 34)
RIM_TOP, RIM_FOOT = (250, 214, 110), (140, 86, 20)


def gradient(size, top, foot):
    share = np.linspace(0, 1, size)[:, None, None]
    rows = np.array(top) * (1 - share) + np.array(foot) * share
    return Image.fromarray(np.broadcast_to(rows, (size, size, 3)).round().astype(np.uint8))


def shield_outline(size, inset):
    """Points of a shield that fills a square but for `inset` on every side."""
    width, left, top = size - 2 * inset, inset, inset
    right, middle = left + width, size / 2
    points = [(left, top + width * 0.05), (left + width * 0.25, top + width * 0.055), (middle, top),
              (right - width * 0.25, top + width * 0.055), (right, top + width * 0.05)]
    share = np.linspace(0, 1, 40)
    # Each flank falls straight at first and then bends to the point.
    flank_x = width / 2 * (1 - share ** 3.0) ** 0.62
    flank_y = top + width * (0.05 + 0.95 * share)
    points += [(middle + x, y) for x, y in zip(flank_x, flank_y)]
    points += [(middle - x, y) for x, y in zip(flank_x[::-1], flank_y[::-1])]
    return points


def mask_of(size, *shapes):
    mask = Image.new("L", (size, size))
    pen = ImageDraw.Draw(mask)
    for points in shapes:
        pen.polygon([tuple(point) for point in points], fill=255)
    return mask


def scaled(size, *points):
    return [(x * size, y * size) for x, y in points]


def letter(size):
    """An H with wedge serifs and a bar that rises to a peak, as parts of a unit square."""
    def stem(x):
        return scaled(size, (x - 0.105, 0.20), (x + 0.105, 0.20), (x + 0.062, 0.255), (x + 0.062, 0.625),
                      (x + 0.105, 0.68), (x - 0.105, 0.68), (x - 0.062, 0.625), (x - 0.062, 0.255))

    bar = scaled(size, (0.34, 0.49), (0.50, 0.365), (0.66, 0.49), (0.66, 0.405), (0.50, 0.275), (0.34, 0.405))
    lower = scaled(size, (0.36, 0.46), (0.64, 0.46), (0.64, 0.525), (0.36, 0.525))
    return mask_of(size, stem(0.325), stem(0.675), bar, lower)


def mountains(size):
    back = mask_of(size, scaled(size, (0, 0.86), (0.22, 0.62), (0.34, 0.72), (0.50, 0.55), (0.68, 0.72),
                                (0.80, 0.61), (1, 0.84), (1, 1), (0, 1)))
    snow = mask_of(size, scaled(size, (0.50, 0.55), (0.60, 0.645), (0.555, 0.635), (0.525, 0.675), (0.49, 0.63),
                                (0.455, 0.665), (0.41, 0.635)))
    front = mask_of(size, scaled(size, (0, 0.90), (0.30, 0.76), (0.50, 0.83), (0.72, 0.75), (1, 0.92), (1, 1), (0, 1)))
    return back, snow, front


def shadow_of(mask, size, strength):
    moved = ImageChops.offset(mask, 0, size // 64).filter(ImageFilter.GaussianBlur(size / 48))
    return moved.point(lambda tone: int(tone * strength))


def detailed(size):
    """The full emblem, drawn four times as large and reduced."""
    fine = size * 4
    outer, inner = (mask_of(fine, shield_outline(fine, fine * share)) for share in (0.02, 0.075))
    groove = mask_of(fine, shield_outline(fine, fine * 0.060))
    field = gradient(fine, NIGHT_TOP, NIGHT_FOOT)
    back, snow, front = mountains(fine)
    field.paste((34, 50, 96), mask=back)
    field.paste((196, 212, 240), mask=snow.point(lambda tone: int(tone * 0.75)))
    field.paste((9, 14, 36), mask=front)
    mark = letter(fine)
    field.paste((4, 6, 18), mask=shadow_of(mark, fine, 0.85))
    field.paste(gradient(fine, GOLD_TOP, GOLD_FOOT), mask=mark)
    emblem = gradient(fine, RIM_TOP, RIM_FOOT)
    emblem.paste((70, 40, 10), mask=groove)
    emblem.paste(field, mask=inner)
    emblem = emblem.convert("RGBA")
    emblem.putalpha(outer)
    return emblem.resize((size, size), Image.BOX)


def simple(size):
    """Shield and H alone; the letter's edges lie on whole pixels."""
    fine = size * 8
    unit = fine // size
    outer = mask_of(fine, shield_outline(fine, 0))
    inner = mask_of(fine, shield_outline(fine, unit * max(1.0, size / 20)))
    emblem = gradient(fine, RIM_TOP, RIM_FOOT)
    emblem.paste(gradient(fine, NIGHT_TOP, NIGHT_FOOT), mask=inner)
    emblem.putalpha(outer)
    emblem = emblem.resize((size, size), Image.BOX)
    stem = max(2, round(size * 0.135))
    half = round(size * 0.25)
    top, foot, middle = round(size * 0.20), round(size * 0.70), size // 2
    mark = Image.new("L", (size, size))
    pen = ImageDraw.Draw(mark)
    pen.rectangle([middle - half, top, middle - half + stem - 1, foot - 1], fill=255)
    pen.rectangle([middle + half - stem, top, middle + half - 1, foot - 1], fill=255)
    bar = max(2, round(size * 0.11))
    bar_top = (top + foot - bar) // 2
    pen.rectangle([middle - half, bar_top, middle + half - 1, bar_top + bar - 1], fill=255)
    letter_color = gradient(size, (255, 240, 170), (240, 180, 60)).convert("RGBA")
    return Image.composite(letter_color, emblem, mark)


def draw(size):
    return detailed(size) if size >= DETAILED_FROM else simple(size)


def bitmap_entry(image):
    """A 32-bit device-independent bitmap with its mask, as icon files hold it."""
    size = image.width
    pixels = np.asarray(image)[::-1]
    header = struct.pack("<IiiHHIIiiII", 40, size, 2 * size, 1, 32, 0, 0, 0, 0, 0, 0)
    hidden = np.packbits(pixels[..., 3] == 0, axis=1)
    stride = (size + 31) // 32 * 4
    mask = np.zeros((size, stride), np.uint8)
    mask[:, :hidden.shape[1]] = hidden
    return header + pixels[..., [2, 1, 0, 3]].tobytes() + mask.tobytes()


def compressed_entry(image):
    stream = io.BytesIO()
    image.save(stream, "PNG", optimize=True)
    return stream.getvalue()


def icon_file():
    """The icon with all sizes, as bytes."""
    images = [draw(size) for size in SIZES]
    entries = [compressed_entry(i) if i.width >= COMPRESSED_FROM else bitmap_entry(i) for i in images]
    offset = 6 + 16 * len(entries)
    directory = struct.pack("<HHH", 0, 1, len(entries))
    for image, entry in zip(images, entries):
        side = image.width % 256  # 0 stands for 256
        directory += struct.pack("<BBBBHHII", side, side, 0, 0, 1, 32, len(entry), offset)
        offset += len(entry)
    return directory + b"".join(entries)
