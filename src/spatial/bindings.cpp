#include "module/conversions.h"
#include "module/pickling.h"
#include "module/registration.h"
#include "spatial/axis_clusters.h"
#include "spatial/block_model.h"
#include "spatial/bounding_box.h"
#include "spatial/cartesian_grid.h"
#include "spatial/ellipsoid.h"
#include "spatial/extreme_points.h"
#include "spatial/neighborhood.h"
#include "spatial/orientation_generator.h"
#include "spatial/random_drillholes.h"
#include "spatial/spatial_function.h"
#include "spatial/sphere_directions.h"
#include "spatial/tightest_rotation.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

namespace py = pybind11;

namespace talvorix::python {

namespace {

void bind_spatial_function(py::module_& m) {
  py::class_<SpatialFunction> cls(m, "SpatialFunction", R"(
A function of a location or a lag, made by a factory such as `covariance_computer`.
)");
  cls.def("__call__", &SpatialFunction::operator(), py::arg("u"), R"(
Evaluate the function.

Parameters
----------
u : numpy.ndarray, shape (3, 1)
    Location or lag.

Returns
-------
float
)")
      .def("simulate", &evaluate, py::arg("locs"), py::arg("n_threads") = 0, R"(
Evaluate the function at every location, in parallel.

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
)");
  define_recipe(cls);
}

std::string ellipsoid_text(const EllipsoidInfo& e) {
  return "ranges " + shown(Vector3(e.r1, e.r2, e.r3)) + ", azimuth " + shown(e.azimuth) + ", dip " +
         shown(e.dip) + ", rake " + shown(e.rake);
}

void bind_ellipsoid_info(py::module_& m) {
  const auto field = [](double EllipsoidInfo::*member) {
    return [member](const EllipsoidInfo& info) { return info.*member; };
  };
  py::class_<EllipsoidInfo> cls(m, "EllipsoidInfo", R"(
Ranges and angles read back from an anisotropy matrix, the ranges in descending order.
)");
  cls.def("r1", field(&EllipsoidInfo::r1), "Largest range.")
      .def("r2", field(&EllipsoidInfo::r2), "Middle range.")
      .def("r3", field(&EllipsoidInfo::r3), "Smallest range.")
      .def("azimuth", field(&EllipsoidInfo::azimuth), "Degrees, clockwise from +y toward +x.")
      .def("dip", field(&EllipsoidInfo::dip), "Degrees, positive upward.")
      .def("rake", field(&EllipsoidInfo::rake), "Degrees, about the major axis.");
  cls.def("__repr__", [](const EllipsoidInfo& self) {
    return "<EllipsoidInfo: " + ellipsoid_text(self) + ">";
  });
  define_value(
      cls,
      [](const EllipsoidInfo& self) {
        return std::tie(self.r1, self.r2, self.r3, self.azimuth, self.dip, self.rake);
      },
      [](double r1, double r2, double r3, double azimuth, double dip, double rake) {
        return EllipsoidInfo{r1, r2, r3, azimuth, dip, rake};
      },
      Hashing::by_value);
}

void bind_ellipsoid(py::module_& m) {
  py::class_<Ellipsoid> cls(m, "Ellipsoid", R"(
An anisotropy: three ranges along three axes at right angles.

It is kept as a pair of matrices only: the one that maps a real offset to the isotropic space, in
which the ellipsoid is the unit sphere, and its inverse. Every distance in the library is measured
through them. Angles are in degrees: the azimuth of the first axis is clockwise from +y toward +x,
its dip positive upward, and the rake turns the other two axes about it. A range of 0 reads as 1.
)");
  cls.def(py::init<const Matrix3&>(), py::arg("anisotropy_matrix"), R"(
Make an ellipsoid from the matrix from real to isotropic space.

Parameters
----------
anisotropy_matrix : numpy.ndarray, shape (3, 3)
    Rows are the axes divided by their ranges. A singular matrix is not refused: its inverse then
    holds infinities or NaN.
)")
      .def(py::init<double, double, double, double, double, double>(), py::arg("r1"), py::arg("r2"),
           py::arg("r3"), py::arg("azimuth"), py::arg("dip"), py::arg("rake"), R"(
Make an ellipsoid from ranges and angles.

Parameters
----------
r1, r2, r3 : float
    Ranges along the first, second and third axis.
azimuth, dip, rake : float
    Degrees.
)")
      .def(py::init([](const Vector3& length, const Vector3& rotation) {
             return Ellipsoid(length[0], length[1], length[2], rotation[0], rotation[1],
                              rotation[2]);
           }),
           py::arg("length"), py::arg("rotation"), R"(
Make an ellipsoid from ranges and angles given as two triples.

Parameters
----------
length : numpy.ndarray, shape (3, 1)
    r1, r2, r3.
rotation : numpy.ndarray, shape (3, 1)
    azimuth, dip, rake in degrees.
)")
      .def(py::init<const EllipsoidInfo&>(), py::arg("ellipsoid_info"),
           "Make an ellipsoid from the ranges and angles of another one.")
      .def("info", &Ellipsoid::info, R"(
Read the ranges and angles back from the matrix.

Returns
-------
EllipsoidInfo
    Ranges in descending order and the angles of the axes so ordered. The azimuth is in [0, 360),
    the dip in [-90, 90] and the rake in (-180, 180]; with a vertical major axis the rake is 0 and
    the whole turn stands in the azimuth.
)")
      .def("forward", py::overload_cast<const Vector3&>(&Ellipsoid::forward, py::const_),
           py::arg("location"), R"(
Map from real to isotropic space.

Parameters
----------
location : numpy.ndarray, shape (3, 1)
    A location or offset; the second form takes a list, or an array of shape (n, 3), and maps each.

Returns
-------
numpy.ndarray, shape (3, 1), or list of them
)")
      .def("backward", py::overload_cast<const Vector3&>(&Ellipsoid::backward, py::const_),
           py::arg("location"), R"(
Map from isotropic to real space; takes and returns what `forward` does.
)")
      .def("forward", py::overload_cast<const Locations&, int>(&Ellipsoid::forward, py::const_),
           py::arg("locs"), py::arg("n_threads") = 0)
      .def("backward", py::overload_cast<const Locations&, int>(&Ellipsoid::backward, py::const_),
           py::arg("locs"), py::arg("n_threads") = 0)
      .def("matrix", &Ellipsoid::matrix, "Matrix from real to isotropic space, shape (3, 3).")
      .def("inv_matrix", &Ellipsoid::inv_matrix,
           "Matrix from isotropic to real space, shape (3, 3).")
      .def("surface", &Ellipsoid::surface, py::arg("n_points") = 600, py::arg("seed") = 12546, R"(
Spread points over the surface.

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
)")
      .def("volume", &Ellipsoid::volume, py::arg("n_points") = 600, py::arg("n_lags") = 300,
           py::arg("seed") = 12356, R"(
Spread points inside and around the ellipsoid.

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
)")
      .def(
          "directions",
          [](const Ellipsoid& self, int n_directions, int n_lags, std::int64_t seed) {
            auto result = self.directions(n_directions, n_lags, seed);
            return std::pair(std::move(result.points), std::move(result.direction));
          },
          py::arg("n_directions") = 600, py::arg("n_lags") = 300, py::arg("seed") = 12356, R"(
Spread points along directions.

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
)")
      .def(
          "major_axis", [](const Ellipsoid& self) { return self.axis(0); },
          "Axis of the largest range, with the range as its length, shape (3, 1).")
      .def(
          "mid_axis", [](const Ellipsoid& self) { return self.axis(1); },
          "Axis of the middle range, with the range as its length, shape (3, 1).")
      .def(
          "minor_axis", [](const Ellipsoid& self) { return self.axis(2); },
          "Axis of the smallest range, with the range as its length, shape (3, 1).")
      .def("__str__", &Ellipsoid::text);
  cls.def("__repr__",
          [](const Ellipsoid& self) { return "<Ellipsoid: " + ellipsoid_text(self.info()) + ">"; });
  define_value(
      cls, [](const Ellipsoid& self) { return std::tie(self.matrix()); },
      [](const Matrix3& matrix) { return Ellipsoid(matrix); }, Hashing::by_value);
}

void bind_orientation_functions(py::module_& m) {
  m.def("Rotation", &rotation, py::arg("azimuth"), py::arg("dip"), py::arg("rake"), R"(
Make a rotation: an ellipsoid whose three ranges are 1.

Parameters
----------
azimuth, dip, rake : float
    Degrees, as for `Ellipsoid`.

Returns
-------
Ellipsoid
)");
  m.def("Direction", &direction, py::arg("azimuth"), py::arg("dip"), R"(
Make the unit vector of a direction.

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
)");
  m.def("extract_ellipsoid_info", &extract_ellipsoid_info, py::arg("T"), R"(
Read ranges and angles from an anisotropy matrix.

Parameters
----------
T : numpy.ndarray, shape (3, 3)
    Rows are axes divided by their ranges, in any order.

Returns
-------
EllipsoidInfo
)");
  m.def("sort_matrix3d", &sort_matrix3d, py::arg("T"), py::arg("orthogonalize") = true, R"(
Put the rows of an anisotropy matrix in order of ascending length, the longest range first.

Parameters
----------
T : numpy.ndarray, shape (3, 3)
orthogonalize : bool, default True
    Whether the rows are then made orthogonal and their signs fixed, as `orthogonolize_axes` does.

Returns
-------
numpy.ndarray, shape (3, 3)
)");
  m.def("orthogonolize_axes", &orthogonolize_axes, py::arg("T"), py::arg("sort") = true, R"(
Make the rows of a matrix orthogonal by Gram-Schmidt, without normalising them.

Parameters
----------
T : numpy.ndarray, shape (3, 3)
sort : bool, default True
    Whether each row is turned to point along +x, +y and +z (rows 0, 1 and 2) rather than against
    them. Each sign is fixed by itself, so the frame may become left-handed. Rows are not reordered.

Returns
-------
numpy.ndarray, shape (3, 3)
)");
  m.def("generate_random_semisphere", &generate_random_semisphere, py::arg("size"), py::arg("seed"),
        R"(
Spread directions over half the sphere.

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
)");
  m.def("generate_random_sphere", &generate_random_sphere, py::arg("size"), py::arg("seed"), R"(
Spread directions over the whole sphere.

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
)");
}

void bind_neighborhood(py::module_& m) {
  py::class_<Neighborhood> cls(m, "Neighborhood", R"(
A search structure over a list of locations.

With an ellipsoid, distances are those of its isotropic space: a search along the major axis
reaches further, and radius 1 is the ellipsoid's surface. Without one they are Euclidean.
)");
  cls.def(py::init<const Locations&, const Ellipsoid&>(), py::arg("locations"),
          py::arg("ellipsoid"), R"(
Build the structure for an anisotropic search.

Parameters
----------
locations : list of numpy.ndarray, or array of shape (n, 3)
ellipsoid : Ellipsoid

Raises
------
ValueError
    When a location is not finite.
)")
      .def(py::init<const Locations&>(), py::arg("locations"),
           "Build the structure for a Euclidean search.")
      .def("find_neighbors",
           py::overload_cast<const Vector3&, long long>(&Neighborhood::find_neighbors, py::const_),
           py::arg("center"), py::arg("max_size").noconvert(), R"(
Find the nearest locations, or those within a radius.

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
)")
      .def("find_neighbors",
           py::overload_cast<const Vector3&, double>(&Neighborhood::find_neighbors, py::const_),
           py::arg("center"), py::arg("max_radius"))
      .def("nearest_neighbor", &Neighborhood::nearest_neighbor, py::arg("center"), R"(
Find the nearest location.

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
)");
  cls.def("__repr__", [](const Neighborhood& self) {
    return "<Neighborhood of " + std::to_string(self.size()) + " locations" +
           (self.ellipsoid() ? ", ellipsoid: " + ellipsoid_text(self.ellipsoid()->info()) : "") +
           ">";
  });
  define_value(
      cls,
      [](const Neighborhood& self) {
        return std::tuple(self.mapped_locations(), self.ellipsoid());
      },
      &Neighborhood::from_parts, Hashing::by_value);
}

// A triple of cell numbers or counts as Python sees it.
using Cells = std::tuple<std::int64_t, std::int64_t, std::int64_t>;

CellTriple from_python(const Cells& cells) {
  return {std::get<0>(cells), std::get<1>(cells), std::get<2>(cells)};
}

Cells to_python(const CellTriple& cells) { return {cells[0], cells[1], cells[2]}; }

// Lets numpy, and with it every argument that takes a list of locations, read all locations at
// once.
template <class Grid>
py::array locations_as_array(const Grid& grid, const py::object& dtype,
                             const std::optional<bool>& copy) {
  if (copy == false) {
    throw std::invalid_argument("copy is False, but the locations can only be copied");
  }
  const Locations& locations = grid.locations();
  const auto rows = static_cast<py::ssize_t>(locations.size());
  py::array_t<double> array({rows, py::ssize_t{3}});
  if (rows > 0) {
    std::memcpy(array.mutable_data(), locations.front().data(), locations.size() * sizeof(Vector3));
  }
  return dtype.is_none() ? py::array(array) : py::array(array.attr("astype")(dtype));
}

constexpr auto locations_as_array_doc = R"(
All locations as one array of shape (n, 3), which spares making an object for each.

Parameters
----------
dtype : numpy.dtype, optional
copy : bool, optional
    False is refused.

Returns
-------
numpy.ndarray, shape (n, 3)
)";

void bind_bounding_box(py::module_& m) {
  py::class_<BoundingBox> cls(m, "BoundingBox", R"(
The axis-aligned hull of a list of points.
)");
  cls.def(py::init<Locations>(), py::arg("corners"), R"(
Make the hull of a list of points.

Parameters
----------
corners : list of numpy.ndarray, or array of shape (n, 3)
    Any points. Without one the lower end is 1e30 and the upper one -1e30.
)")
      .def("corners", &BoundingBox::corners, "The points it was made from.")
      .def("lower", &BoundingBox::lower, "Smallest coordinates, shape (3, 1).")
      .def("upper", &BoundingBox::upper, "Largest coordinates, shape (3, 1).");
  cls.def("__repr__", [](const BoundingBox& self) {
    return "<BoundingBox from " + shown(self.lower()) + " to " + shown(self.upper()) + ">";
  });
  define_value(
      cls, [](const BoundingBox& self) { return std::tie(self.corners()); },
      [](Locations corners) { return BoundingBox(std::move(corners)); }, Hashing::by_value);
}

std::string grid_text(const CartesianGrid& grid) {
  const CellTriple& n = grid.number_of_cells();
  return "CartesianGrid of " + std::to_string(n[0]) + " x " + std::to_string(n[1]) + " x " +
         std::to_string(n[2]) + " cells, origin " + shown(grid.origin()) + ", rotation " +
         shown(grid.rotation());
}

using GridFields = std::tuple<Matrix3, Cells, Vector3, Vector3>;

GridFields fields_of(const CartesianGrid& grid) {
  return {grid.transformation().matrix(), to_python(grid.number_of_cells()), grid.origin(),
          grid.rotation()};
}

CartesianGrid grid_of(const Matrix3& transformation, const Cells& number_of_cells,
                      const Vector3& origin, const Vector3& rotation) {
  return {Ellipsoid(transformation), from_python(number_of_cells), origin, rotation};
}

void bind_cartesian_grid(py::module_& m) {
  const Vector3 no_origin = Vector3::Zero();
  const Vector3 along_x(90.0, 0.0, 0.0);
  py::class_<CartesianGrid> cls(m, "CartesianGrid", R"(
A regular, possibly rotated, lattice of locations.

The cells are numbered (i, j, k) along the three axes, and by a linear index that runs fastest along
k: (i ny + j) nz + k. The origin is the location of cell (0, 0, 0) itself, so the last cell stands
one cell short of origin + length; for blocks whose low corner is c, give c plus half a cell.

The locations are made once, at construction. `numpy.asarray(grid)` gives them as one array of shape
(n, 3), and a grid can stand wherever a list of locations is asked for.
)");
  cls.def(py::init([](const Vector3& length, const Cells& number_of_cells, const Vector3& origin,
                      const Vector3& rotation) {
            return CartesianGrid(length, from_python(number_of_cells), origin, rotation);
          }),
          py::arg("length"), py::arg("number_of_cells"), py::arg("origin") = no_origin,
          py::arg("rotation") = along_x, R"(
Make a grid from two of its length, its cell counts and its cell size.

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
)")
      .def(py::init(&CartesianGrid::from_length_and_cell_size), py::arg("length"),
           py::arg("cell_size"), py::arg("origin") = no_origin, py::arg("rotation") = along_x)
      .def(py::init([](const Cells& number_of_cells, const Vector3& cell_size,
                       const Vector3& origin, const Vector3& rotation) {
             return CartesianGrid::from_cells(from_python(number_of_cells), cell_size, origin,
                                              rotation);
           }),
           py::arg("number_of_cells"), py::arg("cell_size"), py::arg("origin") = no_origin,
           py::arg("rotation") = along_x)
      .def("cell_size", &CartesianGrid::cell_size, R"(
The diagonal of a cell as a real offset, shape (3, 1): the edge lengths of an unrotated grid only.
)")
      .def("locations", &CartesianGrid::locations,
           "All cell locations in the order of the linear index, as a list.")
      .def("__array__", &locations_as_array<CartesianGrid>, py::arg("dtype") = py::none(),
           py::arg("copy") = py::none(), locations_as_array_doc)
      .def("__len__", &CartesianGrid::total)
      .def(
          "index",
          [](const CartesianGrid& self, std::int64_t i, std::int64_t j, std::int64_t k) {
            return self.index({i, j, k});
          },
          py::arg("i"), py::arg("j"), py::arg("k"), "The linear index of a cell.")
      .def(
          "__call__",
          [](const CartesianGrid& self, std::int64_t i, std::int64_t j, std::int64_t k) {
            return self.location({i, j, k});
          },
          py::arg("i"), py::arg("j"), py::arg("k"), R"(
The location of a cell.

Parameters
----------
i, j, k : int
    Numbers of the cell along the three axes; in the second form `i` is its linear index. They are
    not held against the counts: beyond them lie locations outside the grid.

Returns
-------
numpy.ndarray, shape (3, 1)
)")
      .def("__call__", py::overload_cast<std::int64_t>(&CartesianGrid::location, py::const_),
           py::arg("i"))
      .def(
          "number_of_cells",
          [](const CartesianGrid& self) { return to_python(self.number_of_cells()); },
          "Counts along the three axes, a tuple (nx, ny, nz).")
      .def(
          "ijk", [](const CartesianGrid& self, std::int64_t i) { return to_python(self.ijk(i)); },
          py::arg("i"), R"(
The numbers (i, j, k) of the cell of a linear index.

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
)")
      .def("transformation", &CartesianGrid::transformation,
           "The ellipsoid that maps offsets from the origin to the unit cube.")
      .def("corners", &CartesianGrid::corners, R"(
The eight corners of the whole length, as a list: origin first, the third axis running fastest.
)")
      .def("bounding_box", &CartesianGrid::bounding_box, "The box of the corners.");
  cls.def("__repr__", [](const CartesianGrid& self) { return "<" + grid_text(self) + ">"; });
  define_value(cls, &fields_of, &grid_of, Hashing::by_value);
}

void bind_block_model(py::module_& m) {
  py::class_<BlockModel> cls(m, "BlockModel", R"(
A grid with a mask that selects its active cells.

The active cells are numbered from 0 in the order of the grid's linear index. As with a grid,
`numpy.asarray(model)` gives their locations as one array, and a model can stand wherever a list of
locations is asked for.
)");
  cls.def(py::init<CartesianGrid, CellMask>(), py::arg("base_grid"), py::arg("mask"), R"(
Select the active cells of a grid.

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
)")
      .def(
          "cell_size", [](const BlockModel& self) { return self.base_grid().cell_size(); },
          "The diagonal of a cell as a real offset, shape (3, 1).")
      .def("base_grid", &BlockModel::base_grid, "A copy of the grid.")
      .def("locations", &BlockModel::locations, "The locations of the active cells, as a list.")
      .def("__array__", &locations_as_array<BlockModel>, py::arg("dtype") = py::none(),
           py::arg("copy") = py::none(), locations_as_array_doc)
      .def("__len__", &BlockModel::size)
      .def(
          "full_size", [](const BlockModel& self) { return self.base_grid().total(); },
          "Number of cells of the grid, active or not.")
      .def(
          "__call__",
          [](const BlockModel& self, std::int64_t i, std::int64_t j, std::int64_t k) {
            return self.location({i, j, k});
          },
          py::arg("i"), py::arg("j"), py::arg("k"), R"(
The location of an active cell.

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
)")
      .def("__call__", py::overload_cast<std::int64_t>(&BlockModel::location, py::const_),
           py::arg("i"))
      .def(
          "number_of_cells",
          [](const BlockModel& self) { return to_python(self.base_grid().number_of_cells()); },
          "Counts of the grid along its three axes, a tuple (nx, ny, nz).")
      .def(
          "ijk", [](const BlockModel& self, std::int64_t i) { return to_python(self.ijk(i)); },
          py::arg("i"), R"(
The numbers (i, j, k) of an active cell.

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
)")
      .def(
          "bounding_box", [](const BlockModel& self) { return self.base_grid().bounding_box(); },
          "The box of the whole grid's corners.");
  cls.def("__repr__", [](const BlockModel& self) {
    return "<BlockModel of " + std::to_string(self.size()) + " cells of a " +
           grid_text(self.base_grid()) + ">";
  });
  define_value(
      cls,
      [](const BlockModel& self) {
        return std::tuple_cat(fields_of(self.base_grid()), std::tie(self.mask()));
      },
      [](const Matrix3& transformation, const Cells& number_of_cells, const Vector3& origin,
         const Vector3& rotation, CellMask mask) {
        const CellTriple counts = from_python(number_of_cells);
        // Before the locations of a grid are made that may not be meant.
        require_state(std::all_of(counts.begin(), counts.end(), [](auto n) { return n >= 0; }) &&
                          static_cast<double>(counts[0]) * static_cast<double>(counts[1]) *
                                  static_cast<double>(counts[2]) ==
                              static_cast<double>(mask.size()),
                      "the mask is not as long as the grid");
        return BlockModel(grid_of(transformation, number_of_cells, origin, rotation),
                          std::move(mask));
      },
      Hashing::by_value);
}

void bind_orientation_generators(py::module_& m) {
  m.def("extreme_points", &extreme_points, py::arg("locations"), py::arg("n_rays") = 600,
        py::arg("seed") = 121315, py::arg("n_threads") = 0, R"(
Find the outermost locations along many directions, an outline that stands in for the whole list.

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
)");
  m.def("generate_rotations", &generate_rotations, py::arg("n_rays"), py::arg("seed"),
        py::arg("tol"), R"(
Make frames of axes from pairs of directions that are nearly at right angles.

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
)");
  m.def("generate_ellipsoids", &generate_ellipsoids, py::arg("min_range"), py::arg("max_range"),
        py::arg("n_rays"), py::arg("n_scales"), py::arg("seed"), py::arg("tol"), R"(
Make ellipsoids of many orientations and shapes, in random order.

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
)");
  m.def(
      "optimize_rotation",
      [](const Locations& locations, int sample_size, int n_iterations, int n_threads,
         std::int64_t seed, bool use_fixed_samples, int n_rays) {
        RotatedBox best = optimize_rotation(
            locations, {sample_size, n_iterations, use_fixed_samples, n_rays}, seed, n_threads);
        return std::pair(std::move(best.rotation), std::move(best.box));
      },
      py::arg("locations"), py::arg("sample_size") = 30000, py::arg("n_iterations") = 20000,
      py::arg("n_threads") = 0, py::arg("seed") = 12356, py::arg("use_fixed_samples") = true,
      py::arg("n_rays") = 600, R"(
Search at random for the rotation in which the outline of the locations has the smallest box.

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
)");
}

void bind_drillholes_and_clusters(py::module_& m) {
  m.def(
      "create_random_drillholes",
      [](const BoundingBox& bounding_box, int n_holes, double spacing, double azimuth, double dip,
         double delta_angle, std::int64_t seed) {
        Drillholes holes = create_random_drillholes(bounding_box, n_holes, spacing, azimuth, dip,
                                                    delta_angle, seed);
        return std::pair(std::move(holes.locations), std::move(holes.dhids));
      },
      py::arg("bounding_box"), py::arg("n_holes"), py::arg("spacing"), py::arg("azimuth") = 0.0,
      py::arg("dip") = -90.0, py::arg("delta_angle") = 0.0, py::arg("seed") = 12345, R"(
Drill straight holes from random collars on the top face of a box.

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
)");
  m.def("find_clusters", &find_clusters, py::arg("locations"), py::arg("max_angle"),
        py::arg("n_threads") = 0, R"(
Group locations by the axis from the origin through them.

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
)");
  m.def("merge_clusters", &merge_clusters, py::arg("locations"), py::arg("labels"),
        py::arg("max_angle"), R"(
Make clusters one that are close to each other, repeatedly.

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
)");
  m.def("compute_angular_distance", &compute_angular_distance, py::arg("u"), py::arg("v"), R"(
Measure the angle between two axes; a direction and its opposite are the same axis.

Parameters
----------
u, v : numpy.ndarray, shape (3, 1)

Returns
-------
float
    Degrees from 0 to 90; NaN when either has no length.
)");
  m.def("compute_angular_distance_between_clusters", &compute_angular_distance_between_clusters,
        py::arg("locations"), py::arg("labels"), R"(
Measure the smallest angle between the axes of each two clusters.

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
)");
}

}  // namespace

void register_spatial_module(py::module_& m) {
  bind_spatial_function(m);
  bind_ellipsoid_info(m);
  bind_ellipsoid(m);
  bind_orientation_functions(m);
  bind_neighborhood(m);
}

void register_grid_module(py::module_& m) {
  bind_bounding_box(m);
  bind_cartesian_grid(m);
  bind_block_model(m);
  bind_orientation_generators(m);
  bind_drillholes_and_clusters(m);
}

}  // namespace talvorix::python
