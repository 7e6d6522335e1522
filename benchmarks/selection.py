"""Speed of cross-validation and of the search for ellipsoids, beside NumPy and beside gstat.

Usage: python selection.py [COMPOSITES.csv] [--repeats R] [--models N] [--out FILE.md]

Everything is measured in this one run; README.md says what each table shows.
"""

import argparse
import csv
import platform
import re
import shlex
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import scipy
import talvorix
from common import HERE, finish, load_composites, peer_version, rate, run_program, table
from scipy.spatial.distance import cdist
from threadpoolctl import threadpool_limits

SHARES = 0.01, 0.3  # bounds of the ranges, in parts of the diagonal of the data's box
CHECKED_MODELS = 4
DRAWS = 4  # scores that are averaged where subsets are drawn: one varies by almost a per cent
SCORE_TOLERANCE = 0.03  # of such a mean
TOLERANCE = 1e-9  # where nothing is drawn; in standard deviations of the data, or of the score

NUGGET, SILL = 0.15, 0.85
RANGES, AZIMUTH = (1200.0, 800.0, 250.0), 35.0
NEIGHBORS = 25  # the mean of the default sizes of subsets, 10 to 40
SUBSETS, POOL = 15, 60  # how many for each datum, and the number of nearest they come from
CHECKED = 300
FAR = 1e9  # reaches all data


def elapsed(work):
    """Do a piece of work; return seconds and the result."""
    start = time.perf_counter()
    result = work()
    return time.perf_counter() - start, result


def best_of(repeats, works):
    """Return the best seconds of each piece of work, and its last result.

    They are done in turn, so that a busy moment of the machine touches all alike.
    """
    best, results = dict.fromkeys(works, np.inf), {}
    for _ in range(repeats):
        for name, work in works.items():
            seconds, results[name] = elapsed(work)
            best[name] = min(best[name], seconds)
    return best, results


def spherical(h):
    """Return the correlation at distances in ranges."""
    return np.where(h < 1.0, 1.0 - 1.5 * h + 0.5 * h**3, 0.0)


class NumpyScore:
    """The score of the search, as a script would compute it."""

    def __init__(self, folds, max_distance, parameters, rng):
        self.power, self.weight = parameters.power_a, parameters.regularization_const
        self.sizes = parameters.min_partition_size, parameters.max_partition_size
        self.count, self.max_distance, self.rng = parameters.n_partitions, max_distance, rng
        self.folds = []
        for locations, values in folds:
            locations, values = np.reshape(locations, (-1, 3)), np.array(values)
            usable = cdist(locations, locations) < max_distance
            np.fill_diagonal(usable, False)
            self.folds.append((locations, (values - values.mean()) / values.std(), usable))
        self.kept = None

    def keep_subsets(self):
        """Draw the subsets once for all models."""
        self.kept = [self.draw(usable) for *_, usable in self.folds]
        return self

    def draw(self, usable):
        """Return subsets for every datum of a fold, and which of their places are taken."""
        n, most = len(usable), min(self.sizes[1], len(usable))
        # The data with the smallest of random keys, in the order of the keys.
        keys = self.rng.random((n, self.count, n))
        keys[~np.broadcast_to(usable[:, None], keys.shape)] = np.inf
        chosen = np.argpartition(keys, most - 1)[..., :most]
        keys = np.take_along_axis(keys, chosen, -1)
        order = np.argsort(keys)
        chosen = np.take_along_axis(chosen, order, -1)
        sizes = self.rng.integers(self.sizes[0], self.sizes[1] + 1, (n, self.count, 1))
        taken = (np.arange(most) < sizes) & np.isfinite(np.take_along_axis(keys, order, -1))
        return chosen, taken & (usable.sum(axis=1) > 2)[:, None, None]

    def finish(self, matrix, errors):
        """Return the score from the matrix of an ellipsoid and all errors."""
        errors = errors[np.isfinite(errors)]
        squared_ranges = 1.0 / (matrix**2).sum(axis=1)
        return np.abs(errors).mean() * (1.0 + self.weight * np.log1p(squared_ranges).sum())

    def weights(self, h):
        """Return the weights of data at distances in ranges."""
        distances = 1.0 - spherical(h)
        with np.errstate(divide="ignore"):
            return np.where(distances > 1e-10, (1.0 / distances) ** self.power, 0.0)

    def by_folds(self, ellipsoid):
        """Score an ellipsoid with all data of a fold at once."""
        matrix, errors = np.array(ellipsoid.matrix()), []
        for f, (locations, values, usable) in enumerate(self.folds):
            chosen, taken = self.kept[f] if self.kept else self.draw(usable)
            mapped = locations @ matrix.T
            h = cdist(mapped, mapped)
            weights = self.weights(h[np.arange(len(h))[:, None, None], chosen]) * taken
            with np.errstate(invalid="ignore"):
                estimates = (weights * values[chosen]).sum(axis=-1) / weights.sum(axis=-1)
            errors.append((estimates - values[:, None]).ravel())
        return self.finish(matrix, np.concatenate(errors))

    def by_data(self, ellipsoid):
        """Score an ellipsoid one datum after the other."""
        matrix, errors = np.array(ellipsoid.matrix()), []
        for locations, values, usable in self.folds:
            mapped = locations @ matrix.T
            for i, row in enumerate(usable):
                candidates = np.flatnonzero(row)
                if len(candidates) <= 2:
                    continue
                weights = self.weights(np.linalg.norm(mapped[candidates] - mapped[i], axis=1))
                for size in self.rng.integers(self.sizes[0], self.sizes[1] + 1, self.count):
                    places = self.rng.permutation(len(candidates))[:size]
                    w = weights[places]
                    errors.append(w @ values[candidates[places]] / w.sum() - values[i])
        return self.finish(matrix, np.array(errors))


def diagonal_of(data):
    """Return the diagonal of the data's box."""
    return float(np.linalg.norm(np.ptp(data.locations, axis=0)))


def candidates_of(data, parameters):
    """Return the ellipsoids that a search scans."""
    bounds = [share * diagonal_of(data) for share in SHARES]
    p = parameters
    return talvorix.generate_ellipsoids(*bounds, p.n_rays, p.n_scales, p.seed, p.tol)


def score(ellipsoid, folds, max_distance, parameters, seed=1):
    """Score one ellipsoid with talvorix on one thread."""
    return talvorix.compute_covariance_error_idw(
        [talvorix.Covariance.spherical(1.0, ellipsoid)],
        folds,
        max_distance,
        -1,
        parameters.power_a,
        parameters.min_partition_size,
        parameters.max_partition_size,
        parameters.n_partitions,
        parameters.regularization_const,
        n_threads=1,
        seed=seed,
    )


def search(data, n_threads):
    """Search an ellipsoid with the default parameters."""
    parameters = talvorix.EllipsoidOptimizationParameters()
    parameters.n_threads = n_threads
    return talvorix.optimize_ellipsoid(
        data.locations, data.values, talvorix.Kernel.spherical, *SHARES, parameters
    )


def count_models(n_candidates, parameters, failures):
    """Return how many models a search on one thread scores, and see whether that is so."""
    calls = 0

    def error(_covariances, _n_threads):
        nonlocal calls
        calls += 1
        return float(calls)

    expected = n_candidates + parameters.n_iterations + 2
    models = [[talvorix.Covariance.spherical(1.0, talvorix.Ellipsoid(2, 1, 1, 0, 0, 0))]]
    talvorix.optimize_covariance(
        models * n_candidates,
        talvorix.CovarianceErrorFunction.Custom(error),
        parameters.n_iterations,
        parameters.n_iterations_without_upgrade,
        n_threads=1,
    )
    if calls != expected:
        failures.append(f"a search scored {calls:,} models, not {expected:,}")
    return calls


def check_scores(data, failures):
    """Hold scores of talvorix against those of numpy, and return a line about them."""
    parameters = talvorix.EllipsoidOptimizationParameters()
    everything = talvorix.EllipsoidOptimizationParameters()
    everything.min_partition_size = everything.max_partition_size = parameters.max_nei_size
    everything.n_partitions = 1
    ellipsoids = candidates_of(data, parameters)[:CHECKED_MODELS]
    reach = diagonal_of(data)
    exact = drawn = 0.0
    # The short distance leaves many data of a fold out of reach of each other.
    for max_distance in (reach, 0.01 * reach):
        folds = talvorix.create_folds(
            data.locations, data.values, reach, parameters.max_nei_size, parameters.n_centers
        )
        rng = np.random.default_rng(5)
        numpy_exact = NumpyScore(folds, max_distance, everything, rng)
        numpy_drawn = NumpyScore(folds, max_distance, parameters, rng)
        for ellipsoid in ellipsoids:
            ours = score(ellipsoid, folds, max_distance, everything)
            # NaN, unlike in max, stays.
            exact = np.maximum(exact, abs(numpy_exact.by_folds(ellipsoid) / ours - 1.0))
            ours = [score(ellipsoid, folds, max_distance, parameters, k) for k in range(DRAWS)]
            for method in (numpy_drawn.by_folds, numpy_drawn.by_data):
                theirs = [method(ellipsoid) for _ in range(DRAWS)]
                drawn = np.maximum(drawn, abs(np.mean(theirs) / np.mean(ours) - 1.0))
    if not (exact < TOLERANCE and drawn < SCORE_TOLERANCE):
        failures.append(f"scores beside numpy: off by {exact:.1e}, with subsets by {drawn:.1%}")
    return (
        f"Scores of {len(ellipsoids)} ellipsoids at two distances held against numpy: with all "
        f"other data in place of subsets they are off by {exact:.0e} of the score; with subsets, "
        f"which each draws its own way, means of {DRAWS} scores are off by at most {drawn:.1%}."
    )


def measure_scores(data, n_models, repeats, failures):
    """Return the tables of the search beside numpy, and over threads."""
    parameters = talvorix.EllipsoidOptimizationParameters()
    reach = diagonal_of(data)
    candidates = candidates_of(data, parameters)
    scored = count_models(len(candidates), parameters, failures)
    folds = talvorix.create_folds(
        data.locations, data.values, reach, parameters.max_nei_size, parameters.n_centers
    )
    fresh = NumpyScore(folds, reach, parameters, np.random.default_rng(6))
    kept = NumpyScore(folds, reach, parameters, np.random.default_rng(6)).keep_subsets()
    some = candidates[:n_models]
    # What draws afresh needs no more than a few.
    few = some[: max(n_models // 10, 1)]
    threads = sorted({1, talvorix.check_n_threads(0)})
    works = {
        "numpy, datum by datum": (len(few), lambda: list(map(fresh.by_data, few))),
        "numpy, fold by fold": (len(few), lambda: list(map(fresh.by_folds, few))),
        "numpy, fold by fold, subsets kept": (len(some), lambda: list(map(kept.by_folds, some))),
        "talvorix.compute_covariance_error_idw": (
            len(some),
            lambda: [score(ellipsoid, folds, reach, parameters) for ellipsoid in some],
        ),
    }
    for n in threads:
        works[n] = (scored + n - 1, lambda n=n: search(data, n))
    with threadpool_limits(1):
        best, _ = best_of(repeats, {name: work for name, (_, work) in works.items()})
    speeds = {name: works[name][0] / seconds for name, seconds in best.items()}
    rows = []
    for name, (count, _) in works.items():
        if name in threads[1:]:
            continue
        label = "talvorix.optimize_ellipsoid" if name == 1 else name
        ratio = f"**{speeds[1] / speeds[name]:.1f}**"
        rows.append((label, f"{count:,}", f"{speeds[name]:.3g}", ratio))
        print(*rows[-1], sep="  ", file=sys.stderr)
    header = ("scored by", "models scored", "models/s", "rate of the search / its rate")
    over_threads = [
        (
            "optimize_ellipsoid",
            n,
            f"{best[n]:.2f}",
            rate(works[n][0], best[n]) + " models",
            f"**{speeds[n] / speeds[1]:.2f}**",
        )
        for n in threads
    ]
    return table(header, rows), over_threads


def ellipsoid_of_model():
    """Return the ellipsoid of the model that is validated."""
    return talvorix.Ellipsoid(*RANGES, AZIMUTH, 0.0, 0.0)


def validate(data, simple, n_threads=1, pool=POOL, subsets=SUBSETS, sizes=(10, 40)):
    """Cross-validate with talvorix; return an array of errors."""
    method = (
        talvorix.kfold_cross_validation_using_sk
        if simple
        else talvorix.kfold_cross_validation_using_ok
    )
    model = [
        talvorix.Covariance.nugget(NUGGET),
        talvorix.Covariance.spherical(SILL, ellipsoid_of_model()),
    ]
    # A datum counts among its own nearest.
    return method(data.locations, data.values, model, FAR, pool + 1, *sizes, subsets, n_threads)


def leave_one_out(data, simple):
    """Krige data from their nearest others in the plainest way, all in standard deviations.

    Returns the data, the estimates and the multipliers. Up to CHECKED data are looked at, less
    those whose nearest are a matter of choice.
    """
    values = (data.values - data.values.mean()) / data.values.std()
    matrix = np.array(ellipsoid_of_model().matrix())
    n, results = NEIGHBORS, []
    for row in np.unique(np.linspace(0, len(values) - 1, CHECKED).astype(int)):
        distances = np.linalg.norm(data.locations - data.locations[row], axis=1)
        nearest = np.argsort(distances)[1 : n + 2]
        if np.diff(distances[nearest])[-1] < 1e-9:
            continue
        nearest = nearest[:n]
        mapped = data.locations[nearest] @ matrix.T
        system, right = np.ones((n + 1, n + 1)), np.ones(n + 1)
        system[:n, :n] = SILL * spherical(cdist(mapped, mapped)) + NUGGET * np.eye(n)
        system[n, n] = 0.0
        target = (data.locations[row] @ matrix.T)[None]
        right[:n] = SILL * spherical(cdist(mapped, target)[:, 0])
        size = n if simple else n + 1
        solution = np.linalg.solve(system[:size, :size], right[:size])
        multiplier = 0.0 if simple else solution[n]
        results.append((row, solution[:n] @ values[nearest], multiplier))
    rows, estimates, multipliers = map(np.array, zip(*results, strict=True))
    return rows, values[rows], estimates, multipliers


def run_gstat(data, simple):
    """Leave each datum out with gstat; return seconds and estimates in standard deviations."""
    settings = {
        "n_points": len(data.values),
        "neighbors": NEIGHBORS,
        "simple": int(simple),
        "nugget": NUGGET,
        "sill": SILL,
        "azimuth": AZIMUTH,
    } | dict(zip(("r1", "r2", "r3"), RANGES, strict=True))
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        data.locations.tofile(folder / "points.bin")
        ((data.values - data.values.mean()) / data.values.std()).tofile(folder / "values.bin")
        with open(folder / "settings.csv", "w", newline="") as file:
            csv.writer(file).writerows([settings.keys(), settings.values()])
        command = ["Rscript", str(HERE / "selection.R"), name]
        seconds, *estimates = run_program(command, folder / "result.bin")
    return seconds, np.array(estimates)


def measure_validations(data, left_out, repeats, peers, failures):
    """Return the table of leave-one-out beside gstat."""
    some = np.sort(np.random.default_rng(3).permutation(len(data.values))[:left_out])
    fewer = data.take(some, "some of the composites")
    version = peer_version("gstat") if peers else None
    rows, notes = [], []
    for simple in (False, True):
        kind = "simple" if simple else "ordinary"
        checked, values, estimates, multipliers = leave_one_out(fewer, simple)
        works = {
            "one": lambda simple=simple: validate(
                fewer, simple, pool=NEIGHBORS, subsets=1, sizes=(NEIGHBORS, NEIGHBORS)
            ),
            "many": lambda simple=simple: validate(data, simple),
        }
        best, results = best_of(max(repeats, 5), works)
        errors = np.array(results["one"])[:, 0]
        off = np.abs(errors[checked] + values - estimates - multipliers).max()
        if not off < TOLERANCE:
            failures.append(f"talvorix, leave-one-out by {kind} kriging: off by {off:.1e}")
        peer_rate = None
        if version:
            try:
                seconds, found = run_gstat(fewer, simple)
            except RuntimeError as error:
                notes.append(f"gstat {version}, {kind}: failed ({error}).")
            else:
                count = len(fewer.values)
                peer_rate = count / seconds
                peer_off = np.abs(found[checked] - estimates).max()
                rows.append(
                    (
                        f"gstat {version}, krige.cv",
                        kind,
                        f"{count:,}",
                        f"{NEIGHBORS} nearest",
                        f"{count:,}",
                        rate(peer_rate, 1.0),
                        "**1**",
                        f"{peer_off:.0e}",
                    )
                )
        for name, used, neighbors, subsets in (
            ("one", fewer, f"{NEIGHBORS} nearest", 1),
            ("many", data, f"10-40, {NEIGHBORS} on average, of {POOL} nearest", SUBSETS),
        ):
            count = subsets * len(used.values)
            rows.append(
                (
                    "talvorix",
                    kind,
                    f"{len(used.values):,}",
                    neighbors,
                    f"{count:,}",
                    rate(count, best[name]),
                    f"**{count / best[name] / peer_rate:,.0f}**" if peer_rate else "",
                    f"{off:.0e}" if name == "one" else "",
                )
            )
    if peers and not version:
        notes.append("gstat: skipped, it is not installed.")
    header = (
        "package",
        "kriging",
        "composites",
        "neighbours",
        "predictions",
        "predictions/s",
        "rate / gstat's rate",
        "off by",
    )
    for row in rows:
        print(*row, sep="  ", file=sys.stderr)
    lines = "\n".join(f"- {note}" for note in notes)
    return table(header, rows) + ("\n\n" + lines if notes else "")


def validations_over_threads(data, repeats):
    """Return the rows of validations on one thread and on all."""
    threads = sorted({1, talvorix.check_n_threads(0)})
    rows = []
    for simple in (False, True):
        works = {n: lambda simple=simple, n=n: validate(data, simple, n) for n in threads}
        best, _ = best_of(max(repeats, 5), works)
        count = SUBSETS * len(data.values)
        rows += [
            (
                f"kfold_cross_validation_using_{'sk' if simple else 'ok'}",
                n,
                f"{seconds:.2f}",
                rate(count, seconds) + " predictions",
                f"**{best[1] / seconds:.2f}**",
            )
            for n, seconds in best.items()
        ]
    return rows


def parse_arguments():
    """Return the arguments of the command line, and as `command` the line without folders.

    Nothing is compiled here, so the options of a compiler, which the other benchmarks share, are
    left out.
    """
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("composites", nargs="?", type=Path, metavar="COMPOSITES.csv")
    sizes = {
        "repeats": (3, "the best one counts; gstat runs once"),
        "models": (50, "scored by what is compared with the search"),
        "left-out": (2_000, "composites for gstat"),
    }
    for name, (default, text) in sizes.items():
        text += " (default: %(default)s)"
        parser.add_argument(f"--{name}", type=int, default=default, metavar="N", help=text)
    parser.add_argument("--no-peers", action="store_true", help="leave other packages out")
    parser.add_argument("--out", type=Path, metavar="FILE.md", help="write the report there too")
    arguments = parser.parse_args()
    words = ["python", "selection.py"]
    if arguments.composites:
        words.append(arguments.composites.name)
    for name in sizes:
        value = getattr(arguments, name.replace("-", "_"))
        if value < 1:
            parser.error(f"--{name}: a number of at least 1 was expected")
        words += [f"--{name}", str(value)]
    if arguments.left_out < 2 * NEIGHBORS:
        parser.error(f"--left-out: a number of at least {2 * NEIGHBORS} was expected")
    if arguments.no_peers:
        words.append("--no-peers")
    arguments.command = shlex.join(words)
    return arguments


def machine():
    """Return a line on the processor, the threads and the libraries."""
    found = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    return (
        f"{found[1] if found else platform.processor()}, {talvorix.check_n_threads(0)} threads; "
        f"Python {platform.python_version()}, numpy {np.__version__}, scipy {scipy.__version__}"
    )


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    arguments = parse_arguments()
    data = load_composites(arguments.composites)
    repeats, failures = arguments.repeats, []
    checks = check_scores(data, failures)
    print(checks, file=sys.stderr)
    scores, threads = measure_scores(data, arguments.models, repeats, failures)
    threads += validations_over_threads(data, repeats)
    report = [
        f"Validation on {len(data.values):,} composites ({data.name}), best of {repeats}.",
        machine(),
        checks,
        "### Scoring ellipsoids, one thread each",
        scores,
        "### Leaving one out, one thread each",
        measure_validations(data, arguments.left_out, repeats, not arguments.no_peers, failures),
        "### Threads",
        table(("call", "threads", "seconds", "a second", "times as fast as one"), threads),
    ]
    finish(report, arguments, failures)


if __name__ == "__main__":
    main()
