"""Descriptions of grids, and the centres of boxes of their blocks."""

from __future__ import annotations

import functools
import math
import sys
from collections.abc import Mapping, Sequence
from typing import Any

import numpy as np
import talvorix
from numpy.typing import ArrayLike, NDArray

AXES = ("x", "y", "z")
Triple = Sequence[int] | NDArray[np.integer[Any]]


class Grid:
    """A regular, possibly rotated, block model that makes its centres when they are asked for.

    It describes what `talvorix.CartesianGrid` describes, with the same numbering of the blocks, and
    its centres have the same bits; but it takes no memory, where a CartesianGrid keeps 24 bytes for
    every block.

    Attributes
    ----------
    number_of_cells : tuple of 3 ints
        Blocks along the three axes of the grid.
    origin : numpy.ndarray, shape (3,)
        Centre of the block (0, 0, 0).
    edges : numpy.ndarray, shape (3, 3)
        The three edges of the whole grid, as columns.
    """

    number_of_cells: tuple[int, int, int]
    origin: NDArray[np.float64]
    edges: NDArray[np.float64]

    def __init__(
        self,
        number_of_cells: ArrayLike,
        cell_size: ArrayLike,
        origin: ArrayLike = (0.0, 0.0, 0.0),
        rotation: ArrayLike = (90.0, 0.0, 0.0),
    ) -> None:
        """Describe a grid.

        Parameters
        ----------
        number_of_cells : sequence of 3 ints
            Blocks along the three axes, at least 1 each.
        cell_size : sequence of 3 floats
            Edges of a block, above 0, in the unit of the coordinates.
        origin : sequence of 3 floats, default (0, 0, 0)
            Centre of the block (0, 0, 0).
        rotation : sequence of 3 floats, default (90, 0, 0)
            Azimuth, dip and rake of the axes in degrees, as for `talvorix.Ellipsoid`. Azimuth 90
            puts the first axis on +x.

        Raises
        ------
        ValueError
            When one of them is not three finite numbers, a count is below 1 or not whole, a size is
            not above 0, or there are more blocks than `len` can count.
        """
        counts = _three("number_of_cells", number_of_cells)
        size = _three("cell_size", cell_size)
        if (counts < 1).any() or (counts != np.floor(counts)).any():
            raise ValueError(
                f"number_of_cells: expected three whole numbers of at least 1, got {counts}"
            )
        if math.prod(map(int, counts)) > sys.maxsize:
            raise ValueError(f"number_of_cells: more blocks than can be numbered, got {counts}")
        if (size <= 0).any():
            raise ValueError(f"cell_size: expected three numbers above 0, got {size}")
        unit = talvorix.CartesianGrid(
            length=counts * size,
            number_of_cells=(1, 1, 1),
            origin=_three("origin", origin),
            rotation=_three("rotation", rotation),
        )
        self._take(tuple(int(count) for count in counts), unit)

    @classmethod
    def of(cls, grid: Any) -> Grid:
        """Describe a grid that is given in another form.

        Parameters
        ----------
        grid : Grid, talvorix.CartesianGrid, talvorix.BlockModel or mapping
            A mapping holds the arguments of `Grid` by name. Of a block model the whole grid is
            meant, active or not.

        Returns
        -------
        Grid

        Raises
        ------
        TypeError
            When it is something else, or the mapping has other keys.
        """
        if isinstance(grid, Grid):
            return grid
        if isinstance(grid, talvorix.BlockModel):
            grid = grid.base_grid()
        if isinstance(grid, talvorix.CartesianGrid):
            if not len(grid):
                raise ValueError(f"grid: it has no cells: {grid.number_of_cells()}")
            made = cls.__new__(cls)
            made._take(grid.number_of_cells(), grid)
            return made
        if isinstance(grid, Mapping):
            known = ("number_of_cells", "cell_size", "origin", "rotation")
            for key in grid:
                if key not in known:
                    raise TypeError(f"grid: unknown key {key!r}; known are {', '.join(known)}")
            for key in known[:2]:
                if key not in grid:
                    raise TypeError(f"grid: the key {key!r} is missing")
            return cls(**grid)
        raise TypeError(
            "grid: expected a Grid, a CartesianGrid, a BlockModel or a mapping, "
            f"got {type(grid).__name__}"
        )

    def _take(self, counts: tuple[int, ...], grid: talvorix.CartesianGrid) -> None:
        nx, ny, nz = counts
        self.number_of_cells = nx, ny, nz
        self.origin = np.ravel(grid(0))
        self.edges = np.array(grid.transformation().inv_matrix())

    def __len__(self) -> int:
        """Number of blocks."""
        return math.prod(self.number_of_cells)

    def __repr__(self) -> str:
        counts = " x ".join(map(str, self.number_of_cells))
        return f"<Grid of {counts} blocks from {self.origin.tolist()}>"

    def centres(
        self, lower: Triple = (0, 0, 0), upper: Triple | None = None
    ) -> NDArray[np.float64]:
        """Return the centres of a box of blocks.

        Parameters
        ----------
        lower, upper : sequence of 3 ints
            Numbers of the first block along each axis, and of the one after the last; by default
            all blocks.

        Returns
        -------
        numpy.ndarray, shape (n, 3)
            In the order of the grid's index, which runs fastest along the third axis, with the bits
            that `numpy.asarray` of the CartesianGrid has.
        """
        shape = np.subtract(self.number_of_cells if upper is None else upper, lower)
        centres = np.empty((*shape, 3))
        # In slabs that stay in the processor's cache.
        step = max(1, 8192 // max(1, int(shape[1] * shape[2])))
        for first in range(0, shape[0], step):
            slab = centres[first : first + step]
            start = (lower[0] + first, *lower[1:])
            for axis in range(3):
                slab[..., axis] = self._coordinate(self.edges[axis], axis, start, slab.shape[:3])
        return centres.reshape(-1, 3)

    def _coordinate(
        self, row: NDArray[np.float64], axis: int, lower: Triple, shape: Triple
    ) -> NDArray[np.float64]:
        """Return a coordinate of a box, with length 1 along the axes that it does not vary on."""
        u, v, w = (
            np.arange(first, first + n) * (1.0 / count)
            for first, n, count in zip(lower, shape, self.number_of_cells, strict=True)
        )
        add = _fused if _module_fuses() else _rounded_twice
        run = add(row[1], v[:, None], row[0] * u[:, None, None] if row[0] else np.zeros((1, 1, 1)))
        return add(row[2], w, run) + self.origin[axis]

    def coordinates(self) -> dict[str, tuple[tuple[str, ...], NDArray[np.float64]]]:
        """Return the coordinates of the centres along those axes that they vary on.

        Returns
        -------
        dict of str to (tuple of str, numpy.ndarray)
            For x, y and z the names of the axes, out of `dimensions`, and the coordinates.
        """
        # What a turn by a right angle leaves of the other axes is rounding.
        edges = np.where(np.abs(self.edges) > 1e-12 * np.abs(self.edges).max(), self.edges, 0.0)
        found = {}
        for axis, name in enumerate(AXES):
            values = self._coordinate(edges[axis], axis, (0, 0, 0), self.number_of_cells)
            varies = [k for k in range(3) if edges[axis, k]]
            dims = tuple(self.dimensions[k] for k in varies)
            found[name] = dims, values.reshape([self.number_of_cells[k] for k in varies])
        return found

    @property
    def dimensions(self) -> tuple[str, str, str]:
        """Names of the grid's axes: x, y, z when they run along the coordinates, else i, j, k."""
        along = np.count_nonzero(self.edges - np.diag(np.diag(self.edges))) == 0
        return AXES if along else ("i", "j", "k")

    def description(self) -> dict[str, list[Any]]:
        """Return what sets it apart from other grids, as lists of numbers by name."""
        return {
            "number_of_cells": list(self.number_of_cells),
            "origin": self.origin.tolist(),
            "edges": self.edges.tolist(),
        }


def _three(name: str, values: ArrayLike) -> NDArray[np.float64]:
    try:
        numbers = np.asarray(values, dtype=float).ravel()
    except (TypeError, ValueError):
        numbers = np.empty(0)
    if numbers.shape != (3,) or not np.isfinite(numbers).all():
        raise ValueError(f"{name}: expected three finite numbers, got {values!r}")
    return numbers


def active_cells(model: talvorix.BlockModel) -> NDArray[np.bool_]:
    """Return the mask of a block model in the shape of its grid."""
    mask = np.zeros(model.number_of_cells(), dtype=bool)
    if len(model):
        mask[tuple(np.array([model.ijk(i) for i in range(len(model))]).T)] = True
    return mask


# Centres -----------------------------------------------------------------------------------------


def _rounded_twice(a: float, b: NDArray[np.float64], c: NDArray[np.float64]) -> NDArray[np.float64]:
    return c if a == 0 else a * b + c


def _two_sum(
    a: NDArray[np.float64], b: NDArray[np.float64]
) -> tuple[NDArray[np.float64], NDArray[np.float64]]:
    total = a + b
    virtual = total - a
    return total, (a - (total - virtual)) + (b - virtual)


def _split(a: NDArray[np.float64]) -> tuple[NDArray[np.float64], NDArray[np.float64]]:
    scaled = 134217729.0 * a
    high = scaled - (scaled - a)
    return high, a - high


def _fused(a: float, b: NDArray[np.float64], c: NDArray[np.float64]) -> NDArray[np.float64]:
    """Return a b + c rounded once, as the processor's instruction does, which numpy has not.

    Boldo, S. and Melquiond, G. (2008). Emulation of a FMA and correctly rounded sums: proved
    algorithms using rounding to odd. IEEE Transactions on Computers 57(4), 462-471.
    """
    if a == 0:
        return c
    product = a * b
    if not c.any():
        return product + np.zeros_like(c)
    (a_high, a_low), (b_high, b_low) = _split(np.asarray(a)), _split(b)
    rest = ((a_high * b_high - product) + a_high * b_low + a_low * b_high) + a_low * b_low
    high, low = _two_sum(c, rest)
    total, small = _two_sum(product, high)
    tail, error = _two_sum(low, small)
    # Rounding to odd: of the two numbers around an inexact sum, the one whose last bit is set.
    bits = tail.view(np.int64)
    away = np.where((error > 0) == (tail > 0), 1, -1)
    bits += away * ((error != 0) & (bits & 1 == 0))
    return total + tail


@functools.cache
def _module_fuses() -> bool:
    """Tell whether talvorix was built to round a product and a sum once."""
    counts, edges, first = (6, 7, 8), (31.0, 17.0, 13.0), np.array([0.1, 0.2, 0.3])
    grid = talvorix.CartesianGrid(
        length=edges, number_of_cells=counts, origin=first, rotation=(33, 21, -14)
    )
    expected = np.asarray(grid).reshape(*counts, 3)
    u, v, w = (np.arange(n, dtype=float) * (1.0 / n) for n in counts)
    for add in (_fused, _rounded_twice):
        rows = grid.transformation().inv_matrix()
        made = [
            add(row[2], w, add(row[1], v[:, None], row[0] * u[:, None, None])) + origin
            for row, origin in zip(rows, first, strict=True)
        ]
        if np.array_equal(np.stack(made, axis=-1), expected):
            return add is _fused
    raise RuntimeError(
        "the centres of this build of talvorix round in a way that talvorix_dask does not know; "
        "install both from one wheel"
    )
