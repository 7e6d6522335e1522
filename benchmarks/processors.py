"""What the vector units are worth: the two copies of a wheel, and modules built for a processor.

Usage: python processors.py [COMPOSITES.csv] [--module FOLDER ...] [--repeats R] [--out FILE.md]

The installed talvorix has to be a wheel of `make wheels`. Everything is measured in this one run;
README.md says what the table shows.
"""

import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import talvorix
from common import HERE, finish, load_composites, machine, parse_arguments, table
from kriging import LONG, Talvorix, Variant, block_grid

NARROW, WIDE = "x86-64-v2", "x86-64-v3"
SECONDS = "seconds of"
SEARCH = "search for an ellipsoid"
# Of the largest value. In the search, rounding decides which of two data at one distance counts.
TOLERANCES = {SEARCH: 1e-3}
TOLERANCE = 1e-9
LOCATIONS, LINES, NODES = 200_000, 600, 128


def tasks(data, targets):
    """Return what is timed, on one thread.

    Parameters
    ----------
    data : common.Data
    targets : numpy.ndarray, shape (n, 3)
        Of the kriging.

    Returns
    -------
    dict of str to callable
        Each returns what it found, which rounding may change a little.
    """
    corners = np.array([data.locations.min(axis=0), data.locations.max(axis=0)])
    scattered = np.random.default_rng(1).uniform(*corners, (LOCATIONS, 3))
    structure = talvorix.Covariance.spherical(1.0, talvorix.Ellipsoid(*LONG))
    bands = talvorix.TBSIM(corners, structure, 5, LINES)
    search = talvorix.EllipsoidOptimizationParameters(n_rays=150, n_iterations=0, n_threads=1)

    def krige(neighbors):
        return Talvorix(Variant("exponential", neighbors), data)(targets, 1)[1]

    def variogram():
        return talvorix.compute_exp_variogram(data.locations, data.values, n_threads=1).variogram

    def find_ellipsoid():
        kernel = talvorix.Kernel.spherical
        found = talvorix.optimize_ellipsoid(data.locations, data.values, kernel, 0.01, 0.3, search)
        return found[1]

    def fourier_field():
        return talvorix.FIM(corners, structure, 7, NODES, 1).simulate(scattered, n_threads=1)

    return {
        "ordinary kriging, 12 neighbours": lambda: krige(12),
        "ordinary kriging, 30 neighbours": lambda: krige(30),
        "experimental variograms": variogram,
        SEARCH: find_ellipsoid,
        "turning bands": lambda: bands.simulate(scattered, n_threads=1),
        "field by Fourier integral": fourier_field,
    }


def time_here(composites, n_targets, result):
    """Time every task once with the module of this process, and leave seconds and results."""
    data = load_composites(Path(composites) if composites else None)
    found = {}
    for name, work in tasks(data, block_grid(data.locations, int(n_targets))).items():
        # On one thread, the processor's own time tells the same and minds no other program.
        start = time.process_time()
        found[name] = work()
        found[f"{SECONDS} {name}"] = time.process_time() - start
    np.savez(result, **found)


def time_elsewhere(environment, arguments, result):
    """Do the same in a process of its own with the given environment, and return what it found."""
    script = "import sys, processors; processors.time_here(*sys.argv[1:])"
    given = str(arguments.composites or ""), str(arguments.targets), str(result)
    folders = os.pathsep.join([environment.get("PYTHONPATH", ""), str(HERE)]).lstrip(os.pathsep)
    subprocess.run(
        [sys.executable, "-c", script, *given],
        env=os.environ | environment | {"PYTHONPATH": folders},
        check=True,
    )
    with np.load(result) as found:
        return dict(found)


def builds(folders):
    """Return by name the environments in which the copies of the wheel and other modules load."""
    if not Path(talvorix.__file__).with_name("talvorix.cpu").is_dir():
        raise SystemExit(
            f"{talvorix.__file__} holds one copy of the code; a wheel of `make wheels` was expected"
        )
    found = {copy: {"TALVORIX_CPU": copy} for copy in (NARROW, WIDE)}
    for folder in folders:
        if not list(folder.glob("talvorix.*.so")):
            raise SystemExit(f"--module {folder}: a folder with a built module was expected")
        found[folder.name] = {"PYTHONPATH": str(folder.resolve())}
    return found


def main():
    """Time all in turn and print the report; fail when results differ."""
    sizes = {"targets": (100_000, "targets of the kriging"), "repeats": (5, "the best one counts")}
    arguments = parse_arguments(
        "processors.py", __doc__.splitlines()[0], sizes, peers=False, modules=True
    )
    environments = builds(arguments.module)
    runs = {build: [] for build in environments}
    with tempfile.TemporaryDirectory() as folder:
        for _ in range(arguments.repeats):
            # In turn, so that a busy moment of the machine touches all alike.
            for build, environment in environments.items():
                runs[build].append(time_elsewhere(environment, arguments, Path(folder, "run.npz")))
    rows, failures = [], []
    for name in (name for name in runs[WIDE][0] if not name.startswith(SECONDS)):
        best = {
            build: min(float(run[f"{SECONDS} {name}"]) for run in found)
            for build, found in runs.items()
        }
        wide = runs[WIDE][0][name]
        off = {
            build: np.abs(found[0][name] - wide).max() / np.abs(wide).max()
            for build, found in runs.items()
        }
        tolerance = TOLERANCES.get(name, TOLERANCE)
        failures += [
            f"{name}, {build}: {off[build]:.1g} off" for build in off if not off[build] < tolerance
        ]
        ratios = (f"**{best[build] / best[WIDE]:.2f}**" for build in best if build != WIDE)
        rows.append((name, f"{1e3 * best[WIDE]:.0f}", *ratios, f"{max(off.values()):.0e}"))
    header = (
        "one thread",
        f"{WIDE}, ms",
        *(f"{build}, time / {WIDE}'s" for build in runs if build != WIDE),
        "off by",
    )
    report = [
        f"{arguments.targets:,} targets of kriging, composites: "
        f"{load_composites(arguments.composites).name}, best of {arguments.repeats}.",
        machine(),
        table(header, rows),
    ]
    finish(report, arguments, failures)


if __name__ == "__main__":
    main()
