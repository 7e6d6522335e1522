"""Speed of random fields: Fourier integrals, lookups, turning bands, fields conditioned to data.

Usage: python simulation.py [COMPOSITES.csv] [--realisations N] [--repeats R] [--out FILE.md]

Everything is measured in this one run; README.md says what each table shows.
"""

import ctypes
import itertools
import sys
import tempfile
import time

import numpy as np
import talvorix
from common import (
    best_of,
    compile_library,
    elapsed,
    finish,
    load_composites,
    machine,
    parse_arguments,
    peer_version,
    table,
)
from scipy.spatial import cKDTree
from threadpoolctl import threadpool_limits

LIBRARIES = ("-Wl,--no-as-needed", "-lfftw3_threads", "-lfftw3", "-ffp-contract=fast")
THREADS = sorted({1, talvorix.check_n_threads(0)})
LATTICES = (128, 256)
KINDS = ("gaussian", "spherical", "exponential")
BOX = np.array(list(itertools.product((0.0, 1000.0), repeat=3)))
FIELD_RANGE = 100.0  # the structures of turning bands, in a box of 1000
LATTICE_RANGE = 250.0  # a sixth of the lattice's length
LINES = 600
SHAPE = (1200.0, 800.0, 300.0, 330.0, 0.0, 0.0)
EXPONENTIAL_SILL, SPHERICAL_SILL, NEIGHBORS = 0.65, 0.35, 16
CELL = 100.0
AT_ONCE = 10  # fields that share a kriging; those on a lattice take memory
PEER_LOCATIONS = {"gstools": 50_000, "gstlearn": 20_000}
PEER_CELLS, PEER_REALISATIONS = 20_000, 5
CHECKED_FIELDS, CHECKED_LOCATIONS = 40, 10_000
LATTICE_TOLERANCE = 0.02  # of a covariance over a lattice, in sills
FIELD_TOLERANCE = 0.04  # of the mean, variance and covariance of the checked fields, in sills
DATA_TOLERANCE = 1e-6  # of data honoured, in standard deviations


def isotropic(kind, length):
    """Return a structure of sill 1 and one range."""
    # The axes of an ellipsoid of this azimuth are those of the coordinates.
    ellipsoid = talvorix.Ellipsoid(length, length, length, 90.0, 0.0, 0.0)
    return getattr(talvorix.Covariance, kind)(1.0, ellipsoid)


def show(row):
    """Tell how far the run is, and return the row."""
    print(*row, sep="  ", file=sys.stderr)
    return row


class Floor:
    """The transforms and the multiply-adds, compiled from simulation_floor.cpp."""

    def __init__(self, folder, compiler, flags):
        self.library = compile_library(folder, "simulation_floor.cpp", compiler, flags, LIBRARIES)
        pointer, number = ctypes.c_void_p, ctypes.c_double
        self.library.transforms_plan.restype = pointer
        self.library.transforms_values.argtypes = [pointer]
        self.library.transforms_values.restype = ctypes.POINTER(number)
        self.library.transforms_run.argtypes = [pointer]
        self.library.transforms_release.argtypes = [pointer]
        self.library.multiply_adds.argtypes = [ctypes.c_int64, number, number]
        self.library.multiply_adds.restype = number

    def plan(self, n, n_threads, failures):
        """Return plans whose transforms were seen to multiply values by their number."""
        plans = self.library.transforms_plan(n, n_threads)
        values = np.ctypeslib.as_array(self.library.transforms_values(plans), (n**3,))
        values[:] = 0.0
        values[0] = 1.0
        self.library.transforms_run(plans)
        if not (abs(values[0] / n**3 - 1.0) < 1e-9 and np.abs(values[1:]).max() < 1e-9 * n**3):
            failures.append(f"floor: transforms of {n}^3 values do not return them")
        values[:] = 0.0  # what the timed runs would else multiply until it overflows
        return plans

    def nanoseconds(self, repeats):
        """Return what a multiply-add of doubles takes on one thread."""
        rounds = 10_000_000
        run = {"": lambda: self.library.multiply_adds(rounds, 0.999, 1e-3)}
        return 1e9 * best_of(max(repeats, 5), run)[0][""] / (48 * rounds)


def nodes(n):
    """Return the middles of the steps along an axis of a lattice over the box."""
    return 1500.0 / n * (np.arange(n) - 1.5)


def read_lattice(field, n):
    """Read all values of a field made by the Fourier integral method, plane after plane."""
    axis = nodes(n)
    plane = np.stack(np.meshgrid(axis[:1], axis, axis, indexing="ij"), axis=-1).reshape(-1, 3)
    values = np.empty((n, n, n))
    for i, x in enumerate(axis):
        plane[:, 0] = x
        values[i] = np.reshape(field.simulate(plane), (n, n))
    return values


def expected_lattice(n):
    """Return the covariance over a lattice, at its lags, and the standard deviation of the mean."""
    steps = np.minimum(np.arange(n), n - np.arange(n)) ** 2.0
    h = 1500.0 / n / LATTICE_RANGE * np.sqrt(steps[:, None, None] + steps[:, None] + steps)
    spectrum = np.abs(np.fft.rfftn(np.where(h < 1.0, 1.0 - 1.5 * h + 0.5 * h**3, 0.0)))
    # Phases of conjugate pairs are independent: only the real half of such planes comes back.
    spectrum[..., [0, n // 2]] /= 2.0
    return np.fft.irfftn(spectrum, (n, n, n), (0, 1, 2)), np.sqrt(spectrum[0, 0, 0] / n**3)


def check_lattice(values, expected, name, failures):
    """Compare mean and covariance over a lattice with what is expected; return how far off."""
    n, (covariance, deviation) = len(values), expected
    worst = 0.0
    for lag, axis in itertools.product((0, n // 24, n // 12, n // 6), range(3)):
        # A field repeats itself beyond its lattice, whose first and last plane are one.
        found = np.mean(values * np.roll(values, lag, axis))
        worst = max(worst, abs(found - covariance[tuple(np.eye(3, dtype=int)[axis] * lag)]))
    if not (worst < LATTICE_TOLERANCE and abs(values.mean()) < 2.0 * deviation):
        failures.append(
            f"{name}: covariance off by {worst:.3f} sills, mean {values.mean():.3f}, "
            f"of which {deviation:.3f} is expected"
        )
    return worst


def measure_lattices(floor, repeats, failures):
    """Return the table of making a lattice beside its transforms, and what the first one takes."""
    structure = isotropic("spherical", LATTICE_RANGE)
    firsts = []
    for kind in KINDS:
        small = isotropic(kind, LATTICE_RANGE)
        first, again = (elapsed(lambda c=small: talvorix.FIM(BOX, c, 1, 16, 1))[0] for _ in "12")
        firsts.append(f"{1e3 * first:.1f} ms and {1e3 * again:.1f} ms ({kind})")
    rows = []
    expected = {n: expected_lattice(n) for n in LATTICES}
    for n, n_threads in itertools.product(LATTICES, THREADS):
        plans = floor.plan(n, n_threads, failures)
        works = {
            "field": lambda n=n, t=n_threads: talvorix.FIM(BOX, structure, 7, n, t),
            "floor": lambda plans=plans: floor.library.transforms_run(plans),
        }
        best, results = best_of(repeats, works)
        name = f"FIM of {n}^3 nodes, {n_threads} threads"
        off = check_lattice(read_lattice(results["field"], n), expected[n], name, failures)
        floor.library.transforms_release(plans)
        milliseconds = (f"{1e3 * best[work]:.1f}" for work in works)
        ratio = f"**{best['field'] / best['floor']:.2f}**"
        rows.append(show((f"{n}³", n_threads, *milliseconds, ratio, f"{off:.3f}")))
    header = (
        "nodes",
        "threads",
        "FIM, ms",
        "transforms, ms",
        "FIM time / transforms' time",
        "covariances off by, sills",
    )
    note = (
        "The first field of a kind of structure in a process tabulates its kernel once, which is "
        f"not in these times: the first and the second of 16³ nodes took {', '.join(firsts)}."
    )
    return note + "\n\n" + table(header, rows)


def measure_lookups(n_locations, repeats, failures):
    """Return the table of reading lattices at random locations beside gathers in numpy."""
    locations = np.random.default_rng(2).uniform(0.0, 1000.0, (n_locations, 3))
    rows = []
    for n in LATTICES:
        field = talvorix.FIM(BOX, isotropic("spherical", LATTICE_RANGE), 7, n)
        values = read_lattice(field, n)
        ix, iy, iz = np.floor(locations.T / (1500.0 / n)).astype(np.int64) + 2
        flat, flat_values = (ix * n + iy) * n + iz, values.ravel()
        works = {
            t: lambda field=field, t=t: field.simulate(locations, n_threads=t) for t in THREADS
        }
        gathers = {
            "values[flat]": lambda v=flat_values, i=flat: v[i],
            "values[ix, iy, iz]": lambda v=values, i=(ix, iy, iz): v[i],
            "values[flat].tolist()": lambda v=flat_values, i=flat: v[i].tolist(),
            "values[ix, iy, iz].tolist()": lambda v=values, i=(ix, iy, iz): v[i].tolist(),
        }
        best, results = best_of(max(repeats, 5), works | gathers)
        if not all(np.array_equal(results[t], results["values[flat]"]) for t in THREADS):
            failures.append(f"lookups: {n}^3 nodes, not the nodes' values")
        for label, key in [(f"simulate, {t} threads", t) for t in THREADS] + [
            (f"numpy, {gather}", gather) for gather in gathers
        ]:
            ratios = (
                f"**{best[key] / best['values[flat].tolist()']:.2f}**",
                f"{best[key] / best['values[flat]']:.2f}",
            )
            rows.append(show((f"{n}³", label, f"{1e3 * best[key]:.1f}", *ratios)))
    header = (
        "nodes",
        f"{n_locations:,} random locations",
        "ms",
        "time / values[flat].tolist()",
        "time / values[flat], no list",
    )
    return table(header, rows)


def check_bands(kind, failures):
    """Hold mean, variance and a covariance of many fields against the structure."""
    structure = isotropic(kind, FIELD_RANGE)
    lag = np.array([0.4, 0.2, -0.2]) * FIELD_RANGE
    locations = np.random.default_rng(3).uniform(100.0, 900.0, (CHECKED_LOCATIONS, 3))
    sums = np.zeros(3)
    for seed in range(CHECKED_FIELDS):
        field = talvorix.TBSIM(BOX, structure, seed, LINES)
        here = np.array(field.simulate(locations))
        there = np.array(field.simulate(locations + lag))
        sums += here.mean(), (here**2).mean(), (here * there).mean()
    # The lines' process of exponential structures has another covariance, as TBSIM documents.
    compared = 2 if kind == "exponential" else 3
    off = np.abs(sums / CHECKED_FIELDS - (0.0, 1.0, structure(lag)))[:compared].max()
    if not off < FIELD_TOLERANCE:
        failures.append(f"TBSIM, {kind}: mean, variance or covariance off by {off:.3f} sills")
    return off


def gstools_field(kind, locations):
    """Return a call that simulates with GSTools' sum of random modes."""
    import gstools

    gstools.config.NUM_THREADS = 1
    model = getattr(gstools, kind.capitalize())(dim=3, var=1.0, len_scale=FIELD_RANGE / 2.0)
    field = gstools.SRF(model, generator="RandMeth", mode_no=LINES, seed=1)
    columns = tuple(np.ascontiguousarray(column) for column in locations.T)
    field([column[:10] for column in columns], mesh_type="unstructured")  # draws the modes
    return lambda: field(columns, mesh_type="unstructured")


def gstlearn_table(gl, locations):
    """Return locations as gstlearn keeps them."""
    gl.defineDefaultSpace(gl.ESpaceType.RN, 3)
    made = gl.Db()
    for name, column in zip("xyz", locations.T, strict=True):
        made[name] = np.ascontiguousarray(column)
    made.setLocators(["x", "y", "z"], gl.ELoc.X)
    return made


def gstlearn_field(kind, locations):
    """Return a call that simulates with gstlearn's turning bands."""
    import gstlearn as gl

    target = gstlearn_table(gl, locations)
    model = gl.Model.createFromParam(getattr(gl.ECov, kind.upper()), FIELD_RANGE, 1.0)
    return lambda: gl.simtub(None, target, model, None, 1, 123, LINES)


def measure_bands(floor, n_locations, repeats, peers, failures):
    """Return the table of turning bands, and of other packages' sums, a line and location."""
    locations = np.random.default_rng(4).uniform(0.0, 1000.0, (n_locations, 3))
    multiply_add = floor.nanoseconds(repeats)
    rows, notes, alone = [], [], {}

    def add(package, kind, n_threads, count, seconds):
        spent = 1e9 * seconds / (LINES * count)
        alone.setdefault(kind, spent)
        cells = f"{count:,}", f"{spent:.2f}", f"**{spent / alone[kind]:.2f}**"
        unit = f"{spent / multiply_add:.1f}" if n_threads == 1 else ""
        rows.append(show((package, kind, n_threads, *cells, unit)))

    offs = {}
    for kind in KINDS:
        field = talvorix.TBSIM(BOX, isotropic(kind, FIELD_RANGE), 5, LINES)
        works = {t: lambda f=field, t=t: f.simulate(locations, n_threads=t) for t in THREADS}
        best, results = best_of(repeats, works)
        offs[kind] = check_bands(kind, failures)
        if not all(np.array_equal(results[1], results[t]) for t in THREADS):
            failures.append(f"TBSIM, {kind}: threads change the field")
        for n_threads, seconds in best.items():
            add("talvorix, lines", kind, n_threads, n_locations, seconds)
    for package, prepare, name in (
        ("gstools", gstools_field, "modes"),
        ("gstlearn", gstlearn_field, "bands"),
    ):
        version = peer_version(package) if peers else None
        if not version:
            notes += [f"- {package}: skipped, it is not installed."] if peers else []
            continue
        some = locations[: PEER_LOCATIONS[package]]
        for kind in alone:
            with threadpool_limits(1):
                seconds = best_of(1, {"": prepare(kind, some)})[0][""]
            add(f"{package} {version}, {name}", kind, 1, len(some), seconds)
    header = (
        f"{LINES} each",
        "structure",
        "threads",
        "locations",
        "ns a line and location",
        "time / talvorix's on one thread",
        "in multiply-adds",
    )
    note = (
        f"A multiply-add of doubles takes {multiply_add:.4f} ns in independent chains of one "
        f"thread. Means, variances and covariances of {CHECKED_FIELDS} fields are off by "
        + ", ".join(f"{off:.3f} ({kind})" for kind, off in offs.items())
        + " sills."
    )
    return "\n\n".join([note, table(header, rows), *(["\n".join(notes)] if notes else [])])


class Conditioning:
    """Normal scores of composites, their model and what kriges them: all that fields share."""

    def __init__(self, path):
        self.data = load_composites(path)
        self.scores = talvorix.NScore(
            talvorix.data_distribution(self.data.values), talvorix.gaussian_distribution()
        )
        self.values = np.array(self.scores.forward(self.data.values))
        self.ellipsoid = talvorix.Ellipsoid(*SHAPE)
        self.model = [
            talvorix.Covariance.exponential(EXPONENTIAL_SILL, self.ellipsoid),
            talvorix.Covariance.spherical(SPHERICAL_SILL, self.ellipsoid),
        ]
        self.kriging = talvorix.SimpleKriging(self.model, 0.0, NEIGHBORS)
        self.around = talvorix.Neighborhood(self.data.locations, self.ellipsoid)
        low, high = self.data.locations.min(axis=0), self.data.locations.max(axis=0)
        # Targets stand on a grid whose outermost cells may lie a little beyond the data.
        ends = zip(low - 20 * CELL, high + 20 * CELL, strict=True)
        self.corners = np.array(list(itertools.product(*ends)))

    def make(self, kind, seed):
        """Return a field of the model."""
        if kind == "FIM":
            return talvorix.FIM(self.corners, self.model, seed, LATTICES[0])
        return talvorix.TBSIM(self.corners, self.model, seed, LINES)

    def condition(self, targets, fields, together, n_threads=0):
        """Yield the scores of every field at targets."""
        given = self.kriging, targets, self.around, self.data.locations, self.values
        if together:
            yield from talvorix.simulate(*given, simulators=fields, n_threads=n_threads)
        else:
            for field in fields:
                yield talvorix.simulate(*given, field, n_threads)


def nearest_cells(data, count):
    """Return the cells of a grid that are nearest to the data."""
    low, high = data.locations.min(axis=0) - 10 * CELL, data.locations.max(axis=0) + 10 * CELL
    counts = np.ceil((high - low) / CELL).astype(int)
    cells = np.asarray(talvorix.CartesianGrid(counts * CELL, counts, low))
    if count > len(cells):
        raise SystemExit(f"--cells: at most {len(cells):,} were expected, the cells of the grid")
    distances, _ = cKDTree(data.locations).query(cells, workers=-1)
    return cells[np.sort(np.argpartition(distances, count - 1)[:count])]


def realise(path, targets, kind, count, together):
    """Go from the file to realisations in memory; return them and seconds of every stage."""
    spent = dict.fromkeys(("set-up", "fields", "conditioning", "back-transform"), 0.0)
    spent["set-up"], shared = elapsed(lambda: Conditioning(path))
    realisations = np.empty((count, len(targets)), np.float32)
    for begin in range(0, count, AT_ONCE):
        seeds = range(begin, min(begin + AT_ONCE, count))
        seconds, fields = elapsed(lambda seeds=seeds: [shared.make(kind, seed) for seed in seeds])
        spent["fields"] += seconds
        conditioned, start = shared.condition(targets, fields, together), time.perf_counter()
        for i, scores in zip(seeds, conditioned, strict=True):
            spent["conditioning"] += time.perf_counter() - start
            seconds, realisations[i] = elapsed(
                lambda s=scores: np.array(shared.scores.backward(s), np.float32)
            )
            spent["back-transform"] += seconds
            start = time.perf_counter()
    return realisations, spent


def check_conditioning(path, targets, failures):
    """Hold data, threads, both forms, and the mean of realisations against kriging."""
    shared = Conditioning(path)
    some = np.random.default_rng(5).permutation(len(shared.values))[:500]
    places = np.concatenate([targets[:: max(len(targets) // 500, 1)], shared.data.locations[some]])
    given = shared.data.locations, shared.values, shared.model, 0.0, shared.around, NEIGHBORS
    estimates, variances = np.array(talvorix.compute_simple_kriging(places, *given))
    free = variances > 1e-3
    lines = []
    for kind in ("TBSIM", "FIM"):
        fields = [shared.make(kind, seed) for seed in range(CHECKED_FIELDS)]
        found = np.array(list(shared.condition(places, fields, True)))
        other = np.array(list(shared.condition(places, fields, False, 1)))
        # A line that would have too many cells is white noise: such a field differs from itself.
        again = [[field.simulate(places, n_threads=1) for field in fields] for _ in "12"]
        same = np.all(np.equal(*again), axis=1)
        if same.sum() < CHECKED_FIELDS / 2:
            failures.append(
                f"{kind}: only {same.sum()} of {CHECKED_FIELDS} fields are without noise"
            )
        off = np.abs(found[same, -len(some) :] - shared.values[some]).max(initial=0.0)
        apart = np.abs(found[same] - other[same]).max(initial=0.0)
        # The errors of kriging are as large on average as its variance says.
        spread = np.mean((found[:, free] - estimates[free]) ** 2) / variances[free].mean()
        drift = (found.mean(axis=0) - estimates)[free]
        standard = np.sqrt(np.mean(drift**2) / (found[:, free].var(axis=0).mean() / len(fields)))
        if not (off < DATA_TOLERANCE and apart < DATA_TOLERANCE and standard < 1.2):
            failures.append(
                f"{kind}, conditioned: data off by {off:.1e}, forms differ by {apart:.1e}, "
                f"means off kriging by {standard:.2f} standard errors"
            )
        lines.append(
            f"- {kind}: {same.sum()} of {len(fields)} fields have no line of white noise; they "
            f"honour data to {off:.0e}, and a call for each and one for all differ by {apart:.0e}. "
            f"Means of all are {standard:.2f} standard errors off kriging, variances "
            f"{spread:.2f} times kriging's."
        )
    return "\n".join(lines)


def condition_with_gstlearn(shared, targets):
    """Condition turning bands with gstlearn; return seconds and the realisations."""
    import gstlearn as gl

    matrix = np.array(shared.ellipsoid.matrix())
    source = gstlearn_table(gl, shared.data.locations @ matrix.T)
    source["v"] = shared.values
    source.setLocator("v", gl.ELoc.Z)
    target = gstlearn_table(gl, targets @ matrix.T)
    model = gl.Model.createFromParam(gl.ECov.SPHERICAL, 1.0, SPHERICAL_SILL)
    model.addCovFromParam(gl.ECov.EXPONENTIAL, 1.0, EXPONENTIAL_SILL)
    isotropic_search = gl.VectorDouble([1.0, 1.0, 1.0])
    near = gl.NeighMoving.create(
        False, NEIGHBORS, gl.TEST, 1, 1, NEIGHBORS, isotropic_search, gl.VectorDouble(), True, 10
    )
    given = source, target, model, near, PEER_REALISATIONS, 123, LINES
    seconds, failed = elapsed(lambda: gl.simtub(*given))
    if failed:
        raise SystemExit("gstlearn refused the problem")
    names = [name for name in target.getAllNames() if name not in ("x", "y", "z")]
    return seconds, np.array([target[name] for name in names])


def beside_gstlearn(path, cells):
    """Return the table of conditioning on one thread beside gstlearn."""
    version = peer_version("gstlearn")
    if not version:
        return "gstlearn: skipped, it is not installed."
    shared, targets = Conditioning(path), cells[:: max(len(cells) // PEER_CELLS, 1)][:PEER_CELLS]

    def ours():
        fields = [shared.make("TBSIM", seed) for seed in range(PEER_REALISATIONS)]
        return np.array(list(shared.condition(targets, fields, True, 1)))

    with threadpool_limits(1):
        seconds, theirs = condition_with_gstlearn(shared, targets)
    mine, realised = elapsed(ours)
    rows = [
        show(
            (
                name,
                f"{len(targets):,}",
                PEER_REALISATIONS,
                f"{spent:.2f}",
                f"{60 * PEER_REALISATIONS / spent:.2f}",
                f"**{spent / mine:.1f}**",
                f"{values.mean():.2f}",
                f"{values.var():.2f}",
            )
        )
        for name, spent, values in (
            ("talvorix, TBSIM", mine, realised),
            (f"gstlearn {version}, simtub", seconds, theirs),
        )
    ]
    header = ("package", "cells", "realisations", "seconds", "realisations/min")
    return table((*header, "time / talvorix's", "mean of scores", "variance of scores"), rows)


def measure_conditioning(path, targets, count, failures):
    """Return the table of realisations from the file to memory, on all threads."""
    values, rows, first = load_composites(path).values, [], None
    for kind, together in itertools.product(("TBSIM", "FIM"), (False, True)):
        total, (found, spent) = elapsed(
            lambda k=kind, t=together: realise(path, targets, k, count, t)
        )
        form = f"{AT_ONCE} fields a call" if together else "a call a field"
        if not (values.min() <= found.min() and found.max() <= np.float32(values.max())):
            failures.append(f"{kind}, {form}: realisations go beyond the data")
        first = total if first is None else first
        minute = f"**{60 * count / total:.1f}**"
        each = (f"{seconds:.2f}" for seconds in spent.values())
        rows.append(show((kind, form, f"{total:.2f}", *each, minute, f"{first / total:.2f}")))
    header = ("fields", "form", "seconds", *spent, "realisations/min", "rate / first row's")
    return table(header, rows)


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    sizes = {
        "repeats": (3, "the best one counts; conditioning and other packages run once"),
        "locations": (1_000_000, "of lookups and turning bands"),
        "realisations": (100, "conditioned to the composites"),
        "cells": (200_000, "of each of them"),
    }
    arguments = parse_arguments("simulation.py", __doc__.splitlines()[0], sizes)
    path, repeats, peers = arguments.composites, arguments.repeats, not arguments.no_peers
    data, failures = load_composites(path), []
    targets = nearest_cells(data, arguments.cells)
    with tempfile.TemporaryDirectory() as folder:
        floor = Floor(folder, arguments.compiler, arguments.flags)
        report = [
            f"Random fields, best of {repeats}; conditioned to {len(data.values):,} composites "
            f"({data.name}), once.",
            machine(arguments.compiler, arguments.flags),
            "### Fields by the Fourier integral method beside their transforms",
            measure_lattices(floor, repeats, failures),
            "### Lookups beside gathers",
            measure_lookups(arguments.locations, repeats, failures),
            "### Turning bands",
            measure_bands(floor, arguments.locations, repeats, peers, failures),
        ]
    report += [
        f"### {arguments.realisations} realisations of {len(targets):,} cells, "
        f"{talvorix.check_n_threads(0)} threads",
        check_conditioning(path, targets, failures),
        measure_conditioning(path, targets, arguments.realisations, failures),
    ]
    if peers:
        report += ["### Conditioning scores, one thread each", beside_gstlearn(path, targets)]
    finish(report, arguments, failures)


if __name__ == "__main__":
    main()
