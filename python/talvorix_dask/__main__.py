"""The command line: a table of composites in, a block model out."""

from __future__ import annotations

import argparse
import os
import shutil
import sys
import warnings
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import numpy as np
import talvorix

from talvorix_dask import runs, store
from talvorix_dask.grid import Grid
from talvorix_dask.job import (
    DEFAULTS,
    KINDS,
    METHODS,
    InputError,
    Job,
    WithinReach,
    read_job,
    read_settings,
)

# Smaller models are done before a cluster has started.
BLOCKS_FOR_WORKERS = 200_000

DESCRIPTION = "Estimate a block model from a table of composites."
HELP = """\
an example:
  The table composites.csv begins with

      bhid,x,y,z,cu_pct
      D1,5021.5,12034.0,-12.5,0.41
      D1,5021.5,12036.1,-17.0,

  and job.toml says how it is estimated:

      value = "cu_pct"
      hole = "bhid"
      nugget = 0.1
      search = [120, 80, 30, 35, -10, 0]
      max_samples = 16
      max_per_hole = 4
      origin = [5000, 12000, -300]   # low corner of the first block, not its centre
      cells = [60, 40, 20]
      size = [10, 10, 5]

      [[structure]]
      kind = "spherical"
      sill = 0.9
      ranges = [120, 80, 30]
      angles = [35, -10, 0]

  Then

      python -m talvorix_dask estimate composites.csv --job job.toml --out model.zarr

  writes a Zarr store with the arrays "estimate" and "variance" and the coordinates of the block
  centres, which xarray.open_zarr("model.zarr") opens; --out model.csv writes a table of the blocks
  that have an estimate instead. Every setting may stand in the file, spelt with underscores, or on
  the command line, which wins.

what it does:
  The nearest max_samples samples of a block are taken in the metric of the search ellipsoid, then
  limits per octant and per hole thin them: nothing is fetched in place of what they drop. A block
  gets no estimate when there is no sample in the search ellipsoid around it. Rows without a value
  are left out, samples at one position kept; both are told. Ordinary kriging adds the Lagrange
  multiplier to the estimate.

  A model is worked on in chunks, by several processes when it is large. A run that was stopped
  goes on when it is started again with the same arguments and the same table.

ellipsoids:
  "r1 r2 r3 azimuth dip rake": ranges in the unit of the coordinates; degrees. The azimuth of the
  r1 axis runs clockwise from north (+y), its dip is positive upward, the rake turns the other two
  about it. The angles may be left out. The exponential and gaussian structures take practical
  ranges.
"""
ELLIPSOID = "R1 R2 R3 AZIMUTH DIP RAKE"


def number_list(text: str) -> list[float]:
    """Parse the numbers of an option; they are separated by blanks or commas."""
    try:
        return [float(word) for word in text.replace(",", " ").split()]
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is not a list of numbers") from None


def structure_table(text: str) -> dict[str, Any]:
    """Parse 'kind sill r1 r2 r3 [azimuth dip rake]' into the table a TOML file would hold."""
    kind, *numbers = text.replace(",", " ").split() or [""]
    values = number_list(" ".join(numbers))
    if len(values) not in (4, 7):
        raise argparse.ArgumentTypeError(
            f"'{text}' has {len(values)} numbers after its kind; expected "
            "'kind sill r1 r2 r3' or 'kind sill r1 r2 r3 azimuth dip rake'"
        )
    return {"kind": kind, "sill": values[0], "ranges": values[1:4], "angles": values[4:] or [0] * 3}


SETTINGS: dict[str, list[tuple[str, Any, str, str]]] = {
    "columns of the table": [
        (name, str, "NAME", text)
        for name, text in (
            ("x", "east"),
            ("y", "north"),
            ("z", "up"),
            ("value", "what is estimated"),
            ("hole", "needed for --max-per-hole"),
        )
    ],
    "method and covariance model": [
        ("method", str, "METHOD", ", ".join(METHODS)),
        ("structure", structure_table, f"'KIND SILL {ELLIPSOID}'", f"{', '.join(KINDS)}"),
        ("nugget", float, "SILL", "of the nugget"),
        ("multiplier", float, "FACTOR", "of the nugget and all sills"),
        ("mean", float, "MEAN", "of simple kriging; default: that of the samples"),
        ("power", float, "POWER", "of the inverse distance"),
    ],
    "search": [
        ("search", number_list, f"'{ELLIPSOID}'", "the search ellipsoid"),
        ("max_samples", int, "N", "nearest samples taken"),
        ("max_per_hole", int, "N", "0 for no limit"),
        ("max_octant", int, "N", "0 for no limit"),
    ],
    "grid": [
        ("origin", number_list, "'X Y Z'", "low corner of the first block, not its centre"),
        ("cells", number_list, "'NX NY NZ'", "numbers of blocks"),
        ("size", number_list, "'DX DY DZ'", "size of a block"),
        ("rotation", number_list, "'AZIMUTH DIP RAKE'", "of the grid's axes"),
    ],
}


def make_parser() -> argparse.ArgumentParser:
    """Make the parser; settings that are not given are absent from what it returns."""
    parser = argparse.ArgumentParser(
        prog="python -m talvorix_dask", description="Block models too large for one call."
    )
    commands = parser.add_subparsers(dest="command", required=True)
    estimate = commands.add_parser(
        "estimate",
        help=DESCRIPTION,
        description=DESCRIPTION,
        epilog=HELP,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        argument_default=argparse.SUPPRESS,
    )
    estimate.add_argument("table", type=Path, metavar="COMPOSITES.csv")
    estimate.add_argument("--job", type=Path, default=None, metavar="FILE.toml", help="settings")
    estimate.add_argument(
        "--out", type=Path, required=True, metavar="MODEL.zarr", help="or MODEL.csv"
    )
    estimate.add_argument(
        "--workers", type=int, default=None, metavar="N",
        help="processes; 0 works in this one; default: one for each processor from "
        f"{BLOCKS_FOR_WORKERS:,} blocks on, else 0",
    )  # fmt: skip
    estimate.add_argument(
        "--chunks", type=number_list, default=None, metavar="'NX NY NZ'", help="blocks of a chunk"
    )
    estimate.add_argument(
        "--overwrite", action="store_true", default=False, help="begin anew what --out holds"
    )
    estimate.add_argument("--quiet", action="store_true", default=False, help="no progress bar")
    for title, settings in SETTINGS.items():
        group = estimate.add_argument_group(title)
        for name, kind, metavar, text in settings:
            notes = [text, *(["repeatable"] if name == "structure" else [])]
            if DEFAULTS.get(name):
                default = DEFAULTS[name]
                shown = " ".join(f"{n:g}" for n in default) if name == "rotation" else default
                notes.append(f"default: {shown}")
            group.add_argument(
                f"--{name.replace('_', '-')}",
                type=kind,
                metavar=metavar,
                action="append" if name == "structure" else "store",
                help="; ".join(notes),
            )
    return parser


def write_table(path: Path, grid: Grid, arrays: dict[str, Any]) -> int:
    """Write the blocks that have an estimate as CSV, one layer of the grid at a time."""
    count, (nx, ny, nz) = 0, grid.number_of_cells
    making = path.with_name(f"{path.name}.new")
    with making.open("w", encoding="utf-8") as stream:
        stream.write(",".join(["x", "y", "z", *arrays]) + "\n")
        for i in range(nx):
            columns = [np.asarray(array[i]).ravel() for array in arrays.values()]
            table = np.column_stack([grid.centres((i, 0, 0), (i + 1, ny, nz)), *columns])
            table = table[np.isfinite(columns[0])]
            np.savetxt(stream, table, ["%.10g"] * 3 + ["%.9g"] * len(columns), ",")
            count += len(table)
    making.replace(path)
    return count


def estimate(options: dict[str, Any]) -> None:
    """Carry out the job that the options describe."""
    out, workers, chunks = options.pop("out"), options.pop("workers"), options.pop("chunks")
    overwrite, quiet = options.pop("overwrite"), options.pop("quiet")
    path, table = options.pop("job"), options.pop("table")
    as_table = out.suffix.lower() == ".csv"
    if not as_table and out.suffix.lower() != ".zarr":
        raise InputError(f"--out: expected a name that ends in .zarr or .csv, got '{out}'")
    if as_table and out.exists() and not overwrite:
        raise InputError(f"--out: {out} exists; take it away, or give --overwrite")
    if not out.resolve().parent.is_dir():
        raise InputError(f"--out: there is no folder {out.resolve().parent}")
    if workers is not None and workers < 0:
        raise InputError(f"--workers: expected 0 or more, got {workers}")
    settings = read_settings(path) if path else {}
    job: Job = read_job(table, settings | options)
    if workers is None:
        large = len(job.grid) >= BLOCKS_FOR_WORKERS
        workers = talvorix.check_n_threads(0) if large else 0
    # The number of threads changes no result, so that a run may go on with another one.
    reach = WithinReach(job.search, job.neighborhood, job.locations, 1)
    place = out.with_name(f"{out.name}.zarr") if as_table else out
    print(f"{len(job.values):,} samples, {len(job.grid):,} blocks")
    with warnings.catch_warnings():
        # The table's lines, which say more, are told already.
        warnings.filterwarnings("ignore", ".*positions hold more than one sample")
        summary = runs.estimate(
            job.grid,
            job.estimator,
            job.neighborhood,
            job.locations,
            job.values,
            place,
            outputs=job.outputs,
            where=reach,
            chunks=chunks,
            n_workers=workers,
            overwrite=overwrite,
            progress=False if quiet else None,
        )
    if summary.found_done:
        print(f"{summary.found_done:,} of {summary.found_done + summary.chunks:,} chunks were done")
    if as_table:
        group = store.open_group(os.fspath(place), "r")
        count = write_table(out, job.grid, {name: group[name] for name in job.outputs})
        shutil.rmtree(place)
        print(f"wrote {count:,} blocks with an estimate to {out}")
    elif summary.chunks:
        print(f"wrote {summary.blocks:,} blocks with an estimate to {out}")
    else:
        print(f"nothing left to do: {out} is complete")
    peak = max(summary.memory.values(), default=0)
    if summary.blocks:
        print(
            f"{summary.seconds:.1f} s, {summary.blocks / summary.seconds:,.0f} blocks/s, "
            f"{peak / 2**20:,.0f} MB at most in a process"
        )


def main(argv: Sequence[str] | None = None) -> int:
    """Run the command line; return 2 when what the user gave cannot be used."""
    parser = make_parser()
    options = vars(parser.parse_args(argv))
    options.pop("command")
    try:
        estimate(options)
    except (InputError, ValueError, ImportError) as problem:
        print(f"talvorix_dask: error: {problem}", file=sys.stderr)
        return 2
    except (RuntimeError, OSError) as problem:
        print(f"talvorix_dask: error: {problem}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("stopped; the same command goes on where this one stopped", file=sys.stderr)
        return 130
    return 0


if __name__ == "__main__":
    sys.exit(main())
