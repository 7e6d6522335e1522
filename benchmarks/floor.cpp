// The floor of local kriging: what the kd-tree query and the factorisation of one system cost when
// nothing else is done. kriging.py compiles this file and calls it through ctypes.

#include <cstddef>
#include <cstdint>
#include <Eigen/Dense>
#include <nanoflann.hpp>
#include <vector>

namespace {

struct Cloud {
  const double* points;
  std::size_t count;
  std::size_t kdtree_get_point_count() const { return count; }
  double kdtree_get_pt(std::size_t i, std::size_t axis) const { return points[3 * i + axis]; }
  template <class Box>
  bool kdtree_get_bbox(Box&) const {
    return false;
  }
};

using Tree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, Cloud>, Cloud,
                                                 3, std::uint32_t>;

struct Index {
  Cloud cloud;
  Tree tree;
  Index(const double* points, std::size_t count)
      : cloud{points, count}, tree(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(10)) {
    tree.buildIndex();
  }
};

}  // namespace

extern "C" {

// The points (count x 3, row-major) are not copied and have to outlive the index.
void* floor_index(const double* points, std::size_t count) { return new Index(points, count); }

void floor_release(void* index) { delete static_cast<Index*>(index); }

// Queries the `neighbors` nearest points of every target, then factors and solves the same ready
// system of the given order; an order of 0 leaves the solve out. The sum returned depends on every
// query and every solution, so that no work can be optimised away.
double floor_run(const void* index, const double* targets, std::int64_t n_targets, int neighbors,
                 const double* system, const double* right, int order, int n_threads) {
  const Tree& tree = static_cast<const Index*>(index)->tree;
  const Eigen::MatrixXd matrix = Eigen::Map<const Eigen::MatrixXd>(system, order, order);
  const Eigen::VectorXd b = Eigen::Map<const Eigen::VectorXd>(right, order);
  double sum = 0.0;
#pragma omp parallel num_threads(n_threads) reduction(+ : sum)
  {
    std::vector<std::uint32_t> found(static_cast<std::size_t>(neighbors));
    std::vector<double> squared(static_cast<std::size_t>(neighbors));
    Eigen::LDLT<Eigen::MatrixXd> ldlt(order);
    Eigen::VectorXd solution(order);
#pragma omp for schedule(dynamic, 256)
    for (std::int64_t i = 0; i < n_targets; ++i) {
      const std::size_t count = tree.knnSearch(targets + 3 * i, static_cast<std::size_t>(neighbors),
                                               found.data(), squared.data());
      sum += squared[count - 1] + found[0];
      if (order > 0) {
        ldlt.compute(matrix);
        solution = ldlt.solve(b);
        sum += solution[0];
      }
    }
  }
  return sum;
}
}
