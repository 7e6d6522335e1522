"""Slow random fields: functions of (locations, n_threads=1), of one (kind, sill, shape) or many."""

import math

import numpy as np
import talvorix
from literal import KERNELS, Engine, anisotropy_matrix, sphere_directions
from literal_distributions import gamma, lognormal


def seeded(makers, seed):
    main = Engine(seed)
    return [make(main.raw()) for make in makers]


def added(fields):
    return lambda x, n_threads=1: sum((f(x, n_threads) for f in fields), np.zeros(len(x)))


def nugget(sigma, seed):
    """Every worker keeps its engine, and throws the second normal of each pair away."""
    engines = seeded([Engine] * talvorix.check_n_threads(0), seed)
    parts = lambda x, t: zip(engines, np.array_split(x, t), strict=False)  # noqa: E731
    return lambda x, t=1: np.log([lognormal(e, 0, sigma) for e, part in parts(x, t) for _ in part])


def of_model(model, seed, make):
    noise = lambda s, r: nugget(math.sqrt(s[1]), r) if s[0] == "nugget" else make(s, r)  # noqa: E731
    return added(seeded([lambda r, s=s: noise(s, r) for s in model], seed))


def line(kind, amplitude, covered, v, seed):
    engine = Engine(seed)
    if kind == "gaussian":
        frequency = math.sqrt(6 * sum(engine.normal() ** 2 for _ in range(3)))
        phase = 2 * math.pi * engine.uniform()
        return lambda x, _=1: amplitude * math.sqrt(2) * np.cos(x @ v * frequency + phase)
    w = 3 * engine.uniform() if kind == "exponential" else 2
    if w < 2:
        v = v / gamma(engine, 3 if w < 1 else 2, 0.3333333333333333)
    low, high = (covered @ v).min(), (covered @ v).max()
    cells = math.ceil(high - low) + 2
    if cells > 10000:
        return nugget(amplitude, engine.raw())
    offset = low - engine.uniform()
    coins = np.array([engine.uniform() for _ in range(cells + 2)])
    signs = np.where(coins < (0.5 / 3 if kind == "exponential" else 0.5), -1, 1)

    cell = lambda t: np.clip(np.floor(t) + 1, 0, len(signs) - 1).astype(int)  # noqa: E731
    sawtooth = lambda t: signs[cell(t)] * (t - cell(t) + 0.5) * math.sqrt(12)  # noqa: E731
    return lambda x, _=1: amplitude * sawtooth(x @ v - offset)


def tbsim(covered, structure, seed, n):
    if isinstance(structure, list):
        return of_model(structure, seed, lambda s, r: tbsim(covered, s, r, n))
    kind, sill, ellipsoid = structure
    main, matrix = Engine(seed), anisotropy_matrix(*(ellipsoid or (1, 1, 1, 0, 0, 0)))
    projections = sphere_directions(n, main.raw() % 99999999, whole=False) @ matrix
    make = (lambda _k, a, _c, _v, seed: nugget(a, seed)) if kind == "nugget" else line
    return added([make(kind, math.sqrt(sill / n), covered, v, main.raw()) for v in projections])


def circular_covariance(kind, counts, cells):
    """The kernel, below a range read from its table, at the lags of a lattice whose ends meet."""
    lags = [((np.arange(n) + n // 2) % n - n // 2) * c for n, c in zip(counts, cells, strict=True)]
    d = np.linalg.norm(np.stack(np.meshgrid(*lags, indexing="ij")), axis=0)
    return KERNELS[kind](np.where((d < 1) & (kind != "nugget"), np.floor(2e6 * d) / 2e6, d))


def fim(covered, structure, seed, counts, n_threads):
    if isinstance(structure, list):
        return of_model(structure, seed, lambda s, r: fim(covered, s, r, counts, n_threads))
    kind, sill, ellipsoid = structure
    matrix = anisotropy_matrix(*(ellipsoid or (1, 1, 1, 0, 0, 0)))
    low, extent = (covered @ matrix.T).min(axis=0), 1.5 * np.ptp(covered @ matrix.T, axis=0)
    counts = np.where(extent < 1e-20, 1, np.maximum(counts, 1))
    cells = extent / counts + 1e-20
    half = np.fft.rfftn(circular_covariance(kind, counts, cells))
    blocks, engines = np.array_split(half, n_threads), seeded([Engine] * n_threads, seed)
    u = [e.uniform() for block, e in zip(blocks, engines, strict=True) for _ in block.flat]
    phases = (2 * np.reshape(u, half.shape) - 1) * np.pi
    half = np.sqrt(np.abs(half) / counts.prod()) * np.exp(1j * phases)
    # What is not Hermitian in the first two axes stays so; only the last turns a half into a whole.
    array = np.fft.irfft(np.fft.ifft2(half, axes=(0, 1)), counts[2], axis=2) * counts.prod()
    for axis, n in enumerate(counts):
        order = np.append(np.arange(n - 1) - n // 2, n // 2)  # the first of an even axis twice
        array = array.take(order, axis, mode="wrap")

    cell = lambda y: np.nan_to_num((y - (low - 2 * cells)) / cells, nan=-1)  # noqa: E731
    node = lambda x: np.clip(cell(x @ matrix.T), 0, counts - 1).astype(int)  # noqa: E731
    return lambda x, _=1: math.sqrt(sill) * array[tuple(node(x).T)]


def box_corners(points):
    return np.where(np.indices((2, 2, 2)).reshape(3, 8).T, points.max(axis=0), points.min(axis=0))


def generator(corners, structure, seed, n, base, n_threads=1):
    """Turn a field of a unit sphere on a lattice; base(corners, structure, seed) makes it."""
    if isinstance(structure, list):
        rest = (n, base, n_threads)
        each = seeded([lambda r, s=s: generator(corners, s, r, *rest) for s in structure], seed)
        return lambda seed: added(seeded(each, seed))
    kind, sill, ellipsoid = structure
    if kind == "nugget":
        return lambda seed: nugget(math.sqrt(sill), seed)
    matrix = anisotropy_matrix(*ellipsoid)
    box = box_corners(corners) @ matrix.T
    reach = 0.5 * np.linalg.norm(np.ptp(box, axis=0)) * np.ptp(box, axis=0)
    low = (box.min(axis=0) + box.max(axis=0)) / 2 - reach
    high = (low + box.max(axis=0)) / 2 + reach  # on purpose from the new corner, not the old one
    size = np.where(high > low, high - low, 1.0) / n
    nodes = np.indices((n, n, n)).reshape(3, -1).T * size + low
    field = base(box_corners(np.array([low, high])), (kind, sill, (1, 1, 1, 0, 0, 0)), seed)
    values = np.pad(field(nodes, n_threads).reshape(n, n, n), 1)

    def make(seed):
        e = Engine(seed)
        turn = anisotropy_matrix(1, 1, 1, *(e.uniform() * 360 - 180 for _ in range(3))) @ matrix
        node = lambda x: np.trunc((x @ turn.T - low) / size).clip(-1, n).astype(int)  # noqa: E731
        return lambda x, _=1: values[tuple(node(x).T + 1)]

    return make
