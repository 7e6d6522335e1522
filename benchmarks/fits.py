"""Speed of fits: multivariate transforms, variogram maps, local ellipsoids, nested models.

Usage: python fits.py [COMPOSITES.csv] [--repeats R] [--steps N] [--out FILE.md]

Everything is measured in this one run; README.md says what each table shows.
"""

import contextlib
import os
import sys
import tempfile

import numpy as np
import talvorix
from common import (
    best_of,
    finish,
    load_composites,
    machine,
    parse_arguments,
    peer_version,
    table,
)
from scipy import stats
from threadpoolctl import threadpool_limits

from simulation import Floor

THREADS = sorted({1, talvorix.check_n_threads(0)})
SAMPLES, VARIABLES, PROJECTIONS = 5_000, 5, 200
PEER_ITERATIONS, PEER_DIRECTIONS = 50, 50
NORMAL_ENOUGH = 0.6  # how much of the worst projection's distance from normal may be left
CELLS, MISSING, BANDWIDTH = 128, 0.1, 1.0
MAP_DIRECTIONS = (50, 500)  # halves of their number
MAP_LAGS = 1_000
CHECKED_LAGS, MAP_TOLERANCE = 6, 1e-9  # of a semivariance, relative
CENTERS, LOCAL_CENTERS, CENTER_SIZE, LOCAL_SIZE = 6, 4, 600, 200
STRUCTURES = ((0.5, (300, 200, 60), 30), (0.3, (900, 400, 150), 100), (0.2, (120, 90, 40), 0))
FIT_NOISE, FIT_TOLERANCE = 0.02, 0.01  # of semivariances, by the sill
PAIRS_TOLERANCE = 0.15  # root mean squared error of a projection, by the target's deviation


def show(row):
    """Tell how far the run is, and return the row."""
    print(*row, sep="  ", file=sys.stderr)
    return row


@contextlib.contextmanager
def quiet():
    """Keep what a fit writes of its progress out of the report."""
    sys.stdout.flush()
    screen, nowhere = os.dup(1), os.open(os.devnull, os.O_WRONLY)
    os.dup2(nowhere, 1)
    try:
        yield
    finally:
        os.dup2(screen, 1)
        os.close(screen)
        os.close(nowhere)


def make_samples():
    """Return correlated skewed samples: products and a sum of squares bend what is linear."""
    rng = np.random.default_rng(1)
    factors = rng.standard_normal((SAMPLES, VARIABLES))
    mixed = factors @ rng.normal(0.0, 0.25, (VARIABLES, VARIABLES))
    mixed[:, 1] += 0.1 * factors[:, 0] ** 2
    mixed[:, 2] += 0.2 * factors[:, 3] * factors[:, 4]
    return np.exp(mixed)


def worst_projection(scores):
    """Return how far the cumulative distribution along random directions is from normal."""
    directions = np.random.default_rng(2).standard_normal((scores.shape[1], PROJECTIONS))
    projected = scores @ (directions / np.linalg.norm(directions, axis=0))
    return max(stats.kstest(column, "norm").statistic for column in projected.T)


def sphered(samples):
    """Return normal scores of each variable, turned and scaled to be uncorrelated."""
    ranks = stats.rankdata(samples, axis=0)
    scores = stats.norm.ppf((ranks - 0.5) / len(samples))
    values, vectors = np.linalg.eigh(np.cov(scores.T))
    return (scores - scores.mean(axis=0)) @ vectors / np.sqrt(values)


def gstlearn_fit(samples):
    """Return a call that transforms with gstlearn, and gives the scores."""
    import gstlearn as gl

    start = sphered(samples)

    def run():
        transform = gl.PPMT.create(PEER_DIRECTIONS, False)
        matrix = gl.MatrixDense(*start.shape)
        matrix.setValues(start.T.ravel())
        with threadpool_limits(1):
            if transform.fitFromMatrix(matrix, PEER_ITERATIONS, False):
                raise SystemExit("gstlearn's transform cannot be fitted")
        return np.reshape(matrix.getValues(), start.shape[::-1]).T

    return run


def measure_transform(steps, repeats, peers, failures):
    """Return the table of a step of the multivariate transform beside gstlearn's iteration."""
    samples, rows, notes = make_samples(), [], []

    def fit(n_threads):
        iso_params = talvorix.IsomorphismParameters(
            kernel_backward="spherical", n_threads=n_threads
        )
        with quiet():
            return talvorix.PPMT(samples, steps, iso_params=iso_params, n_threads=n_threads)

    best, results = best_of(repeats, {t: lambda t=t: fit(t) for t in THREADS})
    scores = {t: result.forward(samples) for t, result in results.items()}
    offs = worst_projection(stats.zscore(samples)), worst_projection(scores[1])
    if not offs[1] < NORMAL_ENOUGH * offs[0]:
        failures.append(f"PPMT: a projection is {offs[1]:.3f} off normal, and was {offs[0]:.3f}")
    if not all(np.array_equal(scores[1], scores[t]) for t in THREADS):
        failures.append("PPMT: threads change the scores")
    alone = best[1] / steps

    def add(name, n_threads, count, seconds, off):
        speed = f"**{best[1] / seconds:.2f}**" if name == "talvorix" else ""
        cells = f"{1e3 * seconds / count:.0f}", f"**{seconds / count / alone:.3f}**"
        rows.append(show((name, n_threads, count, *cells, speed, f"{off:.3f}")))

    for n_threads, seconds in best.items():
        add("talvorix", n_threads, steps, seconds, offs[1])
    version = peer_version("gstlearn") if peers else None
    if version:
        seconds, found = best_of(repeats, {"": gstlearn_fit(samples)})
        name = f"gstlearn {version}"
        add(name, 1, PEER_ITERATIONS, seconds[""], worst_projection(found[""]))
    elif peers:
        notes.append("- gstlearn: skipped, it is not installed.")
    header = (
        "transform",
        "threads",
        "steps",
        "ms a step",
        "time a step / talvorix's on one thread",
        "times as fast as one",
        "worst projection off by",
    )
    note = f"The worst projection of the samples themselves, standardised, is off by {offs[0]:.3f}."
    return "\n\n".join([note, table(header, rows), *notes])


def check_map(values, variogram, name, failures):
    """Hold some entries against means over the pairs of all cells around their lags."""
    n, rng = len(values), np.random.default_rng(3)
    lags = np.reshape(variogram.lags, (-1, 3))
    # Far from the lags that few cells are at.
    chosen = rng.choice(np.flatnonzero(np.asarray(variogram.npairs) > n), CHECKED_LAGS)
    reach = np.arange(-(n // 2), n // 2 + 1)
    radius = BANDWIDTH * np.sqrt(3.0)
    for entry in chosen:
        axes = [reach[np.abs(reach - lag) < radius] for lag in lags[entry]]
        cells = np.stack(np.meshgrid(*axes, indexing="ij"), axis=-1).reshape(-1, 3)
        total, pairs = 0.0, 0
        for cell in cells[np.linalg.norm(cells - lags[entry], axis=1) < radius]:
            here = tuple(slice(max(0, c), n + min(0, c)) for c in cell)
            there = tuple(slice(max(0, -c), n + min(0, -c)) for c in cell)
            squares = 0.5 * (values[here] - values[there]) ** 2
            total += np.nansum(squares)
            pairs += np.count_nonzero(np.isfinite(squares))
        found = variogram.variogram[entry], variogram.npairs[entry]
        off = abs(found[0] * pairs / total - 1.0)
        if not (off < MAP_TOLERANCE and abs(found[1] - pairs) <= 1):
            failures.append(
                f"{name}: entry {entry} has {found[0]:.12g} of {found[1]} pairs, "
                f"numpy {total / pairs:.12g} of {pairs}"
            )


def measure_map(floor, repeats, failures):
    """Return the table of a variogram by transforms beside these, and passes over the map."""
    n, rng = CELLS, np.random.default_rng(4)
    waves = np.cos(np.arange(n)[:, None] * [0.11, 0.04] + rng.uniform(0, 6, 2)).T
    values = waves[0][:, None, None] + waves[1][:, None] * waves[0] + rng.normal(0, 0.5, (n, n, n))
    values[rng.random(values.shape) < MISSING] = np.nan
    corners = np.array([[0.0] * 3, [n] * 3])
    locations = np.stack(np.indices(values.shape), axis=-1).reshape(-1, 3) + 0.5
    data = values.ravel()
    lattice = (2 * n - 1,) * 3
    a, b = rng.random((2, *lattice))
    rows = []
    for half in MAP_DIRECTIONS:
        alone = None
        for n_threads in THREADS:
            plans = floor.plan(2 * n - 1, n_threads, failures)
            searched = 2 * half * MAP_LAGS

            def compute(half=half, n_threads=n_threads):
                return talvorix.compute_variogram(
                    corners, locations, data, n, n, n, half, MAP_LAGS, BANDWIDTH, n_threads
                )

            works = {
                "map": compute,
                "transforms": lambda plans=plans: floor.library.transforms_run(plans),
                "pass": lambda: np.multiply(a, b, out=b),
            }
            talvorix.set_fft_n_threads(n_threads)
            best, results = best_of(repeats, works)
            talvorix.set_fft_n_threads(talvorix.check_n_threads(0))
            floor.library.transforms_release(plans)
            name = f"compute_variogram, {2 * half:,} directions, {n_threads} threads"
            check_map(values, results["map"], name, failures)
            # One run makes two transforms, forth and back, of which a map needs five.
            parts = 2.5 * best["transforms"], searched / 1e6 * best["pass"]
            alone = alone or best["map"]
            cells = (f"{1e3 * seconds:.0f}" for seconds in (best["map"], *parts))
            ratios = f"**{best['map'] / sum(parts):.2f}**", f"**{alone / best['map']:.2f}**"
            rows.append(show((f"{2 * half:,} x {MAP_LAGS:,}", n_threads, *cells, *ratios)))
    header = (
        "directions x lags",
        "threads",
        "compute_variogram, ms",
        "five transforms, ms",
        "passes, ms",
        "time / both",
        "times as fast as one",
    )
    return table(header, rows)


def fit_local(data, failures):
    """Return a call that fits local ellipsoids, what it counts, and a check of two results."""

    def work(n_threads):
        settings = talvorix.EllipsoidLBFGSParameters(n_iterations=50, n_threads=n_threads)
        reach = np.linalg.norm(np.ptp(data.locations, axis=0)) / 10
        numbers = CENTERS, LOCAL_CENTERS, 1.0, CENTER_SIZE, LOCAL_SIZE, reach
        given = data.locations, data.values, "spherical", *numbers, settings
        return talvorix.optimize_local_ellipsoids_using_lbfgs(*given)

    def check(results):
        shapes = {
            t: [np.asarray(model[0].ellipsoid.matrix()) for model in result.covariances]
            for t, result in results.items()
        }
        if not all(np.array_equal(shapes[1], shapes[t]) for t in THREADS):
            failures.append("optimize_local_ellipsoids_using_lbfgs: threads change ellipsoids")
        if not all(abs(sum(result.errors) - 1.0) < 1e-9 for result in results.values()):
            failures.append("optimize_local_ellipsoids_using_lbfgs: errors do not add up to 1")

    return "optimize_local_ellipsoids_using_lbfgs, a centre", CENTERS, work, check


def fit_nested(n_lags, failures):
    """Return the same for a nested model."""
    rng = np.random.default_rng(5)
    lags = rng.normal(0.0, (350, 250, 100), (n_lags, 3))
    truth = [
        talvorix.Covariance.exponential(sill, talvorix.Ellipsoid(*ranges, azimuth, 0.0, 0.0))
        for sill, ranges, azimuth in STRUCTURES
    ]
    exact = np.array(talvorix.variogram_computer(truth, 1.0).simulate(lags))
    measured = exact + rng.normal(0.0, FIT_NOISE, n_lags)
    bounds = 10.0, 10.0, 10.0, 1500.0, 1500.0, 1500.0

    def work(n_threads):
        given = lags, measured, np.ones(n_lags), len(STRUCTURES), "exponential", *bounds
        solver = 1.0, 60, 0.0, 0.0, 0.0, 10.0, 1, n_threads, False
        return talvorix.extract_covariance_from_varmap(*given, *solver)

    def check(results):
        curves = {
            t: np.array(talvorix.variogram_computer(model, 1.0).simulate(lags))
            for t, model in results.items()
        }
        off = np.sqrt(np.mean((curves[1] - exact) ** 2))
        if not off < FIT_TOLERANCE:
            failures.append(f"extract_covariance_from_varmap: {off:.3f} sills off the true model")
        if not all(np.array_equal(curves[1], curves[t]) for t in THREADS):
            failures.append("extract_covariance_from_varmap: threads change the model")

    name = f"extract_covariance_from_varmap, {n_lags:,} lags, {len(STRUCTURES)} structures"
    return name, 1, work, check


def fit_projection(n_pairs, failures):
    """Return the same for a smooth map of numbers."""
    source = np.random.default_rng(6).gamma(4.0, 1.0, n_pairs)
    target = stats.norm.ppf(stats.gamma.cdf(source, 4.0))
    low, high, span = target.min(), target.max(), np.ptp(source)

    def work(n_threads):
        bounds = 2 * low, 2 * high, 1e-6 / span, 8.0 / span, -span, 2 * span
        sizes = 4, n_pairs // 4, n_pairs // 2
        given = source, target, "exponential", 27, *bounds, *sizes, 0.0, 20, n_threads, 7, False
        return talvorix.optimize_projection(*given)

    def check(results):
        mapped = {t: np.array(result.forward(source)) for t, result in results.items()}
        off = np.sqrt(np.mean((mapped[1] - target) ** 2)) / target.std()
        if not off < PAIRS_TOLERANCE:
            failures.append(f"optimize_projection: {off:.3f} deviations off the pairs")
        if not all(np.array_equal(mapped[1], mapped[t]) for t in THREADS):
            failures.append("optimize_projection: threads change the map")

    return f"optimize_projection, {n_pairs:,} pairs", 1, work, check


def measure_threads(fits, repeats):
    """Return the table of fits on one thread and on all."""
    rows = []
    for name, count, work, check in fits:
        best, results = best_of(repeats, {t: lambda t=t, work=work: work(t) for t in THREADS})
        check(results)
        for n_threads, seconds in best.items():
            cells = f"{1e3 * seconds / count:.0f}", f"**{best[1] / seconds:.2f}**"
            rows.append(show((name, n_threads, *cells)))
    return table(("fit", "threads", "ms", "times as fast as one"), rows)


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    sizes = {
        "repeats": (3, "the best one counts"),
        "steps": (4, "of the multivariate transform"),
        "lags": (20_000, "that a nested model is fitted to"),
        "pairs": (20_000, "that a projection is fitted to"),
    }
    given = parse_arguments("fits.py", __doc__.splitlines()[0], sizes)
    failures, data = [], load_composites(given.composites)
    with tempfile.TemporaryDirectory() as folder:
        floor = Floor(folder, given.compiler, given.flags)
        report = [
            f"Fits, best of {given.repeats}; local ellipsoids of {len(data.values):,} composites "
            f"({data.name}).",
            machine(given.compiler, given.flags),
            f"### Multivariate transform of {SAMPLES:,} samples of {VARIABLES} variables",
            measure_transform(given.steps, given.repeats, not given.no_peers, failures),
            f"### Variogram of {CELLS}³ cells beside transforms and passes over the map",
            measure_map(floor, given.repeats, failures),
        ]
    fits = (
        fit_local(data, failures),
        fit_nested(given.lags, failures),
        fit_projection(given.pairs, failures),
    )
    report += ["### Threads", measure_threads(fits, given.repeats)]
    finish(report, given, failures)


if __name__ == "__main__":
    main()
