"""Speed of formulas: a fit beside scipy and beside C++ by hand, classes along a random path.

Usage: python formulas.py [--points N] [--repeats R] [--out FILE.md]

Everything is measured in this one run; README.md says what each table shows.
"""

import ctypes
import itertools
import math
import os
import re
import sys
import tempfile

import numpy as np
import talvorix
from common import (
    best_of,
    compile_library,
    elapsed,
    finish,
    machine,
    parse_arguments,
    peer_version,
    rate,
    table,
)
from scipy.optimize import least_squares
from talvorix import ceres, markov_chain, transiogram
from talvorix.jet import ast
from threadpoolctl import threadpool_limits

# A library compiled for another processor shares templates with the floor: each keeps its own.
LIBRARIES = ("-I/usr/include/eigen3", "-fvisibility=hidden", "-Wl,--no-as-needed")
LIBRARIES += ("-lceres", "-lglog")
THREADS = sorted({1, talvorix.check_n_threads(0)})
TITLES = {"talvorix": "talvorix, solve", "set-up": "talvorix, solve without iterations"}
OPERATIONS = 50  # of residual()
NAMES = ("nugget", "c1", "c2", "a1", "a2", "r", "s")
TRUTH = np.array([0.2, 0.6, 0.3, 0.5, 4.0, 0.6, 1.7])
START = TRUTH * (1.5, 1.4, 0.7, 1.5, 1.6, 1.4, 0.7)
NOISE = 0.02
ITERATIONS = 3  # all of them before the solver's own tolerance ends the search
MOST_ITERATIONS = 100
SAME_COST = 1e-8  # relative; scipy's default tolerance
TOLERANCE = 1e-9  # of costs where parameters are the same, relative
SIZES = (12_500, 25_000, 50_000, 100_000, 200_000)
CALLABLE_TARGETS, N_DATA, NEIGHBORS = 2_000, 1_000, 32
SHARES = (0.5, 0.3, 0.2)  # of the classes
SCALES = (0.02, 0.005, 0.01)  # squares, in a box of 1


def residual(parameters, x, y, z, value, weight):
    """Return weighted residuals, of numpy columns as well as of formulas and the floats of a point.

    Saturating terms of three squared distances, which share their shape; all are positive, and so
    is whatever they are divided by.
    """
    nugget, c1, c2, a1, a2, r, s = parameters
    d1 = x + r * y + s * z
    d2 = s * x + y + r * z
    d3 = r * x + s * y + z
    t1 = c1 * d1 / (a1 + d1)
    t2 = c2 * d2 / (a2 + d2)
    t3 = c1 * d3 / (a2 + d3)
    t4 = c2 * d1 * d2 / ((a1 + d1) * (a2 + d2))
    t5 = c1 * d2 * d3 / ((a1 + d2) * (a1 + d3))
    above = nugget + t1 + t2 + t3 + t4 + t5
    below = (t1 * t2 + t2 * t3 + t3 * t1) / (nugget + c1 + c2) + 1.0
    return (above / below - value) * weight


def make_points(n):
    """Return a row for each point: three squares, a value with noise, a weight."""
    rng = np.random.default_rng(1)
    squares, weights = rng.exponential(1.5, (3, n)), rng.uniform(0.5, 1.5, n)
    values = residual(TRUTH, *squares, 0.0, 1.0) + rng.normal(0.0, NOISE, n)
    return np.column_stack([*squares, values, weights])


def show(row):
    """Tell how far the run is, and return the row."""
    print(*row, sep="  ", file=sys.stderr)
    return row


class Formulas:
    """A function for each point, and the solver's search with them."""

    def __init__(self, points):
        self.variables = [ast.Variable(*given) for given in zip(NAMES, START, strict=True)]
        self.functions = [
            ast.Scalar(self.variables, residual(self.variables, *row)) for row in points.tolist()
        ]

    def solve(self, n_iterations, n_threads, debug=False):
        """Return the values and the cost after so many iterations."""
        given = self.functions, self.variables, {}, n_iterations, 0.0, n_threads, debug
        values, cost = ceres.solve(*given)
        return np.array([values[name] for name in NAMES]), cost

    def figures(self, n_threads):
        """Return what the floor returns, read from the report that the solver prints."""
        sys.stdout.flush()
        screen = os.dup(1)
        with tempfile.TemporaryFile("w+") as file:
            os.dup2(file.fileno(), 1)
            try:
                seconds, (values, cost) = elapsed(lambda: self.solve(ITERATIONS, n_threads, True))
            finally:
                os.dup2(screen, 1)
                os.close(screen)
            file.seek(0)
            text = file.read()

        def number(label, after=""):
            found = re.search(rf"^\s*{label} +([\d.]+){after}", text, re.MULTILINE)
            if not found:
                raise SystemExit(f"the solver's report names no {label!r}:\n{text}")
            return [float(part) for part in found.groups()]

        return {
            "call": seconds,
            "values": values,
            "cost": cost,
            "steps": number("Minimizer iterations")[0] - 1.0,
            "refused": (re.findall(r"Unsuccessful steps +(\d+)", text) or [0])[0],
            "minimizer": number("Minimizer")[0],
            "derivatives": number("Jacobian & residual evaluation", r" \((\d+)\)"),
            "costs": number("Residual only evaluation")[0],
            "equations": number("Linear solver")[0],
        }


class Floor:
    """The functor written by hand, compiled from formulas_floor.cpp."""

    def __init__(self, folder, compiler, flags):
        self.library = compile_library(folder, "formulas_floor.cpp", compiler, flags, LIBRARIES)
        numbers = np.ctypeslib.ndpointer(float, flags="C_CONTIGUOUS")
        self.library.formulas_solve.restype = None
        self.library.formulas_solve.argtypes = (
            [numbers, ctypes.c_int64, numbers] + [ctypes.c_int] * 2 + [numbers]
        )

    def figures(self, points, n_threads):
        """Return the values after some iterations, and where the time went."""
        values, found = START.copy(), np.zeros(8)
        given = points, len(points), values, ITERATIONS, n_threads, found
        seconds, _ = elapsed(lambda: self.library.formulas_solve(*given))
        names = "cost", "steps", "refused", "minimizer", "_", "_", "costs", "equations"
        figures = dict(zip(names, found.tolist(), strict=True))
        return figures | {"call": seconds, "values": values, "derivatives": found[4:6].tolist()}


def measure_iterations(formulas, floor, points, repeats, failures):
    """Return the table of an iteration beside the floor's."""
    rows = []
    for n_threads in THREADS:
        works = {
            "talvorix, formulas": lambda t=n_threads: formulas.figures(t),
            "C++ by hand": lambda t=n_threads: floor.figures(points, t),
        }
        runs = {name: [] for name in works}
        for _ in range(repeats):
            for name, work in works.items():
                runs[name].append(work())
        best = {}
        for name, found in runs.items():
            for figures in found:
                expected = 0.5 * np.sum(residual(figures["values"], *points.T) ** 2)
                off = abs(figures["cost"] / expected - 1.0)
                steps = int(figures["steps"]), int(figures["refused"])
                if not (off < TOLERANCE and steps == (ITERATIONS, 0)):
                    failures.append(
                        f"{name}, {n_threads} threads: cost off numpy's by {off:.1e}, "
                        f"{steps[0]} iterations, {steps[1]} of them refused"
                    )
            best[name] = {
                "call": min(f["call"] for f in found),
                "iteration": min(f["minimizer"] for f in found) / ITERATIONS,
                "derivatives": min(f["derivatives"][0] / f["derivatives"][1] for f in found),
                "costs": min(f["costs"] for f in found) / ITERATIONS,
                "equations": min(f["equations"] for f in found) / ITERATIONS,
                "cost": found[-1]["cost"],
            }
        ours, theirs = best.values()
        if not abs(ours["cost"] / theirs["cost"] - 1.0) < TOLERANCE:
            failures.append(f"{n_threads} threads: costs differ after {ITERATIONS} iterations")
        for name, figures in best.items():
            parts = (f"{1e3 * figures[part]:.2f}" for part in ("derivatives", "costs", "equations"))
            ratios = (
                f"**{figures[part] / theirs[part]:.2f}**" for part in ("iteration", "derivatives")
            )
            iteration, call = f"{1e3 * figures['iteration']:.2f}", f"{1e3 * figures['call']:.1f}"
            speed = rate(len(points), figures["derivatives"])
            rows.append(show((name, n_threads, call, iteration, *parts, speed, *ratios)))
    header = (
        "residuals",
        "threads",
        "call, ms",
        "an iteration, ms",
        "with derivatives, ms",
        "without, ms",
        "equations, ms",
        "residuals with derivatives/s",
        "iteration / by hand",
        "with derivatives / by hand",
    )
    return table(header, rows)


def fit_with_scipy(points, method, limit=None, n_threads=1):
    """Return scipy's result with a numpy residual and differences for derivatives."""
    with threadpool_limits(n_threads):
        return least_squares(residual, START, args=tuple(points.T), method=method, max_nfev=limit)


def measure_fit(formulas, points, repeats, failures):
    """Return the table of times to the same cost."""
    points = np.asfortranarray(points)  # numpy is handed columns without gaps
    ends = {method: fit_with_scipy(points, method) for method in ("trf", "lm")}
    goal = min(end.cost for end in ends.values()) * (1.0 + SAME_COST)
    works, threaded, counts = {}, {}, {}
    for method, end in ends.items():
        if not end.success:
            failures.append(f"scipy, {method}: {end.message}")
        for limit in itertools.count(1):
            if limit >= end.nfev or fit_with_scipy(points, method, limit).cost <= goal:
                break
        for t in THREADS:
            turns = works if t == 1 else threaded
            turns[method, t] = lambda given=(points, method, limit, t): fit_with_scipy(*given)
        counts[method] = f"{limit} evaluations"
    reached = (n for n in range(1, MOST_ITERATIONS) if formulas.solve(n, 1)[1] <= goal)
    n_iterations = next(reached, MOST_ITERATIONS)
    for n_threads in THREADS:
        works["talvorix", n_threads] = lambda t=n_threads: formulas.solve(n_iterations, t)
        works["set-up", n_threads] = lambda t=n_threads: formulas.solve(0, t)
    best, results = best_of(repeats, works)
    # Threads of linear algebra go on spinning for a while and would slow down whose turn is next.
    for found, more in zip((best, results), best_of(repeats, threaded), strict=True):
        found |= more
    counts |= {"talvorix": f"{n_iterations} iterations", "set-up": "one evaluation"}
    ours, rows = best["talvorix", 1], []
    for (name, n_threads), seconds in best.items():
        result = results[name, n_threads]
        values, cost = (result.x, result.cost) if name in ends else result
        expected = 0.5 * np.sum(residual(values, *points.T) ** 2)
        if not (abs(cost / expected - 1.0) < TOLERANCE and (name == "set-up" or cost <= goal)):
            failures.append(
                f"{name}, {n_threads} threads: cost {cost:.12g}, numpy {expected:.12g}; at most "
                f"{goal:.12g} was expected"
            )
        title = f"scipy, least_squares {name!r}" if name in ends else TITLES[name]
        ratio = f"**{seconds / ours:.2f}**"
        rows.append(show((title, n_threads, counts[name], f"{1e3 * seconds:.1f}", ratio)))
    header = "fit", "threads", "until the cost", "ms", "time / talvorix's on one thread"
    return table(header, rows)


def transition(i, j, u, v):
    """Return how likely class j is at v, given class i at u: of vectors, and as a formula."""
    lag = u - v
    square = lag * lag
    away = square / (square + SCALES[i])
    return away * (SHARES[j] - 1.0) + 1.0 if i == j else away * SHARES[j]


def make_tables():
    """Return the same transiogram as formulas and as Python functions."""
    u, v = (talvorix.ast.Variable(name, [0.0, 0.0, 0.0]) for name in "uv")
    classes = range(len(SHARES))
    formulas = [[transition(i, j, u, v) for j in classes] for i in classes]
    functions = [[lambda u, v, i=i, j=j: transition(i, j, u, v) for j in classes] for i in classes]
    return {
        "formulas": transiogram.Transiogram(u, v, formulas),
        "Python functions": transiogram.Transiogram(functions),
    }


def measure_classes(repeats, failures):
    """Return the table of simulations along a random path."""
    rng = np.random.default_rng(2)
    targets, data = rng.random((SIZES[-1], 3)), rng.random((N_DATA, 3))
    values = rng.integers(len(SHARES), size=N_DATA)
    sphere = talvorix.Ellipsoid(1.0, 1.0, 1.0, 0.0, 0.0, 0.0)
    tables = make_tables()

    def simulate(kind, n):
        given = targets[:n], data, values, tables[kind], sphere, -1.0, NEIGHBORS
        return markov_chain.simulation(*given)

    runs = [(kind, CALLABLE_TARGETS) for kind in reversed(tables)]
    runs += [("formulas", n) for n in SIZES]
    best, results = best_of(repeats, {run: lambda run=run: simulate(*run) for run in runs})
    if results[runs[0]] != results[runs[1]]:
        failures.append("simulation: formulas and Python functions draw different classes")
    for run in runs:
        shares = np.bincount(results[run], minlength=len(SHARES)) / run[1]
        if len(shares) != len(SHARES) or not shares.min() > 0.0:
            failures.append(f"simulation, {run[0]}: classes make up {shares}")
    rows = []
    for kind, n in runs:
        seconds, growth = best[kind, n], ""
        if n in SIZES[1:]:
            half = n // 2
            expected = n * math.log(n) / (half * math.log(half))
            growth = f"**{seconds / best[kind, half] / expected:.2f}**"
        ratio = f"**{best[runs[0]] / CALLABLE_TARGETS / (seconds / n):.1f}**"
        cells = f"{n:,}", f"{1e3 * seconds:.1f}", rate(n, seconds)
        rows.append(show((kind, *cells, ratio, growth)))
    header = "transiogram", "targets", "ms", "targets/s", "rate / Python functions'"
    return table((*header, "growth from half as many / that of n log n"), rows)


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    sizes = {
        "repeats": (5, "the best one counts"),
        "points": (10_000, "of the fit, each with a formula of its own"),
    }
    given = parse_arguments(
        "formulas.py", __doc__.splitlines()[0], sizes, composites=False, peers=False
    )
    points, failures = make_points(given.points), []
    building, formulas = elapsed(lambda: Formulas(points))
    with tempfile.TemporaryDirectory() as folder:
        floor = Floor(folder, given.compiler, given.flags)
        report = [
            f"A formula of {OPERATIONS} operations in {len(NAMES)} parameters at {len(points):,} "
            f"points; best of {given.repeats}. Building the formulas in Python took "
            f"{1e3 * building:.0f} ms, once.",
            machine(given.compiler, given.flags),
            f"### {ITERATIONS} iterations beside the functor by hand",
            measure_iterations(formulas, floor, points, given.repeats, failures),
        ]
    report += [
        f"### To the same cost beside scipy {peer_version('scipy')}",
        measure_fit(formulas, points, given.repeats, failures),
        f"### Classes at {NEIGHBORS} neighbours among {N_DATA:,} data and as many among targets",
        measure_classes(given.repeats, failures),
    ]
    finish(report, given, failures)


if __name__ == "__main__":
    main()
