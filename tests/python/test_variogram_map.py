"""Variograms read off maps, and smoothed ones, against literal loops."""

import math

import numpy as np
import pytest
import talvorix
from literal import Engine, anisotropy_matrix, sphere_directions

pytestmark = pytest.mark.quick


def literal_table(corners, locations, data, n, origin, rotation):
    size = np.ptp(np.asarray(corners) @ anisotropy_matrix(1, 1, 1, *rotation).T, axis=0)
    to_box = anisotropy_matrix(*np.where(size <= 1e-30, 1.0, size), *rotation)
    table = np.full(n, math.nan)
    for location, datum in zip(locations, data, strict=True):
        if not np.isfinite(location).all():
            continue
        cell = to_box @ (location - np.asarray(origin)) * n
        if ((cell > -1) & (cell < n)).all():
            table[tuple(cell.astype(int))] = datum
    return table, to_box


def literal_map(table):
    """Semivariance and number of pairs at every lag between cells, one pair after the other."""
    cells = np.argwhere(np.isfinite(table))
    values = table[tuple(cells.T)]
    pairs, squares = {}, {}
    for a, u in zip(cells, values, strict=True):
        for lag, v in zip(map(tuple, a - cells), values, strict=True):
            pairs[lag] = pairs.get(lag, 0) + 1
            squares[lag] = squares.get(lag, 0) + (u - v) ** 2 / 2
    return {lag: (squares[lag] / pairs[lag], pairs[lag]) for lag in pairs}


def literal_map_variogram(
    corners, locations, data, n, n_directions, n_lags, bandwidth, seed, origin, rotation
):
    table, to_box = literal_table(corners, locations, data, n, origin, rotation)
    at_lag = literal_map(table)
    directions = sphere_directions(n_directions, 0, whole=True)
    engine, lags, ids = Engine(seed), [], []
    for number, d in enumerate(directions):
        lengths = []
        while len(lengths) < n_lags:
            length = abs(engine.normal())
            lengths += [length] * (length >= 1e-10)
        lags += [np.linalg.inv(to_box) @ (length * d) for length in sorted(lengths)]
        ids += [number] * n_lags
    lags = np.reshape(lags, (-1, 3))
    images = lags @ to_box.T
    means, counts = np.zeros(len(lags)), np.zeros(len(lags))
    radius = bandwidth * np.linalg.norm(1 / np.array(n))
    for lag in np.ndindex(*(2 * (m // 2) + 1 for m in n)):
        lag = tuple(i - m // 2 for i, m in zip(lag, n, strict=True))
        g, w = at_lag.get(lag, (0.0, 0.0))
        near = np.linalg.norm(images - np.array(lag) / n, axis=1) < abs(radius)
        with np.errstate(invalid="ignore"):
            s = w + counts[near]
            means[near] = w / s * g + counts[near] / s * means[near]
        counts[near] = s
    kept = counts >= 1
    return directions, lags[kept], means[kept], counts[kept], np.array(ids)[kept]


def assert_same_variogram(found, directions, lags, variogram, npairs, ids):
    np.testing.assert_allclose(np.squeeze(found.directions), directions, atol=1e-12)
    np.testing.assert_array_equal(found.direction_ids, ids)
    np.testing.assert_allclose(np.reshape(found.lags, (-1, 3)), lags, rtol=1e-9, atol=1e-12)
    np.testing.assert_allclose(found.variogram, variogram, rtol=1e-9, atol=1e-11)
    # They are truncated: what rounding leaves a trifle below a whole number counts one less.
    bounds = [np.trunc(np.array(npairs) + shift) for shift in (-1e-9, 1e-9)]
    assert ((bounds[0] <= found.npairs) & (found.npairs <= bounds[1])).all()


# Cells, directions, lags, bandwidth, seed, rotation.
MAPS = {
    "turned, odd and even": ((7, 4, 5), 6, 20, 1.0, 12415, (30.0, 20.0, -10.0)),
    "a wide bandwidth": ((6, 5, 3), 3, 15, 2.7, -7, (90.0, 0.0, 0.0)),
    "a narrow and negative one": ((5, 5, 8), 30, 9, -0.4, 3, (0.0, -70.0, 45.0)),
    "one level": ((9, 6, 1), 5, 12, 0.8, 2**32 + 1, (120.0, 0.0, 0.0)),
    "one line": ((1, 12, 1), 5, 12, 1.5, 4, (-20.0, 90.0, 0.0)),
    "the whole map": ((4, 4, 4), 2, 8, math.inf, 5, (1.0, 2.0, 3.0)),
}


@pytest.mark.parametrize("name", MAPS)
def test_maps_against_the_literal_walk(name):
    n, n_directions, n_lags, bandwidth, seed, rotation = MAPS[name]
    rng = np.random.default_rng(len(name))
    size, origin = np.array([30.0, 20.0, 8.0]), np.array([1000.0, -500.0, 20.0])
    axes = anisotropy_matrix(1, 1, 1, *rotation)
    # Two data in most cells, a few of them and none in others; some before the first cell.
    inside = rng.uniform(-0.1, 1.1, (2 * math.prod(n), 3)) * size
    locations = origin + inside @ axes
    locations[3], locations[4] = math.nan, math.inf
    data = rng.normal(5, 1, len(locations)) + inside[:, 0] / 10
    data[::9] = math.nan
    # A box of corners off the origin: only its lengths matter.
    corners = rng.uniform(0, 1, (20, 3)) * size
    corners[0], corners[1] = 0, size
    corners = corners @ axes + 70
    case = (n_directions, n_lags, bandwidth)
    expected = literal_map_variogram(corners, locations, data, n, *case, seed, origin, rotation)
    assert len(expected[1]) > 10
    results = [
        talvorix.compute_variogram(
            corners, locations, data, *n, *case, n_threads, seed, origin, rotation
        )
        for n_threads in (1, 2, 0)
    ]
    assert_same_variogram(results[0], *expected)
    for other in results[1:]:
        np.testing.assert_array_equal(other.variogram, results[0].variogram)
        assert other.npairs == results[0].npairs
    # Seeds give other lags, never other directions.
    other = talvorix.compute_variogram(
        corners, locations, data, *n, *case, seed=seed + 1, origin=origin, rotation=rotation
    )
    np.testing.assert_array_equal(other.directions, results[0].directions)
    assert not np.isin(other.lags, results[0].lags).any()


def test_the_forms_for_grids():
    rotation, n = (35.0, -10.0, 20.0), (8, 6, 4)
    grid = talvorix.CartesianGrid((16.0, 9.0, 5.0), n, (100, 200, 300), rotation)
    rng = np.random.default_rng(9)
    mask = rng.random(len(grid)) < 0.8
    data = np.where(mask, rng.normal(size=len(grid)), math.nan)
    # With one cell more than the grid along each axis, every location has a cell of its own.
    common = {"n_directions": 20, "n_lags": 30, "bandwidth": 1.2, "seed": 8}
    cells = {"nx": 9, "ny": 7, "nz": 5}
    by_grid = talvorix.compute_variogram(grid, data, **common, **cells)
    corners, locations = np.squeeze(grid.corners()), np.asarray(grid)
    lattice = {"origin": (100, 200, 300), "rotation": rotation}
    table, _ = literal_table(corners, locations, data, (9, 7, 5), *lattice.values())
    np.testing.assert_array_equal(table[:8, :6, :4].ravel(), data)
    block_model = talvorix.BlockModel(grid, mask)
    others = (
        talvorix.compute_variogram(block_model, data[mask], **common, **cells),
        talvorix.compute_variogram(corners, locations, data, **cells, **common, **lattice),
    )
    assert len(by_grid.lags) > 100
    for other in others:
        for field in ("variogram", "npairs", "direction_ids", "lags", "lags_by_dir"):
            np.testing.assert_equal(getattr(other, field), getattr(by_grid, field))
    for arguments, message in (
        ((grid, data[1:]), "data has 191 entries but cartesian_grid has 192"),
        ((block_model, data), f"data has 192 entries but block_model has {mask.sum()}"),
    ):
        with pytest.raises(ValueError, match=message):
            talvorix.compute_variogram(*arguments, **common)


def test_of_two_data_in_a_cell_the_last_counts_and_bad_maps_are_refused():
    locations = np.repeat([[0.1, 0.1, 0.1], [0.3, 0, 0], [0.6, 0, 0], [0.8, 0, 0]], 2500, axis=0)
    data = np.random.default_rng(1).normal(size=10000)
    corners = [(0, 0, 0), (1, 1, 1)]
    good = dict(corners=corners, locations=locations, data=data, nx=4, ny=1, nz=1,
                n_directions=30, n_lags=20, bandwidth=0.3)  # fmt: skip
    n, case, lattice = (4, 1, 1), (30, 20, 0.3), ((0, 0, 0), (90, 0, 0))
    expected = literal_map_variogram(corners, locations, data, n, *case, 12415, *lattice)
    for n_threads in (1, 2):
        found = talvorix.compute_variogram(**good, n_threads=n_threads)
        assert_same_variogram(found, *expected)
    # Without data there is no pair; without lags, radius or directions no entry.
    for none in (
        {"data": [math.nan] * 10000},
        {"locations": [], "data": []},
        {"n_lags": 0},
        {"n_directions": 0},
        {"bandwidth": 0.0},
        {"bandwidth": math.nan},
        {"origin": (1e300, 0, 0)},
    ):
        assert talvorix.compute_variogram(**{**good, **none}).lags == []
    for bad, error, message in (
        ({"data": data[1:]}, ValueError, "data has 9999 entries but locations has 10000"),
        ({"corners": []}, ValueError, "corners is empty"),
        ({"corners": [(0, 0, 0), (0, math.nan, 0)]}, ValueError, r"corners\[1\] is not finite"),
        ({"origin": (0, 0, math.inf)}, ValueError, "origin is not finite"),
        ({"rotation": (math.nan, 0, 0)}, ValueError, "rotation is not finite"),
        ({"nx": 0}, ValueError, "nx must be from 1"),
        ({"ny": -3}, ValueError, "ny must be from 1"),
        ({"nz": 0}, ValueError, "nz must be from 1"),
        ({"n_directions": -1}, ValueError, "n_directions must be 0 or more"),
        ({"n_lags": -1}, ValueError, "n_lags must be 0 or more"),
        ({"n_lags": 2**31 - 1}, ValueError, "more lags in all than can be numbered"),
        ({"nx": 2**31 - 1, "ny": 2**31 - 1}, MemoryError, "a variogram map of 2147483647 by"),
    ):
        with pytest.raises(error, match=message):
            talvorix.compute_variogram(**{**good, **bad})


def literal_smoothing(vario, n_lags, max_n_neis, max_r, bandwidth, power_a, max_weight, n, seed):
    lags = np.reshape(vario.lags, (-1, 3))
    values, npairs = np.array(vario.variogram), np.array(vario.npairs)
    engine = Engine(seed)
    for _ in range(n):
        engine.raw()
    entries = []
    for number, direction in enumerate(np.reshape(vario.directions, (-1, 3))):
        own = vario.lags_by_dir[number]
        longest = max([np.linalg.norm(lags[i]) for i in own], default=0.0)
        engine._kept = None
        m = n_lags if n_lags > 0 else len(own)
        for v in sorted(abs(engine.normal()) * longest + max_r * 0.02 for _ in range(m)):
            lag, zero, other = v * direction, np.zeros(3), np.zeros(3)
            distance = np.linalg.norm(lags - lag, axis=1)
            near = np.flatnonzero(distance < max_r)
            if max_n_neis >= 1:
                near = np.argsort(distance)[:max_n_neis]
            for i in near:
                offset = lag - lags[i]
                e = np.linalg.norm(offset)
                beside = np.linalg.norm(offset - offset @ direction * direction)
                if e > max_r or beside > bandwidth:
                    continue
                g = npairs[i] / npairs.sum()
                terms = g * np.array([1, values[i], npairs[i]])
                if e <= 1e-12:  # for 1e-30: the last bits of the lags drawn here may differ
                    zero += terms
                else:
                    other += (1 / e) ** power_a * terms
            result = np.zeros(2)
            if zero[0] > 0 and other[0] > 0:
                result = other[1:] / other[0] * (1 - max_weight) + zero[1:] / zero[0] * max_weight
            elif other[0] > 0:
                result = other[1:] / other[0]
            elif zero[0] > 0:
                result = zero[1:] / zero[0]
            if int(result[1]) > 0:
                entries.append((lag, *result, number))
    return entries


# n_lags, max_n_neis, max_r, bandwidth, power_a, max_weight, sampling_size.
SMOOTHINGS = {
    "within a radius": (0, 0, 25.0, 4.0, 2.0, 0.7, 10),
    "the nearest": (6, 5, 30.0, 9.0, 1.3, 0.7, 0),
    "the nearest, few in the tube": (-1, 40, 20.0, 1.5, 3.0, 0.2, 7),
    "at the very lag": (9, 0, 25.0, 4.0, 2.0, 0.7, 3),
    "nothing but the very lag": (9, 1, 25.0, 4.0, 1.0, 0.7, 3),
}


@pytest.mark.parametrize("name", SMOOTHINGS)
def test_smoothing_against_the_literal_loop(name):
    case = SMOOTHINGS[name]
    rng = np.random.default_rng(6)
    directions = rng.normal(size=(7, 3))
    directions /= np.linalg.norm(directions, axis=1)[:, None]
    ids = rng.choice([0, 1, 2, 4, 6], 60)  # two have no entries
    lags = rng.uniform(0, 60, (60, 1)) * directions[ids]
    if "very" in name:
        # Entries where new lags will be, which do not depend on any but the longest ones.
        vario = talvorix.ExperimentalVariogram(lags, [1.0] * 60, [9] * 60, ids, directions)
        first = talvorix.smooth_variogram(vario, *case)
        short = np.linalg.norm(first.lags, axis=1).ravel() < 30
        short &= np.isin(first.direction_ids, ids)  # elsewhere all new lags are one
        lags = np.concatenate([lags, np.squeeze(first.lags)[short]])
        ids = np.concatenate([ids, np.array(first.direction_ids)[short]])
    n = len(ids)
    vario = talvorix.ExperimentalVariogram(
        lags, rng.uniform(0, 5, n), rng.integers(0, 9, n), ids, directions
    )
    expected = literal_smoothing(vario, *case, 123151)
    exact = [np.linalg.norm(lags - e[0], axis=1).min() < 1e-12 for e in expected]
    assert len(expected) > 10 and any(exact) == ("very" in name)
    for n_threads in (1, 2, 0):
        found = talvorix.smooth_variogram(vario, *case, n_threads)
        assert_same_variogram(found, directions, *zip(*expected, strict=True))


def test_smoothing_without_anything_to_smooth():
    def vario(npairs=5, lag=1.0):
        lags = [(lag, 0, 0), (2, 0, 0)]
        return talvorix.ExperimentalVariogram(
            lags, [1.0, 2.0], [npairs] * 2, [0, 0], [(1, 0, 0), (0, 1, 0)]
        )

    good = dict(n_lags=3, max_n_neis=0, max_r=9.0, bandwidth=9.0, power_a=2.0, max_weight=0.5,
                sampling_size=4)  # fmt: skip
    assert talvorix.smooth_variogram(vario(), **good).npairs
    empty = talvorix.ExperimentalVariogram([], [], [], [], [(1, 0, 0)])
    for record, arguments in (
        (empty, {}),
        (vario(npairs=0), {}),
        (vario(), {"max_r": 0.0}),
        (vario(), {"max_r": math.nan}),
        (vario(), {"max_r": math.inf}),
        (vario(), {"bandwidth": -1.0}),
    ):
        with pytest.raises(RuntimeError, match=r"^No lags found$"):
            talvorix.smooth_variogram(record, **{**good, **arguments})
    for record, arguments, message in (
        (vario(lag=math.nan), {}, "vario has a lag that is not finite, its entry 0"),
        (vario(), {"sampling_size": -1}, "sampling_size must be 0 or more"),
        (vario(), {"n_lags": 2**31 - 1}, "more lags in all than can be numbered"),
    ):
        with pytest.raises(ValueError, match=message):
            talvorix.smooth_variogram(record, **{**good, **arguments})
