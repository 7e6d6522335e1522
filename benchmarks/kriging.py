"""Speed of ordinary kriging, beside the least it could cost and beside other packages.

Usage: python kriging.py [COMPOSITES.csv] [--targets N] [--repeats R] [--out FILE.md]

Everything is measured in this one run; README.md says what each table shows.
"""

import csv
import ctypes
import dataclasses
import multiprocessing
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import talvorix
from common import (
    HERE,
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

# Ranges, azimuth, dip, rake; in the unit of the coordinates.
SEARCH = (850.0, 600.0, 250.0, 35.0, -10.0, 5.0)
SHORT = (450.0, 300.0, 120.0, 20.0, -5.0, 10.0)
LONG = (1500.0, 1100.0, 400.0, 60.0, -15.0, 0.0)
NUGGET, SILLS = 0.15, (0.45, 0.40)  # shares of the variance of the data
BLOCK = (100.0, 100.0, 30.0)
BLOCKS = (160, 100, 90)
# Other packages get the search space stretched to numbers like those of real coordinates.
STRETCH = 1000.0
CHECKED = 300
TOLERANCE = 1e-6  # of the sill, or of the standard deviation


@dataclasses.dataclass(frozen=True)
class Variant:
    """One kind of estimate: the model's kind and ellipsoids, and the neighbourhood's limits."""

    kind: str
    neighbors: int
    octant: int = -1
    hole: int = -1
    ellipsoids: tuple = (SHORT, LONG)

    def __str__(self):
        text = f"{self.kind}, {self.neighbors} neighbours"
        if self.octant > 0:
            text += f", {self.octant} an octant"
        if self.hole > 0:
            text += f", {self.hole} a hole"
        return text


def variants_of(kind):
    """Return the variants measured for one kind of structure."""
    return [
        Variant(kind, 12),
        Variant(kind, 30),
        Variant(kind, 30, octant=2),
        Variant(kind, 30, hole=3),
    ]


def block_grid(locations, count):
    """Return centres of a dense block grid amid the data, x running fastest."""
    shrink = min(1.0, (count / np.prod(BLOCKS)) ** (1 / 3))
    sizes = np.ceil(np.array(BLOCKS) * shrink).astype(int)
    if count > np.prod(BLOCKS):
        sizes[2] = -(-count // (BLOCKS[0] * BLOCKS[1]))
    origin = np.median(locations, axis=0) - np.array(BLOCK) * (sizes - 1) / 2
    z, y, x = np.unravel_index(np.arange(count), sizes[::-1])
    return origin + np.column_stack([x, y, z]) * np.array(BLOCK)


def search_matrix(ellipsoid):
    """Return the matrix that maps offsets to the space where the ellipsoid is a unit sphere."""
    body = talvorix.Ellipsoid(*ellipsoid)
    return np.column_stack([np.ravel(body.forward(axis)) for axis in np.eye(3)])


def sills(data):
    """Return the nugget and the structures' sills in the data's own unit."""
    variance = data.values.var()
    return NUGGET * variance, [share * variance for share in SILLS]


class Talvorix:
    """Ordinary kriging of one variant, ready to be timed."""

    def __init__(self, variant, data):
        nugget, shares = sills(data)
        structure = getattr(talvorix.Covariance, variant.kind)
        self.covariances = [talvorix.Covariance.nugget(nugget)] + [
            structure(sill, talvorix.Ellipsoid(*ellipsoid))
            for sill, ellipsoid in zip(shares, variant.ellipsoids, strict=True)
        ]
        self.variant, self.data = variant, data
        self.neighborhood = talvorix.Neighborhood(data.locations, talvorix.Ellipsoid(*SEARCH))
        self.holes = data.holes.tolist() if variant.hole > 0 else []

    def __call__(self, targets, n_threads):
        """Krige and return seconds, estimates and variances."""
        start = time.perf_counter()
        estimates, variances = talvorix.compute_ordinary_kriging(
            targets,
            self.data.locations,
            self.data.values,
            self.covariances,
            self.neighborhood,
            self.variant.neighbors,
            max_neighbors_octant=self.variant.octant,
            n_threads=n_threads,
            dhids=self.holes,
            max_neis_by_dhid=self.variant.hole,
        )
        return time.perf_counter() - start, estimates, variances


@dataclasses.dataclass
class Reference:
    """Textbook kriging of a few targets, written out in numpy."""

    rows: np.ndarray  # of the targets
    estimates: np.ndarray
    variances: np.ndarray
    multipliers: np.ndarray
    sizes: np.ndarray  # neighbours of every target
    system: tuple  # matrix and right-hand side of the first target


def thin(offsets, holes, variant):
    """Return which neighbours, nearest first, the limits of a variant leave."""
    groups = []
    if variant.octant > 0:
        groups.append(((offsets > 0) @ [1, 2, 4], variant.octant))
    if variant.hole > 0:
        groups.append((holes, variant.hole))
    keep, counts = np.ones(len(offsets), bool), {}
    for i in range(len(offsets)):
        keys = [(g, int(labels[i])) for g, (labels, _) in enumerate(groups)]
        keep[i] = all(counts.get(key, 0) < groups[key[0]][1] for key in keys)
        if keep[i]:
            counts.update({key: counts.get(key, 0) + 1 for key in keys})
    return keep


def krige_by_hand(variant, data, targets, mapped_octants=False):
    """Krige up to CHECKED targets, spread evenly, in the plainest way.

    Octants are those of the real offsets, or of the offsets mapped to the search space.
    """
    search = search_matrix(SEARCH)
    nugget, shares = sills(data)
    matrices = [search_matrix(ellipsoid) for ellipsoid in variant.ellipsoids]

    def covariance(offsets):
        total = nugget * (offsets == 0.0).all(axis=-1)
        for sill, matrix in zip(shares, matrices, strict=True):
            h = np.linalg.norm(offsets @ matrix.T, axis=-1)
            if variant.kind == "exponential":
                total = total + sill * np.exp(-3.0 * h)
            else:
                total = total + sill * np.where(h < 1.0, 1.0 - 1.5 * h + 0.5 * h**3, 0.0)
        return total

    k = variant.neighbors
    results, systems = [], []
    for row in np.unique(np.linspace(0, len(targets) - 1, CHECKED).astype(int)):
        mapped = (data.locations - targets[row]) @ search.T
        distances = np.linalg.norm(mapped, axis=1)
        nearest = np.argsort(distances)[: k + 1]
        if np.diff(distances[nearest]).min() < 1e-9:
            continue  # a tie: which of the two is taken is nobody's fault
        nearest = nearest[:k]
        offsets = mapped if mapped_octants else data.locations - targets[row]
        nearest = nearest[thin(offsets[nearest], data.holes[nearest], variant)]
        n = len(nearest)
        near = data.locations[nearest]
        system, right = np.ones((n + 1, n + 1)), np.ones(n + 1)
        system[:n, :n] = covariance(near[:, None] - near)
        system[n, n] = 0.0
        right[:n] = covariance(near - targets[row])
        solution = np.linalg.solve(system, right)
        estimate = solution[:n] @ data.values[nearest]
        variance = nugget + sum(shares) - solution @ right
        results.append((row, estimate, variance, solution[n], n))
        systems.append((system, right))
    rows, estimates, variances, multipliers, sizes = map(np.array, zip(*results, strict=True))
    # The system of mean size stands for all in the floor.
    typical = int(np.argmin(np.abs(sizes - sizes.mean())))
    return Reference(rows, estimates, variances, multipliers, sizes, systems[typical])


def differences(data, reference, estimates, variances, multiplier):
    """Return the largest errors of estimate and variance, in deviations and in sills."""
    expected = reference.estimates + (reference.multipliers if multiplier else 0.0)
    estimates, variances = np.asarray(estimates), np.asarray(variances)
    error = np.abs(estimates[reference.rows] - expected).max()
    spread = np.abs(variances[reference.rows] - reference.variances).max()
    variance = data.values.var()
    return error / np.sqrt(variance), spread / variance


class Floor:
    """The kd-tree and the solver alone, compiled from floor.cpp."""

    def __init__(self, folder, compiler, flags):
        eigen = subprocess.run(
            ["pkg-config", "--cflags", "eigen3"], capture_output=True, text=True, check=False
        ).stdout.split() or ["-I/usr/include/eigen3"]
        self.library = compile_library(folder, "floor.cpp", compiler, flags, [*eigen, "-fopenmp"])
        array = np.ctypeslib.ndpointer(np.float64, flags="C_CONTIGUOUS")
        self.library.floor_index.restype = ctypes.c_void_p
        self.library.floor_index.argtypes = [array, ctypes.c_size_t]
        self.library.floor_release.argtypes = [ctypes.c_void_p]
        self.library.floor_run.restype = ctypes.c_double
        self.library.floor_run.argtypes = [
            ctypes.c_void_p,
            array,
            ctypes.c_int64,
            ctypes.c_int,
            array,
            array,
            ctypes.c_int,
            ctypes.c_int,
        ]
        self.index = None

    def set_points(self, points):
        """Build the tree over points, which are already in the search space."""
        if self.index:
            self.library.floor_release(self.index)
        self.points = points
        self.index = self.library.floor_index(points, len(points))

    def __call__(self, targets, neighbors, system, n_threads):
        """Return the seconds of the queries, and of one solve each when a system is given."""
        matrix, right = system or (np.empty((0, 0)), np.empty(0))
        start = time.perf_counter()
        self.library.floor_run(
            self.index, targets, len(targets), neighbors, matrix, right, len(right), n_threads
        )
        return time.perf_counter() - start


def measure_floor(data, targets, floor, repeats, failures):
    """Return the table of talvorix beside the floor."""
    search = search_matrix(SEARCH)
    floor.set_points(np.ascontiguousarray(data.locations @ search.T))
    shuffled = targets[np.random.default_rng(2).permutation(len(targets))]
    cases = [(variant, "grid", targets) for variant in variants_of("exponential")]
    cases += [(variant, "random", shuffled) for variant in variants_of("exponential")]
    cases += [(variant, "grid", targets) for variant in variants_of("spherical")]
    threads = sorted({1, talvorix.check_n_threads(0)})
    rows = []
    for variant, order, places in cases:
        kriging = Talvorix(variant, data)
        reference = krige_by_hand(variant, data, places)
        mapped = np.ascontiguousarray(places @ search.T)
        best = {}
        # All are timed in turn, so that a busy moment of the machine touches them alike.
        for _ in range(repeats):
            for n in threads:
                seconds, estimates, variances = kriging(places, n)
                both = floor(mapped, variant.neighbors, reference.system, n)
                queries = floor(mapped, variant.neighbors, None, n)
                times = zip(best.get(n, (np.inf,) * 3), (seconds, both, queries), strict=True)
                best[n] = tuple(map(min, times))
        errors = differences(data, reference, estimates, variances, multiplier=True)
        if not max(errors) < TOLERANCE:
            failures.append(f"talvorix, {variant}, {order}: off by {max(errors):.1e}")
        for n in threads:
            seconds, both, queries = best[n]
            rows.append(
                (
                    variant,
                    order,
                    n,
                    f"{reference.sizes.mean():.1f}",
                    rate(len(places), seconds),
                    rate(len(places), both),
                    f"{queries / both:.0%}",
                    f"**{seconds / both:.2f}**",
                )
            )
            print(*rows[-1], sep="  ", file=sys.stderr)
    header = (
        "variant",
        "order",
        "threads",
        "mean neighbours",
        "talvorix, targets/s",
        "floor, targets/s",
        "queries in floor",
        "talvorix time / floor time",
    )
    return table(header, rows)


def turn_of(axes):
    """Return azimuth, dip and turn about the major axis of right-handed axes, in degrees."""
    azimuth = np.arctan2(axes[0, 0], axes[0, 1])
    dip = np.arcsin(np.clip(axes[0, 2], -1.0, 1.0))
    level = np.array([-np.cos(azimuth), np.sin(azimuth), 0.0])
    upright = np.cross(axes[0], level)
    return np.degrees([azimuth, dip, np.arctan2(axes[1] @ upright, axes[1] @ level)])


def write_problem(folder, variant, data, targets):
    """Write a problem in the stretched search space for peers.py and gstat.R."""
    search = search_matrix(SEARCH) * STRETCH
    nugget, shares = sills(data)
    points = data.locations @ search.T
    places = targets @ search.T
    settings = {
        "n_points": len(points),
        "n_targets": len(places),
        "nugget": nugget,
        "neighbors": variant.neighbors,
        "octant": max(variant.octant, 0),
        "reach": 2 * float(np.ptp(np.vstack([points, places]), axis=0).sum()),
    }
    structures = []
    for sill, ellipsoid in zip(shares, variant.ellipsoids, strict=True):
        _, shrinkage, axes = np.linalg.svd(search_matrix(ellipsoid) @ np.linalg.inv(search))
        ranges, axes = 1.0 / shrinkage[::-1], axes[::-1].copy()
        axes[2] *= np.sign(np.linalg.det(axes))
        names = [f"a{i}{j}" for i in range(3) for j in range(3)]
        structures.append(
            {"kind": variant.kind, "sill": sill}
            | dict(zip(("r1", "r2", "r3"), ranges, strict=True))
            | dict(zip(("azimuth", "dip", "turn"), turn_of(axes), strict=True))
            | dict(zip(names, axes.ravel(), strict=True))
        )
    for name, records in (("settings.csv", [settings]), ("structures.csv", structures)):
        with open(folder / name, "w", newline="") as file:
            writer = csv.DictWriter(file, records[0])
            writer.writeheader()
            writer.writerows(records)
    points.tofile(folder / "points.bin")
    data.values.tofile(folder / "values.bin")
    places.tofile(folder / "targets.bin")


def run_peer(name, variant, data, targets):
    """Solve a problem in another package; return seconds, estimates and variances."""
    with tempfile.TemporaryDirectory() as folder:
        write_problem(Path(folder), variant, data, targets)
        program = (
            ["Rscript", str(HERE / "gstat.R")]
            if name == "gstat"
            else [sys.executable, str(HERE / "peers.py"), name]
        )
        seconds, *values = run_program([*program, folder], Path(folder) / "result.bin")
    return seconds, *np.split(np.array(values), 2)


def peer_cases(data):
    """Return (package, most targets, data, variants, remark on octants) for every package."""
    exponential, spherical = variants_of("exponential"), variants_of("spherical")
    nested = [exponential[0], exponential[1], spherical[1], exponential[2]]
    # PyKrige holds the matrix of all points and has one distance for all structures.
    shapes = tuple((*(size * r for r in SEARCH[:3]), *SEARCH[3:]) for size in (0.6, 1.8))
    alike = [dataclasses.replace(v, ellipsoids=shapes) for v in exponential[:2]]
    some = np.sort(np.random.default_rng(3).permutation(len(data.values))[:3_000])
    fewer = data.take(some, "3,000 of the composites")
    return [
        ("krigekit", 100_000, data, nested, "fills every octant, from beyond the 30 nearest too"),
        (
            "gstat",
            10_000,
            data,
            nested,
            "octants thin the 30 nearest, as here, but are of the search space",
        ),
        (
            "gstlearn",
            3_000,
            data,
            nested,
            "eight slices around the vertical thin the 30 nearest, not octants",
        ),
        ("pykrige", 5_000, fewer, alike, ""),
    ]


def measure_peers(data, targets, repeats, failures):
    """Return the table of other packages, and the lines about what it leaves out."""
    rows, notes = [], []
    for name, most, composites, variants, remark in peer_cases(data):
        version = peer_version(name)
        if not version:
            notes.append(f"{name}: skipped, it is not installed.")
            continue
        first = max(0, (len(targets) - most) // 2)
        places = targets[first : first + most]
        for variant in variants:
            ours = Talvorix(variant, composites)
            reference = krige_by_hand(variant, composites, places)
            seconds = theirs = np.inf
            try:
                for _ in range(repeats):
                    spent, *results = ours(places, 1)
                    seconds = min(seconds, spent)
                    spent, *peer_results = run_peer(name, variant, composites, places)
                    theirs = min(theirs, spent)
            except RuntimeError as error:
                notes.append(f"{name} {version}, {variant}: failed ({error}).")
                continue
            own = differences(composites, reference, *results, multiplier=True)
            if not max(own) < TOLERANCE:
                failures.append(f"talvorix beside {name}, {variant}: off by {max(own):.1e}")
            # The others know coordinates of the search space only, so their octants are of it.
            theirs_by_hand = krige_by_hand(variant, composites, places, mapped_octants=True)
            errors = differences(composites, theirs_by_hand, *peer_results, multiplier=False)
            rows.append(
                (
                    f"{name} {version}",
                    variant,
                    f"{len(composites.values):,}",
                    f"{len(places):,}",
                    rate(len(places), theirs),
                    rate(len(places), seconds),
                    f"**{theirs / seconds:.1f}**",
                    f"{errors[0]:.0e}",
                    f"{errors[1]:.0e}",
                )
            )
            print(*rows[-1], sep="  ", file=sys.stderr)
        if remark:
            notes.append(f"{name}: {remark}.")
        notes.append(f"{name}: no limit a hole, skipped there.")
    header = (
        "package",
        "variant",
        "composites",
        "targets",
        "its targets/s",
        "talvorix, targets/s",
        "its time / talvorix time",
        "estimate off by",
        "variance off by",
    )
    lines = "\n".join(f"- {note}" for note in notes)
    return (table(header, rows) + "\n\n" if rows else "") + lines


def time_conversion(task, data, count, repeats, n_threads):
    """Time one kind of call in a fresh process; return seconds and its peak of megabytes."""
    targets = block_grid(data.locations, count)
    kriging = Talvorix(Variant("exponential", 12), data)
    nearest = talvorix.IDW(max_neighbors=1)
    places = list(targets) if task == "list" else targets

    def megabytes(field):
        for line in Path("/proc/self/status").read_text().splitlines():
            if line.startswith(field):
                return int(line.split()[1]) / 1024
        raise RuntimeError(f"the system does not tell {field}")

    Path("/proc/self/clear_refs").write_text("5")  # the peak starts anew from here
    before, seconds = megabytes("VmRSS:"), np.inf
    for _ in range(repeats):
        start = time.perf_counter()
        if task == "kriging":
            kriging(places, n_threads)
        else:
            nearest(places, kriging.neighborhood, data.locations, data.values, n_threads=n_threads)
        seconds = min(seconds, time.perf_counter() - start)
    return seconds, megabytes("VmHWM:") - before


def measure_conversion(data, count, floor, repeats):
    """Return the table on what passing targets and results between Python and C++ costs."""
    n_threads = talvorix.check_n_threads(0)
    search = search_matrix(SEARCH)
    floor.set_points(np.ascontiguousarray(data.locations @ search.T))
    mapped = np.ascontiguousarray(block_grid(data.locations, count) @ search.T)
    queries = min(floor(mapped, 1, None, n_threads) for _ in range(repeats))
    tasks = {
        "IDW of 1 neighbour, targets an (n, 3) array": "array",
        "IDW of 1 neighbour, targets a list of (3,) arrays": "list",
        "kriging of 12 neighbours, targets an (n, 3) array": "kriging",
    }
    results = {}
    for label, task in tasks.items():
        # A process each: memory that an earlier call left behind would hide what this one takes.
        with multiprocessing.get_context("spawn").Pool(1) as pool:
            results[label] = pool.apply(time_conversion, (task, data, count, repeats, n_threads))
    whole = results[list(tasks)[-1]][0]
    label = "kd-tree queries for 1 neighbour alone"
    rows = [(label, f"{queries:.2f}", f"{queries / whole:.1%}", "")]
    rows += [
        (label, f"{seconds:.2f}", f"{seconds / whole:.1%}", f"{peak:.0f}")
        for label, (seconds, peak) in results.items()
    ]
    header = (
        f"{count:,} targets, {n_threads} threads",
        "seconds",
        "of the kriging call",
        "peak memory of the call, MB",
    )
    return table(header, rows)


def main():
    """Measure everything and print the report; fail when a result is wrong."""
    sizes = {
        "targets": (100_000, "targets of the kriging"),
        "conversion_targets": (1_000_000, "targets of the calls whose conversions are measured"),
        "repeats": (3, "the best one counts"),
    }
    arguments = parse_arguments("kriging.py", __doc__.splitlines()[0], sizes)
    data = load_composites(arguments.composites)
    targets = block_grid(data.locations, arguments.targets)
    failures = []
    with tempfile.TemporaryDirectory() as folder:
        floor = Floor(folder, arguments.compiler, arguments.flags)
        report = [
            f"Ordinary kriging from {len(data.values):,} composites on "
            f"{len(np.unique(data.holes))} holes ({data.name}), {len(targets):,} targets, "
            f"best of {arguments.repeats}.",
            machine(arguments.compiler, arguments.flags),
            "### Beside the floor",
            measure_floor(data, targets, floor, arguments.repeats, failures),
            "### Between Python and C++",
            measure_conversion(data, arguments.conversion_targets, floor, arguments.repeats),
        ]
    if not arguments.no_peers:
        report += [
            "### Beside other packages, one thread each",
            measure_peers(data, targets, arguments.repeats, failures),
        ]
    finish(report, arguments, failures)


if __name__ == "__main__":
    main()
