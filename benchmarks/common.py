"""What the benchmarks share: composites, compiled floors, other packages, command line, report."""

import argparse
import csv
import ctypes
import dataclasses
import importlib.metadata
import os
import platform
import shlex
import shutil
import subprocess
import time
from pathlib import Path

import numpy as np
import talvorix

HERE = Path(__file__).resolve().parent
FLAGS = "-O3 -DNDEBUG -march=x86-64-v3 -std=c++20"


@dataclasses.dataclass
class Data:
    """Composites: locations, values, hole numbers, and the names of both in the report."""

    locations: np.ndarray
    values: np.ndarray
    holes: np.ndarray
    name: str

    def take(self, rows, name):
        """Return some of the composites under another name."""
        return Data(self.locations[rows], self.values[rows], self.holes[rows], name)


def read_composites(path):
    """Read the composites that have a copper grade."""
    columns = ("x_ft", "y_ft", "z_ft", "cu_pct", "hole_id")
    with open(path, newline="") as file:
        reader = csv.DictReader(file)
        missing = [name for name in columns if name not in (reader.fieldnames or ())]
        if missing:
            raise SystemExit(
                f"{path}: no column {missing[0]!r}; the header was expected to name "
                + ", ".join(columns)
            )
        rows = [[row[name] for name in columns] for row in reader]
    try:
        table = np.array([[float(text or "nan") for text in row] for row in rows])
    except ValueError as error:
        raise SystemExit(f"{path}: {error}; numbers were expected in {columns}") from None
    table = table[np.isfinite(table[:, 3])]
    return Data(table[:, :3].copy(), table[:, 3].copy(), table[:, 4].astype(int), path.name)


def make_campaign(seed=1):
    """Return 21,000 composites on 390 inclined holes whose grades follow a smooth field."""
    rng = np.random.default_rng(seed)
    n_holes, n = 390, 21_000
    # Holes come in fences along strike with some scatter, and end at depths of their own.
    collars = np.column_stack([rng.uniform(0, 15_000, n_holes), rng.normal(5_000, 1_800, n_holes)])
    lengths = rng.multinomial(n - 4 * n_holes, rng.dirichlet(np.full(n_holes, 2.0))) + 4
    azimuths = np.radians(rng.normal(330, 15, n_holes))
    dips = np.radians(np.clip(rng.normal(-80, 8, n_holes), -90, -45))
    directions = np.column_stack(
        [np.cos(dips) * np.sin(azimuths), np.cos(dips) * np.cos(azimuths), np.sin(dips)]
    )
    holes = np.repeat(np.arange(n_holes), lengths)
    steps = np.concatenate([np.arange(length) for length in lengths]) * 10.0 + 5.0
    start = np.column_stack([collars, rng.normal(0, 20, n_holes)])
    start[:, 2] -= rng.uniform(0, 1_800, n_holes)
    locations = start[holes] + steps[:, None] * directions[holes]
    waves = rng.normal(size=(60, 3)) / np.array([700.0, 500.0, 150.0])
    phases = rng.uniform(0, 2 * np.pi, 60)
    field = np.cos(locations @ waves.T + phases).sum(axis=1) / np.sqrt(30)
    values = 0.2 * np.exp(0.8 * (np.sqrt(0.85) * field + np.sqrt(0.15) * rng.normal(size=n)))
    return Data(locations, values, holes, "a campaign made of random numbers")


def without_coincident(data):
    """Keep the first composite of every position: some packages accept no second."""
    _, first = np.unique(data.locations, axis=0, return_index=True)
    return data.take(np.sort(first), data.name)


def load_composites(path):
    """Return the composites of a file, or of a made campaign, one at every position."""
    return without_coincident(read_composites(path) if path else make_campaign())


def compile_library(folder, source, compiler, flags, extra=()):
    """Compile a C++ source of this folder and load it."""
    library = Path(folder) / Path(source).with_suffix(".so")
    command = [compiler, *shlex.split(flags), *extra, "-shared", "-fPIC"]
    subprocess.run([*command, str(HERE / source), "-o", str(library)], check=True)
    return ctypes.CDLL(str(library))


def peer_version(name):
    """Return the installed version of another package, or None."""
    if name == "gstat":
        if not shutil.which("Rscript"):
            return None
        query = "cat(as.character(packageVersion('gstat')))"
        answer = subprocess.run(
            ["Rscript", "-e", query], capture_output=True, text=True, check=False
        )
        return answer.stdout if answer.returncode == 0 else None
    try:
        return importlib.metadata.version(name)
    except importlib.metadata.PackageNotFoundError:
        return None


def run_program(command, result):
    """Run a program on one thread and return the doubles it leaves in a file."""
    single = ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "MKL_NUM_THREADS")
    answer = subprocess.run(
        command,
        env=os.environ | dict.fromkeys(single, "1"),
        capture_output=True,
        text=True,
        check=False,
    )
    if answer.returncode or not result.exists():
        lines = (answer.stderr or answer.stdout).strip().splitlines()
        raise RuntimeError(lines[-1] if lines else f"exit code {answer.returncode}")
    return np.fromfile(result)


def elapsed(work):
    """Return the seconds that a call took, and its result."""
    start = time.perf_counter()
    result = work()
    return time.perf_counter() - start, result


def best_of(repeats, works):
    """Time calls in turn and return the best seconds of each and the last results.

    Results of one turn are gone before the next: memory is fresh each time. Taking turns lets a
    busy moment of the machine touch all alike.
    """
    best, results = dict.fromkeys(works, np.inf), {}
    for _ in range(repeats):
        for name, work in works.items():
            results.pop(name, None)
            seconds, results[name] = elapsed(work)
            best[name] = min(best[name], seconds)
    return best, results


def table(header, rows):
    """Return a Markdown table."""
    lines = [header, ["---"] + ["---:"] * (len(header) - 1), *rows]
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines)


def rate(count, seconds):
    """Return how many a second, with three significant digits."""
    speed = count / seconds
    digits = 2 - int(np.floor(np.log10(speed)))
    return f"{round(speed, digits):,.0f}"


def machine(compiler=None, flags=None):
    """Return a line on the processor, the threads and the floor's compiler if there is one."""
    model = platform.processor()
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    text = (
        f"{model}, {talvorix.check_n_threads(0)} threads; Python {platform.python_version()}, "
        f"numpy {np.__version__}"
    )
    if compiler is None:
        return text
    version = subprocess.run([compiler, "--version"], capture_output=True, text=True, check=True)
    return f"{text}; floor compiled by {version.stdout.splitlines()[0]} with {flags}"


def parse_arguments(script, description, sizes, composites=True, peers=True, modules=False):
    """Return the arguments of the command line, and as `command` the line without folders.

    Parameters
    ----------
    script : str
        Name of the script.
    description : str
    sizes : dict of str to (int, str)
        Defaults and help of the arguments that size the run.
    composites : bool, default True
        Whether a file of composites can be given.
    peers : bool, default True
        Whether other packages can be left out.
    modules : bool, default False
        Whether modules built otherwise can be given in place of a compiler for floors.
    """
    parser = argparse.ArgumentParser(description=description)
    if composites:
        parser.add_argument("composites", nargs="?", type=Path, metavar="COMPOSITES.csv")
    options = {name: f"--{name.replace('_', '-')}" for name in sizes}
    for name, (default, text) in sizes.items():
        text += " (default: %(default)s)"
        parser.add_argument(options[name], type=int, default=default, metavar="N", help=text)
    if peers:
        parser.add_argument("--no-peers", action="store_true", help="leave other packages out")
    if modules:
        parser.add_argument(
            "--module",
            action="append",
            default=[],
            type=Path,
            metavar="FOLDER",
            help="with another build of the module; its name stands in the report",
        )
    else:
        parser.add_argument("--compiler", default="g++", help="of the floor")
        parser.add_argument("--flags", default=FLAGS, help="of the floor; default: %(default)s")
    parser.add_argument("--out", type=Path, metavar="FILE.md", help="write the report there too")
    arguments = parser.parse_args()
    for name, option in options.items():
        if getattr(arguments, name) < 1:
            parser.error(f"{option}: a number of at least 1 was expected")
    # Folders mean nothing elsewhere.
    words = ["python", script]
    if composites and arguments.composites:
        words.append(arguments.composites.name)
    for name, option in options.items():
        words += [option, str(getattr(arguments, name))]
    if peers and arguments.no_peers:
        words.append("--no-peers")
    for folder in arguments.module if modules else ():
        words += ["--module", folder.name]
    arguments.command = shlex.join(words)
    return arguments


def finish(report, arguments, failures):
    """Print the report and write it where asked; fail when a result was wrong."""
    text = "\n\n".join([f"Made by `{arguments.command}`.", *report]) + "\n"
    print(text)
    if arguments.out:
        arguments.out.write_text(text)
    if failures:
        raise SystemExit("wrong results:\n" + "\n".join(failures))
