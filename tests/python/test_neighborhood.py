"""The search: nearest, within a radius, and the limits that thin what it finds."""

import numpy as np
import pytest
import talvorix
from literal import anisotropy_matrix

pytestmark = pytest.mark.quick

RANGES = (100, 50, 10, 35, -20, 15)


@pytest.fixture(scope="module")
def points():
    return np.random.default_rng(5).uniform(0, 200, (700, 3))


@pytest.mark.parametrize("ranges", [None, RANGES])
def test_against_brute_force(points, ranges):
    if ranges:
        neighborhood = talvorix.Neighborhood(points, talvorix.Ellipsoid(*ranges))
        matrix = anisotropy_matrix(*ranges)
    else:
        neighborhood, matrix = talvorix.Neighborhood(points), np.eye(3)
    for center in np.random.default_rng(6).uniform(-50, 250, (60, 3)):
        distance = np.linalg.norm((points - center) @ matrix.T, axis=1)
        order = np.argsort(distance)
        assert neighborhood.nearest_neighbor(center) == order[0]
        # On both sides of the size at which the search changes its way of collecting.
        for k in (1, 2, 12, 96, 97, 300, 700, 10**6, 2**40):
            assert neighborhood.find_neighbors(center, k) == order[:k].tolist()
        for radius in (distance[order[2:4]].mean(), distance[order[200:202]].mean(), 1e9):
            within = order[distance[order] < radius]
            assert neighborhood.find_neighbors(center, float(radius)) == within.tolist()
            assert neighborhood.find_neighbors(center, -float(radius)) == within.tolist()


def test_a_whole_walk_of_targets_finds_what_each_finds_alone(points):
    # Estimators bound each search by the last one; their mean of k neighbours gives it away.
    values = np.random.default_rng(7).normal(size=len(points))
    neighborhood = talvorix.Neighborhood(points, talvorix.Ellipsoid(*RANGES))
    walk = np.cumsum(np.random.default_rng(8).normal(0, 8, (400, 3)), axis=0) + 100
    walk[50:60] = walk[50]
    walk[100] = points[3]
    walk[200] = 1e7
    mean_of = talvorix.IDW([], max_neighbors=12)
    estimates = mean_of(walk, neighborhood, points, values, n_threads=1)
    expected = []
    for target in walk:
        found = neighborhood.find_neighbors(target, 12)
        weight = np.array([0.9 if (points[i] == target).all() else 1.0 for i in found])
        apart = values[found][weight == 1.0].mean()
        here = values[found][weight != 1.0]
        expected.append(0.1 * apart + 0.9 * here.mean() if len(here) else apart)
    np.testing.assert_allclose(estimates, expected, rtol=1e-12)


def test_radius_is_strict_and_the_argument_type_chooses(points):
    line = np.array([[0.0, 0, 0], [1, 0, 0], [2, 0, 0], [3, 0, 0]])
    neighborhood = talvorix.Neighborhood(line)
    assert neighborhood.find_neighbors([0, 0, 0], 2) == [0, 1]
    assert neighborhood.find_neighbors([0, 0, 0], 2.0) == [0, 1]
    assert neighborhood.find_neighbors([0, 0, 0], 2.5) == [0, 1, 2]
    assert neighborhood.find_neighbors([0, 0, 0], np.int64(4)) == [0, 1, 2, 3]
    assert neighborhood.find_neighbors([0, 0, 0], np.float32(2.5)) == [0, 1, 2]
    assert neighborhood.find_neighbors([0, 0, 0], max_radius=0.5) == [0]
    assert neighborhood.find_neighbors([0, 0, 0], 0) == []
    # Radius 1 is the surface of the ellipsoid.
    ellipsoid = talvorix.Ellipsoid(2.0001, 1, 1, 90, 0, 0)
    assert talvorix.Neighborhood(line, ellipsoid).find_neighbors([0, 0, 0], 1.0) == [0, 1, 2]


def test_coincident_and_many_equal_points():
    same = talvorix.Neighborhood(np.ones((5000, 3)))
    assert sorted(same.find_neighbors([1, 1, 1], 5000)) == list(range(5000))
    assert len(set(same.find_neighbors([0, 0, 0], 50))) == 50
    assert len(same.find_neighbors([1, 1, 1], 1e-200)) == 0  # its square is 0
    assert len(same.find_neighbors([1, 1, 1], 1e-100)) == 5000


def test_bad_input_is_refused():
    empty = talvorix.Neighborhood([])
    assert empty.find_neighbors([0, 0, 0], 5) == []
    assert empty.find_neighbors([0, 0, 0], 5.0) == []
    with pytest.raises(ValueError, match="holds no locations"):
        empty.nearest_neighbor([0, 0, 0])
    one = talvorix.Neighborhood([[0, 0, 0]])
    with pytest.raises(ValueError, match="max_size must be 0 or more, but is -2"):
        one.find_neighbors([0, 0, 0], -2)
    for bad in (np.nan, np.inf, -np.inf):
        with pytest.raises(ValueError, match=r"locations\[1\] is not finite"):
            talvorix.Neighborhood([[0, 0, 0], [1, bad, 0]])
        for argument in (3, 3.0):
            with pytest.raises(ValueError, match="center is not finite"):
                one.find_neighbors([0, bad, 0], argument)
        with pytest.raises(ValueError, match="center is not finite"):
            one.nearest_neighbor([0, bad, 0])
    with pytest.raises(ValueError, match="ellipsoid maps"):
        talvorix.Neighborhood([[1, 1, 1]], talvorix.Ellipsoid(np.full((3, 3), np.nan)))
    # Distances that overflow cannot be compared; nothing is found rather than something wrong.
    far = talvorix.Neighborhood([[1e200, 0, 0]])
    assert far.find_neighbors([0, 0, 0], 1) == []
    with pytest.raises(ValueError, match="too far"):
        far.nearest_neighbor([0, 0, 0])
