"""The launcher's background: a moonlit valley with a castle above its lake.

The land is a height field seen through a simple camera: every picture column
is a ray over the ground, and the running maximum of the projected heights
along it tells which piece of ground each pixel shows. The mirror image in the
lake is the same land seen by the camera mirrored at the water's surface.

Coordinates are pixels of the finished picture; world units are about 50 m.
"""

from dataclasses import dataclass

import numpy as np
from PIL import Image, ImageDraw, ImageFilter

from .noise import eroded, fbm, smoothstep, value

WIDTH, HEIGHT = 1920, 1080
SUPERSAMPLING = 2
HORIZON = 655.0
FOCAL = 1728.0
EYE = 1.0
NEAR, FAR, DEPTH_STEPS = 5.0, 130.0, 1500
MARGIN = 200  # ray columns beyond each edge: they still cast shadows into the picture

MOON_X, MOON_Y, MOON_RADIUS = 1300.0, 205.0, 74.0
CASTLE_X, CASTLE_Z = 1085.0, 21.0
CRAG_TOP = 2.6

SKY_ZENITH = np.array([0.008, 0.014, 0.050], np.float32)
SKY_LOW = np.array([0.070, 0.165, 0.300], np.float32)
MOONLIGHT = np.array([0.78, 0.90, 1.10], np.float32)
MOON_GLOW = np.array([1.00, 0.86, 0.66], np.float32)
AMBIENT = np.array([0.040, 0.068, 0.130], np.float32)
LAMP = np.array([1.60, 0.72, 0.20], np.float32)
FOREGROUND = np.array([0.0035, 0.0065, 0.014], np.float32)


@dataclass
class Land:
    """Ground sampled on the rays: rows are depths, columns are rays."""

    depth: np.ndarray
    height: np.ndarray
    color: np.ndarray


def pixel_grid():
    y, x = np.mgrid[0:HEIGHT, 0:WIDTH].astype(np.float32)
    return x + 0.5, y + 0.5


def over(bottom, color, alpha):
    """`color` laid over `bottom` with the coverage `alpha` (rows x columns)."""
    return bottom + (color - bottom) * alpha[..., None]


def blurred(mask, radius):
    """Gaussian blur of a one-channel 0..1 array (8 bits are enough for a glow)."""
    image = Image.fromarray((np.clip(mask, 0, 1) * 255).astype(np.uint8))
    return np.asarray(image.filter(ImageFilter.GaussianBlur(radius)), np.float32) / 255


# --- Sky -----------------------------------------------------------------

def moon_halo(x, y):
    distance = np.hypot(x - MOON_X, y - MOON_Y)
    return (0.46 * np.exp(-distance / 80.0) + 0.15 * np.exp(-distance / 260.0)
            + 0.035 * np.exp(-distance / 700.0))


def paint_stars(sky, x, y):
    rng = np.random.default_rng(71)
    count = 1900
    band = rng.random(count) < 0.45
    px = rng.random(count) * WIDTH
    py = rng.random(count) ** 1.2 * 640
    py = np.where(band, 330 - 0.28 * px + rng.normal(0, 90, count), py)
    power = 0.05 + 1.1 * rng.random(count) ** 7
    tint = rng.random(count)
    for sx, sy, p, t in zip(px, py, power, tint):
        column, row = int(sx), int(sy)
        if not (3 <= column < WIDTH - 3 and 3 <= row < HEIGHT - 3):
            continue
        reach = 3
        ys, xs = slice(row - reach, row + reach + 1), slice(column - reach, column + reach + 1)
        square = (x[ys, xs] - sx) ** 2 + (y[ys, xs] - sy) ** 2
        spot = p * np.exp(-square / (0.35 + 0.75 * p))
        color = np.array([0.80 + 0.35 * t, 0.92, 1.20 - 0.35 * t], np.float32)
        sky[ys, xs] += spot[..., None] * color


def paint_aurora(sky, x, y):
    """Three curtains: sharp lower edges, long rays upwards, green turning violet."""
    green = np.array([0.08, 0.62, 0.40], np.float32)
    violet = np.array([0.32, 0.12, 0.60], np.float32)
    curtains = ((250, 0.55, 150, 3.1, 0.54), (330, 0.75, 110, 8.7, 0.46), (165, 0.40, 190, 14.2, 0.32))
    for base, sway, length, seed, strength in curtains:
        wave = fbm(x / 430 + seed, np.full_like(x, seed) + y / 1500, 4) - 0.5
        edge = base - 0.06 * x + 330 * sway * wave
        above = edge - y
        rays = 0.35 + 1.1 * fbm(x / 26 + 4 * wave + seed, y / 900 + seed, 3) ** 2
        reach = length * (0.6 + 0.9 * value(x / 90 + seed, x * 0 + seed))
        light = smoothstep(-16, 22, above) * np.exp(-np.maximum(above, 0) / reach)
        fade = smoothstep(1500, 500, x) * (0.35 + 0.65 * smoothstep(0.30, 0.62, fbm(x / 310 + seed, y * 0 + seed, 2)))
        mix = smoothstep(20, 190, above)[..., None]
        sky += (strength * light * rays * fade)[..., None] * (green * (1 - mix) + violet * mix)


def paint_moon(sky, x, y):
    dx, dy = (x - MOON_X) / MOON_RADIUS, (y - MOON_Y) / MOON_RADIUS
    radius = np.hypot(dx, dy)
    disc = smoothstep(1.008, 0.985, radius)
    seas = smoothstep(0.44, 0.66, fbm(dx * 1.5 + 40.2, dy * 1.5 + 11.7, 5))
    craters = fbm(dx * 7 + 3.0, dy * 7 + 5.0, 4)
    shade = (0.98 - 0.48 * seas + 0.26 * (craters - 0.5)) * np.sqrt(np.clip(1.12 - radius ** 2 * 0.55, 0, 1))
    face = shade[..., None] * np.array([1.12, 1.02, 0.86], np.float32)
    sky[:] = over(sky, face, disc)


def paint_clouds(sky, x, y):
    """Thin veils, brighter towards the moon."""
    veil = fbm(x / 420 + 5 + 0.6 * fbm(x / 300, y / 90, 3), y / 75 + 2, 6)
    band = smoothstep(70, 330, y) * smoothstep(640, 420, y)
    cover = smoothstep(0.46, 0.80, veil) * band * 0.60
    light = np.array([0.045, 0.085, 0.15], np.float32) + moon_halo(x, y)[..., None] * MOON_GLOW * 0.9
    sky[:] = over(sky, light, cover)


def make_sky():
    x, y = pixel_grid()
    rise = np.clip(y / HORIZON, 0, 1)[..., None] ** 1.5
    sky = SKY_ZENITH * (1 - rise) + SKY_LOW * rise
    dust = np.exp(-((y - 330 + 0.28 * x) / 130) ** 2) * fbm(x / 170 + 9, y / 130 + 4, 5) ** 2
    sky = sky + dust[..., None] * np.array([0.050, 0.060, 0.105], np.float32)
    paint_stars(sky, x, y)
    paint_aurora(sky, x, y)
    sky += moon_halo(x, y)[..., None] * MOON_GLOW * 0.55
    paint_moon(sky, x, y)
    paint_clouds(sky, x, y)
    return sky.astype(np.float32)


# --- Land ----------------------------------------------------------------

def peak(x, z, screen_x, depth, width, height):
    """A broad cone that stands at the picture column `screen_x`."""
    cx = (screen_x - WIDTH / 2) / FOCAL * depth
    distance = np.hypot((x - cx) / width, (z - depth) / (width * 1.1))
    return height * np.exp(-1.25 * distance)


def ground_height(x, z):
    """The land's height over the lake's surface."""
    rough = eroded(x / 15 + 31.4, z / 15 + 7.7, 9)
    detail = eroded(x / 3.1 + 3.0, z / 3.1 + 8.0, 8)
    rise = smoothstep(34, 74, z)
    summits = (peak(x, z, 620, 86, 16, 20) + peak(x, z, 300, 72, 10, 7) + peak(x, z, 960, 108, 12, 10)
               + peak(x, z, 1720, 74, 14, 13) + peak(x, z, 1480, 104, 10, 7) + peak(x, z, 40, 84, 14, 13))
    mountains = rise * (summits * (0.50 + 0.42 * rough) + 4.6 * rough - 1.6)
    wander = 5.0 * (fbm(z / 9 + 3, x / 30, 3) - 0.5)
    side = np.maximum(smoothstep(7.0, 17.0, -x - 0.10 * z + wander),
                      smoothstep(6.5, 16.0, x - 0.16 * z + wander))
    banks = side * (1.0 + 2.6 * rough + 0.05 * z) * smoothstep(6, 16, z)
    shore = smoothstep(33, 43, z + 9 * (fbm(x / 7, z / 7 + 2, 4) - 0.5)) * (0.4 + 0.9 * detail)
    crag = crag_height(x, z, detail)
    return np.maximum(mountains + banks + shore - 0.9, crag).astype(np.float32)


def crag_height(x, z, detail):
    cx = (CASTLE_X - WIDTH / 2) / FOCAL * CASTLE_Z
    dx, dz = x - cx, (z - CASTLE_Z) / 1.15
    warp = 1.6 * (fbm(x * 0.9 + 4, z * 0.9, 6) - 0.5) + 0.5 * np.abs(fbm(x * 2.6, z * 2.6 + 7, 5) - 0.5)
    distance = np.hypot(dx, dz)
    worn = distance + warp * smoothstep(0.9, 1.7, distance)
    cliff = 0.60 * smoothstep(2.05, 1.45, worn) + 0.40 * smoothstep(2.9, 1.75, worn + 0.5 * warp)
    skirt = 0.55 * smoothstep(4.4, 2.0, worn + 0.22 * dx)
    rim = 0.30 * (fbm(x * 1.7 + 2, z * 1.7, 4) - 0.62) * smoothstep(0.6, 1.3, distance)
    return CRAG_TOP * cliff + skirt + rim + 0.5 * (detail - 0.7) * smoothstep(1.0, 1.7, distance) - 0.12


def shaded_by_ridges(x, height):
    """0..1: how much of the moon each sample loses to higher ground on its right."""
    slope = 0.50
    line = height - slope * -x
    ahead = np.maximum.accumulate(line[:, ::-1], axis=1)[:, ::-1]
    return smoothstep(0.0, 1.1, ahead - line)


def ground_color(x, z, height):
    """Rock, snow and woods under the moon, without the air between."""
    step = x[:, 1:2] - x[:, 0:1]
    along = np.gradient(height, axis=1) / step
    depth = z[:, 0]
    u = x / z
    away = np.gradient(height, axis=0) / np.gradient(depth)[:, None] - along * u
    norm = 1 / np.sqrt(1 + along ** 2 + away ** 2)
    steep = 1 - norm
    light = np.array([0.80, 0.50, -0.12])
    facing = np.clip((-along * light[0] + light[1] - away * light[2]) * norm, 0, 1.2)
    moon = facing * (1 - 0.88 * shaded_by_ridges(x, height))
    patches = fbm(x / 4.0, z / 4.0, 4)
    snow = smoothstep(2.6, 6.5, height + 5 * (patches - 0.5)) * smoothstep(0.66, 0.30, steep + 0.20 * (patches - 0.5))
    woods = smoothstep(5.0, 1.2, height + 2 * (patches - 0.5)) * smoothstep(0.55, 0.25, steep)
    rock = np.array([0.26, 0.27, 0.30], np.float32) * (0.6 + 0.8 * patches[..., None])
    albedo = over(rock, np.array([0.045, 0.075, 0.070], np.float32), woods)
    albedo = over(albedo, np.array([0.86, 0.90, 0.96], np.float32), snow)
    skylight = (0.45 + 0.55 * norm)[..., None] * AMBIENT
    return (albedo * (moon[..., None] * MOONLIGHT * 0.95 + skylight * 1.5)).astype(np.float32)


def make_land():
    columns = WIDTH * SUPERSAMPLING + 2 * MARGIN
    u = ((np.arange(columns) - MARGIN + 0.5) / SUPERSAMPLING - WIDTH / 2) / FOCAL
    depth = np.geomspace(NEAR, FAR, DEPTH_STEPS)
    x = (depth[:, None] * u[None, :]).astype(np.float32)
    z = np.broadcast_to(depth[:, None], x.shape).astype(np.float32)
    height = ground_height(x, z)
    color = ground_color(x, z, height)
    inner = slice(MARGIN, columns - MARGIN)
    return Land(depth.astype(np.float32), height[:, inner], color[:, inner])


def pixel_rows(scale):
    return (np.arange(HEIGHT * scale, dtype=np.float32) + 0.5) / scale


def projected(land, eye):
    """Picture row of every ground sample; what lies under water is out of sight."""
    top = HORIZON - FOCAL * (land.height - eye) / land.depth[:, None]
    return np.where(land.height > 0, top, np.float32(1e6))


def seen_directly(land):
    """For every fine pixel the index of the ground sample it shows (DEPTH_STEPS: none)."""
    centres = pixel_rows(SUPERSAMPLING)
    skyline = -np.minimum.accumulate(projected(land, EYE), axis=0)
    # The running minimum falls with depth: the first sample at or above the
    # pixel's centre is the ground that hides all behind it.
    index = np.stack([np.searchsorted(line, -centres) for line in skyline.T], axis=1)
    below = np.maximum(centres - HORIZON, 1e-3)
    lake = np.where(centres > HORIZON, FOCAL * EYE / below, 1e9)
    depth = land.depth[np.minimum(index, len(land.depth) - 1)]
    return np.where(depth <= lake[:, None] * 1.004, index, len(land.depth))


def seen_in_lake(land):
    """The same for the eye mirrored at the lake's surface, one sample a pixel.

    Such a ray comes out of the water at a depth of its own, and only land
    beyond that depth can stop it. Hence the walk from far to near.
    """
    centres = pixel_rows(1)
    top = projected(land, -EYE)
    index = np.full((HEIGHT, top.shape[1]), len(land.depth), np.int32)
    for sample in range(len(land.depth) - 1, -1, -1):
        rows = int(np.clip(HORIZON - FOCAL * EYE / land.depth[sample], 0, HEIGHT))
        hit = centres[:rows, None] >= top[sample]
        index[:rows][hit] = sample
    return index


def coarse(land):
    return Land(land.depth[::2], land.height[::2, ::SUPERSAMPLING], land.color[::2, ::SUPERSAMPLING])


def air(x, y, depth, height):
    """Haze between the eye and the ground: its cover and its colour."""
    fall = 2.6
    span = np.where(np.abs(height - 1) < 1e-2, 1e-2, height - 1) / fall
    low = np.maximum(depth - 7, 0) * np.exp(-1 / fall) * (1 - np.exp(-span)) / span
    drift = 0.55 + 0.9 * fbm(x / 330 + depth / 25, y / 55, 4)
    cover = 1 - np.exp(-(0.0200 * low * drift + 0.0016 * depth))
    glow = moon_halo(x, y)[..., None]
    color = np.array([0.036, 0.082, 0.150], np.float32) + glow * MOON_GLOW * 0.55
    return cover, color


def downsampled(array, scale):
    shape = (HEIGHT, scale, WIDTH, scale) + array.shape[2:]
    return array.reshape(shape).mean(axis=(1, 3))


def land_layers(land, index):
    """The land behind and before the castle: two pairs of (premultiplied colour, cover)."""
    scale = index.shape[0] // HEIGHT
    found = index < len(land.depth)
    index = np.minimum(index, len(land.depth) - 1)
    columns = np.arange(index.shape[1])[None, :]
    depth, height = land.depth[index], land.height[index, columns]
    px = np.broadcast_to(((columns + 0.5) / scale).astype(np.float32), index.shape)
    py = np.broadcast_to(pixel_rows(scale)[:, None], index.shape)
    cover, haze = air(px, py, depth, height)
    color = over(land.color[index, columns], haze, cover)
    layers = []
    for part in (found & (depth > CASTLE_Z), found & (depth <= CASTLE_Z)):
        layers.append((downsampled(color * part[..., None], scale), downsampled(part.astype(np.float32), scale)))
    return layers


# --- Castle --------------------------------------------------------------

class CastleDrawing:
    """The castle's masks, drawn in pixels: x from its middle, y up from its ground."""

    FINE = 4
    SIZE = 560
    GROUND = 330  # distance of the ground line from the drawing's top
    PARTS = ("wall", "lit", "roof", "window")

    def __init__(self):
        size = (self.SIZE * self.FINE, self.SIZE * self.FINE)
        self.images = {part: Image.new("L", size) for part in self.PARTS}
        self.pens = {part: ImageDraw.Draw(image) for part, image in self.images.items()}
        self.rng = np.random.default_rng(1207)

    def shape(self, part, points, tone=255):
        fine = [((x + self.SIZE / 2) * self.FINE, (self.GROUND - y) * self.FINE) for x, y in points]
        self.pens[part].polygon(fine, fill=tone)

    def box(self, part, x0, y0, x1, y1, tone=255):
        self.shape(part, [(x0, y0), (x1, y0), (x1, y1), (x0, y1)], tone)

    def battlements(self, x0, x1, y, tooth=3.0):
        for x in np.arange(x0, x1 - tooth * 0.9, tooth * 2):
            self.box("wall", x, y, x + tooth, y + tooth)

    def lit_side(self, x0, x1, y0, y1):
        """Moonlight on the right of a round wall, fading round it in four bands."""
        width = x1 - x0
        for share, tone in ((0.46, 45), (0.32, 100), (0.20, 170), (0.09, 255)):
            self.box("lit", x1 - width * share, y0, x1, y1, tone)

    def wall(self, x0, x1, top, foot=-70):
        self.box("wall", x0, foot, x1, top)
        self.box("lit", x0, foot, x1, top, 26)
        self.battlements(x0, x1, top)

    def tower(self, x, width, top, roof, foot=-70):
        """A round tower with a jutting gallery and, if `roof` is not 0, a spire."""
        half, jut = width / 2, width * 0.16
        self.box("wall", x - half, foot, x + half, top)
        self.lit_side(x - half, x + half, foot, top)
        gallery = top - width * 0.45
        self.shape("wall", [(x - half, gallery - jut * 1.5), (x + half, gallery - jut * 1.5),
                            (x + half + jut, gallery), (x - half - jut, gallery)])
        self.box("wall", x - half - jut, gallery, x + half + jut, top)
        self.lit_side(x - half - jut, x + half + jut, gallery, top)
        self.battlements(x - half - jut, x + half + jut, top, max(2.0, width / 9))
        if roof:
            self.spire(x, half + jut * 0.6, top, roof)

    def spire(self, x, half, foot, height):
        tip = foot + height
        self.shape("roof", [(x - half, foot), (x + half, foot), (x + half * 0.36, foot + height * 0.52), (x, tip),
                            (x - half * 0.36, foot + height * 0.52)], 90)
        self.shape("roof", [(x + half * 0.25, foot), (x + half, foot), (x + half * 0.36, foot + height * 0.52),
                            (x, tip)], 255)
        self.box("wall", x - 0.5, tip - 2, x + 0.5, tip + 7)

    def windows(self, x, bottom, top, step, tone=255):
        for y in np.arange(bottom, top, step):
            if self.rng.random() < 0.72:
                self.shape("window", [(x - 1.1, y), (x + 1.1, y), (x + 1.1, y + 3.6), (x, y + 5.0), (x - 1.1, y + 3.6)],
                           int(tone * (0.6 + 0.4 * self.rng.random())))

    def flag(self, x, y):
        self.shape("roof", [(x, y), (x - 9, y - 1), (x - 16, y - 3), (x - 13, y - 5), (x - 17, y - 8), (x - 8, y - 6),
                            (x, y - 7)], 200)

    def draw(self):
        self.tower(-14, 26, 150, 62)
        self.tower(24, 17, 122, 44)
        self.tower(-48, 16, 104, 40)
        self.box("wall", -40, -70, 44, 86)
        self.box("lit", -40, -70, 44, 86, 30)
        self.shape("roof", [(-42, 86), (46, 86), (36, 108), (-32, 108)], 120)
        self.tower(6, 13, 128, 36)
        self.wall(-86, 92, 40)
        self.tower(-84, 22, 66, 34)
        self.tower(62, 22, 84, 42)
        self.tower(94, 20, 50, 0)
        self.wall(-52, 60, 24)
        self.tower(-46, 20, 44, 0)
        self.tower(40, 24, 52, 30)
        self.tower(-108, 17, 30, 22)
        for x, low, high in ((-17, 96, 140), (-10, 104, 136), (24, 92, 116), (-48, 78, 98), (62, 48, 76), (-84, 42, 60),
                             (40, 20, 44), (6, 100, 122), (94, 24, 40), (-46, 16, 34)):
            self.windows(x, low, high, 14)
        for x in (-28, -20, -2, 12, 20, 30):
            self.windows(x, 58, 80, 14)
        for x in (-68, -60, 8, 18, 78):
            self.windows(x, 8, 30, 15)
        self.flag(-14, 219)
        self.flag(62, 133)
        return {part: self._reduced(part) for part in self.PARTS}

    def _reduced(self, part):
        small = self.images[part].resize((self.SIZE, self.SIZE), Image.BOX)
        return np.asarray(small, np.float32) / 255


def paint_castle(scene, masks, eye):
    """Puts the castle on its crag and lets its windows glow."""
    ground = HORIZON - FOCAL * (CRAG_TOP + 0.22 - eye) / CASTLE_Z
    top, left = int(ground) - CastleDrawing.GROUND, int(CASTLE_X) - CastleDrawing.SIZE // 2
    rows, columns = slice(top, top + CastleDrawing.SIZE), slice(left, left + CastleDrawing.SIZE)
    x, y = pixel_grid()
    x, y = x[rows, columns], y[rows, columns]
    part = scene[rows, columns]
    stone = 0.75 + 0.5 * fbm(x / 9, y / 5, 4)
    wall = (AMBIENT * 0.62 + masks["lit"][..., None] * MOONLIGHT * 0.30) * stone[..., None]
    part[:] = over(part, wall, masks["wall"])
    roof_tone = np.where(masks["roof"] > 0.6, 1.0, 0.42)[..., None]
    part[:] = over(part, roof_tone * np.array([0.070, 0.098, 0.150], np.float32), np.minimum(masks["roof"] * 2.9, 1))
    haze = 0.10 + 0.42 * smoothstep(ground - 60, ground + 60, y)
    part[:] = over(part, np.array([0.075, 0.130, 0.200], np.float32), haze * np.maximum(masks["wall"], masks["roof"]))
    part += masks["window"][..., None] * LAMP
    part += (blurred(masks["window"], 3)[..., None] * 0.85 + blurred(masks["window"], 14)[..., None] * 0.95) * LAMP


# --- Lake and mist ---------------------------------------------------------

def make_scene(backdrop, layers, castle, eye):
    """The land and the castle before `backdrop`, as one eye sees them."""
    (far_color, far_cover), (near_color, near_cover) = layers
    scene = backdrop * (1 - far_cover[..., None]) + far_color
    paint_castle(scene, castle, eye)
    return scene * (1 - near_cover[..., None]) + near_color


def paint_lake(mirror_scene):
    """The lake: the mirrored scene, broken by ripples that shrink with distance."""
    x, y = pixel_grid()
    below = np.maximum(y - HORIZON, 1.0)
    distance = FOCAL * EYE / below
    world_x = (x - WIDTH / 2) / FOCAL * distance
    ripple = fbm(world_x * 2.2 + 3, distance * 7.5, 4) - 0.5
    fine = fbm(world_x * 7 + 13, distance * 22, 3) - 0.5
    calm = smoothstep(0.35, 0.62, fbm(world_x / 3, distance / 5 + 4, 3))
    push = (14 + 40 * (1 - calm)) * (ripple + 0.6 * fine) * smoothstep(0, 120, below)
    rows = np.clip(2 * HORIZON - y + 1.6 * push, 0, HORIZON - 2).astype(np.int32)
    sway = 90 * (fbm(world_x * 1.3 + 31, distance * 11, 4) - 0.5) * smoothstep(0, 160, below)
    columns = np.clip(x + sway, 0, WIDTH - 1).astype(np.int32)
    water = mirror_scene[rows, columns] * np.array([0.50, 0.58, 0.66], np.float32)
    water += np.array([0.004, 0.010, 0.018], np.float32)
    return water + glitter(x, y, ripple + fine, below)


def glitter(x, y, ripple, below):
    """The moon's road over the water."""
    width = 26 + 0.30 * below
    road = np.exp(-((x - MOON_X) / width) ** 2) * smoothstep(4, 60, below)
    spark = smoothstep(0.02, 0.34, ripple)
    return (road * (0.05 + 0.85 * spark))[..., None] * MOON_GLOW


def paint_mist(scene):
    """Banks of mist over the lake and at the mountains' feet."""
    x, y = pixel_grid()
    light = np.array([0.052, 0.100, 0.165], np.float32) + moon_halo(x, y)[..., None] * MOON_GLOW * 0.55
    for row, height, strength, seed in ((668, 26, 0.50, 2.0), (600, 42, 0.30, 6.0), (738, 26, 0.26, 11.0)):
        shape = fbm(x / 260 + seed, y / 34 + seed, 5)
        bank = np.exp(-((y - row - 26 * (value(x / 240 + seed, x * 0 + seed) - 0.5)) / height) ** 2)
        scene[:] = over(scene, light, strength * bank * smoothstep(0.30, 0.68, shape))


# --- Foreground ------------------------------------------------------------

def pine(rng, x, foot, height):
    """Outline of one pine, jagged at random."""
    half = height * rng.uniform(0.17, 0.23)
    levels = int(9 + height / 26)
    left, right = [], []
    for level in range(levels):
        share = (level + 0.4) / levels
        y = foot - height * (1 - share * 0.97)
        for side, points in ((-1, left), (1, right)):
            reach = half * share ** 0.85 * rng.uniform(0.72, 1.12)
            points += [(x + side * reach, y + height * 0.045), (x + side * reach * 0.42, y + height * 0.012)]
    base = [(x + height * 0.014, foot - height * 0.02), (x + height * 0.014, foot + 40),
            (x - height * 0.014, foot + 40), (x - height * 0.014, foot - height * 0.02)]
    return [(x, foot - height)] + right + base + left[::-1]


def wood_mask(seed, ground, heights, count):
    """A hill's edge and the pines on it, as one mask. `ground` and `heights` map x to pixels."""
    fine, rng = 2, np.random.default_rng(seed)
    image = Image.new("L", (WIDTH * fine, HEIGHT * fine))
    pen = ImageDraw.Draw(image)
    edge = [(x * fine, ground(x) * fine) for x in range(-8, WIDTH + 9, 4)]
    pen.polygon(edge + [((WIDTH + 8) * fine, HEIGHT * fine), (-8 * fine, HEIGHT * fine)], fill=255)
    for x in np.sort(rng.uniform(-40, WIDTH + 40, count)):
        height = heights(x) * rng.uniform(0.55, 1.15)
        if height > 12:
            outline = pine(rng, x, ground(x) + 8, height)
            pen.polygon([(px * fine, py * fine) for px, py in outline], fill=255)
    return np.asarray(image.resize((WIDTH, HEIGHT), Image.BOX), np.float32) / 255


def paint_woods(scene):
    """Two rows of pines frame the valley and keep its lower edge dark."""
    def rise(x, low, high):
        return float(smoothstep(low, high, x))

    def back_ground(x):
        return 905 + 24 * np.sin(x / 150) - 130 * rise(x, 520, 0) - 150 * rise(x, 1380, 1920)

    def back_heights(x):
        return 34 + 120 * rise(x, 620, 60) + 150 * rise(x, 1360, 1860)

    def front_ground(x):
        return 968 + 10 * np.sin(x / 97 + 1) - 60 * rise(x, 380, 0) - 70 * rise(x, 1480, 1920)

    def front_heights(x):
        return 20 + 250 * rise(x, 330, 0) + 330 * rise(x, 1560, 1920)

    x, y = pixel_grid()
    back = wood_mask(5, back_ground, back_heights, 230)
    fog = np.array([0.020, 0.040, 0.068], np.float32) * smoothstep(1000, 820, y)[..., None]
    scene[:] = over(scene, FOREGROUND * 1.6 + fog * 0.42, back)
    veil = np.exp(-((y - 925) / 48) ** 2) * smoothstep(0.30, 0.75, fbm(x / 300 + 8, y / 50, 5))
    scene[:] = over(scene, np.array([0.045, 0.085, 0.135], np.float32), 0.34 * veil)
    front = wood_mask(9, front_ground, front_heights, 150)
    scene[:] = over(scene, FOREGROUND, front)


# --- Finish ----------------------------------------------------------------

def developed(scene):
    """Exposure, a filmic curve, vignette and a grain that hides banding."""
    x, y = pixel_grid()
    vignette = 1 - 0.42 * smoothstep(0.55, 1.25, np.hypot((x / WIDTH - 0.52) * 1.25, (y / HEIGHT - 0.45) * 1.1) * 1.25)
    light = scene * vignette[..., None] * 1.40
    curve = light * (2.51 * light + 0.03) / (light * (2.43 * light + 0.59) + 0.14)
    display = np.clip(curve, 0, 1) ** (1 / 2.2)
    grain = np.random.default_rng(3).triangular(-1, 0, 1, display.shape[:2])[..., None]
    return np.clip(display * 255 + 0.8 * grain, 0, 255).round().astype(np.uint8)


def paint():
    """The finished picture as an RGB image."""
    sky, land, castle = make_sky(), make_land(), CastleDrawing().draw()
    mirror_land = coarse(land)
    mirrored = make_scene(sky, land_layers(mirror_land, seen_in_lake(mirror_land)), castle, -EYE)
    _, y = pixel_grid()
    backdrop = np.where((y > HORIZON)[..., None], paint_lake(mirrored), sky)
    scene = make_scene(backdrop, land_layers(land, seen_directly(land)), castle, EYE)
    paint_mist(scene)
    paint_woods(scene)
    return Image.fromarray(developed(scene))
