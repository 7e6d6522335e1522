# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501

"""Geostatistics for ore bodies, reservoirs and soils.

Locations are arrays of shape (n, 3) or lists of points, with x east, y north and z up; angles are
in degrees. What estimates, simulates or searches takes ``n_threads``, 0 for all of the machine's.
Models larger than one call or one machine are for the package `talvorix_dask`.
"""

from collections.abc import Callable, Sequence
from typing import Any, ClassVar, Protocol, TypeAlias, overload, type_check_only

import numpy as np
from numpy.typing import NDArray
from typing_extensions import Never

from . import algebra as algebra
from . import ast as ast
from . import ceres as ceres
from . import fft as fft
from . import jet as jet
from . import markov_chain as markov_chain
from . import transiogram as transiogram

_Integer: TypeAlias = int | np.integer[Any]
_Real: TypeAlias = float | np.floating[Any] | np.integer[Any] | np.bool_

@type_check_only
class _IntegerArray(Protocol):
    """An array of integers or what offers itself as one, such as a column of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.integer[Any] | np.bool_]: ...

@type_check_only
class _RealArray(Protocol):
    """An array of real numbers or what offers itself as one, such as columns of a table."""

    def __len__(self) -> int: ...
    def __array__(self) -> NDArray[np.floating[Any] | np.integer[Any] | np.bool_]: ...

_Integers: TypeAlias = Sequence[_Integer] | _IntegerArray
"""A sequence of integers, or an array of shape (n,)."""

_Flags: TypeAlias = Sequence[_Integer | np.bool_] | _IntegerArray
"""A sequence of truth values, or an array of shape (n,)."""

_Values: TypeAlias = Sequence[_Real] | _RealArray
"""A sequence of numbers, or an array of shape (n,)."""

_Location: TypeAlias = Sequence[_Real] | _RealArray
"""A sequence of three numbers, or an array of shape (3,), (3, 1) or (1, 3)."""

_Locations: TypeAlias = Sequence[_Location] | _RealArray
"""A sequence of locations, or an array of shape (n, 3), (n, 3, 1) or (n, 1, 3)."""

_Matrix: TypeAlias = Sequence[Sequence[_Real] | _RealArray] | _RealArray
"""Three rows of three numbers, or an array of shape (3, 3)."""

_Table: TypeAlias = Sequence[_Values] | _RealArray
"""A sequence of equally long rows of numbers, or an array of shape (m, n)."""

class SpatialFunction:
    """A function of a location or a lag, made by a factory such as `covariance_computer`."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    def __call__(self, u: _Location) -> float:
        """Evaluate the function.

        Parameters
        ----------
        u : numpy.ndarray, shape (3, 1)
            Location or lag.

        Returns
        -------
        float
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def simulate(self, locs: _Locations, n_threads: _Integer = 0) -> list[float]:
        """Evaluate the function at every location, in parallel.

        Parameters
        ----------
        locs : list of numpy.ndarray, or array of shape (n, 3)
            Locations.
        n_threads : int, default 0
            Number of threads; 0 stands for all.

        Returns
        -------
        list of float
            One value for each location, in order.
        """

class EllipsoidInfo:
    """Ranges and angles read back from an anisotropy matrix, the ranges in descending order."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def azimuth(self) -> float:
        """Degrees, clockwise from +y toward +x."""

    def dip(self) -> float:
        """Degrees, positive upward."""

    def r1(self) -> float:
        """Largest range."""

    def r2(self) -> float:
        """Middle range."""

    def r3(self) -> float:
        """Smallest range."""

    def rake(self) -> float:
        """Degrees, about the major axis."""

class Ellipsoid:
    """An anisotropy: three ranges along three axes at right angles.

    It is kept as a pair of matrices only: the one that maps a real offset to the isotropic space, in
    which the ellipsoid is the unit sphere, and its inverse. Every distance in the library is measured
    through them. Angles are in degrees: the azimuth of the first axis is clockwise from +y toward +x,
    its dip positive upward, and the rake turns the other two axes about it. A range of 0 reads as 1.
    """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    @overload
    def __init__(self, anisotropy_matrix: _Matrix) -> None:
        """Make an ellipsoid from the matrix from real to isotropic space.

        Parameters
        ----------
        anisotropy_matrix : numpy.ndarray, shape (3, 3)
            Rows are the axes divided by their ranges. A singular matrix is not refused: its inverse then
            holds infinities or NaN.
        """

    @overload
    def __init__(
        self, r1: _Real, r2: _Real, r3: _Real, azimuth: _Real, dip: _Real, rake: _Real
    ) -> None:
        """Make an ellipsoid from ranges and angles.

        Parameters
        ----------
        r1, r2, r3 : float
            Ranges along the first, second and third axis.
        azimuth, dip, rake : float
            Degrees.
        """

    @overload
    def __init__(self, length: _Location, rotation: _Location) -> None:
        """Make an ellipsoid from ranges and angles given as two triples.

        Parameters
        ----------
        length : numpy.ndarray, shape (3, 1)
            r1, r2, r3.
        rotation : numpy.ndarray, shape (3, 1)
            azimuth, dip, rake in degrees.
        """

    @overload
    def __init__(self, ellipsoid_info: EllipsoidInfo) -> None:
        """Make an ellipsoid from the ranges and angles of another one."""

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def __str__(self) -> str: ...
    @overload
    def backward(self, location: Sequence[_Real]) -> NDArray[np.float64]:
        """Map from isotropic to real space; takes and returns what `forward` does."""

    @overload
    def backward(self, location: _RealArray) -> Any: ...
    @overload
    def backward(self, locs: _Locations, n_threads: _Integer = 0) -> list[NDArray[np.float64]]: ...
    def directions(
        self, n_directions: _Integer = 600, n_lags: _Integer = 300, seed: _Integer = 12356
    ) -> tuple[list[NDArray[np.float64]], list[int]]:
        """Spread points along directions.

        Parameters
        ----------
        n_directions : int, default 600
            Half the number of directions.
        n_lags : int, default 300
            Points along each, at half-normal multiples of the surface point.
        seed : int, default 12356

        Returns
        -------
        tuple of (list of numpy.ndarray, list of int)
            The points, and for each the number of its direction.
        """

    @overload
    def forward(self, location: Sequence[_Real]) -> NDArray[np.float64]:
        """Map from real to isotropic space.

        Parameters
        ----------
        location : numpy.ndarray, shape (3, 1)
            A location or offset; the second form takes a list, or an array of shape (n, 3), and maps each.

        Returns
        -------
        numpy.ndarray, shape (3, 1), or list of them
        """

    @overload
    def forward(self, location: _RealArray) -> Any: ...
    @overload
    def forward(self, locs: _Locations, n_threads: _Integer = 0) -> list[NDArray[np.float64]]: ...
    def info(self) -> EllipsoidInfo:
        """Read the ranges and angles back from the matrix.

        Returns
        -------
        EllipsoidInfo
            Ranges in descending order and the angles of the axes so ordered. The azimuth is in [0, 360),
            the dip in [-90, 90] and the rake in (-180, 180]; with a vertical major axis the rake is 0 and
            the whole turn stands in the azimuth.
        """

    def inv_matrix(self) -> NDArray[np.float64]:
        """Matrix from isotropic to real space, shape (3, 3)."""

    def major_axis(self) -> NDArray[np.float64]:
        """Axis of the largest range, with the range as its length, shape (3, 1)."""

    def matrix(self) -> NDArray[np.float64]:
        """Matrix from real to isotropic space, shape (3, 3)."""

    def mid_axis(self) -> NDArray[np.float64]:
        """Axis of the middle range, with the range as its length, shape (3, 1)."""

    def minor_axis(self) -> NDArray[np.float64]:
        """Axis of the smallest range, with the range as its length, shape (3, 1)."""

    def surface(
        self, n_points: _Integer = 600, seed: _Integer = 12546
    ) -> list[NDArray[np.float64]]:
        """Spread points over the surface.

        Parameters
        ----------
        n_points : int, default 600
            Half the number of points.
        seed : int, default 12546
            Seed of the random turn, and first index of the low-discrepancy sequence.

        Returns
        -------
        list of numpy.ndarray, shape (3, 1)
            2 `n_points` points, as `generate_random_sphere` gives directions.

        Raises
        ------
        ValueError
            When a count is negative.
        """

    def volume(
        self, n_points: _Integer = 600, n_lags: _Integer = 300, seed: _Integer = 12356
    ) -> list[NDArray[np.float64]]:
        """Spread points inside and around the ellipsoid.

        Parameters
        ----------
        n_points : int, default 600
            Half the number of points of one surface.
        n_lags : int, default 300
            Number of surfaces, each scaled by a half-normal factor: the cloud is densest near the centre
            and reaches beyond the surface.
        seed : int, default 12356

        Returns
        -------
        list of numpy.ndarray, shape (3, 1)
            2 `n_lags` `n_points` points, surface after surface.
        """

class Neighborhood:
    """A search structure over a list of locations.

    With an ellipsoid, distances are those of its isotropic space: a search along the major axis
    reaches further, and radius 1 is the ellipsoid's surface. Without one they are Euclidean.
    """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    @overload
    def __init__(self, locations: _Locations, ellipsoid: Ellipsoid) -> None:
        """Build the structure for an anisotropic search.

        Parameters
        ----------
        locations : list of numpy.ndarray, or array of shape (n, 3)
        ellipsoid : Ellipsoid

        Raises
        ------
        ValueError
            When a location is not finite.
        """

    @overload
    def __init__(self, locations: _Locations) -> None:
        """Build the structure for a Euclidean search."""

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @overload
    def find_neighbors(self, center: _Location, max_size: _Integer) -> list[int]:
        """Find the nearest locations, or those within a radius.

        Parameters
        ----------
        center : numpy.ndarray, shape (3, 1)
        max_size : int
            How many to return at most. The number must be an int: a float is a radius.
        max_radius : float
            Locations nearer than this, in isotropic units when there is an ellipsoid; one at exactly the
            radius is not found. The sign is ignored.

        Returns
        -------
        list of int
            Positions in the list of locations, nearest first.

        Raises
        ------
        ValueError
            When `max_size` is negative or the centre is not finite.
        """

    @overload
    def find_neighbors(self, center: _Location, max_radius: _Real) -> list[int]: ...
    def nearest_neighbor(self, center: _Location) -> int:
        """Find the nearest location.

        Parameters
        ----------
        center : numpy.ndarray, shape (3, 1)

        Returns
        -------
        int
            Its position in the list of locations.

        Raises
        ------
        ValueError
            When there are no locations or the centre is not finite.
        """

class Kernel:
    """A correlation as a function of distance in units of the range: 1 at zero, and at 1 the practical
    range. Kernels are taken from the class: `Kernel.spherical`, `Kernel.gaussian` and
    `Kernel.exponential`.
    """

    def __init__(self, no_constructor: Never, /) -> None: ...
    exponential: ClassVar[Kernel]
    "exp(-3 h)."
    gaussian: ClassVar[Kernel]
    "exp(-3 h^2)."
    spherical: ClassVar[Kernel]
    "1 - 1.5 h + 0.5 h^3, and 0 above 1."

    def __call__(self, h: _Real) -> float:
        """Evaluate the kernel.

        Parameters
        ----------
        h : float
            Distance in units of the range.

        Returns
        -------
        float
        """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class Covariance:
    """One structure of a covariance model. A model is a list of structures, nuggets included, and its
    covariance is their sum.
    """

    def __init__(self, no_constructor: Never, /) -> None: ...
    @staticmethod
    def exponential(sill: _Real, ellipsoid: Ellipsoid) -> Covariance:
        """Make a structure with the exponential kernel; arguments as for `spherical`."""

    @staticmethod
    def gaussian(sill: _Real, ellipsoid: Ellipsoid) -> Covariance:
        """Make a structure with the gaussian kernel; arguments as for `spherical`."""

    @staticmethod
    def nugget(sill: _Real) -> Covariance:
        """Make a nugget: its sill at lags shorter than 1e-8, else 0.

        Parameters
        ----------
        sill : float

        Returns
        -------
        Covariance
        """

    @staticmethod
    def spherical(sill: _Real, ellipsoid: Ellipsoid) -> Covariance:
        """Make a structure with the spherical kernel.

        Parameters
        ----------
        sill : float
        ellipsoid : Ellipsoid
            Its ranges are the practical ranges.

        Returns
        -------
        Covariance
        """

    def __call__(self, h: _Location) -> float:
        """Evaluate the structure.

        Parameters
        ----------
        h : numpy.ndarray, shape (3, 1)
            Lag, in the units of the ranges.

        Returns
        -------
        float
            The sill times the kernel of the length of the lag in isotropic space.
        """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @property
    def ellipsoid(self) -> Ellipsoid:
        """Its ranges."""

    @property
    def sill(self) -> float:
        """Its covariance at lag 0."""

    @property
    def type(self) -> str:
        """'spherical', 'gaussian', 'exponential', 'nugget' or 'idw'."""

class BoundingBox:
    """The axis-aligned hull of a list of points."""

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(self, corners: _Locations) -> None:
        """Make the hull of a list of points.

        Parameters
        ----------
        corners : list of numpy.ndarray, or array of shape (n, 3)
            Any points. Without one the lower end is 1e30 and the upper one -1e30.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def corners(self) -> list[NDArray[np.float64]]:
        """The points it was made from."""

    def lower(self) -> NDArray[np.float64]:
        """Smallest coordinates, shape (3, 1)."""

    def upper(self) -> NDArray[np.float64]:
        """Largest coordinates, shape (3, 1)."""

class CartesianGrid:
    """A regular, possibly rotated, lattice of locations.

    The cells are numbered (i, j, k) along the three axes, and by a linear index that runs fastest along
    k: (i ny + j) nz + k. The origin is the location of cell (0, 0, 0) itself, so the last cell stands
    one cell short of origin + length; for blocks whose low corner is c, give c plus half a cell.

    The locations are made once, at construction. `numpy.asarray(grid)` gives them as one array of shape
    (n, 3), and a grid can stand wherever a list of locations is asked for.
    """

    def __array__(self, dtype: Any = None, copy: bool | None = None) -> NDArray[Any]:
        """All locations as one array of shape (n, 3), which spares making an object for each.

        Parameters
        ----------
        dtype : numpy.dtype, optional
        copy : bool, optional
            False is refused.

        Returns
        -------
        numpy.ndarray, shape (n, 3)
        """

    @overload
    def __call__(self, i: _Integer, j: _Integer, k: _Integer) -> NDArray[np.float64]:
        """The location of a cell.

        Parameters
        ----------
        i, j, k : int
            Numbers of the cell along the three axes; in the second form `i` is its linear index. They are
            not held against the counts: beyond them lie locations outside the grid.

        Returns
        -------
        numpy.ndarray, shape (3, 1)
        """

    @overload
    def __call__(self, i: _Integer) -> NDArray[np.float64]: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    @overload
    def __init__(
        self,
        length: _Location,
        number_of_cells: _Integers,
        origin: _Location = ...,
        rotation: _Location = ...,
    ) -> None:
        """Make a grid from two of its length, its cell counts and its cell size.

        Given by position, three ints are cell counts wherever those can stand: `CartesianGrid(length, (10,
        10, 5))` has 10 x 10 x 5 cells, `CartesianGrid(length, (10.0, 10.0, 5.0))` cells of that size. In
        first place a triple is always the length; name `number_of_cells` to give it first.

        Parameters
        ----------
        length : numpy.ndarray, shape (3, 1)
            Extent along the grid's three axes.
        number_of_cells : tuple of 3 ints
            nx, ny, nz. With a count of 0 the grid is empty.
        cell_size : numpy.ndarray, shape (3, 1)
            Spacing along the grid's three axes. Together with `length` the counts are length / cell_size,
            truncated; the length stands as given, so that a remainder widens the spacing.
        origin : numpy.ndarray, shape (3, 1), default (0, 0, 0)
            Location of cell (0, 0, 0).
        rotation : numpy.ndarray, shape (3, 1), default (90, 0, 0)
            Azimuth, dip and rake of the grid's axes in degrees, as for `Ellipsoid`. Azimuth 90 puts the
            first axis on +x.

        Raises
        ------
        ValueError
            When a count is negative or there are more cells than can be numbered.
        """

    @overload
    def __init__(
        self,
        length: _Location,
        cell_size: _Location,
        origin: _Location = ...,
        rotation: _Location = ...,
    ) -> None: ...
    @overload
    def __init__(
        self,
        number_of_cells: _Integers,
        cell_size: _Location,
        origin: _Location = ...,
        rotation: _Location = ...,
    ) -> None: ...
    def __len__(self) -> int: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def bounding_box(self) -> BoundingBox:
        """The box of the corners."""

    def cell_size(self) -> NDArray[np.float64]:
        """The diagonal of a cell as a real offset, shape (3, 1): the edge lengths of an unrotated grid only."""

    def corners(self) -> list[NDArray[np.float64]]:
        """The eight corners of the whole length, as a list: origin first, the third axis running fastest."""

    def ijk(self, i: _Integer) -> tuple[int, int, int]:
        """The numbers (i, j, k) of the cell of a linear index.

        Parameters
        ----------
        i : int

        Returns
        -------
        tuple of 3 ints

        Raises
        ------
        IndexError
            When the grid has no cells along its second or third axis.
        """

    def index(self, i: _Integer, j: _Integer, k: _Integer) -> int:
        """The linear index of a cell."""

    def locations(self) -> list[NDArray[np.float64]]:
        """All cell locations in the order of the linear index, as a list."""

    def number_of_cells(self) -> tuple[int, int, int]:
        """Counts along the three axes, a tuple (nx, ny, nz)."""

    def transformation(self) -> Ellipsoid:
        """The ellipsoid that maps offsets from the origin to the unit cube."""

class BlockModel:
    """A grid with a mask that selects its active cells.

    The active cells are numbered from 0 in the order of the grid's linear index. As with a grid,
    `numpy.asarray(model)` gives their locations as one array, and a model can stand wherever a list of
    locations is asked for.
    """

    def __array__(self, dtype: Any = None, copy: bool | None = None) -> NDArray[Any]:
        """All locations as one array of shape (n, 3), which spares making an object for each.

        Parameters
        ----------
        dtype : numpy.dtype, optional
        copy : bool, optional
            False is refused.

        Returns
        -------
        numpy.ndarray, shape (n, 3)
        """

    @overload
    def __call__(self, i: _Integer, j: _Integer, k: _Integer) -> NDArray[np.float64]:
        """The location of an active cell.

        Parameters
        ----------
        i, j, k : int
            Numbers of the cell along the three axes; in the second form `i` is its number among the active
            cells.

        Returns
        -------
        numpy.ndarray, shape (3, 1)

        Raises
        ------
        IndexError
            "invalid index" when the cell is not active; in the second form, when there are not so many.
        """

    @overload
    def __call__(self, i: _Integer) -> NDArray[np.float64]: ...
    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(self, base_grid: CartesianGrid, mask: _Flags) -> None:
        """Select the active cells of a grid.

        Parameters
        ----------
        base_grid : CartesianGrid
            The model holds a copy.
        mask : list of bool, or array of shape (n,)
            One for each cell, in the order of the linear index.

        Raises
        ------
        ValueError
            When the mask is not as long as the grid.
        """

    def __len__(self) -> int: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def base_grid(self) -> CartesianGrid:
        """A copy of the grid."""

    def bounding_box(self) -> BoundingBox:
        """The box of the whole grid's corners."""

    def cell_size(self) -> NDArray[np.float64]:
        """The diagonal of a cell as a real offset, shape (3, 1)."""

    def full_size(self) -> int:
        """Number of cells of the grid, active or not."""

    def ijk(self, i: _Integer) -> tuple[int, int, int]:
        """The numbers (i, j, k) of an active cell.

        Parameters
        ----------
        i : int
            Its number among the active cells.

        Returns
        -------
        tuple of 3 ints

        Raises
        ------
        IndexError
            When there are not so many active cells.
        """

    def locations(self) -> list[NDArray[np.float64]]:
        """The locations of the active cells, as a list."""

    def number_of_cells(self) -> tuple[int, int, int]:
        """Counts of the grid along its three axes, a tuple (nx, ny, nz)."""

class SimulatorFactory:
    """A method of simulation with its parameters bound, which makes a field of any covariance model."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    @staticmethod
    @overload
    def FIM(
        corners: _Locations, nx: _Integer, ny: _Integer, nz: _Integer, n_threads: _Integer = 0
    ) -> SimulatorFactory:
        """Bind the parameters of `FIM`.

        Parameters
        ----------
        corners, nx, ny, nz, n, n_threads
            As for `FIM`.

        Returns
        -------
        SimulatorFactory

        Raises
        ------
        ValueError
            When `corners` is empty.
        """

    @staticmethod
    @overload
    def FIM(
        corners: _Locations, n: _Integer = 128, n_threads: _Integer = 0
    ) -> SimulatorFactory: ...
    @staticmethod
    def TBSIM(corners: _Locations, n: _Integer = 600) -> SimulatorFactory:
        """Bind the parameters of `TBSIM`.

        Parameters
        ----------
        corners, n
            As for `TBSIM`.

        Returns
        -------
        SimulatorFactory

        Raises
        ------
        ValueError
            When `corners` is empty or `n` is below 1.
        """

    def __call__(self, cov: Sequence[Covariance], seed: _Integer) -> SpatialFunction:
        """Make the field of a model.

        Parameters
        ----------
        cov : list of Covariance
            The covariance model.
        seed : int
            Taken modulo 2^32.

        Returns
        -------
        SpatialFunction
            What `FIM` or `TBSIM` makes of the model and the seed.
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class SimulatorGenerator:
    """Makes one field after the other, each out of a seed.

    `FIM` and `TBSIM` simulate one field for each structure, in units of its ranges, on a lattice, and
    turn it at random for every seed; `Pool` mixes given fields; `Ensemble` blends fields of local
    models.
    """

    def __init__(self, no_constructor: Never, /) -> None: ...
    @staticmethod
    def Ensemble(
        local_covs: LocalCovariances,
        sim_factory: SimulatorFactory,
        max_weight: _Real,
        power_a: _Real,
        seed: _Integer,
    ) -> SimulatorGenerator:
        """Make fields with covariance models that differ from place to place.

        Parameters
        ----------
        local_covs, max_weight, power_a
            As for `unconditional_ensemble_simulation`.
        sim_factory : SimulatorFactory
            Makes the field of each model.
        seed : int
            Has no effect: the seed that the generator is called with draws those of the fields.

        Returns
        -------
        SimulatorGenerator
            Its fields have at each location the value of `unconditional_ensemble_simulation`.
        """

    @staticmethod
    @overload
    def FIM(
        corners: _Locations,
        cov: Covariance,
        seed: _Integer,
        nx: _Integer,
        ny: _Integer,
        nz: _Integer,
        n_threads: _Integer = 0,
        n_base_simulation_points: _Integer = 100,
    ) -> SimulatorGenerator:
        """Turn one field of each structure, simulated by the Fourier integral method, at random.

        The field is simulated once, in the space of the structure, and kept on a lattice of
        `n_base_simulation_points` nodes along each axis. Each seed draws a rotation of that space about the
        origin of the coordinates. A field that is made then costs nothing but a matrix product and a read
        for each location; its values change in steps, at the planes between nodes.

        The lattice covers the box of `corners`, made larger so as to hold its rotations, if `corners` are
        centred on the origin. Where a rotated location falls outside of it all the same, the field is 0.0:
        subtract the middle of the field from all coordinates first.

        Parameters
        ----------
        corners : list of numpy.ndarray, or array of shape (n, 3)
            Locations whose box is to be covered, in coordinates centred on the field.
        cov : Covariance
            The structure; a nugget draws a new value each time it is evaluated, as in `TBSIM`.
        covs : list of Covariance
            In the forms for a model. The seeds of its structures are drawn from one.
        seed : int
            Of the fields that are turned, taken modulo 2^32.
        nx, ny, nz : int
            Nodes along the axes of the lattice of the Fourier integral method.
        n : int, default 128
            The three of them in one. Three integers after `seed` are read as `nx`, `ny` and `nz`: name
            `n_base_simulation_points` after a single count.
        n_threads : int, default 0
            Number of threads; 0 stands for all. Phases depend on it, as in `FIM`.
        n_base_simulation_points : int, default 100
            Nodes along each axis of the lattice that is turned; 8 bytes are kept for each.

        Returns
        -------
        SimulatorGenerator

        Raises
        ------
        ValueError
            When `corners` is empty or `n_base_simulation_points` is below 1.
        MemoryError
            When a lattice does not fit into memory.
        """

    @staticmethod
    @overload
    def FIM(
        corners: _Locations,
        cov: Covariance,
        seed: _Integer,
        n: _Integer = 128,
        n_threads: _Integer = 0,
        n_base_simulation_points: _Integer = 100,
    ) -> SimulatorGenerator: ...
    @staticmethod
    @overload
    def FIM(
        corners: _Locations,
        covs: Sequence[Covariance],
        seed: _Integer,
        nx: _Integer,
        ny: _Integer,
        nz: _Integer,
        n_threads: _Integer = 0,
        n_base_simulation_points: _Integer = 100,
    ) -> SimulatorGenerator: ...
    @staticmethod
    @overload
    def FIM(
        corners: _Locations,
        covs: Sequence[Covariance],
        seed: _Integer,
        n: _Integer = 128,
        n_threads: _Integer = 0,
        n_base_simulation_points: _Integer = 100,
    ) -> SimulatorGenerator: ...
    @staticmethod
    def Pool(simulators: Sequence[SpatialFunction]) -> SimulatorGenerator:
        """Mix given fields at random.

        Each seed draws weights whose squares add up to 1, so that a mixture of independent fields of one
        variance has that variance too. Nothing is simulated anew: fields of a small pool are alike.

        Parameters
        ----------
        simulators : list of SpatialFunction

        Returns
        -------
        SimulatorGenerator
        """

    @staticmethod
    @overload
    def TBSIM(
        corners: _Locations,
        cov: Covariance,
        seed: _Integer,
        n: _Integer = 600,
        n_threads: _Integer = 0,
        n_base_simulation_points: _Integer = 100,
    ) -> SimulatorGenerator:
        """Turn one field of each structure, simulated by turning bands, at random.

        Parameters
        ----------
        corners, cov, covs, seed, n_base_simulation_points
            As for `SimulatorGenerator.FIM`.
        n : int, default 600
            Number of lines.
        n_threads : int, default 0
            Number of threads; 0 stands for all. The result does not depend on it, unless lines fall back to
            white noise as in `TBSIM`.

        Returns
        -------
        SimulatorGenerator

        Raises
        ------
        ValueError
            When `corners` is empty, or `n` or `n_base_simulation_points` is below 1.
        MemoryError
            When the lattice does not fit into memory.
        """

    @staticmethod
    @overload
    def TBSIM(
        corners: _Locations,
        covs: Sequence[Covariance],
        seed: _Integer,
        n: _Integer = 600,
        n_threads: _Integer = 0,
        n_base_simulation_points: _Integer = 100,
    ) -> SimulatorGenerator: ...
    def __call__(self, seed: _Integer) -> SpatialFunction:
        """Make a field.

        Parameters
        ----------
        seed : int
            Taken modulo 2^32. The same seed gives the same field.

        Returns
        -------
        SpatialFunction
            It shares what the generator has simulated.
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class RNG:
    """A random engine that successive draws advance: the 32-bit Mersenne Twister (Matsumoto and Nishimura
    1998) with its standard seeding.
    """

    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __init__(self, seed: _Integer) -> None:
        """Seed an engine.

        Parameters
        ----------
        seed : int
            Taken modulo 2^32.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class Distribution:
    """A source of random numbers, made by a factory such as `gaussian_distribution`."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __call__(self, rng: RNG) -> float:
        """Draw one value.

        Parameters
        ----------
        rng : RNG
            Advanced by the draw.

        Returns
        -------
        float
        """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def cdf(self, n: _Integer, seed: _Integer = 12515) -> tuple[list[float], list[float]]:
        """Draw an empirical distribution function.

        Parameters
        ----------
        n : int
            Number of values.
        seed : int, default 12515
            Taken modulo 2^32.

        Returns
        -------
        tuple of (list of float, list of float)
            The values as of `histogram`, and the probabilities 0, 1/n, 2/n, ... below 1, by repeated
            addition.

        Raises
        ------
        ValueError
            When the number is negative.
        """

    def histogram(self, n: _Integer, seed: _Integer = 12515) -> list[float]:
        """Draw values from one engine, as `simulate(n, seed)` does, and sort them.

        Parameters
        ----------
        n : int
            Number of values.
        seed : int, default 12515
            Taken modulo 2^32.

        Returns
        -------
        list of float
            Ascending, NaN last.

        Raises
        ------
        ValueError
            When the number is negative.
        """

    @overload
    def simulate(self, n: _Integer, seed: _Integer = 12515) -> list[float]:
        """Draw values, in order, from one engine.

        The second form, with `N` or `n_threads`, has an engine for each thread and each draw a contiguous
        block: its values depend on the number of threads and differ from those of the first form, also
        with one thread. Two positional arguments mean the first form.

        Parameters
        ----------
        n, N : int
            Number of values.
        seed : int, default 12515
            Taken modulo 2^32.
        n_threads : int, default 0
            Number of threads; 0 stands for all.

        Returns
        -------
        list of float

        Raises
        ------
        ValueError
            When the number is negative.
        """

    @overload
    def simulate(
        self, N: _Integer, seed: _Integer = 12515, n_threads: _Integer = 0
    ) -> list[float]: ...

class PDF:
    """Density and smoothed quantiles of a distribution, tabulated by a sorted sample of it."""

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(self, dist: Distribution, N: _Integer = 800000, seed: _Integer = 12145) -> None:
        """Draw the sample.

        Parameters
        ----------
        dist : Distribution
        N : int, default 800000
            Size of the sample.
        seed : int, default 12145
            Taken modulo 2^32.

        Raises
        ------
        ValueError
            When `N` is not positive.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def max(self) -> float:
        """Largest sample."""

    def median(self) -> float:
        """Quantile of the probability 0.5."""

    def min(self) -> float:
        """Smallest sample."""

    def prob(self, value: _Real, dv: _Real = 0.05) -> float:
        """Give the density at a value.

        Parameters
        ----------
        value : float
        dv : float, default 0.05
            Half the width of the interval over which the density is averaged.

        Returns
        -------
        float
            (F(value + dv) - F(value - dv)) / (2 dv) with F as of `CDF.prob`.
        """

    def probs(self, values: _Values, dv: _Real = 0.05, n_threads: _Integer = 0) -> list[float]:
        """Give the density at each value, in parallel.

        Parameters
        ----------
        values : list of float, or array of shape (n,)
        dv : float, default 0.05
            As for `prob`.
        n_threads : int, default 0
            Number of threads; 0 stands for all.

        Returns
        -------
        list of float
        """

    def q75(self) -> float:
        """Quantile of the probability 0.75."""

    def q90(self) -> float:
        """Quantile of the probability 0.9."""

    def value(self, prob: _Real, dp: _Real = 0.001) -> float:
        """Give the smoothed quantile of a probability.

        Parameters
        ----------
        prob : float
        dp : float, default 0.001
            Distance in probability of the two quantiles that are averaged.

        Returns
        -------
        float
            (Q(prob - dp) + Q(prob + dp)) / 2 with Q as of `CDF.value`.
        """

    def values(self, probs: _Values, dp: _Real = 0.001, n_threads: _Integer = 0) -> list[float]:
        """Give the smoothed quantile of each probability, in parallel.

        Parameters
        ----------
        probs : list of float, or array of shape (n,)
        dp : float, default 0.001
            As for `value`.
        n_threads : int, default 0
            Number of threads; 0 stands for all.

        Returns
        -------
        list of float
        """

class CDF:
    """Probabilities and quantiles of a distribution, tabulated by a sorted sample of it."""

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(self, dist: Distribution, N: _Integer = 800000, seed: _Integer = 12145) -> None:
        """Draw the sample.

        Parameters
        ----------
        dist : Distribution
        N : int, default 800000
            Size of the sample.
        seed : int, default 12145
            Taken modulo 2^32.

        Raises
        ------
        ValueError
            When `N` is not positive.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    def max(self) -> float:
        """Largest sample."""

    def median(self) -> float:
        """Quantile of the probability 0.5."""

    def min(self) -> float:
        """Smallest sample."""

    def prob(self, value: _Real) -> float:
        """Give the probability of a value.

        Parameters
        ----------
        value : float

        Returns
        -------
        float
            The mean of the probabilities of the samples on either side, weighted by inverse distance. At
            or below the smallest sample it is 0, at the largest (N - 1) / N, and above it 1.
        """

    def probs(self, values: _Values, n_threads: _Integer = 0) -> list[float]:
        """Give the probability of each value, in parallel.

        Parameters
        ----------
        values : list of float, or array of shape (n,)
        n_threads : int, default 0
            Number of threads; 0 stands for all.

        Returns
        -------
        list of float
        """

    def q75(self) -> float:
        """Quantile of the probability 0.75."""

    def q90(self) -> float:
        """Quantile of the probability 0.9."""

    def value(self, prob: _Real) -> float:
        """Give the quantile of a probability.

        Parameters
        ----------
        prob : float
            Below 0 it reads as 0, and above 1 as 1.

        Returns
        -------
        float
            Linear between samples; from (N - 1) / N on it is the largest one.
        """

    def values(self, probs: _Values, n_threads: _Integer = 0) -> list[float]:
        """Give the quantile of each probability, in parallel.

        Parameters
        ----------
        probs : list of float, or array of shape (n,)
        n_threads : int, default 0
            Number of threads; 0 stands for all.

        Returns
        -------
        list of float
        """

class NScore:
    """Transform between two distributions by equal probability (Goovaerts 1997, 7.2). Data go to normal
    scores when the source is their `data_distribution` and the target a `gaussian_distribution`.
    """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(
        self,
        source: Distribution,
        target: Distribution,
        n: _Integer = 800000,
        seed: _Integer = 12145,
    ) -> None:
        """Tabulate both distributions, as `CDF` does.

        Parameters
        ----------
        source, target : Distribution
        n : int, default 800000
            Size of each of the two samples.
        seed : int, default 12145
            Of both samples; taken modulo 2^32.

        Raises
        ------
        ValueError
            When `n` is not positive.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @overload
    def backward(self, z: _Real) -> float:
        """Carry a value of the target back to the source; takes and returns what `forward` does."""

    @overload
    def backward(self, z: _Values, n_threads: _Integer = 0) -> list[float]: ...
    @overload
    def forward(self, z: _Real) -> float:
        """Carry a value of the source to the target.

        Parameters
        ----------
        z : float
            A value; the second form takes a list, or an array of shape (n,), and carries each.
        n_threads : int, default 0
            Number of threads of the second form; 0 stands for all.

        Returns
        -------
        float or list of float
            The target's quantile of the value's probability in the source; not beyond its samples.
        """

    @overload
    def forward(self, z: _Values, n_threads: _Integer = 0) -> list[float]: ...

class Estimator:
    """A method of estimation with its parameters bound, made by `IDW`, `SimpleKriging`,
    `OrdinaryKriging` or `EnsembleEstimation`.
    """

    def __init__(self, no_constructor: Never, /) -> None: ...
    def __call__(
        self,
        target_locs: _Locations,
        neighborhood: Neighborhood,
        data_locs: _Locations,
        data: _Values,
        n_threads: _Integer = 0,
    ) -> list[float]:
        """Estimate a value at every target.

        Parameters
        ----------
        target_locs : list of numpy.ndarray, or array of shape (n, 3)
        neighborhood : Neighborhood
            The search structure over `data_locs`.
        data_locs : list of numpy.ndarray, or array of shape (m, 3)
        data : list of float, or array of shape (m,)
        n_threads : int, default 0
            Number of threads; 0 stands for all. The result does not depend on it.

        Returns
        -------
        list of float
            One estimate for each target: NaN where no datum was found and, except with
            `EnsembleEstimation`, the datum where one was.

        Raises
        ------
        ValueError
            When `data_locs`, `data`, the neighborhood and the estimator's `dhids` are not equally many.
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class LocalCovariances:
    """Covariance models of local areas, and how well each predicts the data there."""

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(
        self, centers: _Locations, covariances: Sequence[Sequence[Covariance]], errors: _Values
    ) -> None:
        """Keep three lists of one entry for each local area.

        Parameters
        ----------
        centers : list of numpy.ndarray, or array of shape (n, 3)
            The middle of each area.
        covariances : list of list of Covariance
            The model of each.
        errors : list of float, or array of shape (n,)
            The cross-validation error of each: the smaller, the more a model is trusted.

        Raises
        ------
        ValueError
            When the lists are not equally long.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @property
    def centers(self) -> list[NDArray[np.float64]]:
        """The middle of each area."""

    @property
    def covariances(self) -> list[list[Covariance]]:
        """The model of each area."""

    @property
    def errors(self) -> list[float]:
        """The cross-validation error of each model."""

class ExperimentalVariogram:
    """Semivariances by direction and lag.

    The entries stand in parallel lists, one entry for each lag bin that has pairs; those of one
    direction together, by ascending lag.
    """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(
        self,
        lags: _Locations,
        variogram: _Values,
        npairs: _Integers,
        direction_id: _Integers,
        directions: _Locations,
    ) -> None:
        """Put a variogram together from its entries.

        Parameters
        ----------
        lags : list of numpy.ndarray, or array of shape (n, 3)
            Lag vectors: distance times direction.
        variogram : list of float
            Semivariances.
        npairs : list of int
        direction_id : list of int
            For each entry the position of its direction in `directions`.
        directions : list of numpy.ndarray, or array of shape (m, 3)

        Raises
        ------
        ValueError
            When the lists of entries are not equally long.
        IndexError
            When an entry's direction is none of the directions.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @overload
    def get_variogram(
        self, azimuth: _Real, dip: _Real
    ) -> tuple[list[NDArray[np.float64]], list[float], list[int]]:
        """The entries of the direction nearest to a given one, among those that have any.

        Parameters
        ----------
        azimuth, dip : float
            Degrees, as for `Direction`.
        dir : numpy.ndarray, shape (3, 1)
            In the second form the direction itself, of any length. A direction and its opposite are two.

        Returns
        -------
        tuple of (list of numpy.ndarray, list of float, list of int)
            Lags, semivariances and numbers of pairs; three empty lists when there are no entries.
        """

    @overload
    def get_variogram(
        self, dir: _Location
    ) -> tuple[list[NDArray[np.float64]], list[float], list[int]]: ...
    def get_variogram_by_direction_id(
        self, direction_id: _Integer
    ) -> tuple[list[NDArray[np.float64]], list[float], list[int]]:
        """The entries of one direction.

        Parameters
        ----------
        direction_id : int
            Its position in `directions`.

        Returns
        -------
        tuple of (list of numpy.ndarray, list of float, list of int)
            Lags, semivariances and numbers of pairs; three empty lists when it has no entries.
        """

    @property
    def direction_ids(self) -> list[int]:
        """For each entry the position of its direction in `directions`."""

    @property
    def directions(self) -> list[NDArray[np.float64]]:
        """All directions that were searched, shape (3, 1)."""

    @property
    def lags(self) -> list[NDArray[np.float64]]:
        """Lag vectors, one for each entry, shape (3, 1)."""

    @property
    def lags_by_dir(self) -> list[list[int]]:
        """For each direction the list of the positions of its entries."""

    @property
    def npairs(self) -> list[int]:
        """Contributions of pairs to each entry."""

    @property
    def variogram(self) -> list[float]:
        """Semivariances, one for each entry."""

class CovarianceErrorFunction:
    """How badly a covariance model predicts: what a search makes small. Made by `IDW` or `Custom`."""

    def __init__(self, no_constructor: Never, /) -> None: ...
    @staticmethod
    def Custom(python_callback: Callable) -> CovarianceErrorFunction:
        """Make an error out of a function of your own.

        Parameters
        ----------
        python_callback : callable
            Is given a model, as a list of Covariance, and the number of threads it may use, and returns a
            number; a model of error NaN is never the best. Whatever the number of threads of a search, it is
            called by one at a time. What it raises arrives at the caller of the search.

        Returns
        -------
        CovarianceErrorFunction
        """

    @staticmethod
    def IDW(
        folds: Sequence[tuple[_Locations, _Values]],
        max_distance: _Real,
        power_a: _Real = 3.0,
        min_partition_size: _Integer = 15,
        max_partition_size: _Integer = 25,
        n_partitions: _Integer = 5,
        regularization_const: _Real = 0.001,
        seed: _Integer = 21314,
    ) -> CovarianceErrorFunction:
        """Make the error of `compute_covariance_error_idw` on given folds, of which it keeps a copy.

        Parameters
        ----------
        folds : list of tuple of (locations, values)
            As `create_folds` makes them.
        max_distance : float
            Data at this distance or further away are not used; Euclidean.
        power_a : float, default 3
        min_partition_size, max_partition_size, n_partitions : int, default 15, 25 and 5
        regularization_const : float, default 0.001
        seed : int, default 21314

        Returns
        -------
        CovarianceErrorFunction

        Raises
        ------
        ValueError
            When the lists of a fold are not equally long, a count is negative or `max_partition_size` is
            below `min_partition_size`.
        """

    def __call__(self, covariance: Sequence[Covariance], n_threads: _Integer = 0) -> float:
        """Compute the error of a model.

        Parameters
        ----------
        covariance : list of Covariance
        n_threads : int, default 0
            Number of threads; 0 stands for all.

        Returns
        -------
        float
        """

    def __getstate__(self) -> Any: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...

class EllipsoidOptimizationParameters:
    """Settings of `optimize_ellipsoid`, as fields that can be read and written; see
    `optimize_ellipsoid_using_idw` for what they mean.
    """

    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __init__(
        self,
        power_a: _Real = 3.0,
        max_nei_size: _Integer = 400,
        min_partition_size: _Integer = 15,
        max_partitions_size: _Integer = 25,
        n_partitions: _Integer = 4,
        n_centers: _Integer = 10,
        n_rays: _Integer = 400,
        n_scales: _Integer = 8,
        n_iterations: _Integer = 150,
        n_iterations_without_upgrade: _Integer = 50,
        tol: _Real = 0.002,
        regularization_const: _Real = 0.025,
        seed: _Integer = 1231,
        n_threads: _Integer = 0,
        debug: bool = False,
    ) -> None:
        """Make settings. The field `max_partition_size` is spelt `max_partitions_size` here."""

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @property
    def debug(self) -> bool:
        """Whether progress is printed."""

    @debug.setter
    def debug(self, arg0: bool) -> None: ...
    @property
    def max_nei_size(self) -> int:
        """Largest number of data in a fold."""

    @max_nei_size.setter
    def max_nei_size(self, arg0: _Integer) -> None: ...
    @property
    def max_partition_size(self) -> int:
        """Largest random subset."""

    @max_partition_size.setter
    def max_partition_size(self, arg0: _Integer) -> None: ...
    @property
    def min_partition_size(self) -> int:
        """Smallest random subset."""

    @min_partition_size.setter
    def min_partition_size(self, arg0: _Integer) -> None: ...
    @property
    def n_centers(self) -> int:
        """Number of folds."""

    @n_centers.setter
    def n_centers(self, arg0: _Integer) -> None: ...
    @property
    def n_iterations(self) -> int:
        """Number of perturbations, and bound of the scan."""

    @n_iterations.setter
    def n_iterations(self, arg0: _Integer) -> None: ...
    @property
    def n_iterations_without_upgrade(self) -> int:
        """Bound of the scan without improvement."""

    @n_iterations_without_upgrade.setter
    def n_iterations_without_upgrade(self, arg0: _Integer) -> None: ...
    @property
    def n_partitions(self) -> int:
        """Number of subsets for each datum."""

    @n_partitions.setter
    def n_partitions(self, arg0: _Integer) -> None: ...
    @property
    def n_rays(self) -> int:
        """Half the number of directions."""

    @n_rays.setter
    def n_rays(self, arg0: _Integer) -> None: ...
    @property
    def n_scales(self) -> int:
        """Half the number of shapes for each frame."""

    @n_scales.setter
    def n_scales(self, arg0: _Integer) -> None: ...
    @property
    def n_threads(self) -> int:
        """Number of threads; 0 stands for all."""

    @n_threads.setter
    def n_threads(self, arg0: _Integer) -> None: ...
    @property
    def power_a(self) -> float:
        """Power of the inverse distance."""

    @power_a.setter
    def power_a(self, arg0: _Real) -> None: ...
    @property
    def regularization_const(self) -> float:
        """Weight of the penalty on long ranges."""

    @regularization_const.setter
    def regularization_const(self, arg0: _Real) -> None: ...
    @property
    def seed(self) -> int:
        """Seed of candidates and folds."""

    @seed.setter
    def seed(self, arg0: _Integer) -> None: ...
    @property
    def tol(self) -> float:
        """Largest cosine between the axes of a frame."""

    @tol.setter
    def tol(self, arg0: _Real) -> None: ...

class EllipsoidLBFGSParameters:
    """Settings of `optimize_local_ellipsoids_using_lbfgs`, as fields that can be read and written; see
    `optimize_ellipsoid_using_kfold` for what they mean.
    """

    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __init__(
        self,
        regularization_const: _Real = 1.0,
        cauchy_loss: _Real = 0.0,
        min_partition_size: _Integer = 15,
        max_partition_size: _Integer = 30,
        n_partitions: _Integer = 7,
        n_iterations: _Integer = 1000,
        seed: _Integer = 123151,
        n_threads: _Integer = 0,
        debug: bool = False,
    ) -> None:
        """Make settings."""

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @property
    def cauchy_loss(self) -> float:
        """Scale of Cauchy's loss; below 1e-10 none."""

    @cauchy_loss.setter
    def cauchy_loss(self, arg0: _Real) -> None: ...
    @property
    def debug(self) -> bool:
        """Whether progress is printed."""

    @debug.setter
    def debug(self, arg0: bool) -> None: ...
    @property
    def max_partition_size(self) -> int:
        """Bound of that number."""

    @max_partition_size.setter
    def max_partition_size(self, arg0: _Integer) -> None: ...
    @property
    def min_partition_size(self) -> int:
        """Smallest number of data that predict the others of a fold."""

    @min_partition_size.setter
    def min_partition_size(self, arg0: _Integer) -> None: ...
    @property
    def n_iterations(self) -> int:
        """Largest number of iterations."""

    @n_iterations.setter
    def n_iterations(self, arg0: _Integer) -> None: ...
    @property
    def n_partitions(self) -> int:
        """Number of random partitions of each fold."""

    @n_partitions.setter
    def n_partitions(self, arg0: _Integer) -> None: ...
    @property
    def n_threads(self) -> int:
        """Number of threads; 0 stands for all."""

    @n_threads.setter
    def n_threads(self, arg0: _Integer) -> None: ...
    @property
    def regularization_const(self) -> float:
        """Weight of the regularisation of the ranges."""

    @regularization_const.setter
    def regularization_const(self, arg0: _Real) -> None: ...
    @property
    def seed(self) -> int:
        """Seed of folds and partitions."""

    @seed.setter
    def seed(self, arg0: _Integer) -> None: ...

class Projection:
    """A smooth map of numbers: the mean of the weights of some centres, each counted by a kernel of its
    distance times its beta. Everywhere the map lies between the smallest and the largest weight.
    """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(self, parameters: _Values, kernel: str = "exponential") -> None:
        """Make the map of known parameters.

        Parameters
        ----------
        parameters : list of float, or array of shape (3 n,)
            Centre, beta and weight of each centre in turn; beta is one over a length.
        kernel : str, default "exponential"
            "spherical", "gaussian", "exponential", "idw", or anything else for the nugget.

        Raises
        ------
        ValueError
            When the parameters do not come in threes.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @overload
    def forward(self, u: _Real) -> float:
        """Map a number.

        Parameters
        ----------
        u : float
            A number; the second form takes a list, or an array of shape (n,), and maps each.
        n_threads : int, default 0
            Number of threads of the second form; 0 stands for all.

        Returns
        -------
        float or list of float
            NaN where no centre counts.
        """

    @overload
    def forward(self, u: _Values, n_threads: _Integer = 0) -> list[float]: ...
    def serialize(self) -> list[float]:
        """Give the parameters that the map can be made of again.

        Returns
        -------
        list of float
            Centre, beta and weight of each centre in turn.
        """

class IsomorphismParameters:
    """How an `Isomorphism` is fitted to samples. The fields are the arguments."""

    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __init__(
        self,
        kernel_forward: str = "exponential",
        n_centers_forward: _Integer = 27,
        kernel_backward: str = "exponential",
        n_centers_backward: _Integer = 33,
        weight_tol: _Real = 10.0,
        center_tol: _Real = 10.0,
        min_beta: _Real = 1e-06,
        max_beta: _Real = 4.0,
        min_partition_size: _Real = 0.5,
        max_partition_size: _Real = 2.0,
        n_partitions: _Integer = 20,
        cauchy_loss: _Real = 0.0,
        n_iterations: _Integer = 50,
        n_threads: _Integer = 0,
        seed: _Integer = 123154,
        debug: bool = False,
    ) -> None:
        """Set how an isomorphism is fitted.

        Both kernels are exponential unless said otherwise. Where a record is itself left out, as in
        `optimize_isomorphism`, the backward kernel is spherical.

        Parameters
        ----------
        kernel_forward, kernel_backward : str, default "exponential"
            As for `Projection`.
        n_centers_forward, n_centers_backward : int, default 27 and 33
        weight_tol, center_tol : float, default 10
            How far weights and centres may lie beyond the samples, in spans of the samples.
        min_beta, max_beta : float, default 1e-6 and 4
            Bounds of the betas, per span of the samples.
        min_partition_size, max_partition_size : float, default 0.5 and 2
            Size of a random subset in equal shares of the sample, n / `n_partitions`.
        n_partitions : int, default 20
            Number of random subsets.
        cauchy_loss : float, default 0
            Above 0, the scale of Cauchy's loss, which makes subsets with large residuals count less.
        n_iterations : int, default 50
            Largest number of steps of the solver.
        n_threads : int, default 0
            Number of threads; 0 stands for all.
        seed : int, default 123154
        debug : bool, default False
            Whether the solver reports on standard output.
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @property
    def cauchy_loss(self) -> float:
        """Scale of Cauchy's loss; 0 for none."""

    @cauchy_loss.setter
    def cauchy_loss(self, arg0: _Real) -> None: ...
    @property
    def center_tol(self) -> float:
        """How far centres may lie beyond the samples, in spans."""

    @center_tol.setter
    def center_tol(self, arg0: _Real) -> None: ...
    @property
    def debug(self) -> bool:
        """Whether the solver reports."""

    @debug.setter
    def debug(self, arg0: bool) -> None: ...
    @property
    def kernel_backward(self) -> str:
        """Kernel of the way back, as a text."""

    @kernel_backward.setter
    def kernel_backward(self, arg1: str) -> None: ...
    @property
    def kernel_forward(self) -> str:
        """Kernel of the way forward, as a text."""

    @kernel_forward.setter
    def kernel_forward(self, arg1: str) -> None: ...
    @property
    def max_beta(self) -> float:
        """Upper bound of the betas, per span."""

    @max_beta.setter
    def max_beta(self, arg0: _Real) -> None: ...
    @property
    def max_partition_size(self) -> float:
        """Largest size of a subset, in equal shares of the sample."""

    @max_partition_size.setter
    def max_partition_size(self, arg0: _Real) -> None: ...
    @property
    def min_beta(self) -> float:
        """Lower bound of the betas, per span."""

    @min_beta.setter
    def min_beta(self, arg0: _Real) -> None: ...
    @property
    def min_partition_size(self) -> float:
        """Least size of a subset, in equal shares of the sample."""

    @min_partition_size.setter
    def min_partition_size(self, arg0: _Real) -> None: ...
    @property
    def n_centers_backward(self) -> int:
        """Number of centres of the way back."""

    @n_centers_backward.setter
    def n_centers_backward(self, arg0: _Integer) -> None: ...
    @property
    def n_centers_forward(self) -> int:
        """Number of centres of the way forward."""

    @n_centers_forward.setter
    def n_centers_forward(self, arg0: _Integer) -> None: ...
    @property
    def n_iterations(self) -> int:
        """Largest number of steps."""

    @n_iterations.setter
    def n_iterations(self, arg0: _Integer) -> None: ...
    @property
    def n_partitions(self) -> int:
        """Number of random subsets."""

    @n_partitions.setter
    def n_partitions(self, arg0: _Integer) -> None: ...
    @property
    def n_threads(self) -> int:
        """Number of threads; 0 stands for all."""

    @n_threads.setter
    def n_threads(self, arg0: _Integer) -> None: ...
    @property
    def seed(self) -> int:
        """Seed of centres and subsets."""

    @seed.setter
    def seed(self, arg0: _Integer) -> None: ...
    @property
    def weight_tol(self) -> float:
        """How far weights may lie beyond the samples, in spans."""

    @weight_tol.setter
    def weight_tol(self, arg0: _Real) -> None: ...

class Isomorphism:
    """A smooth map of numbers together with the way back: two `Projection`."""

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    @overload
    def __init__(self, parameters: tuple[_Values, _Values], kernel: str = "exponential") -> None:
        """Make the pair of known parameters, or of two maps.

        Parameters
        ----------
        parameters : tuple of (list of float, list of float)
            The parameters of the way forward and of the way back, as `serialize` gives them.
        kernel : str, default "exponential"
            Kernel of both, as for `Projection`.
        forward_proj, backward_proj : Projection
            In the second form the two maps themselves.

        Raises
        ------
        ValueError
            When parameters do not come in threes.
        """

    @overload
    def __init__(self, forward_proj: Projection, backward_proj: Projection) -> None: ...
    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @overload
    def backward(self, u: _Real) -> float:
        """Map a number from target to source; takes and returns what `forward` does."""

    @overload
    def backward(self, u: _Values, n_threads: _Integer = 0) -> list[float]: ...
    @overload
    def forward(self, u: _Real) -> float:
        """Map a number from source to target.

        Parameters
        ----------
        u : float
            A number; the second form takes a list, or an array of shape (n,), and maps each.
        n_threads : int, default 0
            Number of threads of the second form; 0 stands for all.

        Returns
        -------
        float or list of float
            NaN where no centre counts.
        """

    @overload
    def forward(self, u: _Values, n_threads: _Integer = 0) -> list[float]: ...
    def serialize(self) -> tuple[list[float], list[float]]:
        """Give the parameters of both maps; their kernels are not among them.

        Returns
        -------
        tuple of (list of float, list of float)
        """

    @property
    def backward_proj(self) -> Projection:
        """The way back."""

    @property
    def forward_proj(self) -> Projection:
        """The way forward."""

class PPMT:
    """The projection pursuit multivariate transform: from correlated variables to independent standard
    normal ones, and back.

    A step standardises the variables, rotates them, and brings each rotated axis to a normal
    distribution by an `Isomorphism`. The first rotation is that to the principal axes; later ones are
    that or, at random, any other. The maps are smooth and go on beyond the data.
    """

    def __eq__(self, arg0: object) -> bool:
        """Whether all fields are the same; a NaN is the same as another in its place."""

    def __getstate__(self) -> Any: ...
    def __hash__(self) -> int: ...
    def __init__(
        self,
        data: _Table,
        n_steps: _Integer,
        prob_random_rotation: _Real = 0.37,
        iso_params: IsomorphismParameters = ...,
        n_threads: _Integer = 0,
        seed: _Integer = 123154,
        min_v: _Real = -10.0,
        max_v: _Real = 10.0,
        extrapolation_tol: _Real = 0.1,
        n_bins: _Integer = 200,
    ) -> None:
        """Fit the steps to data; writes its progress to standard output.

        Time grows with the number of steps times that of variables; the number of samples matters little,
        since axes are fitted at `n_bins` quantiles.

        Parameters
        ----------
        data : numpy.ndarray, shape (n, d)
            A sample a row and a variable a column; at least two rows.
        n_steps : int
            With 0 the transform is the identity.
        prob_random_rotation : float, default 0.37
            How probable a random rotation is, at every step but the first.
        iso_params : IsomorphismParameters
            How the maps of the axes are fitted. Left out, the way forward has the exponential kernel and
            the way back the spherical one. That one ends at a distance, and so the way back may have gaps,
            where samples come out as NaN; `IsomorphismParameters()` has the exponential kernel both ways
            and no gaps.
        n_threads : int, default 0
            Number of threads; 0 stands for all. The result does not depend on it.
        seed : int, default 123154
        min_v, max_v : float, default -10 and 10
            Range of the numbers that random rotations are made from.
        extrapolation_tol : float, default 0.1
            How far beyond the data the maps are fitted, in spans of the data.
        n_bins : int, default 200
            Number of quantiles that the map of an axis is fitted to.

        Raises
        ------
        ValueError
            When `data` has fewer than two rows, no column or an entry that is not finite, `n_steps` or a
            count of `iso_params` is negative, `n_bins` is below 2, or `min_v` and `max_v` are the same. A
            variable that is constant makes everything NaN.

        References
        ----------
        Barnett, R. M., Manchuk, J. G. and Deutsch, C. V. (2014). Projection pursuit multivariate transform.
        Mathematical Geosciences 46(3), 337-359 (the idea; rotations and maps differ here).
        """

    def __repr__(self) -> str: ...
    def __setstate__(self, arg0: Any) -> None: ...
    @overload
    def backward(self, u: Sequence[_Real]) -> list[float]:
        """Carry independent normal scores back to samples; takes and returns what `forward` does. The round
        trip is as exact as the two maps of each axis fit each other.
        """

    @overload
    def backward(self, u: _RealArray) -> Any: ...
    @overload
    def backward(self, data: _Table, n_threads: _Integer = 0) -> NDArray[np.float64]: ...
    @overload
    def forward(self, u: Sequence[_Real]) -> list[float]:
        """Carry samples to independent normal scores.

        Parameters
        ----------
        u : list of float, or array of shape (d,)
            One sample. The second form takes a table of samples.
        data : numpy.ndarray, shape (n, d)
        n_threads : int, default 0
            Number of threads of the second form; 0 stands for all.

        Returns
        -------
        list of float, or numpy.ndarray of shape (n, d)

        Raises
        ------
        ValueError
            When a sample has not as many variables as the transform was fitted to.
        """

    @overload
    def forward(self, u: _RealArray) -> Any: ...
    @overload
    def forward(self, data: _Table, n_threads: _Integer = 0) -> NDArray[np.float64]: ...

def Direction(azimuth: _Real, dip: _Real) -> NDArray[np.float64]:
    """Make the unit vector of a direction.

    Parameters
    ----------
    azimuth : float
        Degrees, clockwise from +y toward +x.
    dip : float
        Degrees, positive upward.

    Returns
    -------
    numpy.ndarray, shape (3, 1)
        (cos dip sin azimuth, cos dip cos azimuth, sin dip).
    """

def EnsembleEstimation(
    local_covs: LocalCovariances,
    ellipsoid_search: Ellipsoid,
    max_neighbors: _Integer,
    max_distance: _Real,
    max_cov_neis: _Integer,
    max_neis_octant: _Integer,
    power_a: _Real,
    max_weight: _Real,
    run_normalization: bool = True,
    use_sk: bool = False,
    sk_mean: _Real = 0.0,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> Estimator:
    """Bind the parameters of ensemble estimation.

    Parameters
    ----------
    local_covs, max_distance, max_cov_neis, max_neis_octant, power_a, max_weight
        As for `ensemble_estimation`.
    ellipsoid_search : Ellipsoid
        The metric in which the nearest centres are found. Data are found by the neighborhood that the
        estimator is called with.
    max_neighbors : int
        The `max_size` of `ensemble_estimation`.
    run_normalization, use_sk, sk_mean, dhids, max_neis_by_dhid
        As for `ensemble_estimation`.

    Returns
    -------
    Estimator
    """

@overload
def FIM(
    corners: _Locations,
    cov: Covariance,
    seed: _Integer,
    nx: _Integer,
    ny: _Integer,
    nz: _Integer,
    n_threads: _Integer = 0,
) -> SpatialFunction:
    """Simulate a Gaussian field of mean 0 by the Fourier integral method.

    One realisation is drawn at once, on a lattice in the space of the structure that is 1.5 times as
    long along each axis as the box of `corners` there. The function then looks locations up at the next
    lower node: its values change in steps. Beyond the lattice its edge goes on.

    The lattice should resolve the ranges and be long beside them: the covariance of a field is that of
    the structure repeated with the lattice's lengths, and what of it reaches beyond half of them is
    lost. See the notes for the part of the variance that is missing.

    Parameters
    ----------
    corners : list of numpy.ndarray, or array of shape (n, 3)
        Locations whose box is to be covered; its corners are enough.
    cov : Covariance
        The structure.
    covs : list of Covariance
        In the forms for a model. The field is the sum of one for each structure, with seeds drawn from
        one; a nugget draws a new value each time it is evaluated, as in `TBSIM`.
    seed : int
        Taken modulo 2^32.
    nx, ny, nz : int
        Nodes along the axes of the lattice; below 1 they count as 1. An axis along which all `corners`
        are in one place has 1.
    n : int, default 128
        The three of them in one.
    n_threads : int, default 0
        Number of threads; 0 stands for all. Phases are drawn by every thread for itself, so the field
        depends on it.

    Returns
    -------
    SpatialFunction
        It keeps 8 bytes for each node. While it is made, it takes three times as much.

    Raises
    ------
    ValueError
        When `corners` is empty.
    MemoryError
        When the lattice does not fit into memory.

    Notes
    -----
    Phases are drawn for the half of the spectrum that a real field needs, without regard to the entries
    in it that mirror each other: those of frequency 0 along the third axis and, when `nz` is even, of
    the highest one. Only half of the variance of these reaches the field. What is missing, in parts of
    the sill, is about a third (exponential) to a half (gaussian) of a range over the length of the
    lattice along the third axis. When `nz` is 1, as for `corners` in one level, half of the sill is:
    multiply such a field by the root of 2.

    The correlation of spherical, gaussian and exponential structures is read from a table of steps of
    1/2000000 of the range, one for each of the three types in the process, which the first structure
    of the type fills. A structure of `generate_covariances` counts as spherical, whatever its kernel.

    References
    ----------
    Pardo-Iguzquiza, E. and Chica-Olmo, M. (1993). The Fourier integral method: an efficient spectral
    method for simulation of random fields. Mathematical Geology 25(2), 177-217.
    """

@overload
def FIM(
    corners: _Locations, cov: Covariance, seed: _Integer, n: _Integer = 128, n_threads: _Integer = 0
) -> SpatialFunction: ...
@overload
def FIM(
    corners: _Locations,
    covs: Sequence[Covariance],
    seed: _Integer,
    nx: _Integer,
    ny: _Integer,
    nz: _Integer,
    n_threads: _Integer = 0,
) -> SpatialFunction: ...
@overload
def FIM(
    corners: _Locations,
    covs: Sequence[Covariance],
    seed: _Integer,
    n: _Integer = 128,
    n_threads: _Integer = 0,
) -> SpatialFunction: ...
@overload
def IDW(
    power_a: _Real = 2,
    max_weight: _Real = 0.9,
    max_neighbors: _Integer = -1,
    max_radius: _Real = -1,
    max_neighbors_octant: _Integer = -1,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> Estimator:
    """Bind the parameters of inverse distance weighting.

    A neighbour at distance d has the weight 1 / d^power_a, where d is the real distance, or with
    `covs` 1 minus the covariance of the lag, which takes the model's variogram for a distance.

    Parameters
    ----------
    covs : list of Covariance
        In the second form. Its sills should add up to 1; nothing checks that.
    power_a : float, default 2
    max_weight : float, default 0.9
        Share of the estimate that data at the very place of the target have, when there are others.
    max_neighbors, max_radius, max_neighbors_octant, dhids, max_neis_by_dhid
        As for `compute_simple_kriging`.

    Returns
    -------
    Estimator

    References
    ----------
    Shepard, D. (1968). A two-dimensional interpolation function for irregularly-spaced data.
    Proceedings of the 23rd ACM National Conference, 517-524.
    """

@overload
def IDW(
    covs: Sequence[Covariance],
    power_a: _Real = 2,
    max_weight: _Real = 0.9,
    max_neighbors: _Integer = -1,
    max_radius: _Real = -1,
    max_neighbors_octant: _Integer = -1,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> Estimator: ...
def OrdinaryKriging(
    covs: Sequence[Covariance],
    max_neighbors: _Integer,
    max_radius: _Real = -1,
    max_neighbors_octant: _Integer = -1,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> Estimator:
    """Bind the parameters of ordinary kriging.

    Parameters
    ----------
    covs, max_neighbors, max_radius, max_neighbors_octant, dhids, max_neis_by_dhid
        As for `compute_ordinary_kriging`.

    Returns
    -------
    Estimator
        Gives the estimates without the variances.
    """

def Rotation(azimuth: _Real, dip: _Real, rake: _Real) -> Ellipsoid:
    """Make a rotation: an ellipsoid whose three ranges are 1.

    Parameters
    ----------
    azimuth, dip, rake : float
        Degrees, as for `Ellipsoid`.

    Returns
    -------
    Ellipsoid
    """

def SimpleKriging(
    covs: Sequence[Covariance],
    mean: _Real,
    max_neighbors: _Integer,
    max_radius: _Real = -1,
    max_neighbors_octant: _Integer = -1,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> Estimator:
    """Bind the parameters of simple kriging.

    Parameters
    ----------
    covs, mean, max_neighbors, max_radius, max_neighbors_octant, dhids, max_neis_by_dhid
        As for `compute_simple_kriging`.

    Returns
    -------
    Estimator
        Gives the estimates without the variances.
    """

@overload
def TBSIM(
    corners: _Locations, cov: Covariance, seed: _Integer, n: _Integer = 600
) -> SpatialFunction:
    """Simulate a Gaussian field of mean 0 by turning bands.

    The field is the sum of random processes on `n` lines, whose directions are spread over the half
    sphere. It is known exactly at every location, and costs a few operations a line there.

    Fields of spherical and exponential structures are made for the box of `corners`; elsewhere their
    values grow without bound. A line that would have more than 10000 cells, because the range is tiny
    beside the box, gives white noise instead.

    Parameters
    ----------
    corners : list of numpy.ndarray, or array of shape (m, 3)
        Locations whose projections on each line are to be covered. All eight corners of a box cover
        it; two opposite ones do not.
    cov : Covariance
        The structure: gaussian, exponential or spherical. Any other type gives white noise.
    covs : list of Covariance
        In the form for a model. The field is the sum of one for each structure, with seeds drawn from
        one. A nugget is white noise: it draws a new value each time it is evaluated, even at the same
        location, and its values depend on the number of threads.
    seed : int
        Taken modulo 2^32.
    n : int, default 600
        Number of lines.

    Returns
    -------
    SpatialFunction

    Raises
    ------
    ValueError
        When `corners` is empty or `n` is below 1.
    MemoryError
        When the lines do not fit into memory.

    Notes
    -----
    The line of an exponential structure changes its sign from cell to cell with a probability of 5/18
    instead of 1/2, and a third of the lines have no scale of their own. The covariance of the field
    therefore differs from that of the structure; its variance is the sill.

    References
    ----------
    Matheron, G. (1973). The intrinsic random functions and their applications. Advances in Applied
    Probability 5(3), 439-468.
    Emery, X. and Lantuejoul, C. (2006). TBSIM: A computer program for conditional simulation of
    three-dimensional Gaussian random fields via the turning bands method. Computers & Geosciences
    32(10), 1615-1628.
    """

@overload
def TBSIM(
    corners: _Locations, covs: Sequence[Covariance], seed: _Integer, n: _Integer = 600
) -> SpatialFunction: ...
def cauchy_distribution(a: _Real, b: _Real) -> Distribution:
    """Make a Cauchy distribution, drawn by inversion.

    Parameters
    ----------
    a : float
        Location: its median.
    b : float
        Scale: half the distance between the quartiles.

    Returns
    -------
    Distribution
    """

def check_n_threads(n_threads: _Integer = 0) -> int:
    """Tell how many threads a call given this `n_threads` runs on.

    Parameters
    ----------
    n_threads : int, default 0
        0, every negative count and every count above the machine's stand for all of its threads.

    Returns
    -------
    int
        The effective count.
    """

def chi_squared_distribution(k: _Real) -> Distribution:
    """Make a chi-squared distribution: gamma with shape k / 2 and scale 2.

    Parameters
    ----------
    k : float
        Degrees of freedom.

    Returns
    -------
    Distribution
    """

def compute_angular_distance(u: _Location, v: _Location) -> float:
    """Measure the angle between two axes; a direction and its opposite are the same axis.

    Parameters
    ----------
    u, v : numpy.ndarray, shape (3, 1)

    Returns
    -------
    float
        Degrees from 0 to 90; NaN when either has no length.
    """

def compute_angular_distance_between_clusters(
    locations: _Locations, labels: _Integers
) -> dict[int, dict[int, float]]:
    """Measure the smallest angle between the axes of each two clusters.

    Parameters
    ----------
    locations : list of numpy.ndarray, or array of shape (n, 3)
    labels : list of int
        For each location the label of its cluster.

    Returns
    -------
    dict of dict
        `result[a][b]` is the smallest angular distance, in degrees, between a member of cluster a and
        one of cluster b; NaN when none has a length.

    Raises
    ------
    ValueError
        When `locations` and `labels` are not equally many.
    """

def compute_covariance_error_idw(
    cov: Sequence[Covariance],
    folds: Sequence[tuple[_Locations, _Values]],
    max_distance: _Real,
    max_size: _Integer,
    power_a: _Real,
    min_partition_size: _Integer,
    max_partition_size: _Integer,
    n_partitions: _Integer,
    regularization_const: _Real,
    n_threads: _Integer = 0,
    seed: _Integer = 2131,
) -> float:
    """Measure how badly a model predicts, by cross-validation with inverse distances in its own metric.

    Each fold is cross-validated as by `kfold_cross_validation_using_idw` on one thread, and the mean
    absolute error is taken. It is multiplied by 1 + regularization_const R, where R is the sum of
    log(1 + range^2) over the three ranges of every structure. With several threads the means of each
    thread's folds are added up: compare errors of one thread count only.

    Parameters
    ----------
    cov : list of Covariance
        The model; `compute_ellipsoid_error_idw` takes an `ellipsoid` and a `cov_kernel` in its place and
        makes the model of one structure with sill 1.
    folds : list of tuple of (locations, values)
        As `create_folds` makes them.
    max_distance : float
    max_size : int
    power_a : float
    min_partition_size, max_partition_size, n_partitions : int
        As for `kfold_cross_validation_using_idw`.
    regularization_const : float
    n_threads : int, default 0
        Number of threads; 0 stands for all.
    seed : int, default 2131
        Seed of the subsets, the same for every fold.

    Returns
    -------
    float
        0 when nothing at all could be predicted.

    Raises
    ------
    ValueError
        When `cov` is empty, the lists of a fold are not equally long, a count is negative or
        `max_partition_size` is below `min_partition_size`.
    """

def compute_ellipsoid_error_idw(
    ellipsoid: Ellipsoid,
    cov_kernel: Kernel,
    folds: Sequence[tuple[_Locations, _Values]],
    max_distance: _Real,
    max_size: _Integer,
    power_a: _Real,
    min_partition_size: _Integer,
    max_partition_size: _Integer,
    n_partitions: _Integer,
    regularization_const: _Real,
    n_threads: _Integer = 0,
    seed: _Integer = 2131,
) -> float:
    """Measure how badly a model predicts, by cross-validation with inverse distances in its own metric.

    Each fold is cross-validated as by `kfold_cross_validation_using_idw` on one thread, and the mean
    absolute error is taken. It is multiplied by 1 + regularization_const R, where R is the sum of
    log(1 + range^2) over the three ranges of every structure. With several threads the means of each
    thread's folds are added up: compare errors of one thread count only.

    Parameters
    ----------
    cov : list of Covariance
        The model; `compute_ellipsoid_error_idw` takes an `ellipsoid` and a `cov_kernel` in its place and
        makes the model of one structure with sill 1.
    folds : list of tuple of (locations, values)
        As `create_folds` makes them.
    max_distance : float
    max_size : int
    power_a : float
    min_partition_size, max_partition_size, n_partitions : int
        As for `kfold_cross_validation_using_idw`.
    regularization_const : float
    n_threads : int, default 0
        Number of threads; 0 stands for all.
    seed : int, default 2131
        Seed of the subsets, the same for every fold.

    Returns
    -------
    float
        0 when nothing at all could be predicted.

    Raises
    ------
    ValueError
        When `cov` is empty, the lists of a fold are not equally long, a count is negative or
        `max_partition_size` is below `min_partition_size`.
    """

def compute_exp_variogram(
    data_locs: _Locations,
    data_values: _Values,
    n_centers: _Integer = 60,
    angle_tol: _Real = 5.0,
    n_lags: _Integer = 75,
    lag_tol: _Real = 0.001,
    bandwidth: _Real = 0.02,
    window_size: _Integer = 2,
    n_directions: _Integer = 300,
    tol: _Real = 0.01,
    n_threads: _Integer = 0,
    seed: _Integer = 12415,
) -> ExperimentalVariogram:
    """Compute the directional experimental variogram of scattered data in many directions.

    Pairs are looked for in thin tubes, one for each direction, around a few centres: the highest value
    and others drawn from the upper part of the values. A pair counts when it stands along the direction
    within the tolerance. The lags of each direction are random, with a half-normal distribution in
    units of the data's box, so that short ones come dense.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data_values : list of float, or array of shape (n,)
    n_centers : int, default 60
        Number of centres. With n - 1 or more, or a negative number, every datum is one.
    angle_tol : float, default 5
        Largest angle between a pair and the direction, in degrees.
    n_lags : int, default 75
        Number of lags of a direction.
    lag_tol : float, default 0.001
        Shortest lag, in units of the data's box along the direction.
    bandwidth : float, default 0.02
        Half the width of a tube, in the same units.
    window_size : int, default 2
        A pair also counts for so many lags on either side of its own.
    n_directions : int, default 300
        Half the number of directions.
    tol : float, default 0.01
        The second axis of a tube is drawn until its cosine with the first is further from 1 than this.
        At 1 and above there is none, and the search goes on until it is interrupted.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it.
    seed : int, default 12415
        Has no effect: the same data always give the same result.

    Returns
    -------
    ExperimentalVariogram
        `npairs` counts contributions: a pair found around several centres or in the window of several
        lags counts as often.

    Raises
    ------
    ValueError
        When `data_locs` and `data_values` are not equally many or a count is negative.
    """

def compute_optimum_rotation(
    A: _Table, is_surface: bool = False
) -> tuple[NDArray[np.float64], NDArray[np.float64], NDArray[np.float64], NDArray[np.float64]]:
    """Find the rotation that turns the rows of a matrix to their principal axes.

    Parameters
    ----------
    A : numpy.ndarray, shape (m, n)
        A sample a row.
    is_surface : bool, default False
        Whether the means of the columns are taken off first.

    Returns
    -------
    tuple of (numpy.ndarray, numpy.ndarray, numpy.ndarray, numpy.ndarray)
        The rotation V of shape (n, n), by which A is multiplied from the right, its inverse V^T, and U
        and s of `compute_svd_decomposition`. V is orthogonal; its determinant may be -1. NaN when an
        entry of A is not finite.

    Raises
    ------
    ValueError
        When A has no entries.
    """

def compute_ordinary_kriging(
    target_locs: _Locations,
    data_locs: _Locations,
    data: _Values,
    covs: Sequence[Covariance],
    neighborhood: Neighborhood,
    max_neighbors: _Integer,
    max_radius: _Real = -1,
    max_neighbors_octant: _Integer = -1,
    n_threads: _Integer = 0,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> tuple[list[float], list[float]]:
    """Estimate a value at every target by ordinary kriging.

    Parameters
    ----------
    target_locs, data_locs, data, covs, neighborhood, max_neighbors, max_radius
        As for `compute_simple_kriging`.
    max_neighbors_octant, n_threads, dhids, max_neis_by_dhid
        As for `compute_simple_kriging`.

    Returns
    -------
    tuple of (list of float, list of float)
        As for `compute_simple_kriging`. The estimate includes the Lagrange multiplier as an added
        term: it is the weighted sum of the data plus the multiplier.

    Raises
    ------
    ValueError
        As for `compute_simple_kriging`.

    References
    ----------
    Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
    chapter 3.
    """

def compute_simple_kriging(
    target_locs: _Locations,
    data_locs: _Locations,
    data: _Values,
    covs: Sequence[Covariance],
    mean: _Real,
    neighborhood: Neighborhood,
    max_neighbors: _Integer,
    max_radius: _Real = -1,
    max_neighbors_octant: _Integer = -1,
    n_threads: _Integer = 0,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> tuple[list[float], list[float]]:
    """Estimate a value at every target by simple kriging.

    Parameters
    ----------
    target_locs : list of numpy.ndarray, or array of shape (n, 3)
    data_locs : list of numpy.ndarray, or array of shape (m, 3)
    data : list of float, or array of shape (m,)
    covs : list of Covariance
        The covariance model.
    mean : float
        The known mean.
    neighborhood : Neighborhood
        The search structure over `data_locs`.
    max_neighbors : int
        The search takes the nearest so many, however far they are. At or below 0 it takes all within
        `max_radius` instead.
    max_radius : float, default -1
        Radius of that search, in isotropic units when the neighborhood has an ellipsoid; the sign is
        ignored. It has no effect when `max_neighbors` is positive.
    max_neighbors_octant : int, default -1
        Of the data found, keep at most so many an octant of the offset from the target; at or below 0
        all. Limits thin what the search found and never fetch further data.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it.
    dhids : list of int, default []
        Drillhole of each datum.
    max_neis_by_dhid : int, default -1
        Of what is left then, keep at most so many a drillhole; at or below 0 all.

    Returns
    -------
    tuple of (list of float, list of float)
        Estimates and kriging variances, one of each for every target. Where no datum was found the
        estimate is NaN, where one was it is the datum; both have variance 0. Other variances are at
        least 1e-10. Of data that coincide, the first found has all the weight.

    Raises
    ------
    ValueError
        When `data_locs`, `data`, `dhids` and the neighborhood are not equally many.

    References
    ----------
    Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
    chapter 3.
    """

def compute_svd_decomposition(
    A: _Table, is_surface: bool = False
) -> tuple[NDArray[np.float64], NDArray[np.float64], NDArray[np.float64]]:
    """Decompose a matrix by its singular values: A = U diag(s) V^T.

    Of each column of V, the first entry that is at least half as large as its largest is positive.

    Parameters
    ----------
    A : numpy.ndarray, shape (m, n)
    is_surface : bool, default False
        Whether the means of the columns are taken off first, as when a plane is laid through points.

    Returns
    -------
    tuple of (numpy.ndarray, numpy.ndarray, numpy.ndarray)
        U of shape (m, k), s of shape (k,) in descending order and V of shape (n, k), k being the
        smaller of m and n. NaN when an entry of A is not finite.

    Raises
    ------
    ValueError
        When A has no entries.
    """

@overload
def compute_variogram(
    cartesian_grid: CartesianGrid,
    data: _Values,
    n_directions: _Integer,
    n_lags: _Integer,
    bandwidth: _Real,
    n_threads: _Integer = 0,
    seed: _Integer = 12415,
    nx: _Integer = 200,
    ny: _Integer = 200,
    nz: _Integer = 200,
) -> ExperimentalVariogram:
    """Compute directional experimental variograms from a map of the variogram at all lags of a lattice.

    The data are put into the cells of the lattice, and Fourier transforms give the variogram of these
    cells and the number of pairs at every lag between two of them, cells without data left out. In many
    directions, at random lags, the map is then averaged over the cells around each lag, weighted by
    their pairs. The lags of each direction have a half-normal distribution in units of the lattice's
    box, so that short ones come dense; the map ends at half the box, and lags beyond have no entry.

    Parameters
    ----------
    cartesian_grid : CartesianGrid
        In the first form the data stand at its locations, and the lattice covers it, turned as it is.
    block_model : BlockModel
        In the second form they stand at its active locations; the lattice is that of its base grid.
    corners : list of numpy.ndarray, or array of shape (m, 3)
        In the third form, locations whose box, along the axes of the lattice, is as long as the lattice.
    locations : list of numpy.ndarray, or array of shape (n, 3)
        In the third form, those of the data. What is outside of the lattice is left out, and so is what
        is not finite.
    data : list of float, or array of shape (n,)
        One value for each location. NaN and infinity are missing values.
    nx, ny, nz : int
        Cells of the lattice along its axes; 200 each in the first two forms if not given. Of several
        data in one cell the last one counts, even if it is missing.
    n_directions : int
        Half the number of directions.
    n_lags : int
        Number of lags of a direction.
    bandwidth : float
        Radius around a lag within which the map is averaged, in diagonals of a cell.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it. The transforms have a
        setting of their own, `set_fft_n_threads`.
    seed : int, default 12415
        Of the lags, taken modulo 2^32. The directions are always the same.
    origin : numpy.ndarray, shape (3, 1), default (0, 0, 0)
        In the third form, the location of the lattice's first corner.
    rotation : numpy.ndarray, shape (3, 1), default (90, 0, 0)
        In the third form, azimuth, dip and rake of the lattice in degrees, as for `Ellipsoid`: azimuth
        90 puts its first axis on +x.

    Returns
    -------
    ExperimentalVariogram
        Lags are in real units. `npairs` counts the pairs of all averaged cells, rounded toward zero
        from what the transforms make of it, which may be a trifle below the true number. An entry is
        NaN where the first cells around its lag have no pairs at all.

    Raises
    ------
    ValueError
        When `data` is not as long as the locations or active cells are many, `corners` is empty, a
        corner, `origin` or `rotation` is not finite, `nx`, `ny` or `nz` is below 1, or a count is
        negative.
    MemoryError
        When the map does not fit into memory: it takes about 270 bytes for each cell of the lattice
        while it is made.

    Notes
    -----
    A datum at the very boundary between two cells is put into one of them by rounding. In a lattice of
    as many cells as a grid, or a multiple, all locations of the grid stand at such boundaries, and two
    of them may fall into one cell. With one cell more along each axis than the grid has, each has a
    cell of its own; lags then come out too short by one part in the number of cells.

    References
    ----------
    Marcotte, D. (1996). Fast variogram computation with FFT. Computers & Geosciences 22(10), 1175-1186.
    """

@overload
def compute_variogram(
    block_model: BlockModel,
    data: _Values,
    n_directions: _Integer,
    n_lags: _Integer,
    bandwidth: _Real,
    n_threads: _Integer = 0,
    seed: _Integer = 12415,
    nx: _Integer = 200,
    ny: _Integer = 200,
    nz: _Integer = 200,
) -> ExperimentalVariogram: ...
@overload
def compute_variogram(
    corners: _Locations,
    locations: _Locations,
    data: _Values,
    nx: _Integer,
    ny: _Integer,
    nz: _Integer,
    n_directions: _Integer,
    n_lags: _Integer,
    bandwidth: _Real,
    n_threads: _Integer = 0,
    seed: _Integer = 12415,
    origin: _Location = ...,
    rotation: _Location = ...,
) -> ExperimentalVariogram: ...
def covariance_computer(covs: Sequence[Covariance]) -> SpatialFunction:
    """Make a function of the lag from a model.

    Parameters
    ----------
    covs : list of Covariance
        The model; an empty one is 0 everywhere.

    Returns
    -------
    SpatialFunction
        The sum of the structures.
    """

def create_folds(
    data_locs: _Locations,
    data: _Values,
    max_distance: _Real,
    max_size: _Integer,
    n_centers: _Integer,
    seed: _Integer = 21315,
) -> list[tuple[list[NDArray[np.float64]], list[float]]]:
    """Cut folds out of a data set: the neighbourhoods of its highest value and of others.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data : list of float, or array of shape (n,)
    max_distance : float
        How far a fold reaches from its centre.
    max_size : int
        Largest number of data in a fold; below 1, and at n or more, all within `max_distance`.
    n_centers : int
        Number of folds. The centres after the first are drawn from the upper half of the values, and may
        repeat.
    seed : int, default 21315

    Returns
    -------
    list of tuple of (list of numpy.ndarray, list of float)
        Locations and values of each fold. When there is none, one fold of all data.

    Raises
    ------
    ValueError
        When `data_locs` and `data` are not equally many, or there are none and `n_centers` is positive.
    """

def create_random_drillholes(
    bounding_box: BoundingBox,
    n_holes: _Integer,
    spacing: _Real,
    azimuth: _Real = 0.0,
    dip: _Real = -90.0,
    delta_angle: _Real = 0.0,
    seed: _Integer = 12345,
) -> tuple[list[NDArray[np.float64]], list[int]]:
    """Drill straight holes from random collars on the top face of a box.

    Parameters
    ----------
    bounding_box : BoundingBox
    n_holes : int
    spacing : float
        Distance between the locations of a hole. The first is the collar; the last is inside the box,
        faces included.
    azimuth, dip : float, default 0 and -90
        Degrees, as for `Direction`: a hole that goes down has a negative dip.
    delta_angle : float, default 0
        Degrees by which azimuth and dip of each hole may be shifted either way, uniformly.
    seed : int, default 12345

    Returns
    -------
    tuple of (list of numpy.ndarray of shape (3, 1), list of int)
        Locations, and for each the number of its hole, from 0.

    Raises
    ------
    ValueError
        When the box is empty or not finite, the count is negative or the spacing is not above 0 or too
        small.
    """

def create_random_orthogonal_matrix(
    N: _Integer, min_v: _Real, max_v: _Real, seed: _Integer
) -> NDArray[np.float64]:
    """Draw an orthogonal matrix of determinant 1.

    Uniform numbers fill a matrix row by row, whose columns are then made orthonormal in turn, by Gram
    and Schmidt's rule. The last column is negated when the determinant would be -1.

    Parameters
    ----------
    N : int
        Number of rows and of columns.
    min_v, max_v : float
        Range of the uniform numbers.
    seed : int
        Taken modulo 2^32.

    Returns
    -------
    numpy.ndarray, shape (N, N)

    Raises
    ------
    ValueError
        When `N` is not positive, or `min_v` and `max_v` are the same or not finite.
    """

def create_random_rotation(
    N: _Integer, min_v: _Real, max_v: _Real, seed: _Integer
) -> NDArray[np.float64]:
    """Draw a rotation: a matrix of `create_random_orthogonal_matrix` times itself.

    Parameters
    ----------
    N : int
    min_v, max_v : float
    seed : int
        As for `create_random_orthogonal_matrix`.

    Returns
    -------
    numpy.ndarray, shape (N, N)
        Its inverse is its transpose.

    Raises
    ------
    ValueError
        When `N` is not positive, or `min_v` and `max_v` are the same or not finite.
    """

def data_distribution(data: _Values, weight: _Values = []) -> Distribution:
    """Make a continuous distribution of weighted data.

    A draw chooses a datum by weight and mixes the midpoints to its two neighbours at random; an end
    mixes with its only neighbour. No draw lies outside the data.

    Parameters
    ----------
    data : list of float, or array of shape (n,)
        At least 2, in any order.
    weight : list of float, or array of shape (n,), default []
        Scaled to add up to 1. Empty: all alike.

    Returns
    -------
    Distribution

    Raises
    ------
    ValueError
        When there are fewer than 2 data, or when data that are not ascending have weights of another
        number. Beside ascending data a list of another length is used as it is: what reaches beyond
        the last datum draws that one.
    """

def ensemble_ellipsoid(w: _Values, ellipsoids: Sequence[Ellipsoid]) -> Ellipsoid:
    """Blend ellipsoids.

    Parameters
    ----------
    w : list of float, or array of shape (n,)
        Weights, as for `ensemble_model`.
    ellipsoids : list of Ellipsoid

    Returns
    -------
    Ellipsoid
        What `ensemble_model` makes of their ranges and angles.

    Raises
    ------
    ValueError
        When the lists are not equally long, or empty.
    """

def ensemble_estimation(
    target_locs: _Locations,
    data_locs: _Locations,
    data: _Values,
    local_covs: LocalCovariances,
    search_ellipsoid: Ellipsoid,
    max_size: _Integer,
    max_distance: _Real,
    max_cov_neis: _Integer,
    max_neis_octant: _Integer,
    power_a: _Real,
    max_weight: _Real,
    n_threads: _Integer = 0,
    run_normalization: bool = True,
    data_nei: Neighborhood | None = None,
    use_sk: bool = False,
    sk_mean: _Real = 0.0,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> list[float]:
    """Estimate a value at every target by kriging with every local model near it, and blend the results.

    A model whose centre is at the distance d from the target counts with the weight
    1 / (d * error)^power_a, where error is its cross-validation error.

    Parameters
    ----------
    target_locs : list of numpy.ndarray, or array of shape (n, 3)
    data_locs : list of numpy.ndarray, or array of shape (m, 3)
    data : list of float, or array of shape (m,)
    local_covs : LocalCovariances
        The local models. Without any, all estimates are NaN.
    search_ellipsoid : Ellipsoid
        The metric in which the nearest centres are found, and the nearest data too when there is no
        `data_nei`.
    max_size : int
        The search takes the nearest so many data, however far they are. At or below 0 it takes all
        within `max_distance` instead.
    max_distance : float
        Radius of that search, in units of the search ellipsoid; the sign is ignored. It has no effect
        when `max_size` is positive.
    max_cov_neis : int
        By how many of the nearest local models a target is kriged; below 1 by all.
    max_neis_octant : int
        Of the data found, keep at most so many an octant of the offset from the target; at or below 0
        all.
    power_a : float
        The common powers 1, 2 and 3 are taken when this is within a millionth of them.
    max_weight : float
        Share of the estimate that models centred at the very target, and those of error 0, have when
        there are others.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it.
    run_normalization : bool, default True
        Krige the data less their mean in standard deviations; constant data then give NaN. Estimates
        are in the units of `data` either way.
    data_nei : Neighborhood, optional
        The search structure over `data_locs`; by default one with `search_ellipsoid`.
    use_sk : bool, default False
        Simple kriging instead of ordinary kriging.
    sk_mean : float, default 0
        The known mean of what simple kriging is given: with `run_normalization` in standard deviations
        from the mean of the data.
    dhids : list of int, default []
        Drillhole of each datum.
    max_neis_by_dhid : int, default -1
        Of what is left then, keep at most so many a drillhole; at or below 0 all.

    Returns
    -------
    list of float
        One estimate for each target. NaN where no datum was found, and where the weights of the models
        add up to no more than 1e-10, as high powers of long distances do. One datum is kriged like
        several. In ordinary kriging the estimate includes the Lagrange multiplier as an added term, as
        in `compute_ordinary_kriging`.

    Raises
    ------
    ValueError
        When `data_locs`, `data`, `dhids` and `data_nei` are not equally many, or a location of a datum
        or a centre is not finite.

    References
    ----------
    Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
    chapter 3, for the kriging. Shepard, D. (1968). A two-dimensional interpolation function for
    irregularly-spaced data. Proceedings of the 23rd ACM National Conference, 517-524, for the weights.
    """

def ensemble_local_ellipsoids(
    target_locs: _Locations,
    ellipsoid_locs: _Locations,
    ellipsoids: Sequence[Ellipsoid],
    ellipsoid_weights: _Values,
    n_neis: _Integer,
    max_radius: _Real,
    max_neis_octant: _Integer,
    eps: _Real = 0.01,
    n_threads: _Integer = 0,
    dhids: _Integers = [],
    max_neis_by_dhid: _Integer = -1,
) -> list[Ellipsoid]:
    """Blend at every target the ellipsoids near it.

    An ellipsoid at the distance d has the weight of its place divided by d^3 + `eps`.

    Parameters
    ----------
    target_locs : list of numpy.ndarray, or array of shape (n, 3)
    ellipsoid_locs : list of numpy.ndarray, or array of shape (m, 3)
        Where the ellipsoids are.
    ellipsoids : list of Ellipsoid
    ellipsoid_weights : list of float, or array of shape (m,)
    n_neis : int
        The search takes the nearest so many, however far they are; distances are Euclidean. At or below
        0 it takes all within `max_radius` instead.
    max_radius : float
        Radius of that search; the sign is ignored. It has no effect when `n_neis` is positive.
    max_neis_octant : int
        Of those found, keep at most so many an octant of the offset from the target; at or below 0 all.
    eps : float, default 0.01
        In cubed units of length. With 0 an ellipsoid at the very target makes the blend NaN.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it.
    dhids : list of int, default []
        Drillhole of each ellipsoid.
    max_neis_by_dhid : int, default -1
        Of what is left then, keep at most so many a drillhole; at or below 0 all.

    Returns
    -------
    list of Ellipsoid
        For each target what `ensemble_ellipsoid` makes of the weights, which are made to add up to 1;
        `Ellipsoid(1, 1, 1, 0, 0, 0)` where none was found.

    Raises
    ------
    ValueError
        When `ellipsoid_locs`, `ellipsoids`, `ellipsoid_weights` and `dhids` are not equally many, or a
        location of an ellipsoid is not finite.
    """

def ensemble_model(
    w: _Values, r1: _Values, r2: _Values, r3: _Values, azimuth: _Values, dip: _Values, rake: _Values
) -> Ellipsoid:
    """Blend ellipsoids given by their ranges and angles.

    The heaviest comes first, then one after the other the one whose axes, renamed and reversed as may
    be, come closest to the blend so far. Axes with their ranges are averaged, so that ranges blend
    linearly.

    Parameters
    ----------
    w : list of float, or array of shape (n,)
        Weights. The ellipsoids are sorted by them from the heaviest on; the one at place k of that
        order then counts with `w[k]`, which is its own weight only when `w` descends.
    r1, r2, r3 : list of float, or array of shape (n,)
        Ranges.
    azimuth, dip, rake : list of float, or array of shape (n,)
        Angles in degrees.

    Returns
    -------
    Ellipsoid
        For a single entry, the ellipsoid of its ranges plus 1e-6.

    Raises
    ------
    ValueError
        When the lists are not equally long, or empty.
    """

def ensemble_simulation(
    target_locs: _Locations,
    data_locs: _Locations,
    data: _Values,
    local_covs: LocalCovariances,
    search_ellipsoid: Ellipsoid,
    simulator_factory: SimulatorFactory,
    max_size: _Integer,
    max_distance: _Real,
    max_cov_neis: _Integer,
    max_neis_octant: _Integer,
    power_a: _Real,
    max_weight: _Real,
    seed: _Integer,
    n_threads: _Integer = 0,
) -> list[float]:
    """Simulate with covariance models that differ from place to place, conditioned to data.

    To the field of `unconditional_ensemble_simulation` is added what `ensemble_estimation` makes of the
    data's differences from it. Kriging is of the differences less their mean, in standard deviations.
    Ordinary kriging with the multiplier as an added term is exact at data; a target elsewhere need not
    be reached by any datum, and is NaN then.

    Parameters
    ----------
    target_locs, data_locs, data, local_covs, search_ellipsoid, max_size, max_distance
        As for `ensemble_estimation`.
    simulator_factory : SimulatorFactory
        Makes the field of each model. It must cover the targets and the data.
    max_cov_neis, max_neis_octant
        As for `ensemble_estimation`. The field blends all models nonetheless.
    power_a, max_weight : float
        Of the blends of estimates and of fields.
    seed : int
        Taken modulo 2^32; the seeds of the fields are drawn from it.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it, unless a model has a
        nugget.

    Returns
    -------
    list of float
        One value for each target; NaN where the estimate is.

    Raises
    ------
    ValueError
        When `data_locs` and `data` are not equally many, or a location of a datum or a centre is not
        finite.
    """

def exponential_distribution(__lambda: _Real) -> Distribution:
    """Make an exponential distribution, drawn by inversion.

    Parameters
    ----------
    lambda : float
        Rate: 1 over the mean.

    Returns
    -------
    Distribution
    """

def extract_covariance_from_varmap(
    lags: _Locations,
    variogram: _Values,
    weight: _Values,
    n_structures: _Integer,
    cov_kernel: str,
    min_r1: _Real,
    min_r2: _Real,
    min_r3: _Real,
    max_r1: _Real,
    max_r2: _Real,
    max_r3: _Real,
    total_sill: _Real,
    n_iterations: _Integer,
    b: _Real,
    cauchy_loss: _Real,
    regularization_const: _Real,
    threshold: _Real,
    seed: _Integer,
    n_threads: _Integer,
    debug: bool = True,
) -> list[Covariance]:
    """Fit a nested covariance model to semivariances at many lags, by bounded least squares.

    The residual of a lag is twice the difference between the model's variogram, 1 - C(lag), and the
    given one over `total_sill`; what is above 1 is brought down to 2 sqrt(|r|) - 1. It is multiplied by
    the weight of the lag. The search starts from equal sills, ranges halfway between their bounds,
    angles of 0 and no nugget; it follows exact derivatives and finds a minimum nearby. All structures
    start alike, and with several of them there are several minima.

    The nugget counts at lags of no length alone. Without one among the lags, of semivariance 0, nothing
    tells the nugget from a sill below the total, and it stays at its least.

    Parameters
    ----------
    lags : list of numpy.ndarray, or array of shape (n, 3)
    variogram : list of float, or array of shape (n,)
        Semivariances. Those that are not finite take no part.
    weight : list of float, or array of shape (n,)
        For example numbers of pairs. Each is multiplied by (|lag| / (D / 3) + 0.0001)^-b, with D the
        length of (`max_r1`, `max_r2`, `max_r3`), and divided by the mean of all these products.
    n_structures : int
        Number of structures besides the nugget.
    cov_kernel : str
        "spherical", "gaussian", "exponential" or "idw"; any other text is a nugget, which has no
        ranges to be found.
    min_r1, min_r2, min_r3, max_r1, max_r2, max_r3 : float
        Bounds of the ranges, the same for every structure.
    total_sill : float
        Total sill of the result.
    n_iterations : int
        Largest number of iterations.
    b : float
        How much more near lags count.
    cauchy_loss : float
        Scale of Cauchy's loss of each residual, which lets lags that fit badly count less; below 1e-10
        there is none.
    regularization_const : float
        Weight c of three more residuals for each structure, c / (1 + t^2) over `n_structures` with
        t = (range - largest) / largest, and of a faint one that draws its sill to 1. 0 or less leaves
        them out.
    threshold : float
        Semivariances above `total_sill` times this take no part.
    seed : int
        Has no effect.
    n_threads : int
        Number of threads; 0 stands for all. The result does not depend on it.
    debug : bool, default True
        Whether the solver's progress and its report are printed on standard output.

    Returns
    -------
    list of Covariance
        The structures, with r1, r2 and r3 in the order of their bounds, and last a nugget. The sills
        add up to `total_sill`. When no lag takes part, or the fit cannot start, it is the start.

    Raises
    ------
    ValueError
        When the lists are not equally long, a lag or a weight is not finite, a lower bound is not below
        its upper one, `n_structures` is below 1 or `n_iterations` negative.

    Notes
    -----
    An iteration costs as many covariances with derivatives as there are lags times structures, and a
    share that grows with the lags times the square of the structures.

    References
    ----------
    Levenberg, K. (1944). A method for the solution of certain non-linear problems in least squares.
    Quarterly of Applied Mathematics 2, 164-168.
    Marquardt, D. W. (1963). An algorithm for least-squares estimation of nonlinear parameters. Journal
    of the Society for Industrial and Applied Mathematics 11, 431-441.
    """

def extract_ellipsoid_info(T: _Matrix) -> EllipsoidInfo:
    """Read ranges and angles from an anisotropy matrix.

    Parameters
    ----------
    T : numpy.ndarray, shape (3, 3)
        Rows are axes divided by their ranges, in any order.

    Returns
    -------
    EllipsoidInfo
    """

def extreme_points(
    locations: _Locations, n_rays: _Integer = 600, seed: _Integer = 121315, n_threads: _Integer = 0
) -> list[NDArray[np.float64]]:
    """Find the outermost locations along many directions, an outline that stands in for the whole list.

    Parameters
    ----------
    locations : list of numpy.ndarray, or array of shape (n, 3)
    n_rays : int, default 600
        Half the number of directions.
    seed : int, default 121315
        Seed of the directions, as for `generate_random_sphere`.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it.

    Returns
    -------
    list of numpy.ndarray, shape (3, 1)
        Each extreme location once, in the order in which the directions meet them. Of locations that
        reach equally far the first counts.

    Raises
    ------
    ValueError
        When `n_rays` is negative.
    """

def extreme_value_distribution(a: _Real, b: _Real) -> Distribution:
    """Make a Gumbel distribution of largest values, drawn by inversion.

    Parameters
    ----------
    a : float
        Location: its mode.
    b : float
        Scale.

    Returns
    -------
    Distribution
    """

def find_clusters(locations: _Locations, max_angle: _Real, n_threads: _Integer = 0) -> list[int]:
    """Group locations by the axis from the origin through them.

    Two belong together when a chain of locations links them by steps of at most `max_angle`; a location
    and its opposite are on the same axis.

    Parameters
    ----------
    locations : list of numpy.ndarray, or array of shape (n, 3)
    max_angle : float
        Degrees.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it.

    Returns
    -------
    list of int
        For each location the label of its cluster, from 0 in order of first appearance. A location of
        no length is a cluster of its own.
    """

def fisher_f_distribution(m: _Real, n: _Real) -> Distribution:
    """Make a Fisher F distribution, drawn from a beta variate (Johnk 1964 for small shapes).

    Parameters
    ----------
    m, n : float
        Degrees of freedom of the numerator and the denominator.

    Returns
    -------
    Distribution
    """

def gamma_distribution(alpha: _Real, beta: _Real) -> Distribution:
    """Make a gamma distribution, drawn by the methods of Ahrens and Dieter (1974).

    Parameters
    ----------
    alpha : float
        Shape.
    beta : float
        Scale.

    Returns
    -------
    Distribution
    """

def gaussian_distribution(mean: _Real = 0.0, std_dev: _Real = 1.0) -> Distribution:
    """Make a normal distribution, drawn by the polar method (Marsaglia and Bray 1964).

    Normals come in pairs: the second one is kept for the next draw, whichever call makes it and
    whatever its seed. With several threads each has a kept value of its own.

    Parameters
    ----------
    mean : float, default 0.0
    std_dev : float, default 1.0

    Returns
    -------
    Distribution
        Parameters are not checked, here or in the other factories: outside their domain draws are what
        the formulas give, NaN say, or do not end until they are interrupted.
    """

def generate_covariances(
    ellipsoid: Ellipsoid,
    n_kernels: _Integer,
    cov_kernel: Kernel,
    n_covs: _Integer,
    seed: _Integer,
    delta_angle: _Real,
    min_str_range: _Real,
    max_str_range: _Real,
    min_sill: _Real,
    max_sill: _Real,
) -> list[list[Covariance]]:
    """Draw random nested models around an ellipsoid.

    Parameters
    ----------
    ellipsoid : Ellipsoid
        One of the models has it unchanged in every structure, and no nugget.
    n_kernels : int
        Structures of a model, besides the nugget.
    cov_kernel : Kernel
        The kernel of all structures. Their `type` reads 'spherical' whatever it is.
    n_covs : int
        Number of models.
    seed : int
    delta_angle : float
        Degrees by which each angle may differ from the ellipsoid's, either way.
    min_str_range, max_str_range : float
        Bounds of the sum of the structures' range vectors, as fractions of the largest range.
    min_sill, max_sill : float
        Bounds of the sills before they are scaled to add up to 1.

    Returns
    -------
    list of list of Covariance
        Each model has `n_kernels` structures and then a nugget. The order of models is random.
    """

def generate_ellipsoids(
    min_range: _Real,
    max_range: _Real,
    n_rays: _Integer,
    n_scales: _Integer,
    seed: _Integer,
    tol: _Real,
) -> list[Ellipsoid]:
    """Make ellipsoids of many orientations and shapes, in random order.

    Parameters
    ----------
    min_range, max_range : float
        Bounds of the length of the vector whose components are the three ranges.
    n_rays, tol
        As for `generate_rotations`, which makes the frames.
    n_scales : int
        Half the number of shapes for each frame.
    seed : int

    Returns
    -------
    list of Ellipsoid
        2 `n_scales` for each frame.

    Raises
    ------
    ValueError
        When a count is negative.
    """

def generate_random_semisphere(size: _Integer, seed: _Integer) -> list[NDArray[np.float64]]:
    """Spread directions over half the sphere.

    The Halton sequence of bases 2 and 3 from index `seed` on, turned by a random rotation that depends
    on the seed alone.

    Parameters
    ----------
    size : int
    seed : int
        A negative seed starts at that negative index; indices up to 0 give one and the same direction.

    Returns
    -------
    list of numpy.ndarray, shape (3, 1)
        `size` unit vectors.

    Raises
    ------
    ValueError
        When `size` is negative.
    """

def generate_random_sphere(size: _Integer, seed: _Integer) -> list[NDArray[np.float64]]:
    """Spread directions over the whole sphere.

    Parameters
    ----------
    size : int
        Half the number of directions.
    seed : int

    Returns
    -------
    list of numpy.ndarray, shape (3, 1)
        2 `size` unit vectors: those of the semisphere, then the negated continuation of its sequence.

    Raises
    ------
    ValueError
        When `size` is negative.
    """

def generate_rotations(n_rays: _Integer, seed: _Integer, tol: _Real) -> list[NDArray[np.float64]]:
    """Make frames of axes from pairs of directions that are nearly at right angles.

    Parameters
    ----------
    n_rays : int
        Half the number of directions. The number of frames grows with its square.
    seed : int
    tol : float
        A pair is used when the cosine between its directions is below this in size.

    Returns
    -------
    list of numpy.ndarray, shape (3, 3)
        Rows are orthogonal axes. The first has length 1, the other two sqrt(1 - cosine^2).

    Raises
    ------
    ValueError
        When `n_rays` is negative.
    """

def kfold_cross_validation_using_idw(
    data_locs: _Locations,
    data_values: _Values,
    covs: Sequence[Covariance],
    max_distance: _Real,
    max_size: _Integer = -1,
    power_a: _Real = 3.0,
    min_partition_size: _Integer = 10,
    max_partition_size: _Integer = 40,
    n_partition_size: _Integer = 15,
    n_threads: _Integer = 0,
    seed: _Integer = 123451,
) -> list[list[float]]:
    """Predict every datum from random subsets of the data near it by inverse distance.

    The model takes the part of the distance: a datum whose covariance with the predicted one is c has
    the weight 1 / (1 - c)^power_a, and none when c is 1. The sills should add up to 1; nothing checks
    that.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data_values : list of float, or array of shape (n,)
        Standardised before use: errors come in standard deviations.
    covs : list of Covariance
        The model.
    max_distance : float
        Data at this distance or further away are not used; Euclidean.
    max_size : int, default -1
        How many of the nearest data, the datum itself among them, may be used. 0 stands for all within
        `max_distance`; so do negative numbers and those of n or more, which search nothing and look at
        every datum.
    power_a : float, default 3
        Power of the inverse distance.
    min_partition_size, max_partition_size : int, default 10 and 40
        Size of a random subset; drawn anew for each, and never more than there are data to use.
    n_partition_size : int, default 15
        Number of subsets from which each datum is predicted.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result depends on it, since each draws from an engine
        of its own.
    seed : int, default 123451

    Returns
    -------
    list of list of float
        For each datum and subset the estimate minus the value; NaN where there are fewer than three
        data to use, or where none of them has a weight.

    Raises
    ------
    ValueError
        When lists are not equally long, `covs` is empty, a count is negative or `max_partition_size` is
        below `min_partition_size`.

    References
    ----------
    Shepard, D. (1968). A two-dimensional interpolation function for irregularly-spaced data.
    Proceedings of the 23rd ACM National Conference, 517-524.
    """

def kfold_cross_validation_using_ok(
    data_locs: _Locations,
    data_values: _Values,
    covs: Sequence[Covariance],
    max_distance: _Real,
    max_size: _Integer = -1,
    min_partition_size: _Integer = 10,
    max_partition_size: _Integer = 40,
    n_partition_size: _Integer = 15,
    n_threads: _Integer = 0,
    seed: _Integer = 123451,
) -> list[list[float]]:
    """Predict every datum from random subsets of the data near it by ordinary kriging.

    The estimate includes the Lagrange multiplier, as `compute_ordinary_kriging` does.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data_values : list of float, or array of shape (n,)
        Standardised before use: errors come in standard deviations.
    covs : list of Covariance
        The model.
    max_distance : float
        Data at this distance or further away are not used; Euclidean.
    max_size : int, default -1
        How many of the nearest data, the datum itself among them, may be used. 0 stands for all within
        `max_distance`; so do negative numbers and those of n or more, which search nothing and look at
        every datum.
    min_partition_size, max_partition_size : int, default 10 and 40
        Size of a random subset; drawn anew for each, and never more than there are data to use.
    n_partition_size : int, default 15
        Number of subsets from which each datum is predicted.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result depends on it, since each draws from an engine
        of its own.
    seed : int, default 123451

    Returns
    -------
    list of list of float
        For each datum and subset the estimate minus the value; NaN where there are fewer than three
        data to use.

    Raises
    ------
    ValueError
        When lists are not equally long, `covs` is empty, a count is negative or `max_partition_size` is
        below `min_partition_size`.

    References
    ----------
    Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
    section 2.6.
    """

def kfold_cross_validation_using_sk(
    data_locs: _Locations,
    data_values: _Values,
    covs: Sequence[Covariance],
    max_distance: _Real,
    max_size: _Integer = -1,
    min_partition_size: _Integer = 10,
    max_partition_size: _Integer = 40,
    n_partition_size: _Integer = 15,
    n_threads: _Integer = 0,
    seed: _Integer = 123451,
) -> list[list[float]]:
    """Predict every datum from random subsets of the data near it by simple kriging.

    The known mean is that of the data.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data_values : list of float, or array of shape (n,)
        Standardised before use: errors come in standard deviations.
    covs : list of Covariance
        The model.
    max_distance : float
        Data at this distance or further away are not used; Euclidean.
    max_size : int, default -1
        How many of the nearest data, the datum itself among them, may be used. 0 stands for all within
        `max_distance`; so do negative numbers and those of n or more, which search nothing and look at
        every datum.
    min_partition_size, max_partition_size : int, default 10 and 40
        Size of a random subset; drawn anew for each, and never more than there are data to use.
    n_partition_size : int, default 15
        Number of subsets from which each datum is predicted.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result depends on it, since each draws from an engine
        of its own.
    seed : int, default 123451

    Returns
    -------
    list of list of float
        For each datum and subset the estimate minus the value; NaN where there are fewer than three
        data to use.

    Raises
    ------
    ValueError
        When lists are not equally long, `covs` is empty, a count is negative or `max_partition_size` is
        below `min_partition_size`.

    References
    ----------
    Chiles, J.-P. and Delfiner, P. (2012). Geostatistics: Modeling Spatial Uncertainty, 2nd ed.,
    section 2.6.
    """

def lognormal_distribution(m: _Real, s: _Real) -> Distribution:
    """Make the distribution of the exponential of a normal.

    Parameters
    ----------
    m, s : float
        Mean and standard deviation of the logarithm.

    Returns
    -------
    Distribution
    """

def merge_clusters(locations: _Locations, labels: _Integers, max_angle: _Real) -> list[int]:
    """Make clusters one that are close to each other, repeatedly.

    Parameters
    ----------
    locations : list of numpy.ndarray, or array of shape (n, 3)
    labels : list of int
        For each location the label of its cluster.
    max_angle : float
        Degrees. Clusters become one when two of their members are not further apart.

    Returns
    -------
    list of int
        For each location its new label, from 0 in order of first appearance.

    Raises
    ------
    ValueError
        When `locations` and `labels` are not equally many.
    """

def optimize_covariance(
    covs: Sequence[Sequence[Covariance]],
    error_function: CovarianceErrorFunction,
    n_iterations: _Integer = 8000,
    n_iterations_without_upgrade: _Integer = 8000,
    n_threads: _Integer = 0,
    debug: bool = False,
) -> tuple[list[Covariance], float]:
    """Search for the covariance model of the smallest error.

    First the given models are scanned, each thread taking a contiguous stretch of them. Then each thread
    perturbs the best it knows: ranges shrink to 0.1 to 1 times what they were, angles move by up to 15
    degrees, and what is better is kept. Nuggets and sills stay.

    Parameters
    ----------
    covs : list of list of Covariance
        The models to try.
    error_function : CovarianceErrorFunction
    n_iterations : int
        Bound of the models that each thread scans while any thread is active, and number of
        perturbations tried after the scan. A thread stops being active after as many models as there
        are threads, so that usually all are scanned.
    n_iterations_without_upgrade : int
        Bound, in the same way, of the models scanned without an improvement.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result depends on it.
    debug : bool, default False
        Whether progress is printed, on standard output and on standard error.

    Returns
    -------
    tuple of (list of Covariance, float)
        The best model and its error. The first model is scored with all threads, all others with one.

    Raises
    ------
    ValueError
        When `covs` is empty or `n_iterations` is negative.
    """

def optimize_covariance_using_idw(
    data_locs: _Locations,
    data: _Values,
    ellipsoid: Ellipsoid,
    cov_kernel: Kernel,
    n_kernels: _Integer,
    n_covs: _Integer,
    delta_angle: _Real,
    min_str_range: _Real,
    max_str_range: _Real,
    min_sill: _Real,
    max_sill: _Real,
    min_range: _Real,
    max_range: _Real,
    power_a: _Real,
    max_distance: _Real,
    max_nei_size: _Integer,
    min_partition_size: _Integer,
    max_partition_size: _Integer,
    n_partitions: _Integer,
    regularization_const: _Real,
    n_centers: _Integer,
    n_rays: _Integer,
    n_scales: _Integer,
    n_iterations: _Integer,
    n_iterations_without_upgrade: _Integer,
    tol: _Real,
    seed: _Integer = 12315,
    n_threads: _Integer = 0,
    debug: bool = True,
) -> tuple[list[Covariance], float]:
    """Search for the nested covariance model whose inverse distances predict the data best.

    The candidates of `generate_covariances` are scored as by `optimize_ellipsoid_using_idw`.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data : list of float, or array of shape (n,)
    ellipsoid, cov_kernel, n_kernels, n_covs, delta_angle
        Of the candidates; see `generate_covariances`.
    min_str_range, max_str_range, min_sill, max_sill
        The same.
    power_a : float
        Power of the inverse distance.
    max_distance : float
        Reach of a fold around its centre, and of the data that a prediction may use; Euclidean.
    max_nei_size : int
        Largest number of data in a fold; at or below 0 all within `max_distance`.
    min_partition_size, max_partition_size, n_partitions : int
        Sizes and number of the random subsets from which each datum of a fold is predicted.
    regularization_const : float
        Weight of the penalty on long ranges: the error is multiplied by 1 plus this times the sum of
        log(1 + range^2) over the ranges, in the units of the coordinates. Where those are small beside
        the field, even a small weight outweighs the fit and drives the ranges toward 0.
    n_centers : int
        Number of folds.
    n_iterations : int
        Bound of the models that each thread scans while any thread is active, and number of
        perturbations tried after the scan. A thread stops being active after as many models as there
        are threads, so that usually all are scanned.
    n_iterations_without_upgrade : int
        Bound, in the same way, of the models scanned without an improvement.
    min_range, max_range, n_rays, n_scales, tol
        Have no effect; they make the arguments those of `optimize_ellipsoid_using_idw`.
    seed : int, default 12315
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result depends on it.
    debug : bool, default True
        Whether progress is printed, on standard output and on standard error.

    Returns
    -------
    tuple of (list of Covariance, float)
        The best model and its error.

    Raises
    ------
    ValueError
        As for `optimize_ellipsoid_using_idw`.
    """

def optimize_ellipsoid(
    data_locs: _Locations,
    data: _Values,
    cov_kernel: Kernel,
    min_range: _Real,
    max_range: _Real,
    parameters: EllipsoidOptimizationParameters = ...,
) -> tuple[Ellipsoid, float]:
    """Search for the ellipsoid in whose metric inverse distances predict the data best, in parts of the
    field's size.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data : list of float, or array of shape (n,)
    cov_kernel : Kernel
    min_range, max_range : float
        As for `optimize_ellipsoid_using_idw`, in parts of the diagonal of the data's bounding box. The
        diagonal is also the `max_distance`.
    parameters : EllipsoidOptimizationParameters, optional
        All other settings.

    Returns
    -------
    tuple of (Ellipsoid, float)
        The best ellipsoid and its error.

    Raises
    ------
    ValueError
        As for `optimize_ellipsoid_using_idw`, or when there are no data.
    """

def optimize_ellipsoid_using_idw(
    data_locs: _Locations,
    data: _Values,
    cov_kernel: Kernel,
    min_range: _Real,
    max_range: _Real,
    power_a: _Real,
    max_distance: _Real,
    max_nei_size: _Integer,
    min_partition_size: _Integer,
    max_partition_size: _Integer,
    n_partitions: _Integer,
    regularization_const: _Real,
    n_centers: _Integer,
    n_rays: _Integer,
    n_scales: _Integer,
    n_iterations: _Integer,
    n_iterations_without_upgrade: _Integer,
    tol: _Real,
    seed: _Integer = 12315,
    n_threads: _Integer = 0,
    debug: bool = True,
) -> tuple[Ellipsoid, float]:
    """Search for the ellipsoid in whose metric inverse distances predict the data best.

    The candidates of `generate_ellipsoids`, as models of one structure with sill 1, are scored by
    cross-validation on folds that `create_folds` cuts out, and searched as by `optimize_covariance`.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data : list of float, or array of shape (n,)
    cov_kernel : Kernel
    min_range, max_range : float
        Bounds of the length of the vector whose components are a candidate's ranges.
    power_a : float
        Power of the inverse distance.
    max_distance : float
        Reach of a fold around its centre, and of the data that a prediction may use; Euclidean.
    max_nei_size : int
        Largest number of data in a fold; at or below 0 all within `max_distance`.
    min_partition_size, max_partition_size, n_partitions : int
        Sizes and number of the random subsets from which each datum of a fold is predicted.
    regularization_const : float
        Weight of the penalty on long ranges: the error is multiplied by 1 plus this times the sum of
        log(1 + range^2) over the ranges, in the units of the coordinates. Where those are small beside
        the field, even a small weight outweighs the fit and drives the ranges toward 0.
    n_centers : int
        Number of folds.
    n_rays, n_scales, tol
        Of the candidates; see `generate_ellipsoids`.
    n_iterations : int
        Bound of the models that each thread scans while any thread is active, and number of
        perturbations tried after the scan. A thread stops being active after as many models as there
        are threads, so that usually all are scanned.
    n_iterations_without_upgrade : int
        Bound, in the same way, of the models scanned without an improvement.
    seed : int, default 12315
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result depends on it.
    debug : bool, default True
        Whether progress is printed, on standard output and on standard error.

    Returns
    -------
    tuple of (Ellipsoid, float)
        The best ellipsoid and its error.

    Raises
    ------
    ValueError
        When lists are not equally long, there is no candidate, a count is negative or
        `max_partition_size` is below `min_partition_size`.
    """

def optimize_ellipsoid_using_kfold(
    folds: Sequence[tuple[_Locations, _Values]],
    cov_type: str,
    r1_max: _Real,
    r2_max: _Real,
    r3_max: _Real,
    regularization_const: _Real,
    cauchy_loss: _Real,
    min_partition_size: _Integer,
    max_partition_size: _Integer,
    n_partitions: _Integer,
    n_iterations: _Integer,
    seed: _Integer,
    n_threads: _Integer,
    debug: bool,
) -> tuple[Ellipsoid, list[float]]:
    """Fit the ellipsoid in whose metric inverse distances predict the data of folds best, by bounded least
    squares.

    Every fold is cut at random, `n_partitions` times, into data that predict and data that are
    predicted. A datum whose covariance with the predicted one is c has the weight (1 - c)^-3, where c
    is the sill times the correlation. The errors of the predictions, twice as large and those above 1
    brought down to 2 sqrt(|r|) - 1, are the residuals, and so is twice their mean for each partition.
    The search starts from a sill of 0.5, half the largest ranges and angles of 0; it follows exact
    derivatives and finds the nearest minimum.

    Parameters
    ----------
    folds : list of tuple of (locations, values)
        As `create_folds` makes them. Values are standardised, all folds together. Folds of fewer than
        three data are left out.
    cov_type : str
        "spherical", "gaussian", "exponential" or "idw"; any other text is a nugget, which has no
        metric to be found.
    r1_max, r2_max, r3_max : float
        Largest ranges; the smallest are 0.001 of them.
    regularization_const : float
        Weight c of three more residuals, c / (1 + t^2) with t = (range - largest) / largest, and of a
        faint one that draws the sill to 1. 0 or less leaves them out.
    cauchy_loss : float
        Scale of Cauchy's loss of each partition, which lets those that fit badly count less; below
        1e-10 there is none.
    min_partition_size, max_partition_size : int
        The number of data that predict is drawn from the first up to, but not including, the second.
        In a fold of no more data than that, all but two predict.
    n_partitions : int
        Number of random partitions of each fold.
    n_iterations : int
        Largest number of iterations.
    seed : int
    n_threads : int
        Number of threads; 0 stands for all. The result does not depend on it.
    debug : bool
        Whether the solver's progress is printed on standard output and its report on standard error.

    Returns
    -------
    tuple of (Ellipsoid, list of float)
        The ellipsoid, with its axes in order, and what was fitted: the sill, the ranges r1, r2 and r3
        and three angles a, b and c in radians, such that azimuth = 90 - a, dip = -b and rake = c in
        degrees. Where the fit cannot start, as for equal values, it is the start.

    Raises
    ------
    ValueError
        When there are no folds, the lists of a fold are not equally long, a location or a value is not
        finite, a largest range is not above 0, a count is negative or `max_partition_size` is below
        `min_partition_size`.

    Notes
    -----
    An iteration costs one covariance for each pair of a datum that predicts and one that is predicted,
    and about twice that for the derivatives.

    References
    ----------
    Levenberg, K. (1944). A method for the solution of certain non-linear problems in least squares.
    Quarterly of Applied Mathematics 2, 164-168.
    Marquardt, D. W. (1963). An algorithm for least-squares estimation of nonlinear parameters. Journal
    of the Society for Industrial and Applied Mathematics 11, 431-441.
    """

@overload
def optimize_isomorphism(
    source: _Values,
    target: _Values,
    kernel_type_forward: str,
    n_centers_forward: _Integer,
    min_beta_forward: _Real,
    max_beta_forward: _Real,
    kernel_type_backward: str,
    n_centers_backward: _Integer,
    min_beta_backward: _Real,
    max_beta_backward: _Real,
    min_weight: _Real,
    max_weight: _Real,
    min_center: _Real,
    max_center: _Real,
    n_partitions: _Integer,
    min_partition_size: _Integer,
    max_partition_size: _Integer,
    cauchy_loss: _Real,
    n_iterations: _Integer,
    n_threads: _Integer,
    seed: _Integer,
    debug: bool,
) -> Isomorphism:
    """Fit a smooth map to pairs of values, and the way back to what the map makes of the source.

    Parameters
    ----------
    source, target : list of float, or array of shape (n,)
        What is mapped, and what it is to be mapped to.
    kernel_type_forward, kernel_type_backward : str
        As for `Projection`.
    n_centers_forward, n_centers_backward : int
    min_beta_forward, max_beta_forward, min_beta_backward, max_beta_backward : float
        Bounds of the betas: per unit of the source forward, and per unit of the target back.
    min_weight, max_weight : float
        Bounds of the weights forward and of the centres back, in units of the target.
    min_center, max_center : float
        Bounds of the centres forward and of the weights back, in units of the source.
    n_partitions, min_partition_size, max_partition_size : int
    cauchy_loss : float
    n_iterations, n_threads, seed : int
    debug : bool
        As for `optimize_projection`.
    source_data, target_data : list of float, or array of shape (n,)
        In the second form, the samples that bounds and sizes are derived from as well.
    iso_params : IsomorphismParameters
        In the second form, how. Left out, the way forward has the exponential kernel and the way back
        the spherical one.

    Returns
    -------
    Isomorphism

    Raises
    ------
    ValueError
        When the samples are not equally many or empty, a count is negative or `max_partition_size` is
        below `min_partition_size`.
    """

@overload
def optimize_isomorphism(
    source_data: _Values, target_data: _Values, iso_params: IsomorphismParameters = ...
) -> Isomorphism: ...
def optimize_local_ellipsoids(
    data_locs: _Locations,
    data: _Values,
    cov_kernel: Kernel,
    min_range: _Real,
    max_range: _Real,
    n_centers: _Integer,
    center_max_size: _Real,
    center_size: _Integer,
    ellipsoid_opt_params: EllipsoidOptimizationParameters = ...,
) -> LocalCovariances:
    """Search for an ellipsoid of its own in each of several areas of the data, by random search.

    The areas are folds as `create_folds` makes them, around the highest value and others of the upper
    half. In each of them `optimize_ellipsoid_using_idw` searches.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data : list of float, or array of shape (n,)
    cov_kernel : Kernel
    min_range, max_range : float
        Shortest and longest ranges to try, in parts of the diagonal of an area's bounding box. The
        diagonal is also the `max_distance` of the search.
    n_centers : int
        Number of areas. Below 1 all data are one.
    center_max_size : float
        How far an area reaches from its centre: this many times the diagonal of all data over
        `n_centers`.
    center_size : int
        Largest number of data in an area; below 1, and at n or more, all within reach.
    ellipsoid_opt_params : EllipsoidOptimizationParameters, optional
        All other settings. Its `n_centers` and `max_nei_size` are those of the folds within an area.
        With `debug`, progress is printed on standard output and on standard error.

    Returns
    -------
    LocalCovariances
        For each area the mean of its locations, a model of one structure with sill 1 and its error.
        Depends on the number of threads, as `optimize_ellipsoid_using_idw` does.

    Raises
    ------
    ValueError
        As for `optimize_ellipsoid_using_idw`, or when there are no data.

    Notes
    -----
    The areas are searched one after the other; the cost is that of so many searches.
    """

def optimize_local_ellipsoids_using_lbfgs(
    data_locs: _Locations,
    data: _Values,
    cov_type: str,
    n_centers: _Integer,
    n_local_centers: _Integer,
    center_max_size: _Real,
    center_size: _Integer,
    local_center_size: _Integer,
    max_local_range: _Real,
    ellipsoid_opt_params: EllipsoidLBFGSParameters,
) -> LocalCovariances:
    """Fit an ellipsoid of its own in each of several areas of the data, by bounded least squares.

    The areas are folds as `create_folds` makes them, and each is cut into folds again, to which
    `optimize_ellipsoid_using_kfold` fits. Its `regularization_const` is that of the settings times
    their `n_partitions` and the number of folds. The error of an ellipsoid is that of
    `compute_ellipsoid_error_idw` on all areas, with the power 3 and the radius of an area as the
    `max_distance`.

    Parameters
    ----------
    data_locs : list of numpy.ndarray, or array of shape (n, 3)
    data : list of float, or array of shape (n,)
    cov_type : str
        "spherical", "gaussian", "exponential" or "idw"; any other text is a nugget, which has no
        metric to be found.
    n_centers : int
        Number of areas. Below 1 all data are one.
    n_local_centers : int
        Number of folds of an area.
    center_max_size : float
        How far an area, or a fold of it, reaches from its centre: this many times the diagonal of all
        data over `n_centers`.
    center_size, local_center_size : int
        Largest number of data in an area and in a fold of it; below 1, and at their number or more, all
        within reach.
    max_local_range : float
        Largest range, in the units of the coordinates.
    ellipsoid_opt_params : EllipsoidLBFGSParameters
        All other settings. With `debug`, progress is printed on standard output and on standard error.

    Returns
    -------
    LocalCovariances
        For each area the mean of its locations, a model of one structure with sill 1 and its error. The
        errors add up to 1. The ellipsoids do not depend on the number of threads; the errors do, as
        those of `compute_ellipsoid_error_idw`.

    Raises
    ------
    ValueError
        When `data_locs` and `data` are not equally many, there are none or one is not finite,
        `max_local_range` is not above 0, a count is negative or `max_partition_size` is below
        `min_partition_size`.

    Notes
    -----
    The areas are fitted one after the other, and each is scored on all: fits cost in proportion to
    `n_centers`, scoring to its square.
    """

def optimize_projection(
    source: _Values,
    target: _Values,
    kernel: str,
    n_centers: _Integer,
    min_weight: _Real,
    max_weight: _Real,
    min_beta: _Real,
    max_beta: _Real,
    min_center: _Real,
    max_center: _Real,
    n_partitions: _Integer,
    min_partition_size: _Integer,
    max_partition_size: _Integer,
    cauchy_loss: _Real,
    n_iterations: _Integer,
    n_threads: _Integer,
    seed: _Integer,
    debug: bool,
) -> Projection:
    """Fit a smooth map to pairs of values, by bounded least squares on random subsets of the pairs.

    An error e, in standard deviations of the source, counts by 2 e while that is at most 1 in size and
    beyond it by 2 sqrt(|2 e|) - 1, so that outliers pull little. Each subset adds one residual for every
    pair and one for their root mean square. The search starts from centres at random pairs.

    Time grows with the number of pairs in all subsets times the square of the number of centres.

    Parameters
    ----------
    source, target : list of float, or array of shape (n,)
        What is mapped, and what it is to be mapped to.
    kernel : str
        As for `Projection`.
    n_centers : int
    min_weight, max_weight : float
        Bounds of the weights, in units of the target.
    min_beta, max_beta : float
        Bounds of the betas, in one over units of the source; the search starts half-way.
    min_center, max_center : float
        Bounds of the centres, in units of the source.
    n_partitions : int
        Number of random subsets. With none the result is the start.
    min_partition_size, max_partition_size : int
        A subset has from `min_partition_size` + 1 to `max_partition_size` + 1 pairs, but no more than
        n - 1; pairs are drawn with repetition.
    cauchy_loss : float
        Above 0, the scale of Cauchy's loss, which makes subsets with large residuals count less.
    n_iterations : int
        Largest number of steps of the solver.
    n_threads : int
        Number of threads; 0 stands for all. The result does not depend on it.
    seed : int
    debug : bool
        Whether the solver reports on standard output.

    Returns
    -------
    Projection
        The start when it is out of bounds, or when a residual is not finite there, as with a constant
        source.

    Raises
    ------
    ValueError
        When `source` and `target` are not equally many or empty, a count is negative or
        `max_partition_size` is below `min_partition_size`.

    References
    ----------
    Nadaraya, E. A. (1964). On estimating regression. Theory of Probability and its Applications 9(1),
    141-142 (the form of the map).
    """

def optimize_rotation(
    locations: _Locations,
    sample_size: _Integer = 30000,
    n_iterations: _Integer = 20000,
    n_threads: _Integer = 0,
    seed: _Integer = 12356,
    use_fixed_samples: bool = True,
    n_rays: _Integer = 600,
) -> tuple[Ellipsoid, BoundingBox]:
    """Search at random for the rotation in which the outline of the locations has the smallest box.

    What is made small is log(lx + 1) + log(ly + 1) + log(lz + 1), where lx, ly and lz are the sizes of
    the box. The unrotated frame is always tried.

    Parameters
    ----------
    locations : list of numpy.ndarray, or array of shape (n, 3)
    sample_size : int, default 30000
        How many points of the outline a box is made of; all when there are not more.
    n_iterations : int, default 20000
        Number of rotations tried.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result depends on it, since each draws from an engine
        of its own.
    seed : int, default 12356
    use_fixed_samples : bool, default True
        Whether all boxes are made of the same points. It counts as True when all points are used.
    n_rays : int, default 600
        Half the number of directions of the outline, which `extreme_points` finds.

    Returns
    -------
    tuple of (Ellipsoid, BoundingBox)
        The rotation, and the box of the whole outline in the rotated frame.

    Raises
    ------
    ValueError
        When there are no locations, no rays, or a count is negative.
    """

def orthogonolize_axes(T: _Matrix, sort: bool = True) -> NDArray[np.float64]:
    """Make the rows of a matrix orthogonal by Gram-Schmidt, without normalising them.

    Parameters
    ----------
    T : numpy.ndarray, shape (3, 3)
    sort : bool, default True
        Whether each row is turned to point along +x, +y and +z (rows 0, 1 and 2) rather than against
        them. Each sign is fixed by itself, so the frame may become left-handed. Rows are not reordered.

    Returns
    -------
    numpy.ndarray, shape (3, 3)
    """

def set_fft_n_threads(n_threads: _Integer = 0) -> None:
    """Set how many threads Fourier transforms use from now on, in the whole process.

    Parameters
    ----------
    n_threads : int, default 0
        The wanted count, as `check_n_threads` reads it.
    """

@overload
def simulate(
    estimator: Estimator,
    target_locs: _Locations,
    neighborhood: Neighborhood,
    data_locs: _Locations,
    data: _Values,
    simulator: SpatialFunction,
    n_threads: _Integer = 0,
) -> list[float]:
    """Condition a field to data.

    What the data differ from the field is estimated at the targets and added to the field there. Where
    the estimator is exact at data, as kriging is, so is the result, but for a field with a nugget: that
    part is drawn anew at the targets, so that a target at a datum differs from it by two draws. The
    field and the data should have one mean and one variance: transform the data to normal scores first,
    and the result back.

    Parameters
    ----------
    estimator : Estimator
        Kriging with the covariance model of the field.
    target_locs : list of numpy.ndarray, or array of shape (n, 3)
    neighborhood : Neighborhood
        The search structure over `data_locs`.
    data_locs : list of numpy.ndarray, or array of shape (m, 3)
    data : list of float, or array of shape (m,)
    simulator : SpatialFunction
        The unconditional field. All randomness is in it.
    simulators : list of SpatialFunction
        In the second form, a field for each of several realisations. Kriging then weighs the data once
        for all of them.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it, unless the field has a
        nugget.

    Returns
    -------
    list of float
        One value for each target; NaN where the estimate is. In the second form a list of such lists,
        one for each field.

    Raises
    ------
    ValueError
        When `data_locs`, `data`, the neighborhood and the estimator's `dhids` are not equally many.

    References
    ----------
    Journel, A. G. (1974). Geostatistics for conditional simulation of ore bodies. Economic Geology
    69(5), 673-687.
    """

@overload
def simulate(
    estimator: Estimator,
    target_locs: _Locations,
    neighborhood: Neighborhood,
    data_locs: _Locations,
    data: _Values,
    simulators: Sequence[SpatialFunction],
    n_threads: _Integer = 0,
) -> list[list[float]]: ...
def smooth_variogram(
    vario: ExperimentalVariogram,
    n_lags: _Integer,
    max_n_neis: _Integer,
    max_r: _Real,
    bandwidth: _Real,
    power_a: _Real,
    max_weight: _Real,
    sampling_size: _Integer,
    n_threads: _Integer = 0,
    seed: _Integer = 123151,
) -> ExperimentalVariogram:
    """Resample an experimental variogram at new lags, as means of the entries around them.

    New lags are drawn along each direction from a half-normal distribution, scaled to the direction's
    longest lag. Entries near a lag, of whatever direction, count by their pairs and the inverse of
    their distance.

    Parameters
    ----------
    vario : ExperimentalVariogram
    n_lags : int
        Number of new lags of a direction. Below 1, each direction gets as many as it has entries.
    max_n_neis : int
        The nearest entries that a new one is made of. Below 1, all that are nearer than `max_r`.
    max_r : float
        Largest distance between a lag and an entry, in the units of the lags. The shortest new lag is
        a fiftieth of it.
    bandwidth : float
        Largest distance between an entry and the line through the lag along its direction.
    power_a : float
        Power of the inverse distance.
    max_weight : float
        Weight of the entries at the very lag, from 0 to 1, when there are others.
    sampling_size : int
        Number of entries that are drawn before the lags are: no more than another seed.
    n_threads : int, default 0
        Number of threads; 0 stands for all. The result does not depend on it.
    seed : int, default 123151
        Taken modulo 2^32.

    Returns
    -------
    ExperimentalVariogram
        With the directions of `vario`. `npairs` are means, too, and lags where they are below 1 are
        left out.

    Raises
    ------
    RuntimeError
        "No lags found", when no lag is left or `vario` has no entries.
    ValueError
        When a lag of `vario` is not finite or `sampling_size` is negative.
    """

def sort_matrix3d(T: _Matrix, orthogonalize: bool = True) -> NDArray[np.float64]:
    """Put the rows of an anisotropy matrix in order of ascending length, the longest range first.

    Parameters
    ----------
    T : numpy.ndarray, shape (3, 3)
    orthogonalize : bool, default True
        Whether the rows are then made orthogonal and their signs fixed, as `orthogonolize_axes` does.

    Returns
    -------
    numpy.ndarray, shape (3, 3)
    """

def student_t_distribution(n: _Real) -> Distribution:
    """Make a Student t distribution, drawn by the polar method of Bailey (1994).

    Parameters
    ----------
    n : float
        Degrees of freedom.

    Returns
    -------
    Distribution
    """

def unconditional_ensemble_simulation(
    locs: _Locations,
    local_covs: LocalCovariances,
    simulator_factory: SimulatorFactory,
    max_weight: _Real,
    power_a: _Real,
    seed: _Integer,
) -> list[float]:
    """Simulate with covariance models that differ from place to place.

    There is a field for every local model. At a location at the distance d from the centre of a model,
    its field counts with the root of its share of the sum of 1 / d^power_a over all models, which keeps
    the variance of independent fields.

    Parameters
    ----------
    locs : list of numpy.ndarray, or array of shape (n, 3)
    local_covs : LocalCovariances
        The local models; their errors have no effect.
    simulator_factory : SimulatorFactory
        Makes the field of each model. It must cover `locs`.
    max_weight : float
        Share of the variance that models centred at the very location have when there are others.
    power_a : float
        The common powers 1, 2 and 3 are taken when this is within a millionth of them.
    seed : int
        Taken modulo 2^32; the seeds of the fields are drawn from it.

    Returns
    -------
    list of float
        One value for each location: 0 where no model has a weight.
    """

def uniform_distribution(a: _Real, b: _Real) -> Distribution:
    """Make a uniform distribution.

    Parameters
    ----------
    a, b : float
        Its ends; the second one is not drawn.

    Returns
    -------
    Distribution
    """

def variogram_computer(cov: Sequence[Covariance], data_var: _Real) -> SpatialFunction:
    """Make the variogram of a covariance model, scaled to the variance of data.

    Parameters
    ----------
    cov : list of Covariance
        The covariance model.
    data_var : float
        Variance that the variogram rises to.

    Returns
    -------
    SpatialFunction
        (1 - C(d) / C(0)) `data_var` of a lag d.
    """

def weibull_distribution(a: _Real, b: _Real) -> Distribution:
    """Make a Weibull distribution, drawn by inversion.

    Parameters
    ----------
    a : float
        Shape.
    b : float
        Scale.

    Returns
    -------
    Distribution
    """

__version__: str = "0.1.0"
