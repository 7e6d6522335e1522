"""Ellipsoids fitted by least squares, and ellipsoids of local areas."""

import re

import numpy as np
import pytest
import talvorix
from literal import KERNELS, Engine, anisotropy_matrix
from scipy.optimize import least_squares
from talvorix import EllipsoidLBFGSParameters, EllipsoidOptimizationParameters, Kernel

quick = pytest.mark.quick
BOTH_COUNTS = [n for n in (1, 2) if n <= talvorix.check_n_threads(0)]


def bent(n=1500, seed=1):
    """A field in a quarter of a ring, long along the ring and short upward."""
    rng = np.random.default_rng(seed)
    angle, radius = rng.uniform(0, np.pi / 2, n), rng.uniform(100, 200, n)
    points = np.column_stack(
        [radius * np.cos(angle), radius * np.sin(angle), rng.uniform(0, 10, n)]
    )
    waves = np.sin(radius / 9) + 0.8 * np.sin(points[:, 2] / 2.5)
    return points, waves + 0.1 * rng.normal(size=n)


def limited(r):
    return np.where(abs(r) > 1, np.sign(r) * (2 * np.sqrt(abs(r)) - 1), r)


def literal_blocks(folds, kind, largest, constant, smallest, most, n_partitions, seed):
    """The residuals of every block as a function of the seven parameters."""
    every = np.concatenate([values for _, values in folds])
    folds = [(np.reshape(x, (-1, 3)), (np.array(v) - every.mean()) / every.std()) for x, v in folds]
    engine, parts = Engine(seed), []
    for x, v in folds:
        for _ in range(n_partitions if len(v) > 2 else 0):
            k, order = smallest + engine.raw() % max(most - smallest, 1), list(range(len(v)))
            engine.shuffle(order)
            k = len(v) - 2 if k >= len(v) else k
            lags = x[order[k:]][:, None] - x[order[:k]][None]
            parts.append((lags, v[order[:k]], v[order[k:]]))

    def blocks(p):
        s, *ranges, a, b, c = p
        matrix = anisotropy_matrix(*ranges, *np.degrees([np.pi / 2 - a, -b, c]))
        for lags, given, asked in parts:
            weights = (1 - s * KERNELS[kind](np.linalg.norm(lags @ matrix.T, axis=2))) ** -3.0
            weights[np.linalg.norm(lags, axis=2) < 1e-8] = 0
            r = limited(2 * (weights @ given / weights.sum(1) - asked))
            yield np.append(r, limited(2 * r.mean()))
        t = (np.array(ranges) - largest) / largest
        yield np.append(constant / (1 + t**2), constant * 0.001 * (s - 1) ** 2)

    return blocks


@pytest.mark.parametrize("kind", ["spherical", "gaussian", "exponential"])
@pytest.mark.parametrize("loss", [0.0, 1.5])
def test_a_fit_against_its_literal_cost_and_another_minimiser(capfd, kind, loss):
    points, values = bent(150)
    points[9] = points[4]
    folds = talvorix.create_folds(points, values, 90, 40, 4, 3)
    folds += [(points[:2], values[:2]), (points[50:56], values[50:56])]
    largest, constant, *sizes = (80.0, 60.0, 40.0), 0.2 * (loss == 0), 8, 14, 3, 77
    blocks = literal_blocks(folds, kind, largest, constant, *sizes)
    start = np.array([0.5, 40, 30, 20, 0, 0, 0])
    given = (folds, kind, *largest, constant, loss, *sizes[:3], 2000, sizes[3])
    found = [talvorix.optimize_ellipsoid_using_kfold(*given, n, False) for n in BOTH_COUNTS]
    assert capfd.readouterr() == ("", "")
    talvorix.optimize_ellipsoid_using_kfold(*given, 1, True)
    output, errors = capfd.readouterr()
    initial, final = (
        float(re.search(rf"{name} +(\S+)", errors)[1]) for name in ("Initial", "Final")
    )
    assert "iter " in output and "Summary" not in output

    def cost(p):
        *data, regular = (r @ r for r in blocks(p))
        return (sum(loss**2 * np.log1p(d / loss**2) if loss else d for d in data) + regular) / 2

    ellipsoid, p = found[0]
    assert all(again == p for _, again in found)
    assert initial == pytest.approx(cost(start), rel=1e-5) and final < 0.95 * initial
    assert final == pytest.approx(cost(p), rel=1e-5)
    matrix = anisotropy_matrix(*p[1:4], *np.degrees([np.pi / 2 - p[4], -p[5], p[6]]))
    np.testing.assert_allclose(ellipsoid.matrix(), talvorix.sort_matrix3d(matrix), atol=1e-12)
    lower = np.array([1e-4, *np.multiply(1e-3, largest), *[-np.inf] * 3])
    upper = np.array([1.0001, *largest, *[np.inf] * 3])
    assert (lower <= p).all() and (p <= upper).all()
    if not loss:
        other = least_squares(
            lambda p: np.concatenate(list(blocks(p))), start, bounds=(lower, upper), x_scale="jac"
        )
        assert final < other.cost * 1.005  # at bounds steps are short, and a short one is the last


@quick
def test_fits_of_odd_folds():
    points, values = bent(12)
    fit, start = talvorix.optimize_ellipsoid_using_kfold, [0.5, 5, 10, 15, 0, 0, 0]
    # All equal: deviations of nothing over nothing.
    rest = (10, 20, 30, 1.0, 0.0, 4, 4, 3, 50, 1, 0, False)
    ellipsoid, p = fit([(points, np.ones(12))], "gaussian", *rest)
    assert p == start
    np.testing.assert_allclose(ellipsoid.info().r1(), 15)
    # Nothing but folds too small, and no regularisation.
    small = [(points[:2], values[:2]), ([], [])]
    assert fit(small, "spherical", 10, 20, 30, 0.0, *rest[4:])[1] == start
    assert fit([(points, values)], "spherical", *rest[:7], 0, *rest[8:])[1] != start
    # The one size, of which one remains to be predicted; and none that predict.
    for sizes in ((11, 11), (12, 12), (90, 99), (0, 1)):
        _, p = fit([(points, values)], "exponential", *rest[:5], *sizes, *rest[7:])
        assert np.isfinite(p).all() and p != start
    bad = np.where(np.arange(12) == 3, np.nan, values)
    for folds, change, message in (
        ([], {}, "folds is empty"),
        ([small[0], (points, values[:5])], {}, r"folds\[1\] has 5 .* has 12"),
        ([small[0], (points, bad)], {}, r"folds\[1\] .* 3.* not finite"),
        ([(np.where(points > 150, np.inf, points), values)], {}, r"folds\[0\] .*not finite"),
        (small, {1: 0.0}, "r2_max .* above 0"),
        (small, {2: np.nan}, "r3_max .* above 0"),
        (small, {5: 5}, "max_partition_size is 4, below .* 5"),
        (small, {5: -1}, "min_partition_size .*-1"),
        (small, {7: -2}, "n_partitions .*-2"),
        (small, {8: -3}, "n_iterations .*-3"),
    ):
        with pytest.raises(ValueError, match=message):
            fit(folds, "spherical", *(change.get(i, argument) for i, argument in enumerate(rest)))


def areas_of(points, values, n_centers, reach, size, seed, n_threads):
    outline = talvorix.extreme_points(points, 300, Engine(seed).raw(), n_threads)
    box = talvorix.BoundingBox(outline)
    diagonal = np.linalg.norm(box.upper() - box.lower())
    radius = diagonal / n_centers * reach
    return diagonal, radius, talvorix.create_folds(points, values, radius, size, n_centers, seed)


def expect_progress(captured, diagonal, radius, lines):
    """On standard error one line is spelt apart, and the folds are not numbered."""
    lines = [f"data length: {diagonal:g}", f"Max radius: {radius:g}", *lines]
    begins = r"(data|Max|Processing|optimized|Ellipsoid|lbfgs|xval|center)"
    for text, name in zip(captured, ("data length", "data_length"), strict=True):
        own = [k for k in text.splitlines() if re.match(begins, k)]
        own = [re.sub("(?<=lbfgs error: ).*", "", k) for k in own]
        dropped = "optimized" if name == "data_length" else "nothing"
        expected = [k.replace("data length", name) for k in lines if not k.startswith(dropped)]
        assert own == expected


def center_line(center):
    return "Processing center: {:g} {:g} {:g}...".format(*center)


@pytest.mark.parametrize("n_threads", BOTH_COUNTS)
def test_local_searches_are_put_together_from_the_public_pieces(capfd, n_threads):
    points, values = bent(200)
    settings = EllipsoidOptimizationParameters(
        2.5, 30, 5, 9, 3, 4, n_rays=8, n_scales=2, n_iterations=30, tol=0.1, seed=-7,
        n_threads=n_threads, debug=True,
    )  # fmt: skip
    diagonal, radius, folds = areas_of(points, values, 3, 1.5, 50, -7, n_threads)
    given = (points, values, Kernel.gaussian, 0.1, 0.7, 3, 1.5, 50)
    found = talvorix.optimize_local_ellipsoids(*given, settings)
    captured, lines = capfd.readouterr(), []
    assert len(found.centers) == len(folds) == captured.err.count("Best model") == 3
    for i, (places, data) in enumerate(folds):
        box, center = talvorix.BoundingBox(places), np.mean(places, axis=0).ravel()
        length = float(np.linalg.norm(box.upper() - box.lower()))
        ellipsoid, error = talvorix.optimize_ellipsoid_using_idw(
            places, data, Kernel.gaussian, 0.1 * length, 0.7 * length, 2.5, length, 30, 5, 9, 3,
            0.025, 4, 8, 2, 30, 50, 0.1, -7, n_threads, False,
        )  # fmt: skip
        (c,), lag = found.covariances[i], np.array([3.0, -2, 1])
        np.testing.assert_allclose(found.centers[i].ravel(), center, rtol=1e-12)
        np.testing.assert_allclose(c.ellipsoid.matrix(), ellipsoid.matrix(), rtol=1e-9)
        assert (c.type, c.sill) == ("spherical", 1.0)
        assert c(lag) == pytest.approx(Kernel.gaussian(np.linalg.norm(ellipsoid.forward(lag))))
        assert found.errors[i] == pytest.approx(error, rel=1e-9)
        lines += [center_line(center), f"optimized fold {i + 1} of 3"]
        lines += [f"Ellipsoid: {ellipsoid} error: {error:g}"]
    expect_progress(captured, diagonal, radius, lines)


@pytest.mark.parametrize("n_threads", BOTH_COUNTS)
def test_local_fits_are_put_together_from_the_public_pieces(capfd, n_threads):
    points, values = bent(300)
    settings = EllipsoidLBFGSParameters(0.02, 0.5, 6, 12, 2, 999, 5, n_threads, True)
    diagonal, radius, folds = areas_of(points, values, 4, 1.2, 60, 5, n_threads)
    given = (points, values, "exponential", 4, 3, 1.2, 60, 25, 70.0)
    found = talvorix.optimize_local_ellipsoids_using_lbfgs(*given, settings)
    captured, errors, lines = capfd.readouterr(), [], []
    for i, (places, data) in enumerate(folds):
        local = talvorix.create_folds(places, data, radius, 25, 3, 5)
        rest = (70, 70, 70, 0.02 * 2 * len(local), 0.5, 6, 12, 2, 999, 5, 1, False)
        ellipsoid, _ = talvorix.optimize_ellipsoid_using_kfold(local, "exponential", *rest)
        (c,), center = found.covariances[i], np.mean(places, axis=0).ravel()
        assert (c.type, c.sill) == ("exponential", 1.0)
        np.testing.assert_array_equal(c.ellipsoid.matrix(), ellipsoid.matrix())
        np.testing.assert_allclose(found.centers[i].ravel(), center, rtol=1e-12)
        rest = (radius, 302, 3.0, 6, 12, 2, 0.02, n_threads, 5)
        errors.append(1e-4 + talvorix.compute_covariance_error_idw([c], folds, *rest))
        lines += [center_line(center), f"optimized fold {i + 1} of 4", f"Ellipsoid: {ellipsoid}"]
        lines += ["lbfgs error: ", f"xval error: {errors[-1]:g}"]
    np.testing.assert_allclose(found.errors, np.divide(errors, sum(errors)), rtol=1e-9)
    lines += [f"center {i + 1} error: {error:g}" for i, error in enumerate(found.errors)]
    expect_progress(captured, diagonal, radius, lines)
    assert captured.out.count("cost_change") == captured.err.count("Solver Summary") == 4


def tilts(local):
    """Angles between the major axes and the ring."""
    for center, (c,) in zip(local.centers, local.covariances, strict=True):
        x, y, _ = np.ravel(center)
        yield talvorix.compute_angular_distance(c.ellipsoid.major_axis(), [-y, x, 0])


def test_local_ellipsoids_follow_a_field_that_turns():
    points, values = bent(1500)
    settings = EllipsoidLBFGSParameters(0.01, n_threads=1)
    given = (points, values, "spherical", 10, 8, 2.0, 200, 80, 100.0)
    fitted = talvorix.optimize_local_ellipsoids_using_lbfgs(*given, settings)
    angles = sorted(tilts(fitted))
    assert len(angles) == 10 and angles[7] < 6
    azimuths = np.array([c.ellipsoid.info().azimuth() for (c,) in fitted.covariances])
    assert np.ptp(azimuths % 180) > 40 and sum(fitted.errors) == pytest.approx(1)
    settings = EllipsoidOptimizationParameters(
        max_nei_size=100, max_partitions_size=40, n_centers=6, n_rays=30, tol=0.05,
        regularization_const=0.003, n_threads=1,
    )  # fmt: skip
    given = (points, values, Kernel.spherical, 0.1, 0.8, 4, 1.5, 200, settings)
    searched = talvorix.optimize_local_ellipsoids(*given)
    assert sorted(tilts(searched))[2] < 15

    search, near = talvorix.Ellipsoid(1, 1, 1, 0, 0, 0), points[::25] + 0.5
    truth = np.sin(np.hypot(near[:, 0], near[:, 1]) / 9) + 0.8 * np.sin(near[:, 2] / 2.5)
    factory = talvorix.SimulatorFactory.TBSIM(points, 100)
    for local in (fitted, searched):
        given = (near, points, values, local, search)
        estimates = talvorix.ensemble_estimation(*given, 20, 100, 3, -1, 2, 0.9)
        simulated = talvorix.ensemble_simulation(*given, factory, 20, 100, 3, -1, 2, 0.9, 1)
        assert np.corrcoef(estimates, truth)[0, 1] > 0.75 and np.isfinite(simulated).all()


@quick
def test_odd_areas_and_what_is_refused():
    points, values = bent(40)
    few = EllipsoidOptimizationParameters(n_rays=4, n_scales=1, n_iterations=3, tol=0.9)
    search, fit = talvorix.optimize_local_ellipsoids, talvorix.optimize_local_ellipsoids_using_lbfgs
    settings = EllipsoidLBFGSParameters(n_iterations=3)
    assert settings.max_partition_size == 30 and settings.n_partitions == 7
    settings.max_partition_size = 16
    lone, one = np.array([[1.0, 2, 3]]), [2.0]
    for x, v in ((lone, one), (points, values), (points, np.ones(40)), (np.ones((40, 3)), values)):
        for n_centers in (0, 2):
            n_areas = min(max(n_centers, 1), len(x))
            found = search(x, v, Kernel.spherical, 0.1, 1, n_centers, 1.0, 20, few)
            assert len(found.centers) == len(found.errors) == n_areas
            found = fit(x, v, "gaussian", n_centers, 2, 1.0, 20, 10, 9.0, settings)
            assert len(found.centers) == n_areas and sum(found.errors) == pytest.approx(1)
    crossed, flat = EllipsoidLBFGSParameters(min_partition_size=31), points * [1, 1, np.nan]
    lengths, rest = "data has 5 .* has 40", (2, 2, 1, 9, 9)
    for call, arguments, message in (
        (search, ([], [], Kernel.gaussian, 1, 2, 3, 1, 9), "data_locs is empty"),
        (search, (points, values[:5], Kernel.gaussian, 1, 2, 3, 1, 9), lengths),
        (fit, ([], [], "idw", *rest, 9, settings), "data_locs is empty"),
        (fit, (points, values[:5], "idw", *rest, 9, settings), lengths),
        (fit, (flat, values, "idw", *rest, 9, settings), r"data_locs\[0\]"),
        (fit, (points, values, "idw", *rest, 0, settings), "max_local_range .* above 0"),
        (fit, (points, values, "idw", *rest, 9, crossed), "max_partition_size is 30, .* 31"),
    ):
        with pytest.raises(ValueError, match=message):
            call(*arguments)
