"""Jobs of the command line: a table of composites, a model, a search and a grid, checked."""

from __future__ import annotations

import csv
import math
import sys
import warnings
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np
import talvorix
from numpy.typing import NDArray

from talvorix_dask.extras import require
from talvorix_dask.frames import from_dataframe
from talvorix_dask.grid import Grid

Values = NDArray[np.float64]
METHODS = ("ordinary", "simple", "idw")
KINDS = ("spherical", "exponential", "gaussian")
DEFAULTS: dict[str, Any] = {
    "x": "x",
    "y": "y",
    "z": "z",
    "value": "grade",
    "hole": "hole",
    "method": "ordinary",
    "multiplier": 1.0,
    "nugget": 0.0,
    "structure": [],
    "max_samples": 16,
    "max_per_hole": 0,
    "max_octant": 0,
    "power": 2.0,
    "rotation": [90.0, 0.0, 0.0],
}
REQUIRED = {
    "search": "the search ellipsoid, such as --search '850 850 250 0 0 0'",
    "origin": "the low corner of the grid, such as --origin '5000 12000 -300'",
    "cells": "the number of blocks along x, y and z, such as --cells '60 40 20'",
    "size": "the size of a block along x, y and z, such as --size '10 10 5'",
}
OPTIONAL = ("mean",)
# What a whole number of the module holds.
MOST = 2**31 - 1


class InputError(Exception):
    """What the user gave cannot be used; the message names the place and what was expected."""


@dataclass
class Kriging:
    """Kriging that gives estimates and variances at once, with its parameters bound."""

    model: list[talvorix.Covariance]
    mean: float | None
    limits: dict[str, Any]

    def __call__(
        self, targets: Values, around: Any, locations: Values, data: Values, n_threads: int = 0
    ) -> tuple[list[float], list[float]]:
        """Estimate; by simple kriging when there is a mean."""
        limits = {"neighborhood": around, "n_threads": n_threads, **self.limits}
        if self.mean is None:
            return talvorix.compute_ordinary_kriging(targets, locations, data, self.model, **limits)
        return talvorix.compute_simple_kriging(
            targets, locations, data, self.model, self.mean, **limits
        )


@dataclass
class WithinReach:
    """Chooses the blocks whose nearest sample lies in the search ellipsoid around them."""

    search: talvorix.Ellipsoid
    neighborhood: talvorix.Neighborhood
    locations: Values
    n_threads: int

    def __call__(self, centres: Values) -> NDArray[np.bool_]:
        """Return a flag for each centre."""
        # With one neighbour the inverse distance estimate is that neighbour's value: its number.
        numbers = talvorix.IDW(max_neighbors=1)(
            centres,
            self.neighborhood,
            self.locations,
            np.arange(len(self.locations), dtype=float),
            self.n_threads,
        )
        offsets = centres - self.locations[np.asarray(numbers).astype(int)]
        lengths: Values = np.linalg.norm(offsets @ np.asarray(self.search.matrix()).T, axis=1)
        return lengths <= 1.0


@dataclass
class Job:
    """What is to be estimated and how."""

    grid: Grid
    estimator: Any
    outputs: list[str]
    neighborhood: talvorix.Neighborhood
    search: talvorix.Ellipsoid
    locations: Values
    values: Values


# Settings ----------------------------------------------------------------------------------------


def read_settings(path: Path) -> dict[str, Any]:
    """Read a TOML file of settings and refuse keys that nothing reads."""
    toml = require("tomllib" if sys.version_info >= (3, 11) else "tomli", "a job file")
    try:
        settings: dict[str, Any] = toml.loads(path.read_text(encoding="utf-8"))
    except (OSError, UnicodeDecodeError) as problem:
        raise InputError(f"{path}: cannot be read: {problem}") from None
    except toml.TOMLDecodeError as problem:
        raise InputError(f"{path}: not valid TOML: {problem}") from None
    known = {*DEFAULTS, *REQUIRED, *OPTIONAL}
    for key in settings:
        if key not in known:
            raise InputError(f"{path}: unknown key '{key}'; known are {', '.join(sorted(known))}")
    return settings


def _numbers(name: str, values: Any, lengths: Iterable[int], positive: int = 0) -> list[float]:
    """Return `values` as floats; the first `positive` of them must be above 0."""
    wanted = " or ".join(map(str, lengths))
    if not isinstance(values, list) or len(values) not in lengths:
        raise InputError(f"{name}: expected a list of {wanted} numbers, got {values!r}")
    for k, value in enumerate(values):
        if (
            isinstance(value, bool)
            or not isinstance(value, int | float)
            or not math.isfinite(value)
        ):
            raise InputError(f"{name}: {value!r} is not a finite number")
        if k < positive and value <= 0:
            raise InputError(f"{name}: {value!r} must be above 0")
    return [float(value) for value in values]


def _number(settings: Mapping[str, Any], name: str, least: float = -math.inf) -> float:
    value = _numbers(name, [settings[name]], (1,))[0]
    if value < least:
        raise InputError(f"{name}: expected at least {least:g}, got {value:g}")
    return value


def _whole(settings: Mapping[str, Any], name: str, least: int) -> int:
    value = _number(settings, name, least)
    if value != int(value):
        raise InputError(f"{name}: expected a whole number, got {value:g}")
    if value > MOST:
        raise InputError(f"{name}: expected at most {MOST}, got {value:.0f}")
    return int(value)


def _read_model(settings: Mapping[str, Any]) -> list[talvorix.Covariance]:
    multiplier = _number(settings, "multiplier", 0)
    nugget = _number(settings, "nugget", 0) * multiplier
    model = [talvorix.Covariance.nugget(nugget)] if nugget > 0 else []
    tables = settings["structure"]
    if not isinstance(tables, list):
        raise InputError(f"structure: expected [[structure]] tables, got {tables!r}")
    for number, table in enumerate(tables, start=1):
        name = f"structure {number}"
        keys = set(table) if isinstance(table, dict) else set()
        if not {"kind", "sill", "ranges"} <= keys <= {"kind", "sill", "ranges", "angles"}:
            raise InputError(f"{name}: expected kind, sill, ranges and angles, got {table!r}")
        if table["kind"] not in KINDS:
            kinds = ", ".join(KINDS)
            raise InputError(f"{name}: kind '{table['kind']}' is unknown; expected one of {kinds}")
        ranges = _numbers(f"{name}: ranges", table["ranges"], (3,), positive=3)
        angles = _numbers(f"{name}: angles", table.get("angles", [0, 0, 0]), (3,))
        sill = _numbers(f"{name}: sill", [table["sill"]], (1,), positive=1)[0] * multiplier
        create = getattr(talvorix.Covariance, table["kind"])
        model.append(create(sill, talvorix.Ellipsoid(*ranges, *angles)))
    if not model:
        raise InputError("the covariance model is empty: give --structure, --nugget or --job")
    return model


def _read_grid(settings: Mapping[str, Any]) -> Grid:
    cells = _numbers("cells", settings["cells"], (3,), positive=3)
    if any(cell != int(cell) for cell in cells):
        raise InputError(f"cells: expected whole numbers, got {settings['cells']}")
    size = _numbers("size", settings["size"], (3,), positive=3)
    corner = _numbers("origin", settings["origin"], (3,))
    rotation = _numbers("rotation", settings["rotation"], (3,))
    unit = Grid((1, 1, 1), (1.0, 1.0, 1.0), rotation=rotation)
    centre = np.array(corner) + unit.edges @ (np.array(size) / 2)
    return Grid([int(cell) for cell in cells], size, centre.tolist(), rotation)


# Data --------------------------------------------------------------------------------------------


def read_table(path: Path, columns: Mapping[str, str]) -> Any:
    """Read some columns of a CSV file.

    Parameters
    ----------
    path : pathlib.Path
    columns : mapping
        For each option the name of the column.

    Returns
    -------
    pandas.DataFrame
        The cells as text, None where they are empty. The index, "line", holds the lines of the
        file, the header being line 1; empty lines are left out.
    """
    pandas = require("pandas", "the command line")
    names = list(dict.fromkeys(columns.values()))
    rows, lines = [], []
    try:
        with path.open(newline="", encoding="utf-8-sig") as stream:
            reader = csv.reader(stream)
            header = next(reader, [])
            for option, name in columns.items():
                if header.count(name) != 1:
                    has = "no column" if name not in header else f"{header.count(name)} columns"
                    raise InputError(
                        f"{path}: {has} '{name}' for --{option}; line 1 has "
                        f"{', '.join(header) or 'nothing'}"
                    )
            at = [header.index(name) for name in names]
            for row in reader:
                if not any(cell.strip() for cell in row):
                    continue
                if len(row) != len(header):
                    raise InputError(
                        f"{path}, line {reader.line_num}: {len(row)} cells, where the header has "
                        f"{len(header)}"
                    )
                rows.append([row[k].strip() or None for k in at])
                lines.append(reader.line_num)
    except (OSError, UnicodeDecodeError, csv.Error) as problem:
        raise InputError(f"{path}: cannot be read: {problem}") from None
    return pandas.DataFrame(
        rows, columns=names, index=pandas.Index(lines, name="line"), dtype=object
    )


def read_samples(path: Path, settings: Mapping[str, Any]) -> tuple[NDArray[Any], ...]:
    """Return locations, values and, if they are limited, holes; tell what is odd about them."""
    roles = ["x", "y", "z", "value"] + (["hole"] if settings["max_per_hole"] else [])
    for role in roles:
        if not isinstance(settings[role], str):
            raise InputError(f"{role}: expected the name of a column, got {settings[role]!r}")
    frame = read_table(path, {role: settings[role] for role in roles})
    holes = settings["hole"] if "hole" in roles else None
    with warnings.catch_warnings(record=True) as told:
        warnings.simplefilter("always")
        try:
            samples = from_dataframe(
                frame,
                [settings[axis] for axis in "xyz"],
                settings["value"],
                holes=holes,
                empty="drop",
            )
        except ValueError as problem:
            raise InputError(f"{path}: {problem}") from None
    for one in told:
        print(f"note: {path}: {one.message}", file=sys.stderr)
    if not len(samples[1]):
        raise InputError(f"{path}: no row has a value in column '{settings['value']}'")
    return samples


def read_job(path: Path, given: Mapping[str, Any]) -> Job:
    """Check all settings, read the table and build the job from them."""
    settings = DEFAULTS | dict(given)
    for name, meaning in REQUIRED.items():
        if name not in settings:
            raise InputError(f"{name} is missing: give {meaning}")
    method = settings["method"]
    if method not in METHODS:
        raise InputError(f"method: expected one of {', '.join(METHODS)}, got {method!r}")
    numbers = _numbers("search", settings["search"], (3, 6), positive=3)
    search = talvorix.Ellipsoid(*numbers, *([0.0] * (6 - len(numbers))))
    grid = _read_grid(settings)
    model = [] if method == "idw" else _read_model(settings)
    settings["max_per_hole"] = _whole(settings, "max_per_hole", 0)
    limits: dict[str, Any] = {
        "max_neighbors": _whole(settings, "max_samples", 1),
        "max_neighbors_octant": _whole(settings, "max_octant", 0),
        "max_neis_by_dhid": settings["max_per_hole"],
    }
    power = _number(settings, "power", 0)
    mean = _number(settings, "mean") if "mean" in settings else None
    locations, values, *holes = read_samples(path, settings)
    limits["dhids"] = holes[0] if holes else []
    outputs = ["estimate", "variance"]
    estimator: Any
    if method == "idw":
        estimator, outputs = talvorix.IDW(power, **limits), outputs[:1]
    elif method == "ordinary":
        estimator = Kriging(model, None, limits)
    else:
        estimator = Kriging(model, float(values.mean()) if mean is None else mean, limits)
    around = talvorix.Neighborhood(locations, search)
    return Job(grid, estimator, outputs, around, search, locations, values)
