"""Slow, literal references that the tests hold the module against."""

import math

import numpy as np


class Engine:
    """The 32-bit Mersenne Twister and the samplers written on it."""

    def __init__(self, seed):
        self._bits = np.random.RandomState(seed % 2**32)._bit_generator
        self._kept = None

    def raw(self):
        return int(self._bits.random_raw())

    def uniform(self):
        low, high = self.raw(), self.raw()
        return (low + high * 2.0**32) / 2.0**64

    def below(self, n):
        if n <= 1:
            return 0
        largest = 2**32 - 1
        while True:
            r = self.raw()
            if r // n < largest // n or largest % n == n - 1:
                return r % n

    def shuffle(self, items):
        for j in range(1, len(items)):
            t = self.below(j + 1)
            items[j], items[t] = items[t], items[j]

    def normal(self):
        if self._kept is not None:
            kept, self._kept = self._kept, None
            return kept
        while True:
            u, v = 2 * self.uniform() - 1, 2 * self.uniform() - 1
            s = u * u + v * v
            if s < 1 and u != 0 and v != 0:
                break
        f = math.sqrt(-2 * math.log(s) / s)
        self._kept = f * v
        return f * u


def anisotropy_matrix(r1, r2, r3, azimuth, dip, rake):
    """Rows are the axes over their ranges; built from the axes' directions, not from matrices."""
    azimuth, dip, rake = np.radians([azimuth, dip, rake])
    major = [np.cos(dip) * np.sin(azimuth), np.cos(dip) * np.cos(azimuth), np.sin(dip)]
    level = np.array([-np.cos(azimuth), np.sin(azimuth), 0.0])
    upright = np.cross(major, level)
    mid = np.cos(rake) * level + np.sin(rake) * upright
    minor = np.cos(rake) * upright - np.sin(rake) * level
    return np.array([major, mid, minor]) / np.array([[r1], [r2], [r3]])


def radical_inverse(index, base):
    value, weight = 0.0, 1.0 / base
    while index > 0:
        value += (index % base) * weight
        weight /= base
        index //= base
    return value


def sphere_directions(size, seed, whole):
    """The directions of generate_random_sphere, or of generate_random_semisphere."""

    def point(index):
        x, z = radical_inverse(index, 2), radical_inverse(index, 3)
        s = math.sqrt(1 - z * z)
        return np.array([s * math.cos(2 * math.pi * x), s * math.sin(2 * math.pi * x), z])

    points = [point(seed + i) for i in range(size)]
    if whole:
        points += [-point(seed + size + i) for i in range(size)]
    engine = Engine(seed)
    turn = anisotropy_matrix(
        1, 1, 1, 360 * engine.uniform(), -90 * engine.uniform(), 360 * engine.uniform()
    )
    return np.array(points) @ turn.T


KERNELS = {
    "spherical": lambda h: np.where(h > 1, 0.0, 1 - 1.5 * h + 0.5 * h**3),
    "gaussian": lambda h: np.exp(-3 * h * h),
    "exponential": lambda h: np.exp(-3 * h),
    "nugget": lambda h: np.where(h < 1e-8, 1.0, 0.0),
}


class Model:
    """A covariance model kept as a list of (kernel name, sill, matrix)."""

    def __init__(self, *structures):
        self.structures = [
            (kind, sill, anisotropy_matrix(*(ellipsoid or (1, 1, 1, 0, 0, 0))))
            for kind, sill, ellipsoid in structures
        ]

    def __call__(self, lags):
        total = 0.0
        for kind, sill, matrix in self.structures:
            total = total + sill * KERNELS[kind](np.linalg.norm(lags @ matrix.T, axis=-1))
        return total


def thinned(neighbors, locations, target, octant=-1, holes=(), per_hole=-1):
    """Drop neighbours, nearest first, by the limits of octants and then of holes."""

    def limited(items, group, most):
        counts, kept = {}, []
        for i in items:
            counts[group(i)] = counts.get(group(i), 0) + 1
            if counts[group(i)] <= most:
                kept.append(i)
        return kept

    if octant > 0:
        neighbors = limited(neighbors, lambda i: tuple(locations[i] - target > 0), octant)
    if per_hole > 0 and len(holes):
        neighbors = limited(neighbors, lambda i: holes[i], per_hole)
    return neighbors


def krige(model, locations, values, target, mean=None):
    """One kriging system in full; ordinary without a mean. The multiplier is in the estimate."""
    n = len(values)
    size = n if mean is not None else n + 1
    matrix, right, z = np.ones((size, size)), np.ones(size), np.ones(size)
    matrix[:n, :n] = model(locations[:, None] - locations[None])
    right[:n] = model(locations - target)
    z[:n] = values
    if mean is None:
        matrix[n, n] = 0.0
    weights = np.linalg.solve(matrix, right)
    estimate = weights @ z + (0.0 if mean is None else (1 - weights.sum()) * mean)
    return estimate, max(float(model(np.zeros(3))) - weights @ right, 1e-10)
