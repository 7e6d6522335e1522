"""Outlines, families of orientations, drillholes and clusters, against literal readings."""

import itertools
import math

import numpy as np
import pytest
import talvorix
from literal import Engine, anisotropy_matrix, sphere_directions

pytestmark = pytest.mark.quick


def literal_outline(points, n_rays, seed):
    found = []
    for ray in sphere_directions(n_rays, seed, whole=True):
        p = points @ ray
        found += [int(p.argmin()), int(p.argmax())]
    return points[list(dict.fromkeys(found))]


@pytest.fixture(scope="module")
def cloud():
    turn = np.linalg.inv(anisotropy_matrix(1, 1, 1, 40, -30, 20))
    return np.random.default_rng(2).uniform(-1, 1, (2500, 3)) * [50, 20, 5] @ turn.T + [1, 2, 3]


def test_extreme_points(cloud):
    expected = literal_outline(cloud, 60, 121315)
    for n_threads in (1, 2, 0):
        found = talvorix.extreme_points(cloud, 60, n_threads=n_threads)
        np.testing.assert_array_equal(np.squeeze(found), expected)
    assert np.squeeze(talvorix.extreme_points([(4, 5, 6)])).tolist() == [4, 5, 6]
    # Of equals the first counts, wherever they stand among the blocks that are looked at together.
    for n in (2, 16, 17, 1024, 3000):
        assert len(talvorix.extreme_points(np.ones((n, 3)), 30)) == 1
    assert talvorix.extreme_points([]) == talvorix.extreme_points(cloud, 0) == []
    holed = cloud.copy()
    holed[::3, 1] = np.nan
    assert np.isfinite(talvorix.extreme_points(holed, 60)).all()
    with pytest.raises(ValueError, match="n_rays must be 0 or more"):
        talvorix.extreme_points(cloud, -1)


def literal_rotations(n_rays, seed, tol):
    rays = sphere_directions(n_rays, Engine(seed).raw(), whole=True)
    for u, v in itertools.combinations(rays, 2):
        c = u @ v
        if abs(c) < tol:
            yield np.array([u, v - c * u, np.cross(u, v - c * u)])


def test_generated_rotations_and_ellipsoids():
    frames = list(literal_rotations(20, 7, 0.05))
    assert len(frames) > 20
    np.testing.assert_allclose(talvorix.generate_rotations(20, 7, 0.05), frames, atol=1e-12)
    engine, expected = Engine(7), []
    for frame in frames:
        for s in sphere_directions(3, engine.raw(), whole=True):
            ranges = (engine.uniform() * (90 - 30) + 30) * s
            expected.append(talvorix.sort_matrix3d(frame / ranges[:, None], True))
    engine.shuffle(expected)
    found = talvorix.generate_ellipsoids(30, 90, 20, 3, 7, 0.05)
    np.testing.assert_allclose([e.matrix() for e in found], expected, rtol=1e-7, atol=1e-9)
    assert talvorix.generate_rotations(20, 7, 0.0) == []
    assert talvorix.generate_ellipsoids(30, 90, 20, 3, 7, 0.0) == []
    for call in (
        lambda: talvorix.generate_rotations(-1, 7, 0.1),
        lambda: talvorix.generate_ellipsoids(1, 2, -1, 3, 7, 0.1),
        lambda: talvorix.generate_ellipsoids(1, 2, 1, -3, 7, 0.1),
    ):
        with pytest.raises(ValueError, match=r"n_(rays|scales) must be 0 or more"):
            call()


def literal_optimum(points, sample_size, n_iterations, n_threads, seed, fixed, n_rays):
    outline = literal_outline(points, n_rays, seed)
    n = len(outline)
    main = Engine(seed)
    engines = [Engine(main.raw()) for _ in range(n_threads)]
    if sample_size >= n:
        index, fixed = list(range(n)), True
    else:
        index = [main.raw() % n for _ in range(sample_size)]
    best = [(1e30, None)] * n_threads
    for i in range(n_iterations):
        worker = i * n_threads // n_iterations
        engine, angles = engines[worker], (90, 0, 0)
        if i > 0:
            angles = 360 * engine.uniform(), 90 * engine.uniform() - 90, 180 * engine.uniform()
        sample = index if fixed else [engine.raw() % n for _ in index]
        image = outline[sample] @ anisotropy_matrix(1, 1, 1, *angles).T
        score = np.log(np.ptp(image, axis=0) + 1).sum()
        if score < best[worker][0]:
            best[worker] = score, angles
    angles = min(best, key=lambda found: found[0])[1]
    return angles, outline @ anisotropy_matrix(1, 1, 1, *angles).T


@pytest.mark.parametrize("sample_size, fixed", [(10**6, False), (12, True), (12, False)])
@pytest.mark.parametrize("n_threads", [1, 2])
def test_optimized_rotation(cloud, sample_size, fixed, n_threads):
    n_threads = min(n_threads, talvorix.check_n_threads(0))
    frame, box = talvorix.optimize_rotation(cloud, sample_size, 300, n_threads, 5, fixed, 80)
    angles, image = literal_optimum(cloud, sample_size, 300, n_threads, 5, fixed, 80)
    np.testing.assert_allclose(frame.matrix(), anisotropy_matrix(1, 1, 1, *angles), atol=1e-12)
    np.testing.assert_allclose(np.squeeze(box.corners()), image, atol=1e-9)
    np.testing.assert_allclose(box.lower().ravel(), image.min(0), atol=1e-9)
    if sample_size > 100:
        # The cloud is a turned box, and the search comes close to it.
        assert np.prod(box.upper() - box.lower()) < 2 * 100 * 40 * 10 < np.ptp(cloud, 0).prod() / 2


def test_optimized_rotation_without_a_search(cloud):
    unrotated = talvorix.Rotation(90, 0, 0).matrix()
    for options in ({"n_iterations": 1}, {"n_iterations": 0}, {"sample_size": 0}):
        frame, box = talvorix.optimize_rotation(cloud, **options)
        np.testing.assert_array_equal(frame.matrix(), unrotated)
        np.testing.assert_allclose(box.upper().ravel(), cloud.max(0), atol=0.5)
    for locations, options, message in (
        ([], {}, "locations is empty"),
        (np.full((3, 3), np.nan), {}, "all hold NaN"),
        (cloud, {"n_rays": 0}, "n_rays is 0"),
        (cloud, {"n_iterations": -1}, "n_iterations must be 0 or more"),
        (cloud, {"sample_size": -2}, "sample_size must be 0 or more"),
    ):
        with pytest.raises(ValueError, match=message):
            talvorix.optimize_rotation(locations, **options)


def test_random_drillholes():
    box = talvorix.BoundingBox([(0, 0, -100), (300, 200, 0)])
    locations, holes = talvorix.create_random_drillholes(box, 40, 7.5, 120, -60, 15, seed=9)
    engine, expected, numbers = Engine(9), [], []
    for hole in range(40):
        place = np.array([300 * engine.uniform(), 200 * engine.uniform(), 0.0])
        shifts = [(2 * engine.uniform() - 1) * 15 for _ in range(2)]
        along = talvorix.Direction(120 + shifts[0], -60 + shifts[1]).ravel()
        for k in itertools.count():
            at = place + k * 7.5 * along
            if (at < [0, 0, -100]).any() or (at > [300, 200, 0]).any():
                break
            expected.append(at)
            numbers.append(hole)
    assert holes == numbers
    np.testing.assert_allclose(np.squeeze(locations), expected, atol=1e-9)
    # Faces are inside: a vertical hole of 100 has both ends.
    assert talvorix.create_random_drillholes(box, 3, 10.0)[1] == [0] * 11 + [1] * 11 + [2] * 11
    for arguments, message in (
        ((box, -1, 10), "n_holes must be 0 or more"),
        ((box, 1, 0), "spacing is 0.000000; it must be above 0"),
        ((box, 1, math.nan), "spacing is nan"),
        ((box, 1, 1e-300), "spacing is so small"),
        ((talvorix.BoundingBox([]), 1, 10), "bounding_box is empty"),
        ((talvorix.BoundingBox([(0, 0, -math.inf), (1, 1, 1)]), 1, 10), "not finite"),
    ):
        with pytest.raises(ValueError, match=message):
            talvorix.create_random_drillholes(*arguments)


def bundles(seed, centers, spread, size):
    rng = np.random.default_rng(seed)
    axes = np.concatenate([c + spread * rng.normal(size=(size, 3)) for c in np.array(centers)])
    return axes * rng.choice([-3.0, 0.5], (len(axes), 1))


def linked(angles, max_angle):
    """Labels of the components of the graph of small angles, by breadth-first search."""
    labels = [None] * len(angles)
    for start in range(len(angles)):
        if labels[start] is None:
            labels[start], queue = 1 + max([-1, *filter(lambda x: x is not None, labels)]), [start]
            while queue:
                near = np.flatnonzero(angles[queue.pop()] <= max_angle)
                fresh = [int(j) for j in near if labels[j] is None]
                queue += fresh
                for j in fresh:
                    labels[j] = labels[start]
    return labels


def test_clusters_of_axes():
    assert talvorix.compute_angular_distance((0, 2, 0), (0, -5, 0)) == 0
    assert talvorix.compute_angular_distance((1, 0, 0), (0, 1, 0)) == 90
    assert talvorix.compute_angular_distance((1, 0, 0), (-1, 1, 0)) == pytest.approx(45)
    assert talvorix.compute_angular_distance((1, 0, 0), (1, 1e-9, 0)) == pytest.approx(
        math.degrees(1e-9)
    )
    assert math.isnan(talvorix.compute_angular_distance((0, 0, 0), (1, 0, 0)))

    axes = bundles(1, [(1, 0, 0), (1, 1, 0), (0, 1, 1), (0, 0, 1)], 0.06, 60)
    axes[[17, 99]] = 0, 0, 0
    axes = np.random.default_rng(2).permutation(axes)
    angles = np.array([[talvorix.compute_angular_distance(u, v) for u in axes] for v in axes])
    for max_angle in (0.0, 2.0, 4.0, 8.0, 25.0, 50.0, 90.0, 200.0):
        expected = linked(angles, max_angle)
        for n_threads in (1, 2):
            assert talvorix.find_clusters(axes, max_angle, n_threads) == expected
    assert talvorix.find_clusters(axes, math.nan) == list(range(len(axes)))
    assert talvorix.find_clusters([], 5) == []

    labels = np.array(talvorix.find_clusters(axes, 4.0)) * 10 - 7
    between = talvorix.compute_angular_distance_between_clusters(axes, labels)
    kinds = sorted(set(labels.tolist()))
    assert list(between) == kinds and len(kinds) > 6
    for a, b in itertools.permutations(kinds, 2):
        smallest = angles[np.ix_(labels == a, labels == b)].min()
        assert between[a][b] == pytest.approx(smallest, rel=1e-12, nan_ok=True)
    # Clusters merge as if the steps had been longer from the start.
    for max_angle in (3.0, 8.0, 25.0):
        merged = talvorix.merge_clusters(axes, labels, max_angle)
        assert merged == linked(angles, max(max_angle, 4.0))
    for call in (talvorix.compute_angular_distance_between_clusters, talvorix.merge_clusters):
        with pytest.raises(ValueError, match="labels has 1 entries but locations has 2"):
            call([(1, 0, 0), (0, 1, 0)], [0], *([3.0] if call is talvorix.merge_clusters else []))
