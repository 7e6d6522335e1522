# Written by tools/make_stubs.py from the built module: correct the bindings, not this file.
# Lines of docstrings may be too long: they were laid out for help(), further to the left.
# ruff: noqa: E501

from collections.abc import Sequence
from typing import Any, ClassVar, Protocol, TypeAlias, overload, type_check_only

import numpy as np
from numpy.typing import NDArray
from typing_extensions import Never

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

_Values: TypeAlias = Sequence[_Real] | _RealArray
"""A sequence of numbers, or an array of shape (n,)."""

_Location: TypeAlias = Sequence[_Real] | _RealArray
"""A sequence of three numbers, or an array of shape (3,), (3, 1) or (1, 3)."""

_Locations: TypeAlias = Sequence[_Location] | _RealArray
"""A sequence of locations, or an array of shape (n, 3), (n, 3, 1) or (n, 1, 3)."""

_Matrix: TypeAlias = Sequence[Sequence[_Real] | _RealArray] | _RealArray
"""Three rows of three numbers, or an array of shape (3, 3)."""

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

    @property
    def ellipsoid(self) -> Ellipsoid:
        """Its ranges."""

    @property
    def sill(self) -> float:
        """Its covariance at lag 0."""

    @property
    def type(self) -> str:
        """'spherical', 'gaussian', 'exponential', 'nugget' or 'idw'."""

class Estimator:
    """A method of estimation with its parameters bound, made by `IDW`, `SimpleKriging` or
    `OrdinaryKriging`.
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
            One estimate for each target: NaN where no datum was found, the datum where one was.

        Raises
        ------
        ValueError
            When `data_locs`, `data`, the neighborhood and the estimator's `dhids` are not equally many.
        """

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
