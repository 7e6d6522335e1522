"""Speed of experimental variograms, beside a literal loop over pairs and beside other packages.

Usage: python variogram.py [COMPOSITES.csv] [--repeats R] [--peer-directions N] [--out FILE.md]

Everything is measured in this one run; README.md says what each table shows.
"""

import csv
import ctypes
import dataclasses
import math
import multiprocessing
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import talvorix
from common import (
    HERE,
    Data,
    compile_library,
    finish,
    load_composites,
    machine,
    parse_arguments,
    peer_version,
    rate,
    run_program,
    table,
)

# The defaults of compute_exp_variogram that the literal reading has to know.
N_CENTERS, ANGLE_TOL, BANDWIDTH, WINDOW = 60, 5.0, 0.02, 2
TUBE_RADIUS = 1.01
WIDE = 100.0  # a bandwidth at which every tube holds all data
EVERYTHING = {"n_centers": 1, "bandwidth": WIDE, "window_size": 0}
TOLERANCE = 1e-9  # of the variance of the data


@dataclasses.dataclass
class Case:
    """One variogram: its data, the centres of its tubes, and what differs from the defaults."""

    name: str
    data: Data
    centers: np.ndarray
    options: dict
    exact: bool = True  # whether the centres are those that talvorix takes

    def __call__(self, n_threads=1):
        """Compute the variogram; return seconds and the result."""
        start = time.perf_counter()
        result = talvorix.compute_exp_variogram(
            self.data.locations, self.data.values, n_threads=n_threads, **self.options
        )
        return time.perf_counter() - start, result

    def tubes(self, result):
        """Return for each direction where its tubes start and what they hold, by brute force."""
        locations = self.data.locations
        sizes = np.ptp(locations, axis=0)
        bandwidth = self.options.get("bandwidth", BANDWIDTH)
        tubes = []
        for direction in np.reshape(result.directions, (-1, 3)):
            length = np.linalg.norm(sizes * direction)
            # The other two axes of the tube are any at right angles: it is round.
            axes = np.linalg.svd(direction[None])[2] / (bandwidth * length)
            axes[0] = direction / (3.0 * length)
            mapped = np.ascontiguousarray((locations @ axes.T).T)
            members = [
                np.flatnonzero(sum((row - row[c]) ** 2 for row in mapped) < TUBE_RADIUS**2)
                for c in self.centers
            ]
            tubes.append((np.cumsum([0, *map(len, members)]), np.concatenate(members)))
        return tubes


def with_corners(data, count):
    """Return the data nearest to the highest value, and the corners of their box.

    Corners reach furthest in any direction, so that the outline from which talvorix takes the box
    of the data is sure to give the same box as the data.
    """
    offsets = data.locations - data.locations[data.values.argmax()]
    near = data.take(np.argsort(np.linalg.norm(offsets, axis=1))[:count], data.name)
    bounds = np.array([near.locations.min(axis=0), near.locations.max(axis=0)])
    corners = np.array(
        [[bounds[i, 0], bounds[j, 1], bounds[k, 2]] for i, j, k in np.ndindex(2, 2, 2)]
    )
    return Data(
        np.vstack([near.locations, corners]),
        np.append(near.values, np.full(8, near.values.mean())),
        np.append(near.holes, np.full(8, -1)),
        data.name,
    )


def cases(data):
    """Return what is measured beside the literal loop."""
    highest = data.values.argmax()
    some = with_corners(data, 2000)
    # The rule of the library; its draw is not known here, so this one is another.
    order = np.argsort(-data.values, kind="stable")
    upper = order[: N_CENTERS + math.ceil(0.25 * len(order))]
    drawn = np.random.default_rng(3).permutation(upper)[1:N_CENTERS]
    return [
        Case("defaults", data, np.append(highest, drawn), {}, exact=False),
        Case(
            f"{len(some.values):,} data, each a centre",
            some,
            np.arange(len(some.values)),
            {"n_centers": -1, "n_directions": 10},
        ),
        Case(
            "one tube that holds all",
            data,
            np.array([highest]),
            {"n_centers": 1, "bandwidth": WIDE, "n_directions": 1},
        ),
    ]


def lag_distances(result, direction_id):
    """Return the lag distances, semivariances and counts of the entries of a direction."""
    lags, variogram, npairs = result.get_variogram_by_direction_id(direction_id)
    distances = np.linalg.norm(np.reshape(lags, (-1, 3)), axis=1)
    return distances, np.array(variogram), np.array(npairs, np.int64)


class Literal:
    """The literal loop, compiled from variogram_floor.cpp."""

    def __init__(self, folder, compiler, flags):
        library = compile_library(folder, "variogram_floor.cpp", compiler, flags)
        self.function = library.literal_variogram
        reals = np.ctypeslib.ndpointer(np.float64, flags="C_CONTIGUOUS")
        counts = np.ctypeslib.ndpointer(np.int64, flags="C_CONTIGUOUS")
        number = ctypes.c_int64
        self.function.restype = number
        self.function.argtypes = [reals, reals, counts, counts, number, reals, ctypes.c_double]
        self.function.argtypes += [reals, number, number, reals, counts]

    def __call__(self, data, tubes, direction, lags):
        """Return seconds, how many pairs were accepted, semivariances and counts."""
        starts, members = tubes
        means, counts = np.zeros(len(lags)), np.zeros(len(lags), np.int64)
        start = time.perf_counter()
        accepted = self.function(
            data.locations,
            data.values,
            starts,
            members,
            len(starts) - 1,
            direction,
            math.radians(ANGLE_TOL),
            lags,
            len(lags),
            WINDOW,
            means,
            counts,
        )
        return time.perf_counter() - start, accepted, means, counts


def evaluate_with_numpy(data, tubes, direction, lags):
    """Do what the literal loop does in numpy, for few data."""
    start = time.perf_counter()
    sums, counts = np.zeros(len(lags)), np.zeros(len(lags), np.int64)
    accepted = 0
    for begin, end in zip(tubes[0], tubes[0][1:], strict=False):
        members = tubes[1][begin:end]
        i, j = (members[rows] for rows in np.triu_indices(len(members), 1))
        offsets = data.locations[i] - data.locations[j]
        distances = np.linalg.norm(offsets, axis=1)
        angles = np.degrees(np.arccos(np.minimum(np.abs(offsets @ direction) / distances, 1.0)))
        places = np.searchsorted(lags, distances)
        taken = (angles <= ANGLE_TOL) & (places < len(lags))
        squares = 0.5 * (data.values[i] - data.values[j])[taken] ** 2
        accepted += np.count_nonzero(taken)
        for place, square in zip(places[taken], squares, strict=True):
            window = slice(max(place - WINDOW, 0), place + WINDOW + 1)
            sums[window] += square
            counts[window] += 1
    with np.errstate(invalid="ignore"):  # a lag without pairs has no mean
        means = sums / counts
    return time.perf_counter() - start, accepted, means, counts


def follow(case, result, tubes, evaluate):
    """Evaluate the entries of a result over again.

    Returns seconds, accepted pairs, contributions, the largest difference between semivariances
    in variances of the data, and how many contributions the entries differ by.

    Lags without pairs are missing from the result. They take no part in it: no pair falls to
    them, nor to a lag whose window reaches them.
    """
    seconds, accepted, total, error, differ = 0.0, 0, 0, 0.0, 0
    for d, direction in enumerate(np.reshape(result.directions, (-1, 3))):
        lags, variogram, npairs = lag_distances(result, d)
        spent, taken, means, counts = evaluate(case.data, tubes[d], direction, lags)
        seconds, accepted, total = seconds + spent, accepted + taken, total + counts.sum()
        # NaN, unlike in max, stays.
        error = np.maximum(error, np.abs(means - variogram).max(initial=0.0))
        differ += np.abs(counts - npairs).sum()
    return seconds, accepted, total, error / case.data.values.var(), differ


def check(what, error, differ, failures):
    """Note a failure when semivariances or counts differ."""
    if not (error < TOLERANCE and differ == 0):
        failures.append(f"{what}: semivariances off by {error:.1e}, counts by {differ:,}")


def check_with_numpy(data, failures):
    """Hold a small case against numpy, and return a line about it."""
    some = with_corners(data, 150)
    options = {"n_centers": -1, "bandwidth": 0.2, "n_directions": 4}
    case = Case("numpy", some, np.arange(len(some.values)), options)
    _, result = case()
    _, _, total, error, differ = follow(case, result, case.tubes(result), evaluate_with_numpy)
    check("talvorix beside numpy", error, differ, failures)
    return (
        f"Of {len(some.values)} data, each a centre, {len(result.npairs)} entries held against "
        f"numpy: of {total:,} contributions {differ} differ, semivariances are off by {error:.0e} "
        "variances."
    )


def measure_literal(data, literal, repeats, failures):
    """Return the table of talvorix beside the literal loop, both on one thread."""
    rows = []
    for case in cases(data):
        _, result = case()
        tubes = case.tubes(result)
        sizes = np.concatenate([np.diff(starts) for starts, _ in tubes])
        candidates = int((sizes * (sizes - 1) // 2).sum())
        ours = theirs = np.inf
        # In turn, so that a busy moment of the machine touches both alike.
        for _ in range(repeats):
            seconds, result = case()
            ours = min(ours, seconds)
            seconds, accepted, total, error, differ = follow(case, result, tubes, literal)
            theirs = min(theirs, seconds)
        if case.exact:
            check(f"talvorix, {case.name}", error, differ, failures)
        own_total = sum(result.npairs)
        rows.append(
            (
                case.name,
                f"{len(sizes):,}",
                f"{candidates:,}",
                f"{accepted / candidates:.1%}",
                f"{total:,}",
                f"{own_total:,}",
                rate(candidates, theirs),
                rate(total, theirs),
                rate(own_total, ours),
                f"**{own_total / ours * theirs / total:.1f}**",
                f"{error:.0e}" if case.exact else "",
            )
        )
        print(*rows[-1], sep="  ", file=sys.stderr)
    header = (
        "case",
        "tubes",
        "candidate pairs of the loop",
        "accepted",
        "its contributions",
        "talvorix's",
        "loop, candidates/s",
        "loop, contributions/s",
        "talvorix, contributions/s",
        "talvorix rate / loop rate",
        "off by",
    )
    return table(header, rows)


def measure_threads(data, repeats):
    """Return the table of the default call on one thread and on all."""
    case = Case("defaults", data, np.empty(0), {})
    threads = sorted({1, talvorix.check_n_threads(0)})
    best = dict.fromkeys(threads, np.inf)
    for _ in range(repeats):
        for n in threads:
            seconds, result = case(n)
            best[n] = min(best[n], seconds)
    rows = [
        (n, f"{seconds:.2f}", rate(sum(result.npairs), seconds), f"**{best[1] / seconds:.2f}**")
        for n, seconds in best.items()
    ]
    return table(("threads", "seconds", "contributions/s", "times as fast as one"), rows)


def run_gstat(data, direction, lags):
    """Estimate one direction with gstat; return seconds, semivariances and counts by lag."""
    # Turned so that the direction stands upright: only there does gstat take a cone.
    across = np.linalg.svd(direction[None])[2][1:]
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        (data.locations @ np.vstack([across, direction]).T).tofile(folder / "points.bin")
        data.values.tofile(folder / "values.bin")
        lags.tofile(folder / "lags.bin")
        with open(folder / "settings.csv", "w", newline="") as file:
            csv.writer(file).writerows(
                [("n_points", "n_lags", "angle_tol"), (len(data.values), len(lags), ANGLE_TOL)]
            )
        script = str(HERE / "variogram.R")
        seconds, *entries = run_program(["Rscript", script, name], folder / "result.bin")
    # Lags without pairs are left out; the mean distance tells which one an entry is.
    distances, gamma, npairs = np.reshape(entries, (3, -1))
    variogram, counts = np.full(len(lags), np.nan), np.zeros(len(lags), np.int64)
    places = np.searchsorted(lags, distances)
    variogram[places], counts[places] = gamma, npairs
    return seconds, variogram, counts


def run_gstools(data, direction, lags):
    """Estimate one direction with GSTools; return seconds, semivariances and counts by lag."""
    import gstools

    gstools.config.NUM_THREADS = 1
    start = time.perf_counter()
    _, variogram, counts = gstools.vario_estimate(
        tuple(data.locations.T),
        data.values,
        np.append(0.0, lags),
        direction=[direction],
        angles_tol=math.radians(ANGLE_TOL),
        return_counts=True,
    )
    return time.perf_counter() - start, variogram, counts


PEERS = {"gstat": run_gstat, "gstools": run_gstools}


def run_apart(run, *problem):
    """Run another package in a process of its own."""
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        return pool.apply(run, problem)


def measure_peers(data, n_directions, repeats, failures):
    """Return the table of other packages, and the lines about those left out."""
    case = Case("all pairs", data, np.empty(0), EVERYTHING | {"n_directions": n_directions})
    default = Case("defaults", data, np.empty(0), {})
    all_pairs, ours = min((case() for _ in range(repeats)), key=lambda run: run[0])
    seconds, thin = min((default() for _ in range(repeats)), key=lambda run: run[0])
    directions = np.reshape(ours.directions, (-1, 3))
    accepted = sum(ours.npairs)
    formed = math.comb(len(data.values), 2)
    each = all_pairs / len(directions)

    def row(name, pairs, accepted, total, count, error="", differ=""):
        return (
            name,
            count,
            pairs,
            f"{accepted:,}",
            f"{total / count:.3f}",
            rate(accepted, total),
            f"**{total / count / each:.2f}**",
            error,
            differ,
        )

    rows = [row("talvorix, all pairs", f"{formed:,}", accepted, all_pairs, len(directions))]
    notes = []
    for name, run in PEERS.items():
        version = peer_version(name)
        if not version:
            notes.append(f"{name}: skipped, it is not installed.")
            continue
        total, found, error, differ = 0.0, 0, 0.0, 0
        try:
            for d, direction in enumerate(directions):
                lags, variogram, npairs = lag_distances(ours, d)
                spent, gamma, counts = run_apart(run, data, direction, lags)
                total, found = total + spent, found + int(counts.sum())
                error = np.maximum(error, np.abs(gamma - variogram).max() / data.values.var())
                differ += int(np.abs(counts - npairs).sum())
        except RuntimeError as problem:
            notes.append(f"{name} {version}: failed ({problem}).")
            continue
        check(f"talvorix beside {name}", error, differ, failures)
        label = f"{name} {version}"
        error, differ = f"{error:.0e}", f"{differ:,}"
        rows.append(row(label, f"{formed:,}", found, total, len(directions), error, differ))
        print(*rows[-1], sep="  ", file=sys.stderr)
    # A pair counts for up to 2 WINDOW + 1 lags, fewer at the ends: at least so many were accepted.
    least = sum(thin.npairs) // (2 * WINDOW + 1)
    name = "talvorix, its defaults"
    rows.append(row(name, "in thin tubes", least, seconds, len(thin.directions)))
    header = (
        "package",
        "directions",
        "pairs formed a direction",
        "pairs accepted in all",
        "seconds a direction",
        "accepted pairs/s",
        "its time a direction / talvorix's, all pairs",
        "off by",
        "counts off by",
    )
    lines = "\n".join(f"- {note}" for note in notes)
    return table(header, rows) + ("\n\n" + lines if notes else "")


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    sizes = {
        "repeats": (3, "the best one counts; other packages run once"),
        "peer_directions": (2, "half the number of directions for other packages"),
    }
    arguments = parse_arguments("variogram.py", __doc__.splitlines()[0], sizes)
    data = load_composites(arguments.composites)
    failures = []
    with tempfile.TemporaryDirectory() as folder:
        literal = Literal(folder, arguments.compiler, arguments.flags)
        report = [
            f"Experimental variograms of {len(data.values):,} composites ({data.name}), best of "
            f"{arguments.repeats}.",
            machine(arguments.compiler, arguments.flags),
            check_with_numpy(data, failures),
            "### Beside the literal loop, one thread each",
            measure_literal(data, literal, arguments.repeats, failures),
            "### Threads",
            measure_threads(data, arguments.repeats),
        ]
    if not arguments.no_peers:
        report += [
            "### Beside other packages, one thread each",
            measure_peers(data, arguments.peer_directions, arguments.repeats, failures),
        ]
    finish(report, arguments, failures)


if __name__ == "__main__":
    main()
