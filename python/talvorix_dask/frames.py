"""From pandas data frames to arrays, and from block models to xarray datasets."""

from __future__ import annotations

import warnings
from collections.abc import Callable, Mapping, Sequence
from typing import Any

import numpy as np
import talvorix
from numpy.typing import ArrayLike, NDArray

from talvorix_dask.extras import require
from talvorix_dask.grid import Grid, active_cells

SHOWN = 5


def from_dataframe(
    frame: Any,
    locations: Sequence[str],
    *values: str,
    holes: str | None = None,
    empty: str = "error",
) -> tuple[NDArray[Any], ...]:
    """Take locations and values out of a data frame.

    Parameters
    ----------
    frame : pandas.DataFrame
        Its index names the rows in errors and warnings.
    locations : sequence of 3 str
        The columns of x, y and z.
    *values : str
        Columns of values.
    holes : str, optional
        A column of names or numbers of drillholes.
    empty : {"error", "drop"}, default "error"
        What to do when there are rows without one of the values: raise, or leave them out with a
        warning that counts them. talvorix would carry their NaN into estimates.

    Returns
    -------
    tuple of numpy.ndarray
        The locations, shape (n, 3); each column of `values`, shape (n,); then, when `holes` is
        given, the numbers from 0 of the holes as int32, shape (n,), in the order of their names, as
        `dhids` takes them.

    Warns
    -----
    UserWarning
        When samples stand at one position, with their number and the first rows. They are kept.

    Raises
    ------
    KeyError
        When a column is missing.
    ValueError
        When a column stands twice, a cell is not a finite number, a coordinate or a hole is empty,
        or a value is and `empty` is "error"; the message names column and row.
    """
    if isinstance(locations, str) or len(locations) != 3:
        raise ValueError(f"locations: expected the names of three columns, got {locations!r}")
    if empty not in ("error", "drop"):
        raise ValueError(f"empty: expected 'error' or 'drop', got {empty!r}")
    for name in (*locations, *values, *([holes] if holes is not None else [])):
        found = list(frame.columns).count(name)
        if not found:
            raise KeyError(
                f"no column {name!r} in the data frame; it has {', '.join(map(str, frame.columns))}"
            )
        if found > 1:
            raise ValueError(f"column {name!r} stands {found} times in the data frame")
    columns = {name: _numbers(frame, name) for name in dict.fromkeys((*locations, *values))}
    kept = np.ones(len(frame), dtype=bool)
    for name in dict.fromkeys(values):
        missing = np.isnan(columns[name])
        if missing.any() and empty == "error":
            raise ValueError(
                f"column {name!r}: {missing.sum():,} of {len(frame):,} rows are empty, the first "
                f"{_rows(frame, missing)}; fill them, or leave them out by empty='drop'"
            )
        kept &= ~missing
    if not kept.all():
        warnings.warn(
            f"left out {(~kept).sum():,} of {len(frame):,} rows that are empty in "
            f"{', '.join(values)}, the first {_rows(frame, ~kept)}",
            stacklevel=2,
        )
    for name in locations:
        missing = np.isnan(columns[name]) & kept
        if missing.any():
            raise ValueError(
                f"column {name!r}, {_rows(frame, missing, 1)}: expected a coordinate, got nothing"
            )
    points = np.column_stack([columns[name][kept] for name in locations])
    tell_coincident(points, lambda chosen: _rows(frame.iloc[np.flatnonzero(kept)], chosen), 2)
    arrays = [points, *(columns[name][kept] for name in values)]
    if holes is not None:
        unnamed = frame[holes].isna().to_numpy() & kept
        if unnamed.any():
            raise ValueError(f"column {holes!r}, {_rows(frame, unnamed, 1)}: the hole has no name")
        names = frame[holes].to_numpy()[kept]
        if names.dtype == object:
            names = names.astype(str)
        arrays.append(np.unique(names, return_inverse=True)[1].astype(np.int32))
    return tuple(arrays)


def _rows(frame: Any, chosen: NDArray[np.bool_], most: int = SHOWN) -> str:
    """Name the first of the chosen rows by the frame's index."""
    labels = [str(label) for label in frame.index[np.flatnonzero(chosen)[:most]]]
    word = str(frame.index.name or "row")
    return f"{word} {labels[0]}" if len(labels) == 1 else f"{word}s {', '.join(labels)}"


def _numbers(frame: Any, name: str) -> NDArray[np.float64]:
    """Return a column as floats, NaN where it is empty."""
    column = frame[name]
    if column.dtype.kind in "biuf":
        numbers = column.to_numpy(dtype=float, na_value=np.nan)
    else:
        # Not pandas.to_numeric, which is a last bit off in some of the numbers that it reads.
        cells = column.to_numpy(dtype=object)
        empty = column.isna().to_numpy()
        numbers = np.fromiter(
            (np.nan if none else _number(cell) for cell, none in zip(cells, empty, strict=True)),
            dtype=float,
            count=len(cells),
        )
    bad = np.isinf(numbers) | (np.isnan(numbers) & column.notna().to_numpy())
    if bad.any():
        cell = column.iloc[int(bad.argmax())]
        raise ValueError(
            f"column {name!r}, {_rows(frame, bad, 1)}: expected a number, got {str(cell)!r}"
        )
    return numbers


def _number(cell: Any) -> float:
    """Return what is in a cell as a float, NaN when that is no number."""
    try:
        return float(cell)
    except (TypeError, ValueError):
        return np.nan


def tell_coincident(
    points: NDArray[np.float64], rows: Callable[[NDArray[np.bool_]], str], stacklevel: int
) -> None:
    """Warn of points at one position; `rows` names some of those that a mask chooses."""
    inverse, counts = np.unique(points, axis=0, return_inverse=True, return_counts=True)[1:]
    if (counts > 1).any():
        chosen = counts[np.ravel(inverse)] > 1
        warnings.warn(
            f"{(counts > 1).sum():,} positions hold more than one sample, {chosen.sum():,} rows in "
            f"all, the first {rows(chosen)}; they are kept, and kriging gives all weight to the "
            "first that it finds",
            stacklevel=stacklevel + 1,
        )


def to_xarray(grid: Any, values: ArrayLike | Mapping[str, ArrayLike]) -> Any:
    """Make an xarray dataset of a block model.

    Parameters
    ----------
    grid : Grid, talvorix.CartesianGrid, talvorix.BlockModel or mapping
        As for `Grid.of`.
    values : array or mapping of str to array
        One for each block in the order of the grid's index, in an array or list of shape (n,) or of
        the grid's shape; for realisations shape (m, n). For a block model one for each active cell
        will do: the others become NaN. Without names it is called "estimate".

    Returns
    -------
    xarray.Dataset
        Variables in the grid's shape. Their dimensions are x, y and z when those are the grid's
        axes, with the coordinates of the centres; else i, j and k, with the true coordinates x, y
        and z along those of them that they vary on. Realisations come first, as "realisation".

    Raises
    ------
    ValueError
        When there are not as many values as blocks.
    """
    xarray = require("xarray", "to_xarray")
    described = Grid.of(grid)
    n, shape, dims = len(described), described.number_of_cells, described.dimensions
    active = active_cells(grid).ravel() if isinstance(grid, talvorix.BlockModel) else None
    variables = {}
    named = values if isinstance(values, Mapping) else {"estimate": values}
    for name, given in named.items():
        array = np.asarray(given)
        if array.shape[-3:] == shape:
            array = array.reshape(*array.shape[:-3], n)
        if array.ndim in (1, 2) and active is not None and array.shape[-1] == active.sum() != n:
            sparse, array = array, np.full((*array.shape[:-1], n), np.nan)
            array[..., active] = sparse
        if array.ndim not in (1, 2) or array.shape[-1] != n:
            raise ValueError(
                f"values: {name!r} has the shape {np.shape(given)}; expected {n:,} values, one for "
                f"each of the blocks {shape}"
            )
        leading = () if array.ndim == 1 else ("realisation",)
        variables[name] = ((*leading, *dims), array.reshape(*array.shape[:-1], *shape))
    return xarray.Dataset(variables, coords=described.coordinates())
