"""Seeded value noise on numpy arrays.

The lattice is one fixed random table, so that every picture comes out the
same on every run.
"""

import numpy as np

_SIZE = 256
_TABLE = np.random.default_rng(20240611).random((_SIZE, _SIZE)).astype(np.float32)
# Turning the domain between octaves hides the lattice's axes.
_COS, _SIN = np.float32(0.8), np.float32(0.6)


def smoothstep(low, high, value):
    """Hermite step from 0 at `low` to 1 at `high`."""
    t = np.clip((value - low) / (high - low), 0.0, 1.0)
    return t * t * (3.0 - 2.0 * t)


def _corners(x, y):
    ix, iy = np.floor(x).astype(np.int32), np.floor(y).astype(np.int32)
    x0, y0 = ix & (_SIZE - 1), iy & (_SIZE - 1)
    x1, y1 = (x0 + 1) & (_SIZE - 1), (y0 + 1) & (_SIZE - 1)
    values = _TABLE[y0, x0], _TABLE[y0, x1], _TABLE[y1, x0], _TABLE[y1, x1]
    return (x - ix).astype(np.float32), (y - iy).astype(np.float32), values


def value(x, y):
    """Noise in 0..1."""
    fx, fy, (a, b, c, d) = _corners(x, y)
    u, v = fx * fx * (3 - 2 * fx), fy * fy * (3 - 2 * fy)
    return a + (b - a) * u + (c - a) * v + (a - b - c + d) * u * v


def value_with_slope(x, y):
    """Noise in 0..1 and its two partial derivatives."""
    fx, fy, (a, b, c, d) = _corners(x, y)
    u, v = fx * fx * (3 - 2 * fx), fy * fy * (3 - 2 * fy)
    du, dv = 6 * fx * (1 - fx), 6 * fy * (1 - fy)
    k = a - b - c + d
    height = a + (b - a) * u + (c - a) * v + k * u * v
    return height, du * ((b - a) + k * v), dv * ((c - a) + k * u)


def fbm(x, y, octaves=5):
    """Fractal sum of noise, about 0..1."""
    total, weight, norm = 0.0, 0.5, 0.0
    for _ in range(octaves):
        total = total + weight * value(x, y)
        norm += weight
        weight *= 0.5
        x, y = 2 * (_COS * x - _SIN * y) + 17.3, 2 * (_SIN * x + _COS * y) + 9.1
    return total / norm


def eroded(x, y, octaves=9):
    """Fractal sum whose detail fades on steep ground, as weathered rock's does."""
    total, weight = 0.0, 1.0
    sx = sy = 0.0
    for _ in range(octaves):
        n, dx, dy = value_with_slope(x, y)
        sx, sy = sx + dx, sy + dy
        total = total + weight * n / (1.0 + sx * sx + sy * sy)
        weight *= 0.5
        x, y = 2 * (_COS * x - _SIN * y), 2 * (_SIN * x + _COS * y)
    return total
