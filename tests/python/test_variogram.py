"""Experimental variograms against a literal loop over pairs, and the model variogram."""

import math

import numpy as np
import pytest
import talvorix
from literal import Engine, Model, sphere_directions

pytestmark = pytest.mark.quick


def literal_outline_size(points, seed):
    rays = sphere_directions(300, seed, whole=True)
    outer = np.unique([f(points @ ray) for ray in rays for f in (np.argmin, np.argmax)])
    size = np.ptp(points[outer], axis=0)
    return np.where(size <= 1e-30, 1.0, size)


def literal_centers(values, n_centers, engine):
    n = len(values)
    if n_centers < 0 or n_centers >= n - 1:
        return list(range(n))
    by_value = [index for _, index in sorted((-v, i) for i, v in enumerate(values))]
    upper = by_value[: math.ceil(n * (n_centers / n + 0.25))]
    engine.shuffle(upper)
    return by_value[:1] + upper[1 : max(n_centers, 1)]


def literal_variogram(
    points, values, n_centers, angle_tol, n_lags, lag_tol, bandwidth, window, n_directions, tol
):
    """One running mean after the other: direction id, lag, semivariance and count of every bin."""
    main, entries = Engine(123125), []
    box = np.diag(literal_outline_size(points, main.raw()))
    directions = sphere_directions(n_directions, main.raw(), whole=True)
    engines = [Engine(main.raw()) for _ in directions]
    centers = literal_centers(values, n_centers, main)
    for number, (d, engine) in enumerate(zip(directions, engines, strict=True)):
        n = np.linalg.norm(box @ d)
        while True:
            v = np.array([engine.uniform() for _ in range(3)])
            v /= np.linalg.norm(v)
            if abs(abs(v @ d) - 1) > tol:
                break
        p = v - (v @ d) * d
        p /= np.linalg.norm(p)
        q = np.cross(d, p)
        mapped = points @ np.array([d / (3 * n), p / (bandwidth * n), q / (bandwidth * n)]).T
        lags = sorted(
            np.linalg.norm(box @ ((abs(engine.normal()) + lag_tol) * d)) for _ in range(n_lags)
        )
        means, counts = np.zeros(n_lags), np.zeros(n_lags, int)
        for c in centers:
            near = np.flatnonzero(((mapped - mapped[c]) ** 2).sum(1) < 1.01**2)
            for a, i in enumerate(near):
                for j in near[a + 1 :]:
                    w = points[i] - points[j]
                    r = np.linalg.norm(w)
                    if r > 0 and np.arccos(min(abs(w @ d) / r, 1)) > angle_tol / 180 * np.pi:
                        continue
                    k = int(np.searchsorted(lags, r))
                    if k == n_lags:
                        continue
                    g = 0.5 * (values[i] - values[j]) ** 2
                    for b in range(max(0, k - window), min(k + window, n_lags - 1) + 1):
                        means[b] += (g - means[b]) / (counts[b] + 1)
                        counts[b] += 1
        for b in np.flatnonzero(counts):
            entries.append((number, lags[b] * d, means[b], counts[b]))
    return directions, entries


def scattered(seed, n, scale=(100, 60, 20)):
    rng = np.random.default_rng(seed)
    points = rng.uniform(0, 1, (n, 3)) * scale + 1000
    points[5] = points[6]  # a pair of no length
    return points, rng.normal(size=n).round(3) + points[:, 0] / 50


CASES = {
    "few centers": (15, 20.0, 12, 0.01, 0.3, 2, 4, 0.01),
    "every datum a center": (44, 8.0, 9, 0.001, 0.5, 1, 3, 0.6),
    "a flat field, all by a negative count": (-1, 90.0, 7, 0.05, 0.4, 0, 3, 0.01),
    "the top alone": (0, 45.0, 7, 0.3, 5.0, 100, 3, 0.01),
    "no window": (30, 45.0, 7, 0.0, 0.2, -1, 3, 0.01),
}


@pytest.mark.parametrize("name", CASES)
def test_against_the_literal_loop(name):
    case = CASES[name]
    points, values = scattered(1, 45, (100, 60, 0 if "count" in name else 20))
    directions, entries = literal_variogram(points, values, *case)
    assert bool(entries) == (case[5] >= 0)
    for n_threads, seed in ((1, 12415), (2, 7), (0, 8)):
        found = talvorix.compute_exp_variogram(
            points, values, *case, n_threads=n_threads, seed=seed
        )
        np.testing.assert_allclose(np.squeeze(found.directions), directions, atol=1e-12)
        assert found.direction_ids == [e[0] for e in entries]
        assert found.npairs == [e[3] for e in entries]
        np.testing.assert_allclose(found.variogram, [e[2] for e in entries], rtol=1e-11)
        np.testing.assert_allclose(
            np.reshape(found.lags, (-1, 3)), np.reshape([e[1] for e in entries], (-1, 3))
        )
        for number, positions in enumerate(found.lags_by_dir):
            assert positions == [i for i, e in enumerate(entries) if e[0] == number]


def test_real_sizes_do_not_depend_on_the_threads():
    points, values = scattered(2, 4000)
    one, two = (talvorix.compute_exp_variogram(points, values, n_threads=n) for n in (1, 2))
    assert one.variogram == two.variogram and one.npairs == two.npairs
    assert len(one.directions) == 600 and sum(one.npairs) > 10**6
    # White noise beside a trend along x: the noise's variance is the nugget everywhere.
    values = np.random.default_rng(3).normal(0, 2, 4000)
    noise = talvorix.compute_exp_variogram(points, values, n_centers=1000)
    assert np.average(noise.variogram, weights=noise.npairs) == pytest.approx(4, rel=0.05)
    constant = talvorix.compute_exp_variogram(points, np.full(4000, 0.1))
    assert set(constant.variogram) == {0.0} and min(constant.npairs) > 0


def test_tolerances_that_nearly_nothing_meets():
    points = np.stack(np.meshgrid(*[np.arange(4.0)] * 3), -1).reshape(-1, 3)
    # With no tolerance at all, only the pairs of no length are aligned with random directions.
    for angle_tol in (-1.0, 0.0):
        found = talvorix.compute_exp_variogram(points, points[:, 0], angle_tol=angle_tol)
        assert found.npairs == []
        twice = np.concatenate([points, points])
        found = talvorix.compute_exp_variogram(twice, twice[:, 0], angle_tol=angle_tol)
        assert set(found.variogram) == {0.0} and len(found.lags) == 600 * 3
    for strange in (
        {"bandwidth": 0.0},
        {"bandwidth": math.nan},
        {"n_lags": 0},
        {"n_directions": 0},
    ):
        assert talvorix.compute_exp_variogram(points, points[:, 0], **strange).npairs == []
    # No pair is beyond an endless lag, or one that is no number.
    for lag_tol in (math.inf, math.nan):
        found = talvorix.compute_exp_variogram(points, points[:, 0], lag_tol=lag_tol, bandwidth=9)
        assert set(map(len, found.lags_by_dir)) == {0, 3} and not np.isfinite(found.lags).any()
    nans = points[:, 0].copy()
    nans[7] = math.nan
    found = talvorix.compute_exp_variogram(points, nans, n_centers=-1, bandwidth=1, angle_tol=90)
    assert np.isnan(found.variogram).any() and np.isfinite(found.variogram).any()
    holed = points.copy()
    holed[3] = math.inf, 0, 0
    holed[9] = math.nan
    for n_centers in (60, 5):
        talvorix.compute_exp_variogram(holed, points[:, 0], n_centers=n_centers)
    for few in ([], [(1, 2, 3)]):
        assert talvorix.compute_exp_variogram(few, [1.0] * len(few)).variogram == []
    for arguments, message in (
        ({"data_values": [1.0]}, "data_values has 1 entries but data_locs has 64"),
        ({"n_lags": -1}, "n_lags must be 0 or more"),
        ({"n_directions": -1}, "n_directions must be 0 or more"),
    ):
        with pytest.raises(ValueError, match=message):
            talvorix.compute_exp_variogram(
                **{"data_locs": points, "data_values": points[:, 0], **arguments}
            )


def test_looking_up_directions():
    lags = [(1, 0, 0), (2, 0, 0), (0, 3, 0), (3, 0, 0)]
    variogram = talvorix.ExperimentalVariogram(
        lags, [1.0, 2.0, 3.0, 4.0], [5, 6, 7, 8], [1, 1, 3, 1],
        [(-1, 0, 0), (1, 0, 0), (0, 0, 1), (0, 1, 0)],
    )  # fmt: skip
    assert variogram.lags_by_dir == [[], [0, 1, 3], [], [2]]
    along_x = ([1.0, 2.0, 4.0], [5, 6, 8])
    for found in (
        variogram.get_variogram(90, 10),
        variogram.get_variogram((50, -1, 0)),
        variogram.get_variogram(dir=(0, 0, 0)),  # all are equally near; the first with entries
        variogram.get_variogram_by_direction_id(1),
    ):
        assert found[1:] == along_x and np.squeeze(found[0])[:, 0].tolist() == [1, 2, 3]
    # Opposites are two directions: (-1, 0, 0) has no entries, and (0, 1, 0) is nearer than +x.
    assert variogram.get_variogram((-1, 0, 0))[2] == [7]
    empty = talvorix.ExperimentalVariogram([], [], [], [], [(1, 0, 0)])
    for found in (empty.get_variogram(0, 0), variogram.get_variogram_by_direction_id(-1)):
        assert found == ([], [], [])
    assert variogram.get_variogram((math.nan, 0, 0)) == ([], [], [])
    good = [lags, [1.0] * 4, [1] * 4, [0] * 4, [(1, 0, 0)]]
    for position, value, error, message in (
        (1, [1.0], ValueError, "variogram has 1 entries but lags has 4"),
        (2, [1], ValueError, "npairs has 1 entries but lags has 4"),
        (3, [0], ValueError, "direction_id has 1 entries but lags has 4"),
        (3, [0, 0, 1, 0], IndexError, r"direction_id\[2\] is 1, but there are 1"),
        (3, [-1] * 4, IndexError, r"direction_id\[0\] is -1"),
    ):
        arguments = [*good[:position], value, *good[position + 1 :]]
        with pytest.raises(error, match=message):
            talvorix.ExperimentalVariogram(*arguments)


def test_model_variogram():
    bodies = (120, 80, 20, 35, 10, -20), (300, 300, 50, 0, 0, 0)
    model = Model(
        ("nugget", 0.2, None), ("spherical", 0.5, bodies[0]), ("gaussian", 0.3, bodies[1])
    )
    variogram = talvorix.variogram_computer(
        [
            talvorix.Covariance.nugget(0.2),
            talvorix.Covariance.spherical(0.5, talvorix.Ellipsoid(*bodies[0])),
            talvorix.Covariance.gaussian(0.3, talvorix.Ellipsoid(*bodies[1])),
        ],
        data_var=7.5,
    )
    lags = np.random.default_rng(5).normal(0, 60, (50, 3))
    np.testing.assert_allclose(variogram.simulate(lags), (1 - model(lags)) * 7.5, rtol=1e-12)
    assert variogram((0, 0, 0)) == 0 and variogram((1e6, 0, 0)) == 7.5
