"""Ellipsoids, orientations and the directions spread over the sphere."""

import itertools
import re

import numpy as np
import pytest
import talvorix
from literal import Engine, anisotropy_matrix, sphere_directions

pytestmark = pytest.mark.quick

ANGLES = list(itertools.product([0, 35, 90, 200, 359], [-80, -30, 0, 45], [-170, -20, 0, 60, 180]))


@pytest.mark.parametrize("azimuth, dip, rake", ANGLES)
def test_matrix_is_the_axes_over_their_ranges(azimuth, dip, rake):
    ellipsoid = talvorix.Ellipsoid(100, 50, 10, azimuth, dip, rake)
    expected = anisotropy_matrix(100, 50, 10, azimuth, dip, rake)
    np.testing.assert_allclose(ellipsoid.matrix(), expected, atol=1e-15)
    np.testing.assert_allclose(ellipsoid.inv_matrix() @ expected, np.eye(3), atol=1e-13)
    np.testing.assert_allclose(
        talvorix.Direction(azimuth, dip).ravel(), 100 * expected[0], atol=1e-14
    )
    rotation = talvorix.Rotation(azimuth, dip, rake).matrix()
    np.testing.assert_allclose(rotation @ rotation.T, np.eye(3), atol=1e-14)
    # Angles read back point along the major axis, and make the same body where fixing the signs
    # of the axes one by one has left the frame right-handed.
    info = ellipsoid.info()
    assert 0 <= info.azimuth() <= 360 and -90 <= info.dip() <= 90 and -180 <= info.rake() <= 180
    line = talvorix.Direction(info.azimuth(), info.dip()).ravel()
    assert abs(line @ expected[0]) == pytest.approx(0.01, abs=1e-12)
    if np.linalg.det(talvorix.sort_matrix3d(ellipsoid.matrix())) > 0:
        again = talvorix.Ellipsoid(info).matrix()
        np.testing.assert_allclose(again.T @ again, expected.T @ expected, atol=1e-15)


def test_named_directions_and_edges_of_angles():
    for angles, axis in [((0, 0), 1), ((90, 0), 0), ((0, 90), 2)]:
        np.testing.assert_allclose(talvorix.Direction(*angles).ravel(), np.eye(3)[axis], atol=1e-15)
    ellipsoid = talvorix.Ellipsoid(100, 50, 10, 0, 0, 0)
    np.testing.assert_allclose(ellipsoid.forward([0, 1, 0]).ravel(), [0.01, 0, 0], atol=1e-17)
    # A vertical major axis reports its whole turn as azimuth.
    for dip in (90, -90):
        upright = talvorix.Ellipsoid(100, 50, 10, 30, dip, 25)
        info = upright.info()
        assert info.rake() == 0 and abs(info.dip()) == pytest.approx(90)
        again = talvorix.Ellipsoid(info).matrix()
        np.testing.assert_allclose(
            again.T @ again, upright.matrix().T @ upright.matrix(), atol=1e-12
        )


def test_constructors_agree_and_ranges_keep_their_oddities():
    six = talvorix.Ellipsoid(7, 5, 3, 20, 10, 5)
    for other in (
        talvorix.Ellipsoid(six.matrix()),
        talvorix.Ellipsoid([7, 5, 3], np.array([20, 10, 5])),
        talvorix.Ellipsoid(anisotropy_matrix=six.matrix().tolist()),
    ):
        np.testing.assert_allclose(other.matrix(), six.matrix(), atol=1e-16)
    matrix = talvorix.Ellipsoid(0, 1e-30, -4, 20, 10, 5).matrix()
    expected = anisotropy_matrix(1, 1, -4, 20, 10, 5)
    np.testing.assert_allclose(matrix, expected, atol=1e-15)
    assert np.isnan(talvorix.Ellipsoid(np.nan, 1, 1, 0, 0, 0).matrix()[0]).all()
    assert not np.isfinite(talvorix.Ellipsoid(np.zeros((3, 3))).inv_matrix()).any()
    with pytest.raises(TypeError):
        talvorix.EllipsoidInfo()


def test_sorted_ranges_axes_and_text():
    ellipsoid = talvorix.Ellipsoid(10, 50, 100, 30, 20, 10)
    rows = anisotropy_matrix(10, 50, 100, 30, 20, 10)
    info = ellipsoid.info()
    assert (info.r1(), info.r2(), info.r3()) == pytest.approx((100, 50, 10))
    axes = (ellipsoid.major_axis(), ellipsoid.mid_axis(), ellipsoid.minor_axis())
    for axis, row in zip(axes, rows[::-1], strict=True):
        assert abs(axis.ravel() @ row) == pytest.approx(1)
        assert np.linalg.norm(np.cross(axis.ravel(), row)) == pytest.approx(0, abs=1e-12)
    numbers = re.findall(r"-?\d+\.\d{6}", str(ellipsoid))
    assert str(ellipsoid) == (
        "{{r1: {}, r2: {}, r3: {}, azimuth: {}, dip: {}, rake: {}}} ".format(*numbers)
    )
    parts = [info.r1(), info.r2(), info.r3(), info.azimuth(), info.dip(), info.rake()]
    np.testing.assert_allclose([float(n) for n in numbers], parts, atol=1e-6)
    extracted = talvorix.extract_ellipsoid_info(ellipsoid.matrix())
    assert extracted.azimuth() == pytest.approx(info.azimuth())


def literal_frame(T):
    """Rows sorted by length, orthogonalised, and each turned toward its own reference axis."""
    T = T[np.argsort(np.linalg.norm(T, axis=1), kind="stable")]
    rows = []
    for row, axes in zip(T, [(0, 1, 2), (1, 0, 2), (2, 0, 1)], strict=True):
        rest = row - sum((row @ u) / (u @ u) * u for u in rows)
        toward = next(k for k in axes if k == axes[2] or abs(rest[k]) > 1e-8 * np.linalg.norm(rest))
        rows.append(-rest if rest[toward] < 0 else rest)
    return np.array(rows)


def literal_angles(P):
    R = P / np.linalg.norm(P, axis=1, keepdims=True)
    if abs(R[0, 2]) < 0.99999999:
        turn, dip = np.arctan2(R[0, 1], R[0, 0]), np.arcsin(R[0, 2])
        return (90 - np.degrees(turn)) % 360, np.degrees(dip), np.degrees(np.arctan2(*R[1:, 2]))
    sign = -1 if R[0, 2] > 0 else 1
    turn = np.arctan2(sign * R[2, 1], R[2, 0])
    return (90 - np.degrees(turn if sign > 0 else np.pi - turn)) % 360, -90 * sign, 0.0


def test_rows_sorted_oriented_and_orthogonal():
    rng = np.random.default_rng(3)
    left_handed = 0
    for i in range(200):
        # Skew frames as well as frames of ellipsoids, half of them in square directions.
        angles = rng.integers(-4, 9, 3) * 45 if i % 4 == 1 else rng.uniform(-400, 400, 3)
        T = rng.normal(size=(3, 3)) * rng.uniform(0.1, 10, (3, 1))
        T = anisotropy_matrix(*rng.uniform(1, 100, 3), *angles) if i % 2 else T
        plain, frame = talvorix.sort_matrix3d(T, False), talvorix.sort_matrix3d(T)
        np.testing.assert_array_equal(plain, T[np.argsort(np.linalg.norm(T, axis=1))])
        np.testing.assert_allclose(frame, literal_frame(T), rtol=1e-9, atol=1e-12)
        np.testing.assert_array_equal(frame, talvorix.orthogonolize_axes(plain))
        loose = talvorix.orthogonolize_axes(T, False)
        np.testing.assert_array_equal(loose[0], T[0])
        # Angles are read off the frame as it is, the wrong hand included.
        left_handed += np.linalg.det(frame) < 0
        info = talvorix.extract_ellipsoid_info(T)
        azimuth, dip, rake = literal_angles(literal_frame(T))
        apart = np.array([info.azimuth() - azimuth, info.dip() - dip, info.rake() - rake])
        np.testing.assert_allclose((apart + 180) % 360, 180, atol=1e-5)
    assert 20 < left_handed < 180
    # A row at right angles to its first reference is judged by the second, then by the third.
    np.testing.assert_array_equal(
        talvorix.orthogonolize_axes(np.array([[0, -2.0, 0], [0, 0, -3.0], [-4.0, 0, 0]])),
        [[0, 2, 0], [0, 0, 3], [4, 0, 0]],
    )
    # Signs are fixed row by row, so the frame may come out left-handed.
    assert np.linalg.det(talvorix.orthogonolize_axes(np.eye(3)[[1, 0, 2]])) == -1
    equal = talvorix.sort_matrix3d(np.diag([1.0, -1.0, 1.0])[[2, 1, 0]], False)
    np.testing.assert_array_equal(equal, np.diag([1.0, -1.0, 1.0])[[2, 1, 0]])


def test_lists_map_like_single_locations():
    ellipsoid = talvorix.Ellipsoid(7, 5, 3, 20, 10, 5)
    points = np.random.default_rng(1).normal(size=(1000, 3))
    for n_threads in (0, 1, 2):
        mapped = np.array(ellipsoid.forward(points, n_threads=n_threads))
        assert mapped.shape == (1000, 3, 1)
        np.testing.assert_allclose(mapped[..., 0], points @ ellipsoid.matrix().T, atol=1e-15)
        back = np.array(ellipsoid.backward(list(mapped), n_threads))[..., 0]
        np.testing.assert_allclose(back, points, atol=1e-13)
    np.testing.assert_array_equal(ellipsoid.forward(points[3]), ellipsoid.forward(points)[3])
    assert ellipsoid.backward([]) == []


@pytest.mark.parametrize("seed", [0, 1, 12546, 2**32 - 5, -3])
def test_directions_against_a_literal_reference(seed):
    half = np.array(talvorix.generate_random_semisphere(200, seed))[..., 0]
    whole = np.array(talvorix.generate_random_sphere(150, seed))[..., 0]
    np.testing.assert_allclose(half, sphere_directions(200, seed, whole=False), atol=1e-14)
    np.testing.assert_allclose(whole, sphere_directions(150, seed, whole=True), atol=1e-14)
    assert whole.shape == (300, 3)
    np.testing.assert_allclose(np.linalg.norm(whole, axis=1), 1, atol=1e-14)


def test_clouds_around_the_ellipsoid():
    ellipsoid = talvorix.Ellipsoid(7, 5, 3, 20, 10, 5)
    inverse = ellipsoid.inv_matrix()
    surface = np.array(ellipsoid.surface(40, 9))[..., 0]
    np.testing.assert_allclose(surface, sphere_directions(40, 9, True) @ inverse.T, atol=1e-13)
    assert len(ellipsoid.surface()) == 1200

    engine, expected = Engine(77), []
    for _ in range(25):
        factor = abs(engine.normal())
        expected += list(factor * sphere_directions(30, 77 + len(expected), True) @ inverse.T)
    volume = np.array(ellipsoid.volume(30, 25, 77))[..., 0]
    np.testing.assert_allclose(volume, expected, rtol=1e-12, atol=1e-12)

    engine = Engine(5)
    points, numbers = ellipsoid.directions(4, 50, 5)
    factors = np.array([abs(engine.normal()) for _ in range(400)])
    assert numbers == [i for i in range(8) for _ in range(50)]
    expected = factors[:, None] * np.array(ellipsoid.surface(4, 5))[numbers][..., 0]
    np.testing.assert_allclose(np.array(points)[..., 0], expected, rtol=1e-12, atol=1e-12)


def test_negative_counts_are_refused_and_zero_is_empty():
    ellipsoid = talvorix.Ellipsoid(1, 1, 1, 0, 0, 0)
    for call in (
        lambda n: talvorix.generate_random_sphere(n, 1),
        lambda n: talvorix.generate_random_semisphere(n, 1),
        ellipsoid.surface,
        ellipsoid.volume,
        lambda n: ellipsoid.volume(5, n),
        lambda n: ellipsoid.directions(n)[0],
        lambda n: ellipsoid.directions(5, n)[0],
    ):
        assert call(0) == []
        with pytest.raises(ValueError, match="must be 0 or more, but is -1"):
            call(-1)
