"""Folds, validations, error measures and searches against literal readings and compositions."""

import itertools
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
import talvorix
from literal import Engine, Model, krige
from talvorix import Covariance, CovarianceErrorFunction, Ellipsoid, Kernel

quick = pytest.mark.quick
NESTED = [
    ("nugget", 0.1, None),
    ("exponential", 0.5, (40, 30, 9, 30, -20, 10)),
    ("spherical", 0.4, (70, 35, 20, 30, -20, 10)),
]
BOTH_COUNTS = [n for n in (1, 2) if n <= talvorix.check_n_threads(0)]


def structure(kind, sill, ellipsoid):
    if kind == "nugget":
        return Covariance.nugget(sill)
    return getattr(Covariance, kind)(sill, Ellipsoid(*ellipsoid))


def scattered(n, seed=1):
    rng = np.random.default_rng(seed)
    points = rng.uniform(0, 1, (n, 3)) * [100, 60, 20] + 500
    values = np.sin(points[:, 0] / 20) + points[:, 1] / 60 + 0.1 * rng.normal(size=n)
    points[[3, 4]], values[[3, 4]] = points[[n // 2, n - 2]], values[[n // 2, n - 2]]
    points[7] += 1000
    return points, values


def shares(n, n_threads):
    return [share.tolist() for share in np.array_split(np.arange(n), n_threads)]


def literal_folds(points, values, max_distance, max_size, n_centers, seed):
    engine, n, folds = Engine(seed), len(values), []
    ranked = sorted(range(n), key=lambda i: (-values[i], i))
    for number in range(n_centers):
        rank = engine.raw() % (n // 2 + 1) if number else 0
        distances = np.linalg.norm(points - points[ranked[rank]], axis=1)
        fold = np.argsort(distances, kind="stable").tolist()
        if 1 <= max_size < n:
            fold = [i for i in fold[:max_size] if distances[i] <= max_distance]
        else:
            fold = [i for i in fold if distances[i] < max_distance]
        folds += [fold] if fold else []
    return folds or [list(range(n))]


@quick
@pytest.mark.parametrize("max_size", [-1, 0, 1, 6, 19, 39, 40, 41, 1000])
def test_folds(max_size):
    points, values = scattered(40)
    points[[3, 4]] += 1e-3
    values[[9, 30]] = values.max()  # the first of the highest is the centre
    for reach, n_centers, seed in ((35.0, 20, 21315), (8.0, 30, 5), (1e4, 3, 2**32 + 6), (0, 2, 1)):
        expected = literal_folds(points, values, reach, max_size, n_centers, seed)
        if n_centers >= 20:
            assert len({tuple(fold) for fold in expected}) < len(expected) == n_centers
        found = talvorix.create_folds(points, values, reach, max_size, n_centers, seed)
        assert [fold[1] for fold in found] == [values[fold].tolist() for fold in expected]
        for fold, indices in zip(found, expected, strict=True):
            np.testing.assert_array_equal(np.squeeze(fold[0], -1), points[indices])
    for n_centers in (0, -3):
        ((locations, data),) = talvorix.create_folds(points, values, 1.0, max_size, n_centers)
        assert data == values.tolist() and np.array_equal(np.squeeze(locations), points)


@quick
def test_reach_of_folds():
    line = np.array([(x, 0, 0) for x in (0, 3, 4, 5, 12)], float)
    values = np.array([9.0, 1, 2, 3, 4])
    # A search by distance leaves out what stands exactly at it, the filter of the nearest does not.
    for max_size, reach, expected in (
        (0, 4, [9, 1]),
        (5, 4, [9, 1]),
        (4, 4, [9, 1, 2]),
        (2, 4, [9, 1]),
        (0, 1, [9]),
        (3, 0, [9]),
        (3, -1, values.tolist()),
        (0, 0, values.tolist()),
    ):
        assert talvorix.create_folds(line, values, reach, max_size, 1)[0][1] == expected
    square = np.array([(0, 0, 0), (1, 0, 0), (0, 1, 0), (-1, 0, 0), (0, -1, 0)], float)
    ((locations, data),) = talvorix.create_folds(square, values, 1, 4, 1)
    assert data[0] == 9 and len({*data}) == len(locations) == 4  # of equals any may stay
    assert talvorix.create_folds(line[:1], [2.0], 1, 1, 3)[2][1] == [2.0]


def by_distance(power):
    def estimate(model, points, z, i, used):
        distance = 1 - model(points[used] - points[i])
        far = distance > 1e-10
        weights = distance[far] ** -power
        return weights @ z[used][far] / weights.sum() if far.any() else np.nan

    return estimate


def by_kriging(mean):
    def estimate(model, points, z, i, used):
        # Of data at one place with one value a solver may keep either.
        used = list({tuple(points[j]): j for j in used}.values())
        return krige(model, points[used], z[used], points[i], mean)[0]

    return estimate


METHODS = [
    ("idw", [3], by_distance(3)),
    ("idw", [1 + 1e-7], by_distance(1)),
    ("idw", [2], by_distance(2)),
    ("idw", [2.5], by_distance(2.5)),
    ("sk", [], by_kriging(0.0)),
    ("ok", [], by_kriging(None)),
]


def literal_validation(estimate, points, values, model, max_distance, max_size, sizes, T, seed):
    points, values, n = np.asarray(points), np.asarray(values), len(values)
    smallest, largest, count = sizes
    mean = sum(values / n)  # term by term: of equal values it may not be just theirs
    z = (values - mean) / np.sqrt(sum((values - mean) ** 2 / n))
    table = np.full((n, count), np.nan)
    main = Engine(seed)
    for share, engine in zip(shares(n, T), [Engine(main.raw()) for _ in range(T)], strict=True):
        for i in share:
            distances = np.linalg.norm(points - points[i], axis=1)
            near = np.arange(n)
            if 0 <= max_size < n:
                near = np.argsort(distances, kind="stable")[: max_size or n]
            used = [j for j in near.tolist() if j != i and distances[j] < max_distance]
            for p in range(count if len(used) > 2 else 0):
                k = engine.raw() % (largest - smallest + 1) + smallest
                engine.shuffle(used)
                table[i, p] = estimate(model, points, z, i, used[:k]) - z[i]
    return table


@quick
@pytest.mark.parametrize("n_threads", BOTH_COUNTS)
@pytest.mark.parametrize("method, power, estimate", METHODS)
def test_validations(method, power, estimate, n_threads):
    validate = getattr(talvorix, f"kfold_cross_validation_using_{method}")
    points, values = scattered(33)
    # Equally far data may come in any order from a search, and the shuffles depend on it.
    apart = points + np.random.default_rng(3).uniform(0, 1e-3, points.shape)
    covs, model = [structure(*s) for s in NESTED], Model(*NESTED)
    for max_size, reach, sizes, seed in (
        (-1, 60.0, (10, 40, 15), 123451),
        (33, 25.0, (3, 9, 4), -1),
        (0, 30.0, (4, 4, 3), 7),
        (9, 1e3, (2, 6, 5), 2**32 - 5),
        (6, 15.0, (90, 99, 2), 1),
        (-5, 60.0, (1, 1, 2), 2),
        (-1, 60.0, (2, 3, 0), 2),
    ):
        settings = reach, max_size, *power, *sizes, n_threads, seed
        places = apart if 0 <= max_size < 33 else points
        table = validate(places, values, covs, *settings)
        settings = reach, max_size, sizes, n_threads, seed
        expected = literal_validation(estimate, places, values, model, *settings)
        assert np.isnan(expected[7]).all() or reach > 500
        np.testing.assert_allclose(table, expected, rtol=1e-8, atol=1e-9)
    # Exactly at the distance is too far, and two data are not enough.
    line = np.array([(x, 0.0, 0) for x in (0, 1, 2, 3, 6)])
    found = np.isnan(validate(line, [1, 3, 2, 5, 4], covs, 3.0, n_threads=n_threads))
    assert found.all(1).tolist() == [True, False, False, True, True] and not found[1:3].any()
    assert validate([], [], covs, 50) == [] and np.isnan(validate([(1, 2, 3)], [4], covs, 50)).all()
    assert np.isnan(validate(points[:8], np.ones(8), covs, 1e9)).all()
    # Data at the very place of the predicted one have no distance.
    at_one = np.array(validate(np.ones((5, 3)), range(5), covs, 9))
    assert np.isnan(at_one).all() if method == "idw" else np.isfinite(at_one).all()
    # From nothing kriging with a known mean predicts the mean, and distances nothing.
    for sizes in ((0, 0, 3), (0, 2, 9)) if method != "ok" else ():
        table = validate(points[:12], values[:12], covs, 60, -1, *power, *sizes, n_threads, 5)
        settings = 60, -1, sizes, n_threads, 5
        expected = literal_validation(estimate, points[:12], values[:12], model, *settings)
        np.testing.assert_allclose(table, expected, rtol=1e-8, atol=1e-9)


def literal_error(structures, folds, reach, max_size, power, sizes, constant, T, seed):
    model, total = Model(*structures), 0.0
    for share in shares(len(folds), T):
        tables = [
            literal_validation(by_distance(power), *fold, model, reach, max_size, sizes, 1, seed)
            for fold in (folds[f] for f in share)
        ]
        errors = np.abs(np.concatenate([table.ravel() for table in tables] or [[]]))
        total += errors[np.isfinite(errors)].mean() if np.isfinite(errors).any() else 0.0
    squares = np.concatenate([1 / (m**2).sum(1) for _, _, m in model.structures])
    return (1 + constant * np.log(1 + squares).sum()) * total


@quick
@pytest.mark.parametrize("n_threads", BOTH_COUNTS)
@pytest.mark.filterwarnings("ignore:invalid value:RuntimeWarning")
def test_error_measures(n_threads):
    points, values = scattered(40)
    points += np.random.default_rng(3).uniform(0, 1e-3, points.shape)
    folds = [(points[i], values[i]) for i in literal_folds(points, values, 45.0, 15, 5, 9)]
    folds[2:2] = [(points[8:16], np.ones(8)), (points[7:9], values[7:9])]  # no errors from these
    covs, ellipsoid = [structure(*s) for s in NESTED], (70, 35, 20, 30, -20, 10)
    for max_size, power, sizes, constant, seed in (
        (-1, 3.0, (15, 25, 5), 0.001, 21314),
        (8, 2.5, (2, 6, 3), 0.0, 3),
        (42, 1.0, (4, 4, 2), 0.5, 4),
    ):
        rest = (max_size, power, *sizes, constant, n_threads, seed)
        found = talvorix.compute_covariance_error_idw(covs, folds, 40.0, *rest)
        settings = (40.0, max_size, power, sizes, constant, n_threads, seed)
        assert found == pytest.approx(literal_error(NESTED, folds, *settings), rel=1e-10)
        one, head = [("gaussian", 1.0, ellipsoid)], (Ellipsoid(*ellipsoid), Kernel.gaussian, folds)
        found = talvorix.compute_ellipsoid_error_idw(*head, 40.0, *rest)
        assert found == pytest.approx(literal_error(one, folds, *settings), rel=1e-10)
    measure = CovarianceErrorFunction.IDW(folds, 40.0)
    rest = (40.0, -1, 3.0, 15, 25, 5, 0.001, n_threads, 21314)
    found = talvorix.compute_covariance_error_idw(covs, folds, *rest)
    assert measure(covs, n_threads) == found
    for none in ([], folds[2:4], [([], [])]):
        assert talvorix.compute_covariance_error_idw(covs, none, *rest) == 0.0


def shape_error(covs, n_threads):
    """Smallest for ranges of about 20, 8 and 3 and an azimuth of 70; larger on several threads."""
    total = 0.5 * (n_threads - 1)
    for c in covs:
        if c.type != "nugget":
            info = c.ellipsoid.info()
            ranges = np.array([info.r1(), info.r2(), info.r3()])
            total += abs(np.log(ranges / [20, 8, 3])).sum() + abs(info.azimuth() - 70) / 100
            total += abs(info.dip() + 10) / 200 + abs(info.rake()) / 500 + c.sill / 10
    return total


def sketch(covs):
    return [(len(c.type), c.sill, *c.ellipsoid.matrix().ravel().tolist()) for c in covs]


def as_text(covs):
    parts = (f"{{sill:{c.sill:g},anisotropy:{c.ellipsoid},type:{c.type}}}," for c in covs)
    return f"[{''.join(parts)}]"


def literal_search(models, error, n_iterations, without_upgrade, T):
    best, lines = (models[0], error(models[0], T)), []
    own, iteration, last, active = [best] * T, [0] * T, [0] * T, [True] * T

    def consider(t, model, prefix=""):
        e = error(model, 1)
        if e < own[t][1]:
            own[t], last[t] = (model, e), iteration[t]
            text = f"{as_text(model)} with error {e:g}"
            lines.append(f"{prefix}Thread {t} found a better cov: {text}")

    for t, share in enumerate(shares(len(models), T)):
        for i in share:
            iteration[t] += 1
            since = iteration[t] - last[t]
            if any(active) and (iteration[t] > n_iterations or since > without_upgrade):
                continue
            if iteration[t] > T or since > without_upgrade:
                active[t] = False
            consider(t, models[i])
    best = min([best, *own], key=lambda scored: scored[1])
    lines += [f"Best model: {as_text(best[0])}", f"Best error: {best[1]:g}"]
    main = Engine(1213541)
    engines = [Engine(main.raw()) for _ in range(T)]
    for t, share in enumerate(shares(n_iterations + T, T)):
        for _ in share:
            model = []
            for c in own[t][0]:
                if c.type != "nugget":
                    info, draw = c.ellipsoid.info(), engines[t].uniform
                    draw()
                    ranges = [(0.1 + draw() * 0.9) * r for r in (info.r1(), info.r2(), info.r3())]
                    angles = (info.azimuth(), info.dip(), info.rake())
                    angles = [(-15.0 + draw() * 30.0) + angle for angle in angles]
                    turned = Ellipsoid(*sorted(ranges)[::-1], *angles)
                    c = getattr(Covariance, c.type)(c.sill, turned)
                model.append(c)
            consider(t, model, "[scale improvement] ")
    return min([best, *own], key=lambda scored: scored[1]), lines


@quick
@pytest.mark.parametrize(
    "n_threads, n_models, limits",
    [(1, 30, n) for n in ((60, 60), (0, 9), (1, 9), (2, 9), (40, 0), (40, 1), (40, 2))]
    + [(1, 1, (5, 5)), (2, 31, (60, 60)), (2, 1, (9, 9)), (2, 2, (4, 4))],
)
def test_search(capfd, n_threads, n_models, limits):
    limits = (*limits, min(n_threads, BOTH_COUNTS[-1]))
    around, middle = Ellipsoid(90, 60, 30, 10, 0, 0), ("exponential", 0.3)
    models = talvorix.generate_covariances(
        around, 1, Kernel.spherical, n_models, 3, 60, 0.3, 0.9, 0.1, 1
    )
    for i, model in enumerate(models):
        model.insert(1, structure(*middle, (9 * i % 50 + 9, 8, 5, 7 * i, -i, 20)))
    seen = {False: [], True: []}

    def watched(reference):
        def error(covs, n):
            seen[reference].append((shape_error(covs, n), n, *np.ravel(sketch(covs))))
            return seen[reference][-1][0]

        return error

    (model, error), lines = literal_search(models, watched(True), *limits)
    custom = CovarianceErrorFunction.Custom(watched(False))
    found = talvorix.optimize_covariance(models, custom, *limits, True)
    output, errors = capfd.readouterr()
    in_order = list if limits[2] == 1 else sorted  # the threads' lines interleave
    assert in_order(output.splitlines()) == in_order(errors.splitlines()) == in_order(lines)
    assert output == errors and output.endswith("\n") and len(lines) > 2
    assert found[1] == pytest.approx(error, rel=1e-12) and error <= seen[True][0][0]
    np.testing.assert_allclose(sketch(found[0]), sketch(model), rtol=1e-9)
    np.testing.assert_allclose(in_order(seen[False]), in_order(seen[True]), rtol=1e-9)
    assert talvorix.optimize_covariance(models, custom, *limits)[1] == found[1]
    assert capfd.readouterr() == ("", "")


@quick
def test_search_with_odd_errors():
    models = [[structure("spherical", 1.0, (r, 2, 1, 0, 0, 0))] for r in (9, 8, 7, 6)]
    search = talvorix.optimize_covariance
    for n_threads in BOTH_COUNTS:
        custom = CovarianceErrorFunction.Custom(lambda c, n: np.nan)
        model, error = search(models, custom, 3, 3, n_threads)
        assert np.isnan(error) and sketch(model) == sketch(models[0])
        holed = itertools.count()
        custom = CovarianceErrorFunction.Custom(lambda c, n, k=holed: [5.0, np.nan][next(k) % 2])
        model, error = search(models, custom, 6, 6, n_threads)
        assert error == 5.0 and sketch(model) == sketch(models[0])
    nugget = [Covariance.nugget(2.0)]
    measure = CovarianceErrorFunction.IDW([scattered(20)], 50.0)
    assert sketch(search([nugget], measure, 9, 9, 1)[0]) == sketch(nugget)


def composed(candidates, points, values, measure, folds, limits, seed, n_threads):
    """A search put together from the public pieces."""
    main = Engine(seed)
    for _ in range(n_threads):
        main.raw()
    cut = talvorix.create_folds(points, values, measure[0], *folds, main.raw())
    rest, fold_seed = (measure[0], len(values) + 2, *measure[1:]), main.raw()
    custom = CovarianceErrorFunction.Custom(
        lambda covs, n: talvorix.compute_covariance_error_idw(covs, cut, *rest, n, fold_seed)
    )
    return talvorix.optimize_covariance(candidates, custom, *limits, n_threads)


@quick
@pytest.mark.parametrize("n_threads", BOTH_COUNTS)
def test_searches_with_inverse_distances(n_threads, capfd):
    points, values = scattered(60)
    folds, limits, seed = (25, 4), (200, 200), 77  # largest size and number of folds
    measure = (50.0, 2.5, 5, 9, 3, 0.01)
    reach, power, *sizes_and_constant = measure
    ellipsoids = talvorix.generate_ellipsoids(20.0, 90.0, 8, 2, seed, 0.1)
    assert 20 < len(ellipsoids) < 200  # so that the threads' limits play no part
    candidates = [[Covariance.gaussian(1.0, e)] for e in ellipsoids]
    (model,), error = composed(candidates, points, values, measure, folds, limits, seed, n_threads)
    rest = (folds[0], *sizes_and_constant, folds[1], 8, 2, *limits, 0.1, seed, n_threads)
    found = talvorix.optimize_ellipsoid_using_idw(
        points, values, Kernel.gaussian, 20.0, 90.0, power, reach, *rest
    )
    output, errors = capfd.readouterr()
    assert output == errors and "Best model: [{sill:1,anisotropy:{r1: " in output
    np.testing.assert_allclose(found[0].matrix(), model.ellipsoid.matrix(), rtol=1e-9)
    assert found[1] == pytest.approx(error, rel=1e-12)

    around = Ellipsoid(80, 40, 20, 30, 0, 0)
    family = (around, 2, Kernel.gaussian, 90, seed, 30.0, 0.2, 1.0, 0.1, 1.0)
    candidates = talvorix.generate_covariances(*family)
    expected = composed(candidates, points, values, measure, folds, limits, seed, n_threads)
    unused = (-1.0, np.nan), (-5, -6), np.nan  # ranges, rays and scales, and the tolerance
    found = talvorix.optimize_covariance_using_idw(
        points, values, around, Kernel.gaussian, 2, 90, 30.0, 0.2, 1.0, 0.1, 1.0, *unused[0], power,
        reach, folds[0], *sizes_and_constant, folds[1], *unused[1], *limits, unused[2], seed,
        n_threads, False,
    )  # fmt: skip
    assert sketch(found[0]) == sketch(expected[0]) and found[1] == expected[1]
    for c, lag in itertools.product(found[0][:2], ((3.0, 2, 1), (0.5, 0, 4))):
        h = np.linalg.norm(c.ellipsoid.forward(lag))
        assert c.type == "spherical" and c(lag) == pytest.approx(c.sill * np.exp(-3 * h * h))

    box = talvorix.BoundingBox(talvorix.extreme_points(points, 8, seed, n_threads))
    diagonal = float(np.linalg.norm(box.upper() - box.lower()))
    settings = talvorix.EllipsoidOptimizationParameters(
        power, folds[0], max_partitions_size=9, n_partitions=3, n_rays=8, n_iterations=200
    )
    settings.min_partition_size, settings.n_scales, settings.seed = 5, 2, seed
    settings.n_iterations_without_upgrade, settings.tol, settings.n_centers = 200, 0.1, 4
    settings.regularization_const, settings.n_threads = 0.01, n_threads
    found = talvorix.optimize_ellipsoid(points, values, Kernel.spherical, 0.02, 0.1, settings)
    ranges = 0.02 * diagonal, 0.1 * diagonal
    expected = talvorix.optimize_ellipsoid_using_idw(
        points, values, Kernel.spherical, *ranges, power, diagonal, *rest, False
    )
    assert found[1] == expected[1]
    np.testing.assert_array_equal(found[0].matrix(), expected[0].matrix())


@pytest.mark.parametrize("azimuth, dip", [(60, 0), (150, -40)])
def test_the_orientation_of_a_field_is_found(azimuth, dip):
    rng = np.random.default_rng(azimuth)
    points = rng.uniform(0, 100, (600, 3))
    model = Model(("gaussian", 1.0, (90, 22, 22, azimuth, dip, 0)))
    covariances = model(points[:, None] - points[None]) + 1e-9 * np.eye(len(points))
    values = np.linalg.cholesky(covariances) @ rng.normal(size=len(points))
    settings = talvorix.EllipsoidOptimizationParameters(
        max_nei_size=100, min_partition_size=30, max_partitions_size=50, n_rays=60, tol=0.02,
        regularization_const=0.005, n_threads=1,
    )  # fmt: skip
    found, _ = talvorix.optimize_ellipsoid(points, values, Kernel.spherical, 0.1, 0.6, settings)
    along = talvorix.Direction(azimuth, dip)
    assert talvorix.compute_angular_distance(found.major_axis(), along) < 12
    assert found.info().r1() > 1.4 * found.info().r2()


@quick
def test_callbacks_come_one_at_a_time():
    models = [[structure("spherical", 1.0, (r, 9, 5, 70, r, 0))] for r in range(10, 40)]
    inside, most = [], []

    def error(covs, n):
        inside.append(0)
        most.append(len(inside))
        time.sleep(0.0005)
        inside.pop()
        return shape_error(covs, 1)

    custom = CovarianceErrorFunction.Custom(error)
    results = [[] for _ in range(4)]

    def search(n_threads, into):
        into.append(talvorix.optimize_covariance(models, custom, 40, 40, n_threads)[1])

    work = []
    for arguments in zip((0, 2, 1, 0), results, strict=True):
        search(*arguments)
        work.append(threading.Thread(target=search, args=arguments, daemon=True))
    for thread in work:
        thread.start()
    for thread in work:
        thread.join(60)
    assert [len(set(into)) for into in results] == [1] * 4 and len(results[0]) == 2
    assert max(most) == 1 and not inside


class Refusal(Exception):
    pass


@quick
@pytest.mark.parametrize("n_threads", BOTH_COUNTS)
@pytest.mark.parametrize("calls", [0, 1, 12])  # in the first evaluation, the scan, the second stage
def test_what_a_callback_raises_or_returns_arrives(n_threads, calls):
    models = [[structure("spherical", 1.0, (r, 2, 1, 0, 0, 0))] for r in (9, 8, 7, 6)]

    def search(last):
        count = itertools.count()
        custom = CovarianceErrorFunction.Custom(lambda c, n: last() if next(count) >= calls else 1)
        return talvorix.optimize_covariance(models, custom, 90, 90, n_threads)

    def refuse():
        raise Refusal("reason")

    with pytest.raises(Refusal, match="reason"):
        search(refuse)
    for last in ("x", None, [1.0], 1j):
        with pytest.raises(TypeError, match=f"python_callback .*{type(last).__name__}"):
            search(lambda last=last: last)
    assert search(lambda: np.float32(0.5))[1] == 0.5
    raw = CovarianceErrorFunction.Custom(lambda covariance, n_threads: n_threads)
    found = raw(models[0]), raw(models[0], -7), raw(covariance=models[0], n_threads=99)
    assert found == (0, -7, 99)


NESTED_SEARCH = """
import sys, talvorix as t
outer_threads, inner_threads = map(int, sys.argv[1:])
models = [[t.Covariance.spherical(1.0, t.Ellipsoid(r, 2, 1, 0, 0, 0))] for r in (9, 8, 7, 6)]
inner = t.CovarianceErrorFunction.Custom(lambda c, n: c[0].ellipsoid.info().r1())
search = lambda f, n: t.optimize_covariance(models, f, 5, 5, n)[1]
expected = search(inner, inner_threads)
custom = t.CovarianceErrorFunction.Custom(lambda c, n: search(inner, inner_threads))
print(custom(models[0]) == search(custom, outer_threads) == expected)
"""


@pytest.mark.parametrize("outer", [1, 2])
@pytest.mark.parametrize("inner", [1, 2])
def test_a_callback_may_search_itself(outer, inner):
    command = [sys.executable, "-c", NESTED_SEARCH, str(outer), str(inner)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=30)
    assert (done.stdout, done.stderr) == ("True\n", "")


@quick
def test_bad_input():
    points, values = scattered(12)
    covs, fold, short = [structure(*s) for s in NESTED], (points, values), (points, values[:5])
    folds, error = talvorix.create_folds, talvorix.compute_covariance_error_idw
    measure, search = CovarianceErrorFunction.IDW([fold], 50), talvorix.optimize_covariance
    by_idw, kernel = talvorix.optimize_ellipsoid_using_idw, (Kernel.spherical, 1.0, 2.0)
    after, lengths, order = (2, 0, 2, 9, 2, 5, 5, 0.1), "has 5 .* has 12", "max_partition.* 2.* 3"
    no_pair = talvorix.EllipsoidOptimizationParameters(tol=0.0, n_rays=3)
    calls = [
        (folds, (*short, 1, 1, 1), lengths),
        (folds, ([], [], 1, 1, 1), "data is empty"),
        (error, (covs, [fold, short], 9, -1, 3, 2, 3, 2, 0), lengths),
        (error, (covs, [fold], 9, -1, 3, 3, 2, 2, 0), order),
        (error, (covs, [fold], 9, -1, 3, 2, 3, -2, 0), "n_partitions .*-2"),
        (CovarianceErrorFunction.IDW, ([short], 9), lengths),
        (CovarianceErrorFunction.IDW, ([fold], 9, 3, 3, 2), order),
        (search, ([], measure), "covs is empty"),
        (search, ([covs], measure, -1), "n_iterations .*-1"),
        (by_idw, (*short, *kernel, 3.0, 50.0, 9, 2, 3, *after), lengths),
        (by_idw, (*fold, *kernel, 3.0, 50.0, 9, 3, 2, *after), order),
        (talvorix.optimize_ellipsoid, ([], [], *kernel), "data_locs is empty"),
        (talvorix.optimize_ellipsoid, (*fold, *kernel, no_pair), "tol admits no pair"),
    ]
    for method, power, _ in METHODS[3:]:
        validate = getattr(talvorix, f"kfold_cross_validation_using_{method}")
        calls += [
            (validate, (*short, covs, 9), lengths),
            (validate, (*fold, covs, 9, -1, *power, 3, 2, 2), order),
            (validate, (*fold, covs, 9, -1, *power, -1, 2, 2), "min_partition_size .*-1"),
            (validate, (*fold, covs, 9, -1, *power, 2, 3, -2), "n_partition_size .*-2"),
        ]
    for call, arguments, message in calls:
        with pytest.raises(ValueError, match=message):
            call(*arguments)
    for call, wrong in ((CovarianceErrorFunction.Custom, [3]), (search, ([covs], max))):
        with pytest.raises(TypeError):
            call(*wrong)
