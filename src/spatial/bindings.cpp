#include "module/conversions.h"
#include "module/registration.h"
#include "spatial/ellipsoid.h"
#include "spatial/neighborhood.h"
#include "spatial/spatial_function.h"
#include "spatial/sphere_directions.h"

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace talvorix::python {

namespace {

void bind_spatial_function(py::module_& m) {
  py::class_<SpatialFunction>(m, "SpatialFunction", R"(
A function of a location or a lag, made by a factory such as `covariance_computer`.
)")
      .def("__call__", &SpatialFunction::operator(), py::arg("u"), R"(
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
}

void bind_ellipsoid_info(py::module_& m) {
  const auto field = [](double EllipsoidInfo::*member) {
    return [member](const EllipsoidInfo& info) { return info.*member; };
  };
  py::class_<EllipsoidInfo>(m, "EllipsoidInfo", R"(
Ranges and angles read back from an anisotropy matrix, the ranges in descending order.
)")
      .def("r1", field(&EllipsoidInfo::r1), "Largest range.")
      .def("r2", field(&EllipsoidInfo::r2), "Middle range.")
      .def("r3", field(&EllipsoidInfo::r3), "Smallest range.")
      .def("azimuth", field(&EllipsoidInfo::azimuth), "Degrees, clockwise from +y toward +x.")
      .def("dip", field(&EllipsoidInfo::dip), "Degrees, positive upward.")
      .def("rake", field(&EllipsoidInfo::rake), "Degrees, about the major axis.");
}

void bind_ellipsoid(py::module_& m) {
  py::class_<Ellipsoid>(m, "Ellipsoid", R"(
An anisotropy: three ranges along three axes at right angles.

It is kept as a pair of matrices only: the one that maps a real offset to the isotropic space, in
which the ellipsoid is the unit sphere, and its inverse. Every distance in the library is measured
through them. Angles are in degrees: the azimuth of the first axis is clockwise from +y toward +x,
its dip positive upward, and the rake turns the other two axes about it. A range of 0 reads as 1.
)")
      .def(py::init<const Matrix3&>(), py::arg("anisotropy_matrix"), R"(
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
  py::class_<Neighborhood>(m, "Neighborhood", R"(
A search structure over a list of locations.

With an ellipsoid, distances are those of its isotropic space: a search along the major axis
reaches further, and radius 1 is the ellipsoid's surface. Without one they are Euclidean.
)")
      .def(py::init<const Locations&, const Ellipsoid&>(), py::arg("locations"),
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
}

}  // namespace

void register_spatial_module(py::module_& m) {
  bind_spatial_function(m);
  bind_ellipsoid_info(m);
  bind_ellipsoid(m);
  bind_orientation_functions(m);
  bind_neighborhood(m);
}

}  // namespace talvorix::python
